// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <glib.h>

#include <csignal>
#include <functional>

namespace Simulator {

/// The signals that this process ignored when it started. A command ignores the same ones.
class IgnoredSignals
{
public:
    /// Remembers those of this process.
    IgnoredSignals();

    /// Called in a child process.
    void Restore() const;

private:
    sigset_t m_ignored;
};

struct ReceivedSignal
{
    int number = 0; ///< 0 if there is none
    bool fromTerminal = false;
};

/// Receives SIGTERM, SIGINT, SIGQUIT and SIGHUP in the main loop, instead of ending the process. GLib's
/// own source does not tell who sent a signal.
///
/// There is at most one object.
class Signals
{
public:
    /// @param fromTerminal true if the terminal sent it, to every process of the foreground group
    using Handler = std::function<void(int number, bool fromTerminal)>;

    /// @throws std::system_error
    explicit Signals(Handler handler);
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals();

    /// Readable when a signal arrived that the main loop has not handled yet.
    int Descriptor() const { return m_reader.Get(); }
    ReceivedSignal Next() const;

private:
    static gboolean Arrived(int descriptor, GIOCondition condition, gpointer data);

    Handler m_handler;
    Common::FileDescriptor m_reader;
    Common::FileDescriptor m_writer;
    guint m_source;
};

} // namespace Simulator
