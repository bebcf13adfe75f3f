"""Files that appear complete or not at all."""
import contextlib
import errno
import os
import tempfile


@contextlib.contextmanager
def complete_file(path, overwrite, inputs=()):
    """Names a file to write beside `path`; it takes the name of `path` when all went well.

    inputs : what is read for it, of which those that are names of files must not be `path`.
    Raises FileExistsError for a file that is there unless `overwrite`, and for one that is read,
    FileNotFoundError without the folder.
    """
    path = os.fspath(path)
    if not os.path.basename(path):
        raise ValueError(f"expected the name of a file to write, found {path!r}")
    if not overwrite and os.path.lexists(path):
        raise FileExistsError(f"{path}: expected a new name, found a file (overwrite=True)")
    for name in inputs:
        if (isinstance(name, (str, os.PathLike)) and os.path.exists(name) and os.path.exists(path)
                and os.path.samefile(name, path)):
            raise FileExistsError(f"{path}: expected another name than that of a file that is read")
    folder = os.path.dirname(os.path.realpath(path))
    if not os.path.isdir(folder):
        raise FileNotFoundError(errno.ENOENT, "no such folder", folder)
    with tempfile.TemporaryDirectory(prefix=".alg_factory-", dir=folder) as beside:
        partial = os.path.join(beside, os.path.basename(path))
        yield partial
        os.replace(partial, os.path.realpath(path))


def write_file(path, content, overwrite=False):
    with complete_file(path, overwrite) as partial:
        with open(partial, "wb") as file:
            file.write(content)
