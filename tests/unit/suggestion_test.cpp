// SPDX-License-Identifier: BSD-3-Clause
#include "text/suggestion.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Text::DidYouMean;

const std::vector<std::string> names = {"install", "remove", "--private-bus", "ctl"};

TEST(SuggestionTest, AChangedMissingAddedOrSwappedLetterIsRecognised)
{
    for (const char* text : {"instoll", "nstall", "installl", "isntall", "INSTALL"}) {
        EXPECT_EQ(DidYouMean(text, names), "; did you mean 'install'?") << text;
    }
}

TEST(SuggestionTest, TheMostSimilarNameIsSuggested)
{
    EXPECT_EQ(DidYouMean("bbba", {"aaaa", "bbbb", "bbaa"}), "; did you mean 'bbbb'?");
    EXPECT_EQ(DidYouMean("--privat-bus", names), "; did you mean '--private-bus'?");
}

TEST(SuggestionTest, ASwapInAShortNameIsOneMistake)
{
    EXPECT_EQ(DidYouMean("clt", names), "; did you mean 'ctl'?");
}

TEST(SuggestionTest, NothingIsSuggestedForAnotherWord)
{
    for (const char* text : {"", "x", "list", "upgrade", "--catalogue"}) {
        EXPECT_EQ(DidYouMean(text, names), "") << text;
    }
    EXPECT_EQ(DidYouMean("install", {}), "");
}

TEST(SuggestionTest, NothingIsSuggestedForALongText)
{
    const std::string name(120, 'a');
    EXPECT_EQ(DidYouMean(name, {name}), "");
}

} // namespace
