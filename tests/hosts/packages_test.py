"""The Debian packages that cpack makes of this build: what they hold and need, twice the same bits, installed, used and
removed on this machine; and the source tarball."""
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import hosts
from hosts import BUILD, PROGRAM, SOURCE, need_program, run

LIB = "usr/lib/x86_64-linux-gnu"
SYMBOLS = SOURCE / "packaging/libvqns0.symbols"
VERSION = re.search(r"^project\(vqns VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text(), re.M)[1]
APT = ("apt-get", "-y", "-qq", "-o", "DPkg::Lock::Timeout=120", "-o", "Dpkg::Use-Pty=0")
os.environ.pop("LD_LIBRARY_PATH", None)  # which would hide the installed library behind that of the build

# Package: section, dependencies besides the compiler's run time, files that make it what it is.
PACKAGES = {
    "libvqns0": ("libs", {"libc6"}, {f"{LIB}/libvqns.so.0", f"{LIB}/libvqns.so.{VERSION}"}),
    "libvqns-dev": ("libdevel", {"libvqns0"}, {
        f"{LIB}/libvqns.so", f"{LIB}/libvqns.a", f"{LIB}/pkgconfig/vqns.pc", f"{LIB}/cmake/vqns/vqns-config.cmake",
        "usr/include/vqns/vq_ns.h"}),
    "vqns": ("sound", {"libc6", "libpng16-16", "libsamplerate0", "libsndfile1", "libvqns0"}, {
        "usr/bin/vqns", "usr/share/man/man1/vqns.1.gz"}),
    "vqns-plugins": ("sound", {"libc6", "libvqns0"}, set()),
}


def make_packages(folder, **environment):
    """Runs cpack away from the build folder; returns {package: file}."""
    run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", folder, "-D", f"CPACK_OUTPUT_FILE_PREFIX={folder}/debs",
        env=os.environ | environment)
    return {file.name.split("_")[0]: file for file in sorted((folder / "debs").iterdir())}


def field(deb, name):
    return run("dpkg-deb", "-f", deb, name).stdout.strip()


def dependencies(deb):
    """{package: version condition}"""
    return dict(re.fullmatch(r"(\S+)(?: \((.*)\))?", d).groups() for d in field(deb, "Depends").split(", "))


def files_below(root):
    """{path below root: file or link}"""
    return {str(p.relative_to(root)): p for p in root.rglob("*") if p.is_symlink() or not p.is_dir()}


def dynamic(file):
    """[(tag, value)] of the dynamic section of an ELF file; nothing of other files and links."""
    if file.is_symlink() or file.read_bytes()[:4] != b"\x7fELF":
        return []
    return re.findall(r"\((\w+)\)[^\[\n]*\[(.*)\]", run("readelf", "-d", file).stdout)


class Packages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="packages-")))
        cls.folder.chmod(0o755)
        cls.debs = make_packages(cls.folder / "one")
        cls.trees = {name: cls.folder / name for name in cls.debs}
        for name, deb in cls.debs.items():
            run("dpkg-deb", "-R", deb, cls.trees[name])
        cls.files = {name: {path: file for path, file in files_below(tree).items() if not path.startswith("DEBIAN/")}
                     for name, tree in cls.trees.items()}
        cls.library = cls.trees["libvqns0"] / LIB / f"libvqns.so.{VERSION}"

    def test_every_installed_file_is_in_one_package(self):
        run("cmake", "--install", BUILD, "--prefix", self.folder / "all/usr")
        expected = {path + ".gz" if "/man/" in path else path for path in files_below(self.folder / "all")
                    if "/python3/" not in path}
        packed = [path for files in self.files.values() for path in files
                  if not path.startswith(("usr/share/doc/", "usr/share/lintian/"))]
        self.assertEqual(sorted(packed), sorted(expected))
        # A machine without the headers of any host makes no plugins.
        self.assertEqual(set(PACKAGES) - set(self.debs) - {"vqns-plugins"}, set())

    def test_fields_and_dependencies(self):
        common = {"Version": f"{VERSION}-1", "Architecture": "amd64", "Priority": "optional", "Source": "vqns"}
        for name, deb in self.debs.items():
            section, depends, holds = PACKAGES[name]
            with self.subTest(package=name):
                for key, value in (common | {"Section": section}).items():
                    self.assertEqual(field(deb, key), value)
                found = set(dependencies(deb))
                self.assertLessEqual(depends, found)
                if name != "vqns-plugins":  # which need what each one's host brings
                    self.assertLessEqual(found, depends | {"libgcc-s1", "libstdc++6"})
                synopsis, extended = field(deb, "Description").split("\n", 1)
                self.assertRegex(synopsis, r"^noise suppression for .{1,60}$")
                self.assertGreater(len(extended.split()), 30)
                self.assertLessEqual(holds, set(self.files[name]))
        self.assertEqual(dependencies(self.debs["libvqns-dev"])["libvqns0"], f"= {VERSION}-1")
        # The licences of the recordings ask that they be named with the model.
        self.assertIn("CC BY", (self.trees["libvqns0"] / "usr/share/doc/libvqns0/README.model.md").read_text())

    def test_programs_and_plugins_share_the_library(self):
        sharers = set()
        for name, files in self.files.items():
            for file in files.values():
                if ("NEEDED", "libvqns.so.0") in dynamic(file):
                    sharers.add(name)
                    self.assertEqual(dependencies(self.debs[name])["libvqns0"], f">= {VERSION}", file)
        self.assertEqual(sharers, set(self.debs) & {"vqns", "vqns-plugins"})
        self.assertIn(("SONAME", "libvqns.so.0"), dynamic(self.library))
        self.assertEqual(os.readlink(self.trees["libvqns-dev"] / LIB / "libvqns.so"), "libvqns.so.0")
        shlibs = (self.trees["libvqns0"] / "DEBIAN/shlibs").read_text()
        self.assertEqual(shlibs, f"libvqns 0 libvqns0 (>= {VERSION})\n")

    def test_symbols(self):
        """The promise is the map's names since versions that exist; dpkg-gensymbols sees any departure from it."""
        promised = dict(re.findall(r"^ (\w+)@VQNS_0 ([\d.]+)$", SYMBOLS.read_text(), re.M))
        listed = set(re.findall(r"^ +(\w+);$", (SOURCE / "ns/vqns.map").read_text(), re.M))
        self.assertEqual(set(promised) - {"VQNS_0"}, listed)
        for since in set(promised.values()):
            run("dpkg", "--compare-versions", since, "le", VERSION)
        (self.folder / "debian").mkdir()
        (self.folder / "debian/control").write_text("Source: vqns\n")
        lines = SYMBOLS.read_text().splitlines(keepends=True)
        for which, text, agrees in (("as promised", lines, True), ("a name unlisted", lines[:-1], False),
                                    ("a name gone", lines + [" vq_ns_gone@VQNS_0 0.1.0\n"], False)):
            (self.folder / "symbols").write_text("".join(text))
            done = subprocess.run(["dpkg-gensymbols", "-c4", "-plibvqns0", f"-v{VERSION}-1", "-Isymbols",
                                   f"-e{self.library}", "-O"], cwd=self.folder, capture_output=True, text=True)
            self.assertEqual(done.returncode == 0, agrees, f"{which}: {done.stderr}")

    def test_lintian(self):
        """Documents, stripping, search paths, linker triggers and much more."""
        run("lintian", "--allow-root", "--fail-on", "error,warning", *self.debs.values())

    def test_again_elsewhere_makes_the_same_bits(self):
        again = make_packages(self.folder / "another folder", TZ="Asia/Tokyo", LC_ALL="C", HOME="/nonexistent")
        for name, deb in self.debs.items():
            self.assertTrue(deb.read_bytes() == again[name].read_bytes(), name)

    def test_install_use_and_remove(self):
        if os.geteuid() != 0:
            self.skipTest("installing needs root")
        names = sorted(self.debs)
        files = {"/" + path for files in self.files.values() for path in files}
        paths = files | {str(folder) for path in files for folder in Path(path).parents}
        before = self.traces(paths)
        if before[2] or any(not os.path.isdir(path) for path in before[0]):
            self.skipTest(f"installed vqns would be replaced, remove it first: {before[1:]}")
        try:
            run(*APT, "install", "--no-install-recommends", "--no-remove", "--no-upgrade", *self.debs.values())
            self.assertEqual(run("dpkg", "--verify", *names).stdout, "")
            self.assertLessEqual(files, set(run("dpkg", "-L", *names).stdout.split("\n")))
            self.use()
        finally:
            present = [n for n in names if subprocess.run(["dpkg", "-s", n], capture_output=True).returncode == 0]
            run(*APT, "remove", *present)
            run("dpkg", "--purge", *names)  # their settings too
        self.assertEqual(self.traces(paths), before)

    @staticmethod
    def traces(paths):
        """What is there of these paths; everything that bears the name; what the linker and dpkg know."""
        named = {os.path.join(folder, name) for top in ("/usr", "/etc", "/var/lib/dpkg")
                 for folder, folders, files in os.walk(top) for name in folders + files if "vqns" in name}
        known = run("dpkg-query", "-W", "-f", "${Package} ${Status}\n").stdout + run("/sbin/ldconfig", "-p").stdout
        return {p for p in paths if os.path.lexists(p)}, named, re.findall(".*vqns.*", known)

    def use(self):
        self.assertIn(f"vqns {VERSION}", run("/usr/bin/vqns", "--version").stdout)
        self.assertIn("libvqns.so.0", run("/sbin/ldconfig", "-p").stdout)
        for file in (Path("/") / path for files in self.files.values() for path in files):
            if dynamic(file):
                self.assertNotIn("not found", run("ldd", file).stdout, file)
        for n, program in enumerate(("/usr/bin/vqns", PROGRAM)):
            run(program, "denoise", SOURCE / "samples/hum.flac", self.folder / f"{n}.wav", "--quiet")
        self.assertEqual(*((self.folder / f"{n}.wav").read_bytes() for n in range(2)))
        self.assertEqual(run("/usr/bin/vqns", "info").stdout, run(PROGRAM, "info").stdout)
        run(SOURCE / "tests/consumer/run.sh", SOURCE)


class SourceTarball(unittest.TestCase):
    def test_a_commit_gives_one_tarball_that_builds(self):
        if not (SOURCE / ".git").exists() or not shutil.which("git"):
            self.skipTest("not a git checkout, or git is missing (Debian package git)")
        with tempfile.TemporaryDirectory(prefix="tarball-") as name:
            folder, made = Path(name), []
            for place, umask, zone in (("here", 0o022, "UTC"), ("else/where", 0o077, "America/New_York")):
                clone = folder / place
                old = os.umask(umask)
                try:
                    run("git", "clone", "-q", f"file://{SOURCE}", clone)
                    shutil.copy(SOURCE / "scripts/source_tarball.sh", clone / "scripts")
                    # What a user may have set, and what must not get in.
                    run("git", "-C", clone, "config", "tar.umask", "user")
                    (clone / "left over.txt").write_text("not committed")
                    printed = run(clone / "scripts/source_tarball.sh", clone / "out",
                                  env=os.environ | {"TZ": zone, "XZ_OPT": "-0" if umask == 0o077 else ""}).stdout
                finally:
                    os.umask(old)
                made.append(Path(printed.strip()))
            self.assertEqual(made[0].name, f"vqns-{VERSION}.tar.xz")
            self.assertEqual(*(m.read_bytes() for m in made))

            listing = run("tar", "--numeric-owner", "-tvf", made[0]).stdout.splitlines()
            self.assertEqual({line.split()[1] for line in listing}, {"0/0"})
            self.assertLessEqual({line[:10] for line in listing}, {"-rw-r--r--", "-rwxr-xr-x", "drwxr-xr-x"})
            run("tar", "-C", folder, "-xf", made[0])
            tree = folder / f"vqns-{VERSION}"
            committed = run("git", "-C", SOURCE, "ls-tree", "-r", "-z", "--name-only", "HEAD").stdout.split("\0")[:-1]
            self.assertEqual(sorted(files_below(tree)), sorted(committed))
            run("cmake", "-G", "Ninja", "-S", tree, "-B", folder / "build", "-DVQNS_BUILD_TESTS=OFF")
            run("cmake", "--build", folder / "build", "--target", "vqns_fixedpoint")


if __name__ == "__main__":
    if "VQNS_PACKAGES:BOOL=ON" not in (BUILD / "CMakeCache.txt").read_text():
        print("SKIPPED: this build is not laid out as packages (configure with -DVQNS_PACKAGES=ON)")
        raise SystemExit(hosts.SKIPPED)
    need_program("lintian", "lintian")
    need_program("dpkg-gensymbols", "dpkg-dev")
    hosts.main()
