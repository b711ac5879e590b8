// The server of the long runs: what a target does to its exchange. Each answer can be told from every other
// by the form that it answers.
#pragma once

#include <string>

#include "support/loopback/LoopbackServer.h"

// Differs from form to form in every line, and in its length, from nothing up to three reads of the module.
std::string SoakAnswer(const std::string& form);

// A target is one of /text, /keep, /halves, /chunked, /short, /redirect, /loop, /reset, /stall, /hang, /slow,
// /400 to /500.
void ServeSoak(const CLoopbackRequest& request, CLoopbackConnection& connection);

// A number from the environment, or the other one.
int SoakNumber(const char* pszVariable, int other);
