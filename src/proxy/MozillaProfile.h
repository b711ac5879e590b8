// Where a Mozilla profile lies.
#pragma once

#include <string>

// The text behind the first "Path=" of a profiles.ini, up to the end of its line; false when there is
// none, or no line end behind it.
bool FindFirstProfile(const char* ini, std::string& value);
