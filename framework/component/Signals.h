#pragma once

namespace KVX::Signals {

/// The subject's content changed; views read it again.
inline constexpr const char* kChanged = "changed";
/// A property of the subject changed its value; views bound to properties read them again.
inline constexpr const char* kPropertyChanged = "propertyChanged";

} // namespace KVX::Signals
