// SPDX-License-Identifier: BSD-3-Clause
#include "several_threads.h"

#include "common/log/log_message.h"
#include "support/output.h"

#include <string>

namespace {

using Common::LogLevel;
using Common::LogMessage;
using namespace TestSupport;

std::size_t Occurrences(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t found = text.find(part); found != std::string::npos;
         found = text.find(part, found + part.size())) {
        ++count;
    }
    return count;
}

constexpr std::size_t linesPerThread = 200;

bool WriteLines(std::size_t thread)
{
    for (std::size_t line = 0; line < linesPerThread; ++line) {
        LogMessage(LogLevel::Warning) << "<text of thread " << thread << '>';
    }
    return true;
}

TEST(LogThreads, LinesOfSeveralThreadsLoseNothing)
{
    const std::string output = OutputOf([] { OnSeveralThreads(WriteLines); });
    std::string expected;
    for (std::size_t thread = 0; thread < severalThreads; ++thread) {
        expected = "<text of thread " + std::to_string(thread) + ">";
        EXPECT_EQ(Occurrences(output, expected), linesPerThread);
    }
    // The three parts of a line may interleave with those of others, but stay whole.
    EXPECT_EQ(Occurrences(output, "[W] "), severalThreads * linesPerThread);
    EXPECT_EQ(Occurrences(output, "\n"), severalThreads * linesPerThread);
    EXPECT_EQ(output.size(), severalThreads * linesPerThread * ("[W] " + expected + "\n").size());
}

} // namespace
