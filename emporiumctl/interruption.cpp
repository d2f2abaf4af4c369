// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/interruption.h"

#include "emporiumctl/exit_status.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace EmporiumCtl {
namespace {

// SIGWINCH interrupts nothing, but wakes the main loop to redraw.
constexpr std::array<int, 5> caught{SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGALRM};

// How long an interrupted command may take to end by itself. It may block in a write to a pipe that
// nobody reads.
constexpr unsigned secondsToEnd = 5;

// What the handler and SetTimeout() send to the thread: the number of a signal, or one of these.
constexpr char stop = 0;
constexpr char newTimeout = 127;

/// The only means of a signal handler.
std::array<int, 2> channel{-1, -1};
std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void Send(char what)
{
    const int error = errno;
    static_cast<void>(!write(channel[1], &what, 1));
    errno = error;
}

/// Ends the process itself where the thread cannot: the thread may block in a report.
void Handle(int number)
{
    if (number == SIGALRM || (number == SIGINT && interrupted)) {
        _exit(static_cast<int>(ExitStatus::NotKnown));
    }
    interrupted = interrupted || number != SIGWINCH;
    Send(static_cast<char>(number));
}

sigset_t CaughtSet()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : caught) {
        sigaddset(&set, number);
    }
    return set;
}

void Install(int number)
{
    struct sigaction action{};
    sigaction(number, nullptr, &action);
    // nohup starts programs so.
    if (number == SIGHUP && action.sa_handler == SIG_IGN) {
        return;
    }
    action.sa_handler = Handle;
    action.sa_flags = SA_RESTART;
    sigfillset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

} // namespace

Interruption::Interruption()
{
    if (pipe2(channel.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot open a pipe");
    }
    // Only the thread takes signals, so that they do not disturb the library's calls.
    const sigset_t set = CaughtSet();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::for_each(caught.begin(), caught.end(), Install);
    m_thread = std::thread([this] { Watch(); });
}

Interruption::~Interruption()
{
    Send(stop);
    m_thread.join();
}

void Interruption::SetTimeout(std::chrono::seconds timeout)
{
    const std::lock_guard lock(m_mutex);
    m_timeout = timeout;
    Send(newTimeout);
}

bool Interruption::HasTimeout() const
{
    const std::lock_guard lock(m_mutex);
    return m_timeout.has_value();
}

bool Interruption::Happened() const
{
    const std::lock_guard lock(m_mutex);
    return !m_reason.empty();
}

std::string Interruption::Reason() const
{
    const std::lock_guard lock(m_mutex);
    return m_reason;
}

Interruption::BlockingCall::BlockingCall(Interruption& interruption, std::function<void()> report)
    : m_interruption(interruption)
{
    const std::lock_guard lock(interruption.m_mutex);
    interruption.m_report = std::move(report);
    if (interruption.Happened()) {
        interruption.EndProcess();
    }
}

Interruption::BlockingCall::~BlockingCall()
{
    const std::lock_guard lock(m_interruption.m_mutex);
    m_interruption.m_report = nullptr;
}

void Interruption::Watch()
{
    const sigset_t set = CaughtSet();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    while (true) {
        pollfd readable{channel[0], POLLIN, 0};
        const int ready = poll(&readable, 1, MillisecondsLeft());
        char what = stop;
        if (ready == 0) {
            OnTimeout();
        } else if (ready > 0 && read(channel[0], &what, 1) == 1) {
            if (what == stop) {
                return;
            }
            OnSignal(what);
        }
    }
}

int Interruption::MillisecondsLeft() const
{
    const std::lock_guard lock(m_mutex);
    if (!m_timeout || Happened()) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(m_begin + *m_timeout - Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, INT_MAX));
}

void Interruption::OnTimeout()
{
    const std::lock_guard lock(m_mutex);
    if (m_timeout) {
        Happen("the time-out of " + std::to_string(m_timeout->count()) + " s has expired");
    }
}

void Interruption::OnSignal(char number)
{
    if (number == SIGWINCH) {
        g_main_context_wakeup(nullptr);
    } else if (number != newTimeout) {
        Happen("interrupted");
    }
}

void Interruption::Happen(const std::string& reason)
{
    const std::lock_guard lock(m_mutex);
    if (Happened()) {
        return;
    }
    m_reason = reason;
    interrupted = true;
    alarm(secondsToEnd);
    if (m_report) {
        EndProcess();
    }
    g_main_context_wakeup(nullptr);
}

/// Keeps the lock, so the other thread stays in its call until the process has ended. The library
/// stores its cache during exit().
void Interruption::EndProcess()
{
    m_report();
    std::exit(static_cast<int>(ExitStatus::NotKnown));
}

} // namespace EmporiumCtl
