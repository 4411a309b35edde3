#pragma once

#include <string>
#include <string_view>

namespace Host {

/// Where and why `text` is not valid JSON, as "line L, column C: <reason>" (lines and columns
/// counted from 1, columns in characters); empty when it is valid. For messages about files the
/// user writes by hand.
std::string jsonSyntaxError(std::string_view text);

} // namespace Host
