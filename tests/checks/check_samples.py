"""The samples in other languages declare the interface as the IDL does: identifiers, slots and types. Those in C# are
compiled where mono's compiler is there; those in Python are parsed."""
import ast
import os
import re
import shutil
import subprocess
import sys
import tempfile

import tree

IDL = "include/kvHttp/IHttpRaw.idl"
CSHARP = "samples/DotNet/FirstPost.cs"
PYTHON = "samples/Python/first_post.py"
FIRST_SLOT = 3  # behind those of IUnknown

# What the IDL's types are in each language. What comes back is the result in C#, and a pointer in Python.
CSHARP_TYPES = {"LPCWSTR": "[MarshalAs(UnmanagedType.LPWStr)] string", "unsigned long": "uint",
                "KVHTTP_WINDOW": "IntPtr"}
CSHARP_RESULTS = {None: "void", "unsigned long": "uint", "BSTR": "[return: MarshalAs(UnmanagedType.BStr)] string"}
PYTHON_TYPES = {"LPCWSTR": "wintypes.LPCWSTR", "unsigned long": "wintypes.ULONG", "KVHTTP_WINDOW": "wintypes.HWND",
                "unsigned long*": "ctypes.POINTER(wintypes.ULONG)", "BSTR*": "ctypes.POINTER(BSTR)"}


class Idl:
    def __init__(self, text):
        self.iid = re.search(r"\[object,[^\]]*uuid\(([^)]+)\)", text)[1]
        self.clsid = re.search(r"\[uuid\(([^)]+)\)[^\]]*\]\s*coclass", text)[1]
        body = re.search(r"interface IHttpRaw : IUnknown\s*{(.*?)\n}", text, re.DOTALL)[1]
        self.methods = []  # name, types that go in, type that comes out
        for name, parameters in re.findall(r"HRESULT (\w+)\(([^;]*)\);", body):
            taken = re.findall(r"\[in\] ([\w ]+?) (\w+)(?:,|$)", parameters)
            given = re.findall(r"\[out, retval\] ([\w ]+)\* (\w+)", parameters)
            self.methods.append((name, taken, given[0][0] if given else None))


def check_csharp(idl, text):
    expected = [f"{CSHARP_RESULTS[given]} {name}({', '.join(f'{CSHARP_TYPES[kind]} {word}' for kind, word in taken)});"
                for name, taken, given in idl.methods]
    body = re.search(r"interface IHttpRaw\n{\n(.*?)\n}", text, re.DOTALL)[1]
    found = [line.strip() for line in body.splitlines()]
    problems = [f"{CSHARP}: slot {slot}: expected {want!r}, got {got!r}"
                for slot, (want, got) in enumerate(zip(expected, found), FIRST_SLOT) if want != got]
    if len(expected) != len(found):
        problems.append(f"{CSHARP}: {len(found)} methods; the IDL has {len(expected)}")
    if not re.search(rf'Guid\("{idl.iid}"\), InterfaceType\(ComInterfaceType.InterfaceIsIUnknown\)\]\ninterface', text):
        problems.append(f"{CSHARP}: the interface has another identifier than {idl.iid}")
    if not re.search(rf'Guid\("{idl.clsid}"\)\]\nclass HttpRaw', text):
        problems.append(f"{CSHARP}: the class has another identifier than {idl.clsid}")
    if "[STAThread]\n    static int Main" not in text:
        problems.append(f"{CSHARP}: Main runs in no apartment that can create the component")
    return problems


def compile_csharp(root):
    if not shutil.which("mcs"):
        print("mcs is not here: the sample in C# was not compiled")
        return []
    with tempfile.TemporaryDirectory(prefix="kvhttp-csharp-") as folder:
        result = subprocess.run(["mcs", "-platform:x64", "-warn:4", "-warnaserror", "-out:" + folder + "/FirstPost.exe",
                                 os.path.join(root, CSHARP)], text=True, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return [] if result.returncode == 0 else [f"{CSHARP}: {result.stdout}"]


def check_python(idl, text):
    values = {target.id: node.value for node in ast.parse(text, PYTHON).body if isinstance(node, ast.Assign)
              for target in node.targets if isinstance(target, ast.Name)}
    problems = []
    for name, identifier in (("CLSID_HTTP_RAW", idl.clsid), ("IID_IHTTP_RAW", idl.iid)):
        if ast.literal_eval(values[name]) != identifier:
            problems.append(f"{PYTHON}: {name} is not {identifier}")
    table = values["METHODS"]
    found = {key.value: (row.elts[0].value, [ast.unparse(kind) for kind in row.elts[1].elts])
             for key, row in zip(table.keys, table.values)}
    expected = {name: (slot, [PYTHON_TYPES[kind] for kind, _ in taken] + ([PYTHON_TYPES[given + "*"]] if given else []))
                for slot, (name, taken, given) in enumerate(idl.methods, FIRST_SLOT)}
    for name in sorted(expected.keys() | found.keys()):
        if expected.get(name) != found.get(name):
            problems.append(f"{PYTHON}: {name}: expected {expected.get(name)}, got {found.get(name)}")
    return problems


def main(root):
    idl = Idl(tree.read(root, IDL).decode())
    if len(idl.methods) != 8:
        sys.exit(f"{IDL}: expected 8 methods, got {idl.methods}")
    tree.report(check_csharp(idl, tree.read(root, CSHARP).decode()) + compile_csharp(root)
                + check_python(idl, tree.read(root, PYTHON).decode()))


main(sys.argv[1])
