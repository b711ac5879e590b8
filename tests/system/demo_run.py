"""Runs the demo and the sample host as people do, with the programs of one build: demo_run.py FOLDER. In a Wine
prefix of its own, since it registers the module, and on copies, since it puts a trace library beside the module."""
import hashlib
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILT = os.path.abspath(sys.argv.pop(1))
# Before anything asks for it.
PREFIX = os.environ["KVHTTP_WINEPREFIX"] = os.path.normpath(os.path.join(BUILT, "..", "wineprefix-demo"))
os.environ.pop("WINEPREFIX", None)
# The caller's locale must not matter.
os.environ.update(LC_ALL="POSIX", LANG="C")

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support", "programs"))
from program import plain_environment  # pylint: disable=wrong-import-position
from tinyproxy import Proxy  # pylint: disable=wrong-import-position
from wine import ROOT, WINE_RUN, demo_server, windows_path  # pylint: disable=wrong-import-position

DEMO = os.path.join(ROOT, "demo.sh")
SHORT_HOSTS = ("FirstPost", "RawPost", "RawPostC")


def wine_run(*arguments, prefix):
    subprocess.run([WINE_RUN, *arguments], env={**os.environ, "KVHTTP_WINEPREFIX": prefix}, check=False)


def setUpModule():
    """Wine stays alive from test to test: the demo leaves alone what it finds running."""
    for prefix in (PREFIX, PREFIX + "-browser"):
        wine_run("--stop", prefix=prefix)
        wine_run("--start", prefix=prefix)
        unittest.addModuleCleanup(wine_run, "--stop", prefix=prefix)


class ProgramTest(unittest.TestCase):
    def setUp(self):
        # With a blank, as people's folders have them.
        self.work = self.enterContext(tempfile.TemporaryDirectory(prefix="kvhttp demo "))
        self.bin = os.path.join(self.work, "bin")
        for name in ("bin/kvHttp.dll", "bin/PostForm.exe", "bin/DemoServer.exe", "bin/tracecat.exe",
                     "tracelib/qnztraceX64.dll", *(f"bin/{host}.exe" for host in SHORT_HOSTS)):
            place = os.path.join(self.work, name)
            os.makedirs(os.path.dirname(place), exist_ok=True)
            shutil.copy(os.path.join(BUILT, "..", name), place)
        self.output = ""

    def run_command(self, code, *command):
        # Callers come from anywhere. A file takes the output: what Wine leaves running would hold a pipe open.
        with tempfile.TemporaryFile() as file:
            result = subprocess.run(command, cwd=self.work, env=plain_environment(KVHTTP_BIN=self.bin), check=False,
                                    stdin=subprocess.DEVNULL, stdout=file, stderr=subprocess.STDOUT)
            file.seek(0)
            self.output = file.read().decode(errors="replace").replace("\r\n", "\n")
        self.assertEqual(result.returncode, code, self.output)

    def demo(self, code, *arguments):
        self.run_command(code, DEMO, *arguments)

    def post_form(self, code, *arguments):
        self.run_host(code, "PostForm", *arguments)

    def run_host(self, code, name, *arguments):
        self.run_command(code, WINE_RUN, os.path.join(self.bin, name + ".exe"), *arguments)

    def register(self, *options):
        self.run_command(0, WINE_RUN, "regsvr32", "/s", *options, windows_path(os.path.join(self.bin, "kvHttp.dll")))

    def prints(self, *texts):
        for text in texts:
            self.assertIn(text, self.output)

    def lacks(self, *texts):
        for text in texts:
            self.assertNotIn(text, self.output)


class CommandLineTest(ProgramTest):
    def test_the_sample_explains_itself(self):
        self.post_form(0, "--help")
        self.prints("usage: PostForm")

    def test_the_sample_refuses_what_makes_no_sense(self):
        self.post_form(2)
        self.prints("a URL and form data are needed")
        for arguments in (["http://127.0.0.1/", ""], ["--nonsense", "x", "http://127.0.0.1/", "a=1"],
                          ["--timeout", "0", "http://127.0.0.1/", "a=1"]):
            with self.subTest(arguments=arguments):
                self.post_form(2, *arguments)

    def test_the_samples_say_that_the_module_is_not_registered(self):
        self.register()
        self.register("/u")
        for host, code in (("PostForm", 3), ("FirstPost", 1), ("RawPost", 3), ("RawPostC", 3)):
            with self.subTest(host=host):
                self.run_host(code, host, "http://127.0.0.1/", "a=1")
                self.prints("regsvr32 kvHttp.dll")

    def test_the_short_hosts_say_what_they_want(self):
        for host in SHORT_HOSTS:
            with self.subTest(host=host):
                self.run_host(2, host)
                self.prints(f"usage: {host} URL DATA")

    def test_the_demo_explains_itself(self):
        self.demo(0, "--help")
        self.prints("usage: ./demo.sh")

    def test_the_demo_refuses_what_makes_no_sense(self):
        for arguments in (["--nonsense"], ["http://127.0.0.1/"], ["", "a=1"], ["--timeout", "soon"],
                          ["--file", os.path.join(self.work, "none", "file")], ["--browser", "other"],
                          ["--proxy", "host"], ["--browser", "none", "--proxy", "127.0.0.1:1"]):
            with self.subTest(arguments=arguments):
                self.demo(2, *arguments)


class DemoTest(ProgramTest):
    def test_posts_to_its_own_server(self):
        self.demo(0, "--file", "report.bin")
        self.prints("status 5  REQ_STATUS_SENDING", "status 9  REQ_STATUS_DONE", "note=ä€𝄞", "bytes so far",
                    "That is the checksum that the server told.", "All went well.")
        self.lacks("tracecat")
        with open(os.path.join(self.work, "report.bin"), "rb") as file:
            report = file.read()
        self.prints("SHA-256 " + hashlib.sha256(report).hexdigest(), f"{len(report)} bytes")

    def test_shows_trace_records(self):
        self.demo(0, "--trace")
        self.prints(" 2 | Http Send request,", " 2 | --> CHttpRequest::SendRequest", "%6E%61%6D%65%3D%41%64%61",
                    " 8 |   download file [%s] is finished", "exchange 2 of 2: process")
        self.assertFalse(os.path.exists(os.path.join(self.bin, "qnztraceX64.dll")), "it is still beside the module")

    def test_leaves_a_trace_library_of_others_alone(self):
        library = os.path.join(self.bin, "qnztraceX64.dll")
        with open(library, "wb"):
            pass
        self.demo(3, "--trace")
        self.prints("a trace library is beside the module already")
        self.assertTrue(os.path.exists(library))

    def test_goes_through_the_proxy_of_a_browser(self):
        for browser, record in (("firefox", "Default Browser is Firefox/NS4/NS6/NS8."), ("system", "Default Browser is IE.")):
            with self.subTest(browser=browser), tempfile.TemporaryDirectory() as folder, Proxy(folder) as proxy:
                self.demo(0, "--trace", "--browser", browser, "--proxy", f"127.0.0.1:{proxy.port}")
                self.prints("through the proxy 1.1 kvhttpproxy", "CProxyInfo::GetProxyInfo: " + record,
                            "| CHttpRequest::CheckInternetConnection: Use Proxy to connect to server.")
                self.assertRegex("\n".join(proxy.requests()), r"(?m)^POST http://127\.0\.0\.1:\d+/form ")

    def test_goes_past_proxies_where_the_browser_has_none(self):
        self.demo(0, "--trace", "--browser", "firefox")
        self.prints("CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8.")
        self.lacks("through the proxy")
        self.demo(0, "--trace", "--browser", "none")
        self.prints("CProxyInfo::GetProxyInfo: Default Browser is Other!")
        self.lacks("Use Proxy to connect")


class CallersServerTest(ProgramTest):
    def setUp(self):
        super().setUp()
        port, _ = self.enterContext(demo_server(self.bin))
        self.url = f"http://127.0.0.1:{port}"

    def test_gets_what_the_caller_says(self):
        self.demo(0, self.url + "/form", 't=ä€𝄞 "q" \\ %')
        self.prints('t=ä€𝄞 "q" \\ %')
        self.lacks("SHA-256")

    def test_answers_into_a_file_that_the_caller_names(self):
        self.demo(0, "--file", "answer.txt", self.url + "/form", "ä=1")
        self.prints("SHA-256")
        with open(os.path.join(self.work, "answer.txt"), encoding="utf-8") as file:
            self.assertIn("ä=1", file.read().splitlines())

    def test_no_more_of_the_answer_is_printed_than_asked_for(self):
        self.demo(0, "--max-answer", "5", self.url + "/form", "a=1")
        self.prints("\nThank\n(")
        self.lacks("a=1")

    def test_failed_exchanges_end_the_demo_with_1_and_their_status(self):
        for url, text in ((self.url + "/none",
                           "status 0, REQ_STATUS_HTTP_ERROR. The server answered 400, 401, 404 or 405:"),
                          ("http://127.0.0.1:1/", "status 2, REQ_STATUS_FAILED.")):
            with self.subTest(url=url):
                self.demo(1, url, "a=1")
                self.prints(text)
                self.lacks("All went well.")

    def test_what_the_sample_did_not_expect_ends_it_with_1(self):
        self.register()
        for options, text in ((["--file", r"Z:\no\such\file"], "nothing was sent. The file for the answer cannot be made"),
                              (["--file", "x.bin", "--expect-sha256", "00"], "the checksum should be 00"),
                              (["--expect-text", "good bye"], 'does not contain "good bye"')):
            with self.subTest(options=options):
                self.post_form(1, *options, self.url + "/form", "a=1")
                self.prints(text)

    def test_the_short_hosts_post_and_print_the_answer(self):
        self.register()
        for host in SHORT_HOSTS:
            with self.subTest(host=host):
                self.run_host(0, host, self.url + "/form", "t=ä€𝄞")
                self.prints("t=ä€𝄞")
                self.run_host(1, host, self.url + "/none", "a=1")

    def test_the_sample_takes_the_module_by_its_path(self):
        self.register()
        self.register("/u")
        module = windows_path(os.path.join(self.bin, "kvHttp.dll"))
        self.post_form(0, "--module", module, self.url + "/form", "a=1")
        self.prints("status 9  REQ_STATUS_DONE")
        self.post_form(3, "--module", r"Z:\no\kvHttp.dll", self.url + "/form", "a=1")
        self.prints("The module kvHttp.dll is not where it should be")


unittest.main(verbosity=2)
