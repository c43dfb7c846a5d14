"""File operations of the recipe, after Conan's documentation."""

import fnmatch
import os
import shutil


def load(_, path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def copy(_, pattern, source, destination):
    """Copies what matches, with its folders; * matches separators as well."""
    copied = []
    for folder, folders, names in os.walk(source):
        folders[:] = [name for name in folders if name not in (".git", "build")]
        for name in names:
            path = os.path.relpath(os.path.join(folder, name), source)
            if fnmatch.fnmatch(path, pattern):
                target = os.path.join(destination, path)
                os.makedirs(os.path.dirname(target), exist_ok=True)
                shutil.copy(os.path.join(source, path), target)
                copied.append(target)
    if not copied:
        raise FileNotFoundError(f"nothing matches {pattern}")
    return copied
