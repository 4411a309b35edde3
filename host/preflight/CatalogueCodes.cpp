#include "host/preflight/CatalogueCodes.h"

#include <algorithm>

namespace Host::CatalogueCodes {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isLetter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

std::string quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

} // namespace

std::string normalizedIsrc(std::string_view isrc)
{
    std::string code;
    for (char c : isrc)
        if (c != '-' && c != ' ')
            code += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
    return code;
}

std::string isrcProblem(std::string_view isrc)
{
    const std::string code = normalizedIsrc(isrc);
    if (code.size() != 12)
        return "ISRC " + quoted(isrc) + " has " + std::to_string(code.size()) +
               " characters without hyphens and spaces; it needs 12 (as in CC-XXX-YY-NNNNN)";
    if (!isLetter(code[0]) || !isLetter(code[1]))
        return "ISRC " + quoted(isrc) + " must begin with two letters, the country code";
    if (!std::all_of(code.begin() + 2, code.begin() + 5, [](char c) { return isLetter(c) || isDigit(c); }))
        return "ISRC " + quoted(isrc) + ": the registrant code (characters 3 to 5) takes only letters and digits";
    if (!std::all_of(code.begin() + 5, code.end(), isDigit))
        return "ISRC " + quoted(isrc) + ": the year and the designation (characters 6 to 12) must be digits";
    return {};
}

std::string barcodeProblem(std::string_view barcode)
{
    if (barcode.size() != 12 && barcode.size() != 13)
        return "barcode " + quoted(barcode) + " has " + std::to_string(barcode.size()) +
               " characters; it needs 12 digits (UPC-A) or 13 (EAN-13)";
    if (!std::all_of(barcode.begin(), barcode.end(), isDigit))
        return "barcode " + quoted(barcode) + " must be digits only";
    // GS1: from the right, leaving out the check digit, weights 3, 1, 3, 1, ...
    int sum = 0;
    for (std::size_t i = 0; i + 1 < barcode.size(); ++i)
    {
        const std::size_t fromRight = barcode.size() - 2 - i;
        sum += (barcode[i] - '0') * (fromRight % 2 == 0 ? 3 : 1);
    }
    const int check = (10 - sum % 10) % 10;
    if (barcode.back() - '0' != check)
        return "barcode " + quoted(barcode) + " has the check digit " + barcode.back() + ", but its digits need " +
               std::to_string(check);
    return {};
}

} // namespace Host::CatalogueCodes
