"""Posts a form from Python and prints the answer: first_post.py URL DATA
Needs a 64-bit Python for Windows and nothing else; the module must be registered."""
import ctypes
import sys
import uuid
from ctypes import wintypes

CLSID_HTTP_RAW = "6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2"
IID_IHTTP_RAW = "4C7E2B19-0D3A-4F86-B5E1-97A2C4D8E063"
BSTR = ctypes.c_void_p

# The slot of each method, and what it takes.
METHODS = {
    "PostRequest": (3, (wintypes.LPCWSTR, wintypes.LPCWSTR)),
    "PostUrl": (4, (wintypes.LPCWSTR,)),
    "GetRequestStatus": (5, (ctypes.POINTER(wintypes.ULONG),)),
    "GetResponseData": (6, (ctypes.POINTER(BSTR),)),
    "SetDownloadFile": (7, (wintypes.LPCWSTR,)),
    "SetParentWnd": (8, (wintypes.HWND,)),
    "SetTimeout": (9, (wintypes.ULONG,)),
    "SetTraceResponse": (10, (wintypes.ULONG,)),
}
SENDING, RECEIVING, DONE = 5, 6, 9
APARTMENT_THREADED, IN_PROCESS, ALL_INPUT, REMOVE = 2, 1, 0x4FF, 1


class HttpRaw:
    """The component. All calls are for the thread that made it, which must be one of an apartment."""

    def __init__(self):
        ole32 = ctypes.OleDLL("ole32")
        ole32.CoInitializeEx(None, APARTMENT_THREADED)
        self.pointer = ctypes.c_void_p()
        clsid, iid = (uuid.UUID(text).bytes_le for text in (CLSID_HTTP_RAW, IID_IHTTP_RAW))
        ole32.CoCreateInstance(clsid, None, IN_PROCESS, iid, ctypes.byref(self.pointer))

    def call(self, name, *arguments):
        """A method that fails raises OSError."""
        slot, types = METHODS[name]
        ctypes.WINFUNCTYPE(ctypes.HRESULT, *types)(slot, name)(self.pointer, *arguments)

    def status(self):
        value = wintypes.ULONG()
        self.call("GetRequestStatus", ctypes.byref(value))
        return value.value

    def answer(self):
        text = BSTR()
        try:
            self.call("GetResponseData", ctypes.byref(text))
        except OSError:
            return ""  # an empty answer counts as none
        try:
            return ctypes.wstring_at(text.value)
        finally:
            ctypes.WinDLL("oleaut32").SysFreeString(text)

    def release(self):
        ctypes.WINFUNCTYPE(wintypes.ULONG)(2, "Release")(self.pointer)


def dispatch_messages():
    """The platform's error dialog is shown over a window of this thread, whose messages must not rest."""
    user32 = ctypes.WinDLL("user32")
    user32.MsgWaitForMultipleObjects(0, None, False, 50, ALL_INPUT)
    message = wintypes.MSG()
    while user32.PeekMessageW(ctypes.byref(message), None, 0, 0, REMOVE):
        user32.TranslateMessage(ctypes.byref(message))
        user32.DispatchMessageW(ctypes.byref(message))


def main(url, data):
    sys.stdout.reconfigure(encoding="utf-8")  # a file or a pipe would get the ANSI code page
    http = HttpRaw()
    http.call("SetTimeout", 30)
    http.call("PostRequest", url, data)
    status = http.status()
    while status in (SENDING, RECEIVING):
        dispatch_messages()
        status = http.status()
    print(http.answer() if status == DONE else f"status {status}")
    http.release()
    return 0 if status == DONE else 1


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]) if len(sys.argv) == 3 else __doc__)
