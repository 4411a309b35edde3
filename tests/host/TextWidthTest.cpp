#include "host/terminal/TextWidth.h"

#include <gtest/gtest.h>

using Host::displayWidth;
using Host::fitToWidth;
using Host::padToWidth;
using Host::printable;

TEST(TextWidth, ColumnsAreWhatATerminalShowsNotBytes)
{
    EXPECT_EQ(displayWidth(""), 0u);
    EXPECT_EQ(displayWidth("Alpha"), 5u);
    EXPECT_EQ(displayWidth("\xC3\x9C" "berfahrt"), 9u);           // Überfahrt, precomposed: 10 bytes
    EXPECT_EQ(displayWidth("U\xCC\x88" "berfahrt"), 9u);           // U + combining diaeresis: 11 bytes
    EXPECT_EQ(displayWidth("\xE6\x9D\xB1\xE4\xBA\xAC"), 4u);       // 東京: two wide characters
    EXPECT_EQ(displayWidth("\xF0\x9F\x8E\xB5"), 2u);               // a musical note emoji
    EXPECT_EQ(displayWidth("a\xFF" "b"), 3u);                      // a stray byte shows as one mark
    EXPECT_EQ(displayWidth("\xE6\x9D"), 2u);                       // a character cut short: two marks

    // Padding reaches the same column whatever the letters.
    EXPECT_EQ(padToWidth("\xC3\x9C" "berfahrt", 12), "\xC3\x9C" "berfahrt   ");
    EXPECT_EQ(padToWidth("\xE6\x9D\xB1\xE4\xBA\xAC", 6), "\xE6\x9D\xB1\xE4\xBA\xAC  ");
    EXPECT_EQ(padToWidth("longer than asked", 4), "longer than asked");

    // Cutting keeps whole characters and a combining mark with its letter, then pads.
    EXPECT_EQ(fitToWidth("Alphabet", 5), "Alpha");
    EXPECT_EQ(fitToWidth("\xE6\x9D\xB1\xE4\xBA\xAC\xE3\x82\xBF", 5), "\xE6\x9D\xB1\xE4\xBA\xAC ");
    EXPECT_EQ(fitToWidth("aU\xCC\x88" "b", 2), "aU\xCC\x88");
    EXPECT_EQ(fitToWidth("aU\xCC\x88" "b", 1), "a");
    EXPECT_EQ(fitToWidth("x", 3), "x  ");
    for (const char* text : {"\xC3\x9C" "berfahrt \xE6\x9D\xB1\xE4\xBA\xAC", "plain", "U\xCC\x88\xF0\x9F\x8E\xB5"})
        for (size_t width = 0; width < 14; ++width)
            EXPECT_EQ(displayWidth(fitToWidth(text, width)), width) << text << " in " << width;
}

TEST(TextWidth, NothingATerminalWouldActOnIsPrinted)
{
    // A sequence that retitles the terminal, a bell, line breaks, the one-character CSI of C1, a
    // stray byte and a NUL: each shows as U+FFFD; letters of every script stay.
    EXPECT_EQ(printable("Night\x1b]0;owned\x07"
                        "Drive"),
              "Night\xEF\xBF\xBD]0;owned\xEF\xBF\xBD"
              "Drive");
    EXPECT_EQ(printable("a\nb\tc\rd"), "a\xEF\xBF\xBD"
                                       "b\xEF\xBF\xBD"
                                       "c\xEF\xBF\xBD"
                                       "d");
    EXPECT_EQ(printable("a\nb\tc\rd", true), "a\nb\tc\xEF\xBF\xBD"
                                             "d");
    EXPECT_EQ(printable("\xC2\x9B"
                        "2J"),
              "\xEF\xBF\xBD"
              "2J");
    EXPECT_EQ(printable("a\xFF"
                        "b"),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_EQ(printable(std::string_view("a\0b", 3)), "a\xEF\xBF\xBD"
                                                      "b");
    EXPECT_EQ(printable("\xC3\x9C"
                        "berfahrt \xE6\x9D\xB1 \xF0\x9F\x8E\xB5"),
              "\xC3\x9C"
              "berfahrt \xE6\x9D\xB1 \xF0\x9F\x8E\xB5");
    // A table of such names keeps its columns.
    EXPECT_EQ(padToWidth("a\x1b[2Jb", 7), "a\xEF\xBF\xBD[2Jb ");
    EXPECT_EQ(fitToWidth("a\x1b[2Jb\n", 5), "a\xEF\xBF\xBD[2J");
    EXPECT_EQ(displayWidth(fitToWidth("\x07\x07\x07\x07", 3)), 3u);
}
