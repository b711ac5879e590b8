"""The ZIP and the installer as a host's developer uses them: test_package.py ROOT BUILD
Both are made of what BUILD has built. A host is built against the unpacked ZIP alone and run in a fresh Wine prefix:
registration-free, and registered by the installer, which then upgrades, is removed and leaves nothing."""
import contextlib
import filecmp
import http.server
import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import unittest
import zipfile

ROOT, BUILD = sys.argv.pop(1), sys.argv.pop(1)
NORMALISE = os.path.join(ROOT, "packaging", "normalise_zip.py")
WINE_TEST = os.path.join(ROOT, "scripts", "wine-test")
WINE_RUN = os.path.join(ROOT, "scripts", "wine-run")
INSTALLED = "drive_c/Program Files/kvHttp"
CLSID = "6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2"
sys.path.insert(0, os.path.join(ROOT, "tests", "support", "programs"))
from program import await_true  # pylint: disable=wrong-import-position

HOST = """
cmake_minimum_required(VERSION 3.25)
project(Host LANGUAGES CXX)
find_package(kvHttp 0.1 REQUIRED)
add_link_options(-static)
add_executable(Host "{samples}/RawPost/RawPost.cpp")
target_link_libraries(Host PRIVATE kvHttp::kvHttp shell32)
kvhttp_add_module(Host REGISTRATION_FREE)
"""
CONTENTS = """
bin/kvHttp.dll bin/kvHttp.dll.debug include/kvHttp/Client.h include/kvHttp/HttpRaw.h include/kvHttp/IHttpRaw.idl
lib/kvHttp.tlb lib/cmake/kvHttp/kvHttpConfig.cmake lib/cmake/kvHttp/kvHttpConfigVersion.cmake
share/kvHttp/registration-free.manifest share/kvHttp/samples/CMakeLists.txt share/kvHttp/samples/Python/first_post.py
share/doc/kvHttp/README.md share/doc/kvHttp/CHANGELOG.md share/doc/kvHttp/docs/limits.md""".split()


def run(*command, **options):
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, errors="replace", check=False, **options)
    return result.returncode, result.stdout


def must(*command, **options):
    code, output = run(*command, **options)
    if code != 0:
        raise AssertionError(f"{' '.join(command)}: exit code {code}\n{output}")
    return output


def make(generator, folder, *options):
    """Gives the file that CPack makes."""
    must("cpack", "--config", os.path.join(BUILD, "CPackConfig.cmake"), "-G", generator, "-B", folder, *options)
    [name] = [n for n in os.listdir(folder) if os.path.isfile(os.path.join(folder, n))]
    return os.path.join(folder, name)


class Echo(http.server.BaseHTTPRequestHandler):
    def do_POST(self):  # pylint: disable=invalid-name
        body = b"got " + self.rfile.read(int(self.headers["Content-Length"]))
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):  # pylint: disable=arguments-differ
        pass


@contextlib.contextmanager
def echo_server():
    with http.server.ThreadingHTTPServer(("127.0.0.1", 0), Echo) as server:
        threading.Thread(target=server.serve_forever, daemon=True).start()
        yield f"http://127.0.0.1:{server.server_address[1]}/form"
        server.shutdown()


class PackageTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory(prefix="kvhttp package ")
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def make_zip(self, folder):
        path = make("ZIP", self.path(folder))
        must(sys.executable, NORMALISE, path, env={**os.environ, "SOURCE_DATE_EPOCH": "1700000000"})
        return path

    def test_the_zip_has_what_hosts_need_and_no_trace_of_where_it_was_made(self):
        path = self.make_zip("zip")
        with zipfile.ZipFile(path) as archive:
            names = {name.split("/", 1)[1] for name in archive.namelist()}
            for name in CONTENTS:
                self.assertIn(name, names)
            # Folders are read in any order, and files have the permissions that their maker's mask leaves.
            self.assertEqual(archive.namelist(), sorted(archive.namelist()))
            self.assertEqual({entry.external_attr >> 16 for entry in archive.infolist()}, {0o100644})
            for name in archive.namelist():
                self.assertNotIn(ROOT.encode(), archive.read(name), name)
        os.utime(os.path.join(ROOT, "README.md"))
        self.assertTrue(filecmp.cmp(path, self.make_zip("again"), shallow=False), "other bytes the second time")

    def wine(self, *command):
        return run(WINE_TEST, *command, env=self.environment)

    def post(self, host, url):
        code, output = self.wine(host, url, "a=1")
        return code, output.strip()

    def registry(self):
        must(WINE_TEST, "regedit", "/E", r"C:\registry.txt", env=self.environment)
        path = os.path.join(self.prefix, "drive_c", "registry.txt")
        with open(path, encoding="utf-16") as file:
            text = file.read()
        os.remove(path)
        return [line for line in text.splitlines() if re.search("kvhttp|" + CLSID, line, re.IGNORECASE)]

    def test_serves_a_host_with_and_without_registration(self):
        with zipfile.ZipFile(self.make_zip("zip")) as archive:
            archive.extractall(self.path("unpacked"))
        [top] = os.listdir(self.path("unpacked"))
        package = os.path.join(self.path("unpacked"), top)
        samples = os.path.join(package, "share", "kvHttp", "samples")
        os.mkdir(self.path("host"))
        with open(self.path("host/CMakeLists.txt"), "w", encoding="utf-8") as file:
            file.write(HOST.format(samples=samples))
        toolchain = "-DCMAKE_TOOLCHAIN_FILE=" + os.path.join(ROOT, "cmake", "mingw-w64.cmake")
        for source, targets in ((self.path("host"), ["Host"]), (samples, ["FirstPost", "RawPostC"])):
            build = self.path("built " + targets[0])
            must("cmake", "-G", "Ninja", "-S", source, "-B", build, toolchain, "-DCMAKE_PREFIX_PATH=" + package)
            must("cmake", "--build", build, "--target", *targets)
        bare = os.path.join(self.path("built FirstPost"), "FirstPost", "FirstPost.exe")
        free = os.path.join(self.path("built Host"), "Host.exe")

        self.prefix = self.path("prefix")
        self.environment = {**os.environ, "KVHTTP_WINEPREFIX": self.prefix}
        must(WINE_RUN, env=self.environment)
        must(WINE_RUN, "--stop", env=self.environment)
        self.addCleanup(run, WINE_RUN, "--stop", env=self.environment)
        run(WINE_RUN, "--start", env=self.environment)
        installed = os.path.join(self.prefix, INSTALLED)
        installer = make("NSIS", self.path("nsis"))
        # As an older version that had one file more.
        os.mkdir(self.path("more"))
        shutil.copy(WINE_RUN, self.path("more/gone.txt"))
        older = make("NSIS", self.path("older"), "-D", f"CPACK_INSTALLED_DIRECTORIES={self.path('more')};.")
        with echo_server() as url:
            with self.subTest("nothing is registered"):
                self.assertEqual(self.post(free, url), (0, "got a=1\nstatus 9"))
                code, output = self.post(bare, url)
                self.assertEqual(code, 1)
                self.assertIn("not registered", output)
                self.assertEqual(self.registry(), [])
            with self.subTest("installed"):
                self.assertEqual(self.wine(older, "/S")[0], 0)
                self.assertEqual(self.post(bare, url), (0, "got a=1"))
                for name in ("include/kvHttp/Client.h", "gone.txt"):
                    self.assertTrue(os.path.exists(os.path.join(installed, name)), name)
            with self.subTest("upgraded in place"):
                shutil.copy(WINE_RUN, os.path.join(installed, "bin", "kvHttp.dll"))
                self.assertEqual(self.wine(installer, "/S")[0], 0)
                self.assertTrue(filecmp.cmp(os.path.join(installed, "bin/kvHttp.dll"),
                                            os.path.join(package, "bin/kvHttp.dll"), shallow=False))
                self.assertFalse(os.path.exists(os.path.join(installed, "gone.txt")), "a file of the older version is left")
                self.assertEqual(self.post(bare, url), (0, "got a=1"))
            with self.subTest("removed"):
                self.assertEqual(self.wine(os.path.join(installed, "Uninstall.exe"), "/S")[0], 0)
                # What runs on is a copy of it.
                self.assertTrue(await_true(lambda: not os.path.exists(installed)), "files are left")
                self.assertEqual(self.registry(), [])
                self.assertEqual(self.post(bare, url)[0], 1)
        with self.subTest("a system that is too old"):
            must(WINE_TEST, "reg", "add", r"HKCU\Software\Wine", "/v", "Version", "/d", "winxp64", "/f",
                 env=self.environment)
            self.assertEqual(self.wine(installer, "/S")[0], 3)
            self.assertFalse(os.path.exists(installed))


unittest.main()
