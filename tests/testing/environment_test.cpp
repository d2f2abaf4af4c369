// SPDX-License-Identifier: BSD-3-Clause
#include "support/output.h"

#include <emporium/testing/environment.h>
#include <emporium/testing/error.h>
#include <emporium/testing/main_loop.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <glib.h>

namespace {

using Emporium::Testing::Environment;
using TestSupport::MessageOf;

TEST(TestEnvironment, RestoresTheFormerValues)
{
    setenv("EMPORIUM_TEST_A", "former", 1);
    unsetenv("EMPORIUM_TEST_B");
    {
        Environment environment;
        environment.Set("EMPORIUM_TEST_A", "first");
        environment.Set("EMPORIUM_TEST_A", "second");
        environment.Set("EMPORIUM_TEST_B", "new");
        EXPECT_STREQ(std::getenv("EMPORIUM_TEST_A"), "second");
        EXPECT_STREQ(std::getenv("EMPORIUM_TEST_B"), "new");
    }
    EXPECT_STREQ(std::getenv("EMPORIUM_TEST_A"), "former");
    EXPECT_EQ(std::getenv("EMPORIUM_TEST_B"), nullptr);
}

TEST(TestEnvironment, RestoresAVariableThatWasRemoved)
{
    setenv("EMPORIUM_TEST_A", "former", 1);
    {
        Environment environment;
        environment.Unset("EMPORIUM_TEST_A");
        EXPECT_EQ(std::getenv("EMPORIUM_TEST_A"), nullptr);
    }
    EXPECT_STREQ(std::getenv("EMPORIUM_TEST_A"), "former");
}

TEST(TestEnvironment, RefusesWhatIsNoName)
{
    Environment environment;
    EXPECT_EQ(MessageOf<Emporium::Testing::Error>([&] { environment.Set("A=B", "value"); }),
              "not the name of an environment variable: 'A=B'");
}

TEST(TheMainLoop, RunsUntilTheConditionIsTrue)
{
    bool done = false;
    g_idle_add(
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &done);
    Emporium::Testing::RunUntil([&] { return done; });
    EXPECT_TRUE(done);
}

TEST(TheMainLoop, EndsAtTheDeadlineAndLeavesNoSource)
{
    const auto run = [] {
        Emporium::Testing::RunUntil([] { return false; }, std::chrono::milliseconds(20));
    };
    EXPECT_EQ(MessageOf<Emporium::Testing::DeadlineExceeded>(run),
              "the condition was still false after 20 ms");
    EXPECT_FALSE(g_main_context_pending(nullptr));
}

} // namespace
