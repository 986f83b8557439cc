"""Those who answer through the same interface: the extension, the model, the compiled model."""

import importlib
import subprocess
import sys
from pathlib import Path
from types import ModuleType

import compiling
import paths

EXTENSION = "extension"
MODEL = "model"
CYTHON = "Cython"
FLOOR = "read floor"


def extension() -> ModuleType:
    """The module that users get, as it is installed."""
    return importlib.import_module("kestrune.search_analytics")


def extension_folder() -> Path:
    """The folder on the module search path that the extension's package is in."""
    origin = extension().__spec__.origin
    return Path(origin).parents[1]


def model() -> ModuleType:
    """The same behaviour in plain Python."""
    return compiling.load("plain_search_analytics_model", paths.MODEL)


def compiled_model() -> ModuleType:
    """The model compiled with Cython, not a character changed; raises ImportError without it."""
    source = paths.BUILD / "search_analytics_model.c"
    if not compiling.is_current(source, [paths.MODEL]):
        import Cython  # noqa: F401

        command = [sys.executable, "-m", "cython", "-3", str(paths.MODEL), "-o", str(source)]
        # It warns of annotations that it takes for none of its own; that is as it should be.
        done = subprocess.run(command, stderr=subprocess.PIPE, text=True)
        if done.returncode != 0:
            raise RuntimeError(f"Cython does not compile the model:\n{done.stderr}")
    try:
        return compiling.load(source.stem, compiling.build(source.stem, source))
    except subprocess.CalledProcessError as error:
        raise ImportError("what it makes does not compile for this interpreter") from error


def floor() -> ModuleType:
    """The loops that only read."""
    folder = paths.BENCHMARKS / "floor"
    headers = sorted(folder.glob("*.h"))
    return compiling.load(
        "floor_reads", compiling.build("floor_reads", folder / "floor.cpp", headers)
    )


def answering(absent: dict[str, str]) -> dict[str, ModuleType]:
    """All who answer, by name; notes in `absent` why one of them cannot."""
    found = {EXTENSION: extension(), MODEL: model()}
    try:
        found[CYTHON] = compiled_model()
    except ImportError as error:
        absent[CYTHON] = str(error)
    return found
