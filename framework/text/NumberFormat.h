#pragma once

#include "framework/core/Types.h"
#include "framework/text/CString.h"

#include <string_view>

namespace KVX {

/// Integer and double conversions between numbers and text, independent of the C locale.
class NumberFormat
{
public:
    /// Parses a whole decimal integer: optional white space, an optional sign, digits, optional
    /// white space. False (and `result` untouched) for anything else or a value out of range.
    static bool parseInt64(std::string_view text, int64& result);
    /// Parses a whole decimal number (as JSON or C writes it, exponent allowed); false for
    /// anything else, including "nan" and "inf".
    static bool parseDouble(std::string_view text, double& result);

    /// parseInt64, with 0 when the text is not an integer.
    static int64 toInt64(std::string_view text);
    /// parseDouble, with 0.0 when the text is not a number.
    static double toDouble(std::string_view text);

    static CString formatInt64(int64 value);
    /// The shortest text that reads back as the same double ("0.1", "200", "1e+300").
    static CString formatDouble(double value);
    /// Fixed notation with `decimals` (0 to 20) digits after the point. The exact value of the
    /// double is rounded half away from zero: 42.25 to one decimal gives "42.3", while 2.675
    /// (stored just below) to two gives "2.67".
    static CString formatFixed(double value, int decimals);

    /// A double converted to an integer by truncation toward zero; out-of-range values are
    /// clamped and NaN gives 0, so a hostile number cannot cause undefined behaviour.
    static int64 truncate(double value);
};

} // namespace KVX
