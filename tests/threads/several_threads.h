// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <latch>
#include <thread>
#include <vector>

namespace TestSupport {

constexpr std::size_t severalThreads = 4;

/// Calls `work(number)` on several threads, which begin together, and expects that each returns true.
/// The work itself must not use the test framework, whose locks would order what the threads do.
template <typename Work>
void OnSeveralThreads(Work work)
{
    std::array<bool, severalThreads> good{};
    std::latch begin(severalThreads);
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < severalThreads; ++number) {
        threads.emplace_back([&, number] {
            begin.arrive_and_wait();
            good.at(number) = work(number);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t number = 0; number < severalThreads; ++number) {
        EXPECT_TRUE(good.at(number)) << "on thread " << number;
    }
}

} // namespace TestSupport
