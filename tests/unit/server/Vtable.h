// Calls a virtual function by its slot, as a host compiled elsewhere does.
#pragma once

#include <windows.h>

// The slots of the table that pFace points to.
inline void* const* Slots(const void* pFace)
{
    return *static_cast<void* const* const*>(pFace);
}

template <typename Result = HRESULT, typename... Arguments>
Result CallSlot(void* pFace, int slot, Arguments... arguments)
{
    using Function = Result(STDMETHODCALLTYPE*)(void*, Arguments...);
    return reinterpret_cast<Function>(Slots(pFace)[slot])(pFace, arguments...);
}
