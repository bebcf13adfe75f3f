"""Files that appear complete or not at all."""
import contextlib
import os
import tempfile


@contextlib.contextmanager
def complete_file(path, overwrite):
    """Names a file to write beside `path`; it takes the name of `path` when all went well.

    Raises FileExistsError for a file that is there unless `overwrite`.
    """
    path = os.fspath(path)
    if not overwrite and os.path.lexists(path):
        raise FileExistsError(f"{path}: expected a new name, found a file (overwrite=True)")
    folder = os.path.dirname(os.path.realpath(path))
    with tempfile.TemporaryDirectory(prefix=".alg_factory-", dir=folder) as beside:
        partial = os.path.join(beside, os.path.basename(path))
        yield partial
        os.replace(partial, os.path.realpath(path))


def write_file(path, content, overwrite=False):
    with complete_file(path, overwrite) as partial:
        with open(partial, "wb") as file:
            file.write(content)
