#pragma once

#include <string>
#include <string_view>

namespace Host {

/// The catalogue codes a store checks on a release: the recording code of a track (ISRC) and the
/// barcode of a product (UPC-A or EAN-13). The checks look at a normalised copy; what is sent is
/// always what the user typed.
namespace CatalogueCodes {

/// `isrc` without hyphens and spaces, in upper case: the form two codes are compared in.
std::string normalizedIsrc(std::string_view isrc);

/// Why `isrc` is no recording code, or an empty text when it is one: 12 characters once hyphens
/// and spaces are gone, 2 letters (the country), 3 letters or digits (the registrant), 2 digits
/// (the year) and 5 digits (the designation). Letter case does not matter.
std::string isrcProblem(std::string_view isrc);

/// Why `barcode` is no product barcode, or an empty text when it is one: 12 digits (UPC-A) or 13
/// (EAN-13) whose last digit is the GS1 check digit of the others.
std::string barcodeProblem(std::string_view barcode);

} // namespace CatalogueCodes

} // namespace Host
