"""Each check accepts a small sound tree, and finds each fault put into it."""
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))

SOUND = {
    "CMakePresets.json": '{"configurePresets": [{"name": "mingw-release"}]}\n',
    "README.md": "Run `./run --fast`; see [limits](docs/limits.md), `src/low/` and `build/mingw-release/bin/x.dll`.\n"
                 "| `Post(url)` | 9 `REQ_STATUS_DONE` |\n",
    "docs/limits.md": "Made with the preset `mingw-release`; sends `text/plain`; see `LowTest.Adds`.\n"
                      "```xml\n<a b=\"{00000001-0002-0003-0405-060708090A0B}\"/>\n```\n",
    "docs/tracing.md": "| `Low` | host | |\n| `a (b)\u240A,` | 8 | |\n| `c,d=N,` | 2 | |\n| *a value* | 2 | |\n"
                       "`QNZTRACE_FILE`\n\n## The viewer\n`--old`\n",
    "tools/tracecat/Options.cpp": '"--old"\n',
    "tools/tracelib/TraceSettings.cpp": 'L"QNZTRACE_FILE"\n',
    "run": "#!/bin/sh\n# --fast\n",
    "include/kvHttp/HttpRaw.h": "struct IHttpRaw { virtual void Post() = 0; };\n/* REQ_STATUS_DONE = 9\n"
                                "virtual HRESULT STDMETHODCALLTYPE Post(BSTR url) = 0;\n"
                                "CLSID = {0x00000001, 0x0002, 0x0003, {0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B}};\n*/\n",
    "src/CMakeLists.txt": "add_subdirectory(low)\n",
    "src/low/CMakeLists.txt": "kvhttp_add_library(low\n  SOURCES Low.cpp\n  SYSTEM uuid)\n",
    "src/low/Low.cpp": '#include "low/Low.h"\n#include "kvHttp/HttpRaw.h"\n'
                       'const CAutoFunTrace trace("Low\\n");\nTraceText(kTraceError, L"a (b)\\n");\n',
    "src/low/Low.h": "#include <windows.h>\n",
    "src/high/CMakeLists.txt": "kvhttp_add_library(part\n  SOURCES Part.cpp)\n"
                               "kvhttp_add_library(high\n  SOURCES High.cpp\n  DEPENDS low part)\n",
    "src/high/High.cpp": '#include "high/Part.h"\n#include "low/Low.h"\n'
                         'TraceTextVar(kTraceProgress, L"c", "d",\n    f(e, 1));\nTraceText(kTraceProgress, str);\n',
    "src/high/Part.cpp": '#include "high/Part.h"\n',
    "src/high/Part.h": "#pragma once\n",
    "tests/LowTest.cpp": "TEST_F(LowTest, Adds)\n",
}


class CheckTest(unittest.TestCase):
    def setUp(self):
        self.root = tempfile.mkdtemp(prefix="kvhttp-checks ")
        self.addCleanup(shutil.rmtree, self.root)
        for path, text in SOUND.items():
            self.write(path, text)
        os.chmod(os.path.join(self.root, "run"), 0o755)

    def write(self, path, text):
        path = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(text if isinstance(text, bytes) else text.encode())

    def run_check(self, name):
        result = subprocess.run([sys.executable, os.path.join(HERE, f"check_{name}.py"), self.root],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return result.returncode, result.stdout

    def expect_fault(self, check, path, text, message):
        with self.subTest(check=check, fault=message):
            self.write(path, text)
            code, output = self.run_check(check)
            self.assertIn(message, output)
            self.assertEqual(output.count("\n"), 1, output)
            self.assertEqual(code, 1)
            if path in SOUND:
                self.write(path, SOUND[path])
            else:
                os.remove(os.path.join(self.root, path))

    def test_sound_tree_passes(self):
        for check in ("text", "layering", "documents", "trace_records"):
            self.assertEqual(self.run_check(check), (0, ""), check)

    def test_text(self):
        for path, text, message in (
                ("a.cpp", b"\xff\n", "not UTF-8"),
                ("a.cpp", "\ufeffint a;\n", "byte order mark"),
                ("a.sh", "a\r\n", "carriage return"),
                (".clang-tidy", "a", "exactly one newline"),
                ("CMakeLists.txt", "a\n\n", "exactly one newline"),
                ("scripts/x", "a\nb \nc\n", "scripts/x:2: blanks"),
                ("a.py", "\ta\n", "a tab"),
                ("src/a.cpp", "a\n" * 601, "601 lines; at most 600"),
                ("tests/a.h", "a\n" * 401, "401 lines; at most 400"),
        ):
            self.expect_fault("text", path, text, message)
        self.write("src/a.cpp", "a\n" * 600)
        self.write("tests/a.h", "a\n" * 400)
        self.write("tests/data/prefs.js", "a\r\n")
        self.write("build/x.cpp", "a\r\n")
        self.assertEqual(self.run_check("text"), (0, ""))

    def test_layering(self):
        low = SOUND["src/low/CMakeLists.txt"]
        for path, text, message in (
                ("src/low/Low.h", '#include "high/Part.h"\n',
                 'src/low/Low.h: includes "high/Part.h" of part, which DEPENDS of low does not name'),
                ("src/high/Part.cpp", '#include "low/Low.h"\n',
                 'src/high/Part.cpp: includes "low/Low.h" of low, which DEPENDS of part does not name'),
                ("src/high/High.cpp", '# include "low/Gone.h"\n', '"low/Gone.h" is no file of'),
                ("src/low/CMakeLists.txt", low.replace("SYSTEM", "DEPENDS high\n  SYSTEM"),
                 "depend on each other: high, low"),
                ("src/low/CMakeLists.txt", low.replace("SYSTEM", "DEPENDS gone\n  SYSTEM"),
                 "DEPENDS names gone, which is no library"),
                ("src/low/CMakeLists.txt", low + "  kvhttp_add_library(${name} SOURCES a.cpp)\n", "cannot read"),
                ("docs/architecture.md", "| `src/low/` | low | nothing |\n| `src/high/` | part | nothing |\n"
                                         "| `src/high/` | high | part |\n",
                 "the row of high should have ('high', 'low, part'), not ('high', 'part')"),
                ("src/stray/Stray.cpp", "\n", "src/stray/Stray.cpp: belongs to no library"),
        ):
            self.expect_fault("layering", path, text, message)

    def test_documents(self):
        for path, text, message in (
                ("README.md", "See `src/gone.cpp`.\n", "src/gone.cpp does not exist"),
                ("README.md", "See [it](docs/gone.md#part).\n", "docs/gone.md does not exist"),
                ("docs/limits.md", "See [it](gone.md).\n", "docs/gone.md does not exist"),
                ("README.md", "```sh\n./gone\n```\n", "./gone is no program"),
                ("README.md", "Run `./run --slow`.\n", "./run knows no --slow"),
                ("README.md", "Run `./run --fas`.\n", "./run knows no --fas"),
                ("README.md", "`build/mingw-gone/bin/x`\n", "there is no preset mingw-gone"),
                ("docs/limits.md", "`mingw-gone`\n", "there is no preset mingw-gone"),
                ("README.md", "| `Put(url)` | puts |\n", "IHttpRaw has no Put"),
                ("README.md", "| 8 `REQ_STATUS_DONE` | |\n", "no 8 REQ_STATUS_DONE"),
                ("README.md", "`REQ_STATUS_GONE`\n", "no  REQ_STATUS_GONE"),
                ("README.md", "`cmake --preset mingw-gone`\n", "there is no preset mingw-gone"),
                ("README.md", "`LowTest.Gone`\n", "there is no test LowTest.Gone"),
                ("CONTRIBUTING.md", "See `src/gone.cpp`.\n", "CONTRIBUTING.md: src/gone.cpp does not exist"),
                ("README.md", "`{00000001-0002-0003-0405-060708090A0C}`\n", "has no 00000001-0002-0003"),
        ):
            self.expect_fault("documents", path, text, message)

    def test_trace_records(self):
        document = SOUND["docs/tracing.md"]
        for path, text, message in (
                ("docs/tracing.md", document.replace("| `Low` | host | |\n", ""), "does not list the record  Low"),
                ("docs/tracing.md", document.replace("| `c,d=N,` | 2 | |\n", ""), "does not list the record 2 c,d=?,"),
                ("docs/tracing.md", "| `x` | 8 | |\n" + document, "lists the record 8 x, which is not there"),
                ("docs/tracing.md", "| *another* | 2 | |\n" + document, "lists 2 records without a fixed text"),
                ("docs/tracing.md", document + "`--new`\n", "lists the option --new"),
                ("docs/tracing.md", "`QNZTRACE_GONE`\n" + document, "lists the setting QNZTRACE_GONE"),
                ("src/new.cpp", 'const CAutoFunTrace trace("New");\n', "does not list the record  New"),
                ("src/new.cpp", 'TraceText(kTraceError, L"a (b)" L"c");\n', "does not list the record 8 a (b)c,"),
                ("src/new.cpp", 'TraceText(kTraceProgress, L"a (b)\\n");\n', "does not list the record 2 a (b)\u240A,"),
        ):
            self.expect_fault("trace_records", path, text, message)

    def test_code_in_documents(self):
        self.write("src/low/Low.h", "#define LOW 1\n")
        self.write("docs/code.md", "```cpp body\nhttp->Post();\nreturn 1;\n```\n```c program\nint new = 1;\n```\n"
                                   "```cpp test\n#include \"low/Low.h\"\nint low = LOW;\n```\n")
        self.assertEqual(self.run_check("documents"), (0, ""))
        os.remove(os.path.join(self.root, "docs/code.md"))
        for text, message in (
                ("```cpp\nint a;\n```\n", "docs/limits.md:2: the code does not say whether it is"),
                ("```c\nint a;\n```\n", "docs/limits.md:2: the code does not say whether it is"),
                ("\n```cpp program\nint main() { return x; }\n```\n", "docs/limits.md:3:21: error: 'x' was not declared"),
                ("```cpp body\nhttp->Post();\nhttp->Gone();\n```\n", "docs/limits.md:3:7: error: 'struct IHttpRaw' has no"),
                ("```cpp program\n#include \"low/Gone.h\"\n```\n", "low/Gone.h: No such file"),
                ("```cpp body\nint a = 1u > -1;\n```\n", "comparison of integer expressions"),
                ("```c program\nint class() { return x; }\n```\n", "docs/limits.md:2:22: error: 'x' undeclared"),
                ("```xml\n<a>\n```\n", "docs/limits.md:2: no element found"),
                ("```python\ndef\n```\n", "docs/limits.md:2: invalid syntax"),
                ("```sh\n", "docs/limits.md:1: the block has no end"),
        ):
            self.expect_fault("documents", "docs/limits.md", text, message)


unittest.main()
