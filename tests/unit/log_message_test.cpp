// SPDX-License-Identifier: BSD-3-Clause
#include "common/log/log_message.h"

#include "support/output.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <limits>
#include <locale>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Common::LogLevel;
using Common::LogMessage;
using TestSupport::OutputOf;

TEST(LogMessage, EachLevelHasItsPrefix)
{
    EXPECT_EQ(OutputOf([] { LogMessage(LogLevel::Info) << "text"; }), "[I] text\n");
    EXPECT_EQ(OutputOf([] { LogMessage(LogLevel::Warning) << "text"; }), "[W] text\n");
    EXPECT_EQ(OutputOf([] { LogMessage(LogLevel::Error) << "text"; }), "[E] text\n");
}

TEST(LogMessage, ALevelOutOfRangeHasNoPrefix)
{
    EXPECT_EQ(OutputOf([] { LogMessage(static_cast<LogLevel>(3)) << "text"; }), "text\n");
    EXPECT_EQ(OutputOf([] { LogMessage(static_cast<LogLevel>(-1)) << "text"; }), "text\n");
}

TEST(LogMessage, WithoutAnInsertionNothingIsWritten)
{
    EXPECT_EQ(OutputOf([] { LogMessage message(LogLevel::Error); }), "");
}

TEST(LogMessage, WithAnEmptyInsertionNothingIsWritten)
{
    EXPECT_EQ(OutputOf([] { LogMessage(LogLevel::Error) << "" << std::string(); }), "");
}

TEST(LogMessage, AStreamThatFailedWritesNothing)
{
    const char* const none = nullptr;
    EXPECT_EQ(OutputOf([&] { LogMessage(LogLevel::Error) << "text" << none; }), "");
}

TEST(LogMessage, AcceptsTheTypesThatAreLogged)
{
    const std::runtime_error error("cause");
    const std::string owned = "owned ";
    EXPECT_EQ(OutputOf([&] {
                  LogMessage(LogLevel::Warning)
                      << "literal " << owned << error.what() << ' '
                      << std::numeric_limits<std::uint64_t>::max() << ' ' << std::quoted("a\"b");
              }),
              "[W] literal owned cause 18446744073709551615 \"a\\\"b\"\n");
}

struct GroupedNumbers : std::numpunct<char>
{
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(LogMessage, NumbersAreNotGroupedByTheApplicationsLocale)
{
    const std::locale former =
        std::locale::global(std::locale(std::locale::classic(), new GroupedNumbers));
    const std::string line = OutputOf([] { LogMessage(LogLevel::Info) << 1234567; });
    std::locale::global(former);
    EXPECT_EQ(line, "[I] 1234567\n");
}

TEST(LogMessage, LineFeedsInTheTextAreWrittenUnchanged)
{
    EXPECT_EQ(OutputOf([] { LogMessage(LogLevel::Info) << "one\ntwo\n"; }), "[I] one\ntwo\n\n");
}

TEST(LogMessage, IsWrittenBeforeTheProcessEndsWithoutFlushing)
{
    std::array<int, 2> output{};
    ASSERT_EQ(pipe(output.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(output[1], STDOUT_FILENO);
        LogMessage(LogLevel::Error) << "the last words";
        _exit(0);
    }
    close(output[1]);
    waitpid(child, nullptr, 0);
    std::array<char, 100> text{};
    const ssize_t length = read(output[0], text.data(), text.size());
    close(output[0]);
    ASSERT_GE(length, 0);
    EXPECT_EQ(std::string(text.data(), static_cast<std::size_t>(length)), "[E] the last words\n");
}

TEST(LogMessage, TwoMessagesAreTwoLines)
{
    EXPECT_EQ(OutputOf([] {
                  LogMessage(LogLevel::Error) << "first";
                  LogMessage(LogLevel::Warning) << "second";
              }),
              "[E] first\n[W] second\n");
}

TEST(LogMessage, AMessageInterruptedByAnExceptionIsWrittenUpToThatPoint)
{
    const auto fail = []() -> const char* { throw std::runtime_error("interrupted"); };
    const auto report = [&] {
        LogMessage message(LogLevel::Error);
        message << "so far ";
        message << fail();
    };
    EXPECT_EQ(OutputOf([&] { EXPECT_THROW(report(), std::runtime_error); }), "[E] so far \n");
}

} // namespace
