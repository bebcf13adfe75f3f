"""What an editor and help() tell."""
import inspect
import os
import pydoc
import subprocess
import sys

import pytest

import alg_factory as af

HERE = os.path.dirname(__file__)
PACKAGE = os.path.dirname(af.__file__)


def mypy(*arguments):
    pytest.importorskip("mypy")
    return subprocess.run([sys.executable, "-m", *arguments], capture_output=True, text=True,
                          timeout=300, env={**os.environ, "MYPYPATH": os.path.dirname(PACKAGE)})


def test_what_users_type_is_typed(tmp_path):
    result = mypy("mypy", "--strict", "--cache-dir", str(tmp_path / "cache"),
                  os.path.join(HERE, "typed_program.py"))
    assert result.returncode == 0, result.stdout
    wrong = tmp_path / "wrong.py"
    wrong.write_text("import alg_factory as af\naf.Recording('a').positions(object='0')\n")
    result = mypy("mypy", "--strict", "--cache-dir", str(tmp_path / "cache"), str(wrong))
    assert 'incompatible type "str"; expected "int"' in result.stdout


def test_the_stubs_have_every_public_name_and_every_argument():
    import ast
    with open(os.path.join(PACKAGE, "__init__.pyi")) as file:
        stubs = ast.parse(file.read())
    typed = {node.name: node for node in stubs.body
             if isinstance(node, (ast.ClassDef, ast.FunctionDef))}
    constants = {node.target.id for node in stubs.body if isinstance(node, ast.AnnAssign)}
    assert set(af.__all__) == set(typed) | constants
    for name, node in typed.items():
        thing = getattr(af, name)
        if isinstance(node, ast.FunctionDef):
            same_arguments(thing, node)
            continue
        public = {member for member in vars(thing) if not member.startswith("_")
                  and member not in ("with_traceback", "add_note", "args")}
        stubbed = {member.name for member in node.body if isinstance(member, ast.FunctionDef)}
        stubbed |= {member.target.id for member in node.body if isinstance(member, ast.AnnAssign)}
        assert public <= stubbed, (name, public - stubbed)
        for member in node.body:
            function = getattr(thing, getattr(member, "name", ""), None)
            if inspect.isfunction(function) and member.name in vars(thing):
                same_arguments(function, member)


def same_arguments(function, node):
    expected = [argument.arg for argument in
                node.args.args + ([node.args.vararg] if node.args.vararg else [])
                + node.args.kwonlyargs + ([node.args.kwarg] if node.args.kwarg else [])]
    assert list(inspect.signature(function).parameters) == expected, node.name


def test_everything_public_says_what_it_is():
    for name in af.__all__:
        thing = getattr(af, name)
        if not callable(thing):
            continue
        assert thing.__doc__, name
        for member, value in vars(thing).items() if inspect.isclass(thing) else ():
            if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                assert inspect.getdoc(value), f"{name}.{member}"


def test_help_teaches():
    text = pydoc.plain(pydoc.render_doc(af))
    for taught in ("Ask a recording", "as delivered", "millimetres", "host.feed(packet)",
                   "af.verify", "Errors"):
        assert taught in text, taught
