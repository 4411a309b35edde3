#include "framework/data/Attributes.h"
#include "framework/text/CString.h"
#include "framework/text/NumberFormat.h"
#include "framework/text/String.h"
#include "framework/text/TextFormatter.h"
#include "framework/text/TextTable.h"

#include "tests/support/PrintString.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace KVX;

namespace {

constexpr int64 kMaxInt64 = std::numeric_limits<int64>::max();
constexpr int64 kMinInt64 = std::numeric_limits<int64>::min();

/// Leaves the shared table of a scope without translations, however a test ends.
struct TranslationsCleared
{
    TextTable& table;
    ~TranslationsCleared() { table.clearTranslations(); }
};

} // namespace

TEST(String, TrimDropsUnicodeWhiteSpaceButKeepsInnerText)
{
    EXPECT_EQ(String("\u00A0\u2003Grüße \u3000").trimmed(), "Grüße");
    EXPECT_EQ(String("\t\r\n a  b \u0085\u2029").trimmed(), "a  b");
    EXPECT_EQ(String("\u202F\u205F\u1680x\u00A0y\u2028").trimmed(), "x\u00A0y");
    EXPECT_TRUE(String(" \u3000\t\u2000").trimmed().isEmpty());
    // Zero-width space and the byte-order mark are not white space.
    EXPECT_EQ(String("\u200Bx\uFEFF").trimmed(), "\u200Bx\uFEFF");
}

TEST(String, LengthSubstringAndRemoveFirstCountWholeCodePoints)
{
    String euro("€uro");
    EXPECT_EQ(euro.length(), 4u);
    EXPECT_EQ(euro.byteLength(), 6u);
    EXPECT_EQ(euro.substring(0, 1), "€");
    EXPECT_EQ(euro.substring(1), "uro");
    EXPECT_EQ(euro.substring(3, 10), "o");
    EXPECT_TRUE(euro.substring(99, 2).isEmpty());
    euro.removeFirst();
    EXPECT_EQ(euro, "uro");

    String note("a\U0001F3B5ü");
    EXPECT_EQ(note.length(), 3u);
    EXPECT_EQ(note.substring(1, 1), "\U0001F3B5");
    note.removeFirst();
    EXPECT_EQ(note, "\U0001F3B5ü");
    note.removeFirst();
    EXPECT_EQ(note, "ü");
    note.removeFirst(5);
    EXPECT_TRUE(note.isEmpty());
}

TEST(String, MalformedUtf8BecomesReplacementCharacters)
{
    EXPECT_EQ(String("a\xFF"), "a\uFFFD");
    EXPECT_EQ(String("x\xE2\x82"), "x\uFFFD\uFFFD");         // truncated sequence
    EXPECT_EQ(String("\xC0\xAF"), "\uFFFD\uFFFD");           // overlong form of '/'
    EXPECT_EQ(String("\xED\xA0\x80"), "\uFFFD\uFFFD\uFFFD"); // encoded surrogate
    EXPECT_EQ(String("\xF4\x90\x80\x80").length(), 4u);      // beyond U+10FFFF
    EXPECT_EQ(String("\x80z"), "\uFFFDz");                   // lone continuation byte
    EXPECT_EQ(String("\uFFFD\U0010FFFF").length(), 2u);      // valid text stays as it is
    EXPECT_EQ(String::fromCodePoint(0xD800), "\uFFFD");
    EXPECT_EQ(String::fromCodePoint(0x1F3B5), "\U0001F3B5");
    EXPECT_EQ(String::fromLatin1("\xFC\xDF"), "üß");
    EXPECT_EQ(String("Grüße \U0001F3B5").toAscii(), "Gr??e ?");
}

TEST(String, IndexOfIgnoresAsciiCaseOnlyWhenAsked)
{
    EXPECT_EQ(String("WAV").indexOf("wav", false), 0u);
    EXPECT_EQ(String("wave").indexOf("wav", false), 0u);
    EXPECT_EQ(String("song.Wav").indexOf("wav", false), 5u);
    EXPECT_EQ(String("song.Wav").indexOf("wav"), String::npos);
    EXPECT_EQ(String("Grüße.WAV").indexOf("wav", false), 6u); // code points, not bytes
    EXPECT_EQ(String("€uro").indexOf("ro"), 2u);
    EXPECT_FALSE(String("song.mp3").contains("wav", false));
}

TEST(CString, FormatsLikePrintfAtAnyLength)
{
    EXPECT_EQ(CString::format("%s-%03d", "take", 7), "take-007");
    EXPECT_TRUE(CString::format("%s", "").isEmpty());
    EXPECT_EQ(CString::format("%0600d", 42), std::string(598, '0') + "42");
}

TEST(NumberFormat, ParsingAcceptsOnlyWholeNumbers)
{
    EXPECT_EQ(NumberFormat::toInt64(" 42\n"), 42);
    EXPECT_EQ(NumberFormat::toInt64("+7"), 7);
    EXPECT_EQ(NumberFormat::toInt64("-9223372036854775808"), kMinInt64);
    int64 value = 99;
    for (const char* bad :
         {"12abc", "", " ", "abc", "1.5", "1 2", "+-5", "-+5", "- 5", "9223372036854775808"})
    {
        EXPECT_FALSE(NumberFormat::parseInt64(bad, value)) << bad;
        EXPECT_EQ(NumberFormat::toInt64(bad), 0) << bad;
    }
    EXPECT_EQ(value, 99); // untouched by failures

    EXPECT_EQ(NumberFormat::toDouble("2.5e3"), 2500.0);
    EXPECT_EQ(NumberFormat::toDouble(" -0.125 "), -0.125);
    double number = 1.5;
    for (const char* bad : {"", "abc", "nan", "inf", "-infinity", "1e999", "1.5x", "+-1", "0x10", "1,5"})
    {
        EXPECT_FALSE(NumberFormat::parseDouble(bad, number)) << bad;
        EXPECT_EQ(NumberFormat::toDouble(bad), 0.0) << bad;
    }
    EXPECT_EQ(number, 1.5);
}

TEST(NumberFormat, FormatDoubleGivesShortestTextThatReadsBack)
{
    EXPECT_EQ(NumberFormat::formatDouble(0.1), "0.1");
    EXPECT_EQ(NumberFormat::formatDouble(200.0), "200");
    EXPECT_EQ(NumberFormat::formatDouble(1e300), "1e+300");
    for (double x : {1.0 / 3.0, -123456.789, 5e-324, 1.7976931348623157e308, 4.35})
    {
        double back = 0;
        ASSERT_TRUE(NumberFormat::parseDouble(NumberFormat::formatDouble(x), back)) << x;
        EXPECT_EQ(back, x);
    }
    EXPECT_EQ(NumberFormat::formatInt64(kMinInt64), "-9223372036854775808");
}

TEST(NumberFormat, FormatFixedRoundsHalfAwayFromZero)
{
    EXPECT_EQ(NumberFormat::formatFixed(50, 1), "50.0");
    EXPECT_EQ(NumberFormat::formatFixed(42.25, 1), "42.3");
    EXPECT_EQ(NumberFormat::formatFixed(-42.25, 1), "-42.3");
    EXPECT_EQ(NumberFormat::formatFixed(0.125, 2), "0.13");
    EXPECT_EQ(NumberFormat::formatFixed(-0.5, 0), "-1");
    EXPECT_EQ(NumberFormat::formatFixed(9.9996, 3), "10.000"); // carry into a new digit
    // 2.675 and 1.005 lie just below the tie in binary, so they round down.
    EXPECT_EQ(NumberFormat::formatFixed(2.675, 2), "2.67");
    EXPECT_EQ(NumberFormat::formatFixed(1.005, 2), "1.00");
    EXPECT_EQ(NumberFormat::formatFixed(3.7, -1), "4");
    EXPECT_EQ(NumberFormat::formatFixed(1, 30), "1.00000000000000000000");
}

TEST(NumberFormat, TruncateGoesTowardZeroAndClamps)
{
    EXPECT_EQ(NumberFormat::truncate(3.9), 3);
    EXPECT_EQ(NumberFormat::truncate(-3.9), -3);
    EXPECT_EQ(NumberFormat::truncate(std::nan("")), 0);
    EXPECT_EQ(NumberFormat::truncate(1e300), kMaxInt64);
    EXPECT_EQ(NumberFormat::truncate(-1e300), kMinInt64);
    EXPECT_EQ(NumberFormat::truncate(std::numeric_limits<double>::infinity()), kMaxInt64);
    EXPECT_EQ(NumberFormat::truncate(9223372036854775808.0), kMaxInt64);
    EXPECT_EQ(NumberFormat::truncate(9007199254740993.0), 9007199254740992); // nearest double
}

TEST(TextTable, TranslationsOverrideEnglishUntilCleared)
{
    TextTable& table = TextTable::forScope("Sorvel");
    TranslationsCleared guard{table};
    EXPECT_EQ(&TextTable::forScope("Sorvel"), &table);
    EXPECT_EQ(table.translate("Save"), "Save");

    Attributes german;
    german.set("Save", "Speichern");
    german.set("Open…", "Öffnen…");
    german.set("Cancel", "");
    german.set("Count", 3);
    EXPECT_EQ(table.loadTranslations(german), 2);
    EXPECT_EQ(table.translate("Save"), "Speichern");
    EXPECT_EQ(table.translate("Open…"), "Öffnen…");
    EXPECT_EQ(table.translate("Cancel"), "Cancel");
    EXPECT_EQ(table.translate("Count"), "Count");
    EXPECT_EQ(TextTable::forScope("TextTableTestOther").translate("Save"), "Save");

    Attributes update; // a second load adds to the first
    update.set("Save", "Sichern");
    EXPECT_EQ(table.loadTranslations(update), 1);
    EXPECT_EQ(table.translate("Save"), "Sichern");
    EXPECT_EQ(table.translate("Open…"), "Öffnen…");

    table.clearTranslations();
    EXPECT_EQ(table.translate("Save"), "Save");
    EXPECT_EQ(table.translate("Open…"), "Open…");
}

TEST(TextTable, RegistersEachTextOnceInOrder)
{
    TextTable& table = TextTable::forScope("TextTableTestRegistry");
    table.registerText("Play");
    table.registerText("Stop");
    table.registerText("Play");
    EXPECT_EQ(table.registeredTexts(), (std::vector<String>{"Play", "Stop"}));
}

TEST(TextFormatter, FillsNumberedPlaceholders)
{
    EXPECT_EQ(TextFormatter::format("%(2) of %(1)", {3, "Take"}), "Take of 3");
    EXPECT_EQ(TextFormatter::format("%(1:1)%% uploaded", {37.5}), "37.5% uploaded");
    EXPECT_EQ(TextFormatter::format("%(1:1)", {50}), "50.0");
    EXPECT_EQ(TextFormatter::format("%(1:1)", {42.25}), "42.3");
    EXPECT_EQ(TextFormatter::format("%(1:0)/%(1)", {2.5}), "3/2.5");
    EXPECT_EQ(TextFormatter::format("[%(1:2)]", {"n/a"}), "[n/a]");
    EXPECT_EQ(TextFormatter::format("a%(3)b%(2)c", {1, Variant()}), "abc");
    EXPECT_EQ(TextFormatter::format("Grüße, %(1) — %(2) €", {"Jörg", 9.5}), "Grüße, Jörg — 9.5 €");
}

TEST(TextFormatter, KeepsMalformedPlaceholdersLiterally)
{
    for (const char* pattern : {"100%", "%", "%d", "%(", "%()", "%(x)", "%(1", "%(0)", "%(1:)", "%(1:x)",
                                "%(12345)", "%(-1)", "%( 1)"})
        EXPECT_EQ(TextFormatter::format(pattern, {"A"}), pattern);
    EXPECT_EQ(TextFormatter::format("%%(1)", {"A"}), "%(1)");
    EXPECT_EQ(TextFormatter::format("%(1)%", {"A"}), "A%");
    EXPECT_EQ(TextFormatter::format("%%%(1)%%", {"A"}), "%A%");
}
