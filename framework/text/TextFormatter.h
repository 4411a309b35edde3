#pragma once

#include "framework/data/Variant.h"

#include <initializer_list>

namespace KVX {

/// Fills numbered placeholders in a text pattern:
/// - "%(N)" is argument N (counting from 1) by the variant-to-string rule;
/// - "%(N:D)" is argument N as a number in fixed notation with D decimals ("%(1:1)" of 42.25
///   gives "42.3");
/// - "%%" is one percent sign.
/// A placeholder naming a missing argument gives nothing; anything else after "%" stays as it is.
class TextFormatter
{
public:
    static String format(const String& pattern, std::initializer_list<Variant> arguments);
    static String format(const String& pattern, const Variant* arguments, size_t count);
};

} // namespace KVX
