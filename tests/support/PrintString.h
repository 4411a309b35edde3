#pragma once

#include "framework/text/String.h"

#include <ostream>

namespace KVX {
// GoogleTest's failure messages show a String's text rather than the object's bytes.
inline void PrintTo(const String& text, std::ostream* out) { *out << '"' << text.toUtf8() << '"'; }
} // namespace KVX
