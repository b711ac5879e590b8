// A trace library that takes every record and does nothing with it: what making them costs remains.
#include <windows.h>

extern "C" void WINAPI QNZTRACERAWA(unsigned long, unsigned long, unsigned long, const char*)
{
}
