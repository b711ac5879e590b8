// Posts a form from .NET and prints the answer. Build it for x64, since the module is a 64-bit one:
//   csc /platform:x64 FirstPost.cs
using System;
using System.Runtime.InteropServices;
using System.Threading;

// The methods in the order of their slots. What fails raises a COMException.
[ComImport, Guid("4C7E2B19-0D3A-4F86-B5E1-97A2C4D8E063"), InterfaceType(ComInterfaceType.InterfaceIsIUnknown)]
interface IHttpRaw
{
    void PostRequest([MarshalAs(UnmanagedType.LPWStr)] string url, [MarshalAs(UnmanagedType.LPWStr)] string data);
    void PostUrl([MarshalAs(UnmanagedType.LPWStr)] string url);
    uint GetRequestStatus();
    [return: MarshalAs(UnmanagedType.BStr)] string GetResponseData();
    void SetDownloadFile([MarshalAs(UnmanagedType.LPWStr)] string path);
    void SetParentWnd(IntPtr parent);
    void SetTimeout(uint seconds);
    void SetTraceResponse(uint flag);
}

[ComImport, Guid("6F2A1C3E-5B7D-4E21-9A0C-3D8E47B1F5A2")]
class HttpRaw
{
}

static class FirstPost
{
    const uint Sending = 5, Receiving = 6, Done = 9;

    // Threads of .NET are in the multithreaded apartment as a rule, where the component cannot be created: without
    // STAThread, or on a thread of the pool, this fails with E_NOINTERFACE.
    [STAThread]
    static int Main(string[] arguments)
    {
        if (arguments.Length != 2)
        {
            Console.Error.WriteLine("usage: FirstPost URL DATA");
            return 2;
        }
        IHttpRaw http = (IHttpRaw)new HttpRaw();
        try
        {
            http.SetTimeout(30);
            http.PostRequest(arguments[0], arguments[1]);
            uint status;
            do
            {
                // On an apartment thread this dispatches what COM waits for. A program with windows uses a timer of
                // its own instead, and goes on with its message loop.
                Thread.CurrentThread.Join(50);
                status = http.GetRequestStatus();
            } while (status == Sending || status == Receiving);
            Console.WriteLine(status == Done ? TakeAnswer(http) : "status " + status);
            return status == Done ? 0 : 1;
        }
        finally
        {
            // Here and not in the garbage collector's time and thread.
            Marshal.FinalReleaseComObject(http);
        }
    }

    static string TakeAnswer(IHttpRaw http)
    {
        try
        {
            return http.GetResponseData();
        }
        catch (COMException)
        {
            return "";  // an empty answer counts as none
        }
    }
}
