"""The code in documents, compiled. Each block of C or C++ says what it is, behind the language:

  ```cpp program   a whole file
  ```cpp body      what stands in a function of a host, which has a component "http" and a window "hWnd"
  ```cpp test      a whole file of tests/

and the same for c. What a block needs beside the platform is in include/ and src/; tests have tests/ and GoogleTest."""
import concurrent.futures
import os
import re
import subprocess

COMPILERS = {"cpp": ["x86_64-w64-mingw32-g++-win32", "-x", "c++", "-std=c++20"],
             "c": ["x86_64-w64-mingw32-gcc-win32", "-x", "c", "-std=c99"]}
GOOGLETEST = "/usr/src/googletest"
WARNINGS = ["-Wall", "-Wextra", "-Werror", "-Wno-unused"]
BODY = """#include <windows.h>
#include <cstdio>
#include "kvHttp/HttpRaw.h"
{helper}
HRESULT Body([[maybe_unused]] IHttpRaw* http, [[maybe_unused]] HWND hWnd)
{{
    {{
#line {line} "{where}"
{code}
    }}
    return S_OK;
}}
"""
FILE = '#line {line} "{where}"\n{code}\n'
FENCE = re.compile(r"^```(\S*) ?(.*)$")


def blocks(where, text):
    """Gives (language, kind, first line's number, code) of each fenced block."""
    language = None
    for number, line in enumerate(text.splitlines(), 1):
        fence = FENCE.match(line)
        if fence and language is None:
            language, kind, begin, code = fence[1], fence[2], number + 1, []
        elif fence:
            yield language, kind, begin, "\n".join(code)
            language = None
        elif language is not None:
            code.append(line)
    if language is not None:
        yield "", f"{where}:{begin - 1}: the block has no end", begin, ""


def compile_block(root, where, block):
    """Gives the compiler's first complaint, or nothing."""
    language, kind, line, code = block
    if kind not in ("program", "body", "test"):
        return [f"{where}:{line}: the code does not say whether it is a program, a body or a test"]
    helper = "kvHttp/Client.h"
    helper = f'#include "{helper}"' if os.path.exists(os.path.join(root, "include", helper)) else ""
    source = (BODY if kind == "body" else FILE).format(line=line, where=where, code=code, helper=helper)
    command = COMPILERS[language] + WARNINGS + ["-fsyntax-only"]
    folders = ["include", "src"]
    if kind == "test":
        folders += ["tests/support/googletest", "tests"]
        command += [f"-isystem{GOOGLETEST}/{part}/include" for part in ("googletest", "googlemock")]
    command += ["-I" + os.path.join(root, folder) for folder in folders]
    result = subprocess.run([*command, "-"], input=source, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            env={**os.environ, "LC_ALL": "C"}, check=False)
    errors = [text for text in result.stdout.splitlines() if "error" in text] or result.stdout.splitlines()[:1]
    return [errors[0] if errors else f"{where}:{line}: the compiler fails"] if result.returncode != 0 else []


def problems_of(root, documents):
    """documents: (path, text) of each."""
    found = [(path, block) for path, text in documents for block in blocks(path, text)]
    problems = [block[1] for _, block in found if block[1].endswith("has no end")]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = pool.map(lambda item: compile_block(root, *item), [item for item in found if item[1][0] in COMPILERS])
        for result in results:
            problems += result
    return problems
