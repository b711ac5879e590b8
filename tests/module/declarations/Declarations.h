// What a set of declarations says, taken by compiling it: of the header that is written by hand and of the
// one that widl makes of the IDL, each in C and in C++.
#pragma once

#include <windows.h>

// Where a call through the declarations arrived.
typedef struct CalledSlot
{
    const char* pszMethod;
    size_t slot;
} CalledSlot;

#define KVHTTP_METHODS 11

typedef struct Declarations
{
    GUID iid;
    GUID clsid;
    GUID uuidof;                        // in C++
    unsigned long statuses[8];          // in the order of their names in the header
    CalledSlot slots[KVHTTP_METHODS];   // in the order of the calls
    const char* types[KVHTTP_METHODS];  // in C++: what each method takes and gives, in the compiler's words
} Declarations;

// Calls each method of an object whose slots do nothing but tell their number.
#ifdef __cplusplus
extern "C"
{
#endif
    void* ObjectOfSlots(void);
    size_t LastSlot(void);

    void ReadHeaderInC(Declarations* pDeclarations);
    void ReadIdlInC(Declarations* pDeclarations);
    void ReadHeaderInCpp(Declarations* pDeclarations);
    void ReadIdlInCpp(Declarations* pDeclarations);
#ifdef __cplusplus
}
#endif
