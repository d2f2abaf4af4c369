// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace EmporiumCtl {

/// Ends the program's work on Ctrl-C, SIGTERM, SIGHUP, or at the time-out.
///
/// A thread of its own waits for these: the library's calls block for up to 25 seconds and cannot be
/// cancelled. During such a call the thread itself reports and ends the process; otherwise it wakes
/// the main loop, and the command ends by itself. If it has not ended some seconds later, or at a second
/// Ctrl-C, the process ends at once, even if a report or another write blocks.
class Interruption
{
public:
    /// Only one object may exist. Signals are handled from here on.
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    void SetTimeout(std::chrono::seconds timeout);
    bool HasTimeout() const;

    bool Happened() const;
    /// "interrupted", or that the time-out has expired.
    std::string Reason() const;

    /// What is done in its lifetime may block. `report` is called, on any thread, if it is interrupted;
    /// the process then ends with ExitStatus::NotKnown.
    class BlockingCall
    {
    public:
        BlockingCall(Interruption& interruption, std::function<void()> report);
        BlockingCall(const BlockingCall&) = delete;
        BlockingCall& operator=(const BlockingCall&) = delete;
        ~BlockingCall();

    private:
        Interruption& m_interruption;
    };

private:
    using Clock = std::chrono::steady_clock;

    void Watch();
    int MillisecondsLeft() const;
    void OnTimeout();
    void OnSignal(char number);
    void Happen(const std::string& reason);
    [[noreturn]] void EndProcess();

    mutable std::recursive_mutex m_mutex; ///< Recursive: a report asks for the reason.
    std::function<void()> m_report;
    std::string m_reason; ///< Empty until it happens.
    std::optional<std::chrono::seconds> m_timeout;
    Clock::time_point m_begin = Clock::now();
    std::thread m_thread;
};

} // namespace EmporiumCtl
