// The operating-system class: one number for what the module has to know of the system's version.
#pragma once

// 1, 2, 4: Windows 4.0, 4.10, 4.90. 3: NT below 5. 5, 6: NT 5.0, 5.1. 8: NT 6, any minor version. 0:
// unknown, among them 5.2 and majors above 6; it is worked out again at the next call, the others are
// kept for the life of the process. No class has the value 7.
int GetOSVersion();

constexpr int kOSWindows2000 = 5;
constexpr int kOSVista = 8;
