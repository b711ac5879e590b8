// One exchange drawn as a time line.
#pragma once

#include <deque>
#include <string>

#include "tracecat/Exchanges.h"

// number counts from 1; 0 is the last one. Empty when there is no such exchange.
std::string DrawTimeLine(const std::deque<Exchange>& exchanges, int number, bool bDecode);
