"""C and C++ files into extension modules in the build folder, when they are out of date."""

import importlib.machinery
import importlib.util
import subprocess
import sys
import sysconfig
from collections.abc import Sequence
from pathlib import Path
from types import ModuleType

import paths

FLAGS = ("-O3", "-DNDEBUG", "-fPIC", "-shared", "-w")
_SUFFIX = sysconfig.get_config_var("EXT_SUFFIX")


def compiler(source: Path) -> str:
    """Return the command that compiles a file of this kind."""
    return "cc" if source.suffix == ".c" else "c++"


def compiler_version() -> str:
    """Return the first line that the C++ compiler says of itself."""
    said = subprocess.run(["c++", "--version"], check=True, capture_output=True, text=True)
    return said.stdout.splitlines()[0]


def is_current(target: Path, sources: Sequence[Path]) -> bool:
    """Whether `target` is newer than all that it is made of."""
    return target.exists() and all(
        source.stat().st_mtime < target.stat().st_mtime for source in sources
    )


def build(name: str, source: Path, headers: Sequence[Path] = ()) -> Path:
    """Return the extension module `name`, compiled from one source; raises when that fails."""
    target = paths.BUILD / f"{name}{_SUFFIX}"
    if is_current(target, [source, *headers]):
        return target
    command = [compiler(source), *FLAGS]
    if source.suffix != ".c":
        command.append("-std=c++20")
    if sys.platform == "darwin":
        command += ["-undefined", "dynamic_lookup"]
    command += [f"-I{sysconfig.get_path('include')}", str(source), "-o", str(target)]
    subprocess.run(command, check=True)
    return target


def load(name: str, file: Path) -> ModuleType:
    """Import a module, compiled or plain, from a file, under `name`."""
    spec = importlib.util.spec_from_file_location(name, file)
    if spec is None or spec.loader is None:
        raise ImportError(f"cannot import {file}")
    module = importlib.util.module_from_spec(spec)
    # Dataclasses look their module up here.
    sys.modules[name] = module
    spec.loader.exec_module(module)
    return module
