// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/signals.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace Simulator {

namespace {

constexpr int watchedSignals[] = {SIGTERM, SIGINT, SIGQUIT, SIGHUP};

// GLib resets these in a child process.
constexpr int inheritedSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE};

// Where the signal handler writes; a pipe, because a handler can call almost nothing.
int writeDescriptor = -1;

void Write(int number, siginfo_t* information, void*)
{
    const int error = errno;
    const ReceivedSignal received = {number, information->si_code == SI_KERNEL};
    // If the pipe is full, 64 KiB of signals have not been handled, and one more says nothing new.
    [[maybe_unused]] const ssize_t ignored = write(writeDescriptor, &received, sizeof received);
    errno = error;
}

int OpenPipe(int& writer)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot watch signals");
    }
    writer = ends[1];
    return ends[0];
}

} // namespace

IgnoredSignals::IgnoredSignals()
{
    sigemptyset(&m_ignored);
    for (const int number : inheritedSignals) {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
            sigaddset(&m_ignored, number);
        }
    }
}

void IgnoredSignals::Restore() const
{
    for (const int number : inheritedSignals) {
        signal(number, sigismember(&m_ignored, number) == 1 ? SIG_IGN : SIG_DFL);
    }
}

Signals::Signals(Handler handler)
    : m_handler(std::move(handler)), m_reader(OpenPipe(writeDescriptor)), m_writer(writeDescriptor),
      m_source(g_unix_fd_add(m_reader.Get(), G_IO_IN, Arrived, this))
{
    struct sigaction action = {};
    action.sa_sigaction = Write;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    for (const int number : watchedSignals) {
        sigaction(number, &action, nullptr);
    }
}

Signals::~Signals()
{
    for (const int number : watchedSignals) {
        signal(number, SIG_IGN); // The process is about to end, and cleans up first.
    }
    g_source_remove(m_source);
}

ReceivedSignal Signals::Next() const
{
    ReceivedSignal received;
    return read(m_reader.Get(), &received, sizeof received) == sizeof received ? received
                                                                               : ReceivedSignal{};
}

gboolean Signals::Arrived(int, GIOCondition, gpointer data)
{
    auto* signals = static_cast<Signals*>(data);
    const ReceivedSignal received = signals->Next();
    if (received.number != 0) {
        signals->m_handler(received.number, received.fromTerminal);
    }
    return G_SOURCE_CONTINUE;
}

} // namespace Simulator
