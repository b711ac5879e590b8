// What this process holds of the platform.
#pragma once

#include <cstddef>

size_t CountThreads();
// Counts the handles one by one in the system's table: the ready-made counter of the process reads zero
// under Wine.
size_t CountHandles();
