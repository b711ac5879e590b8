#include "trace/AutoFunTrace.h"

#include <new>

#include "trace/Trace.h"

CAutoFunTrace::CAutoFunTrace(const char* name)
{
    try
    {
        if (HasTraceLibrary())
        {
            m_strName = name;
        }
    }
    catch (const std::bad_alloc&)
    {
        // Tracing never reports a failure.
    }
    Write("--> ");
}

CAutoFunTrace::CAutoFunTrace(const wchar_t* name)
{
    if (HasTraceLibrary())
    {
        m_strName = CVarAdapter(name).Text();
    }
    Write("--> ");
}

CAutoFunTrace::~CAutoFunTrace()
{
    Write("<-- ");
}

void CAutoFunTrace::Write(const char* arrow) const
{
    try
    {
        if (HasTraceLibrary())
        {
            const std::string message = arrow + m_strName;
            TraceVars(kTraceProgress, message.c_str(), nullptr);
        }
    }
    catch (const std::bad_alloc&)
    {
        // Tracing never reports a failure: the record is lost.
    }
}
