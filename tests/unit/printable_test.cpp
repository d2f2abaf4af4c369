// SPDX-License-Identifier: BSD-3-Clause
#include "text/printable.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Text::Columns;
using Text::Printable;
using Text::PrintableJson;
using Text::Shorten;

TEST(PrintableTest, VisibleTextOfAnyLanguageIsUnchanged)
{
    for (const char* text : {"", "org.example.clock 1.0", "Grüße, \u65e5\u672c\u8a9e, \u0645\u0631",
                             "a\\x1b", "e\u0301", "\U0001f600", "\u00a0"}) {
        EXPECT_EQ(Printable(text), text);
    }
}

TEST(PrintableTest, ControlCharactersAreEscaped)
{
    EXPECT_EQ(Printable("a\x1b[31mb"), "a\\x1b[31mb");
    EXPECT_EQ(Printable("a\r\n\tb\x7f"), "a\\x0d\\x0a\\x09b\\x7f");
    EXPECT_EQ(Printable(std::string(1, '\0')), "\\x00");
    EXPECT_EQ(Printable("a\u0085b\u009b31m"), "a\\u0085b\\u009b31m");
}

TEST(PrintableTest, CharactersThatReorderTheTextAreEscaped)
{
    EXPECT_EQ(Printable("gpj.\u202exe"), "gpj.\\u202exe");
    for (const char* text :
         {"\u061c", "\u200e", "\u200f", "\u202a", "\u202d", "\u2066", "\u2069"}) {
        EXPECT_NE(Printable(text), text);
    }
}

TEST(PrintableTest, CharactersWithoutWidthAreEscaped)
{
    for (const char* text :
         {"\u00ad", "\u034f", "\u115f", "\u17b4", "\u180b", "\u200b", "\u200d", "\u2060", "\u3164",
          "\ufe0f", "\ufeff", "\uffa0", "\U000e0041", "\U000e0100"}) {
        EXPECT_EQ(Printable(text).front(), '\\');
    }
    EXPECT_EQ(Printable("\U000e0041"), "\\U000e0041");
}

TEST(PrintableTest, LineAndParagraphSeparatorsAreEscaped)
{
    EXPECT_EQ(Printable("a\u2028b\u2029"), "a\\u2028b\\u2029");
}

TEST(PrintableTest, CodePointsWithoutACharacterAreEscaped)
{
    EXPECT_EQ(Printable("\uffff"), "\\uffff");
    EXPECT_EQ(Printable("\u0378"), "\\u0378");
}

TEST(PrintableTest, BytesThatAreNotUtf8AreEscapedOneByOne)
{
    EXPECT_EQ(Printable("a\xff\xfe"
                        "b"),
              "a\\xff\\xfeb");
    EXPECT_EQ(Printable("\xe2\x82"), "\\xe2\\x82");          // cut
    EXPECT_EQ(Printable("\xc0\xaf"), "\\xc0\\xaf");          // overlong
    EXPECT_EQ(Printable("\xed\xa0\x80"), "\\xed\\xa0\\x80"); // a surrogate
    EXPECT_EQ(Printable("\x9b"
                        "1m"),
              "\\x9b1m");
}

TEST(PrintableTest, PrintableTextDoesNotChangeAgain)
{
    const std::string once = Printable("\x1b\xff\u202e\\");
    EXPECT_EQ(Printable(once), once);
}

TEST(ColumnsTest, WideCharactersTakeTwoAndCombiningOnesNone)
{
    EXPECT_EQ(Columns(""), 0U);
    EXPECT_EQ(Columns("abc"), 3U);
    EXPECT_EQ(Columns("äöü"), 3U);
    EXPECT_EQ(Columns("\u65e5\u672c\u8a9e"), 6U);
    EXPECT_EQ(Columns("e\u0301"), 1U);
    EXPECT_EQ(Columns("\U0001f600"), 2U);
}

TEST(ShortenTest, TextThatFitsIsUnchanged)
{
    EXPECT_EQ(Shorten("abc", 3), "abc");
    EXPECT_EQ(Shorten("\u65e5\u672c", 4), "\u65e5\u672c");
}

TEST(ShortenTest, TextIsCutToColumnsWithAnEllipsis)
{
    EXPECT_EQ(Shorten("abcd", 3), "ab\u2026");
    EXPECT_EQ(Shorten("abcd", 1), "\u2026");
    EXPECT_EQ(Shorten("\u65e5\u672c\u8a9e", 5), "\u65e5\u672c\u2026");
    EXPECT_EQ(Shorten("\u65e5\u672c\u8a9e", 4), "\u65e5\u2026"); // half a character cannot be shown
}

TEST(PrintableJsonTest, WhatIsNotPrintableHasAnEscapeOfJson)
{
    EXPECT_EQ(PrintableJson(R"({"a":"ü\n"})"), R"({"a":"ü\n"})");
    EXPECT_EQ(PrintableJson("\"\x7f\u009b\u202e\""), R"("\u007f\u009b\u202e")");
    EXPECT_EQ(PrintableJson("\"\U000e0041\""), R"("\udb40\udc41")");
}

} // namespace
