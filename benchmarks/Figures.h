// What is measured apart from the exchanges of all clients.
#pragma once

#include "Component.h"
#include "Meter.h"
#include "Record.h"
#include "Work.h"

// A module file that this process has not loaded, and loads and frees each time.
void MeasureLoading(CRecord& record, int count, const std::wstring& module);

// An object's life, how long PostRequest keeps its caller, InternetGetConnectedState alone, and the encoding
// of a form for the trace.
void MeasureCalls(CRecord& record, int count, const CModule& module, const CTask& small);
void MeasureEncoding(CRecord& record, int count, int millions);
// What the component cannot do without when it takes and gives text: each alone, on memory not used before.
void MeasureTextCalls(CRecord& record, int count);

// Answers of 1, 4, 16 ... MB as text: from the start to the end, and until the text is taken.
void MeasureGrowth(CRecord& record, CPeakMemory& memory, int largestMB, const CClient& client,
                   const std::wstring& server);
// Answers of 1 MB and largestMB into a file: the memory for them.
void MeasureFileMemory(CRecord& record, CPeakMemory& memory, int largestMB, const CClient& client,
                       const std::wstring& server, const std::wstring& file);
