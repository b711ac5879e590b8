// The trace library of the built module that the tests' host has loaded.
#pragma once

#include "support/RecordedTrace.h"
#include "system/HttpRawHost.h"

class CModuleTrace : public CRecordedTrace
{
public:
    CModuleTrace() : CRecordedTrace(CHttpRawHost::Module()) {}
};
