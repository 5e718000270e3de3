"""What pip calls to make a wheel (PEP 517): CMake builds the module and installs its files, which are then packed."""
import base64
import hashlib
import os
import re
import shutil
import subprocess
import sys
import sysconfig
import tempfile
import tomllib
import zipfile
from pathlib import Path
from typing import Any

ROOT = Path(__file__).resolve().parent.parent


class UnsupportedOperation(Exception):
    """Where pip and the like expect it, for hooks that are missing here."""


def build_wheel(wheel_directory: str, config_settings: Any = None, metadata_directory: str | None = None) -> str:
    """Writes the wheel and returns its name."""
    project = _project()
    python = f"cp{sys.version_info.major}{sys.version_info.minor}"
    tag = f"{python}-{python}-{re.sub('[-.]', '_', sysconfig.get_platform())}"
    with tempfile.TemporaryDirectory() as scratch:
        tree = Path(scratch) / "tree"
        _build_module(Path(scratch) / "build", tree)
        _write_metadata(project, tag, tree / f"{project['name']}-{project['version']}.dist-info")
        name = f"{project['name']}-{project['version']}-{tag}.whl"
        _pack(tree, Path(wheel_directory) / name)
    return name


def build_sdist(sdist_directory: str, config_settings: Any = None) -> str:
    """Refused: sources come from the repository."""
    raise UnsupportedOperation("there is no source distribution for Python; take the repository")


def _project() -> dict[str, Any]:
    """What pyproject.toml says, and the version, which has its place in CMakeLists.txt."""
    project: dict[str, Any] = tomllib.loads((ROOT / "pyproject.toml").read_text())["project"]
    version = re.search(r"project\(vqns VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text())
    assert version is not None
    return {**project, "version": version[1]}


def _build_module(build: Path, tree: Path) -> None:
    for tool, package in (("cmake", "cmake"), ("pkg-config", "pkg-config"), ("c++", "g++")):
        if shutil.which(tool) is None:
            sys.exit(f"{tool} is missing (Debian package {package})")
    generator = ["-G", "Ninja"] if shutil.which("ninja") else []
    settings = {"CMAKE_BUILD_TYPE": "Release", "VQNS_BUILD_TOOLS": "OFF", "VQNS_BUILD_TESTS": "OFF",
                "VQNS_BUILD_PYTHON": "ON", "VQNS_PYTHON_FOLDER": ".", "Python3_EXECUTABLE": sys.executable}
    jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(len(os.sched_getaffinity(0)))
    for command in (["-S", str(ROOT), "-B", str(build), *generator, *(f"-D{k}={v}" for k, v in settings.items())],
                    ["--build", str(build), "--target", "vqns_python", "--parallel", jobs],
                    ["--install", str(build), "--component", "python", "--prefix", str(tree), "--strip"]):
        if subprocess.run(["cmake", *command]).returncode != 0:
            sys.exit("the module could not be built; what it needs stands in docs/python.md")


def _write_metadata(project: dict[str, Any], tag: str, folder: Path) -> None:
    folder.mkdir()
    extras = project["optional-dependencies"]
    lines = ["Metadata-Version: 2.1", f"Name: {project['name']}", f"Version: {project['version']}",
             f"Summary: {project['description']}", f"License: {project['license']['text']}",
             f"Requires-Python: {project['requires-python']}", "Description-Content-Type: text/markdown",
             *(f"Requires-Dist: {package}" for package in project["dependencies"])]
    for extra, packages in extras.items():
        lines += [f"Provides-Extra: {extra}", *(f'Requires-Dist: {p}; extra == "{extra}"' for p in packages)]
    (folder / "METADATA").write_text("\n".join(lines) + "\n\n" + (ROOT / project["readme"]).read_text())
    (folder / "WHEEL").write_text(f"Wheel-Version: 1.0\nGenerator: vqns\nRoot-Is-Purelib: false\nTag: {tag}\n")
    scripts = "".join(f"{name} = {entry}\n" for name, entry in project["scripts"].items())
    (folder / "entry_points.txt").write_text(f"[console_scripts]\n{scripts}")
    shutil.copy(ROOT / "LICENSE", folder)


def _pack(tree: Path, wheel: Path) -> None:
    """As a ZIP file with a list of all files and their sums, the same bytes each time."""
    record = next(tree.glob("*.dist-info")) / "RECORD"
    files = sorted(p for p in tree.rglob("*") if p.is_file())
    sums = {p: base64.urlsafe_b64encode(hashlib.sha256(p.read_bytes()).digest()).rstrip(b"=").decode() for p in files}
    record.write_text("".join(f"{p.relative_to(tree)},sha256={sums[p]},{p.stat().st_size}\n" for p in files)
                      + f"{record.relative_to(tree)},,\n")
    with zipfile.ZipFile(wheel, "w", zipfile.ZIP_DEFLATED) as archive:
        for file in [*files, record]:
            entry = zipfile.ZipInfo(str(file.relative_to(tree)))
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o100755 if file.suffix == ".so" else 0o100644) << 16
            archive.writestr(entry, file.read_bytes())
