// Percent-encoding of text on its way into the trace, where URLs and form data never stand plain.
#pragma once

#include "base/StringEx.h"

// Replaces text with the percent-encoding of its UTF-8 form: every byte, letters and digits included,
// becomes '%' and two upper-case hexadecimal digits. True when text is encoded now. False when it could
// not be: the text is unchanged, and plain, when it cannot be converted, and empty when it is too
// long, or the memory for the result is not to be had.
bool EncodeURL(CStringEx& text);
