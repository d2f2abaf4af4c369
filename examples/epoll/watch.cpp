// SPDX-License-Identifier: BSD-3-Clause
//
// Prints each package that is installed or removed until the package in the argument is, in an
// application that has its own loop, on epoll. GLib's main context is one of the things it waits for.
// Exit status: 0 the package was installed or removed, 1 no bus or it is lost, 2 usage.

#include <emporium/emporium.h>

#include <glib.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

namespace {

/// Lets an epoll loop wait for GLib's default main context. The loop's thread owns the context.
class GlibInEpoll
{
public:
    explicit GlibInEpoll(int epoll) : m_epoll(epoll) { g_main_context_acquire(m_context); }
    GlibInEpoll(const GlibInEpoll&) = delete;
    GlibInEpoll& operator=(const GlibInEpoll&) = delete;
    ~GlibInEpoll()
    {
        Forget();
        g_main_context_release(m_context);
    }

    /// Before epoll_wait: registers the descriptors, and returns the time-out in milliseconds.
    int Prepare()
    {
        g_main_context_prepare(m_context, &m_priority);
        int timeout = -1;
        int count = 0;
        while ((count = Query(timeout)) > static_cast<int>(m_polls.size())) {
            m_polls.resize(static_cast<std::size_t>(count));
        }
        m_polls.resize(static_cast<std::size_t>(count));
        for (GPollFD& poll : m_polls) {
            poll.revents = 0;
            Register(poll);
        }
        return timeout;
    }

    /// For each event of epoll_wait.
    void Note(const epoll_event& event)
    {
        for (GPollFD& poll : m_polls) {
            if (poll.fd == event.data.fd) {
                // The bits of epoll and of poll are the same for what GLib asks.
                poll.revents =
                    static_cast<gushort>(event.events & (poll.events | G_IO_ERR | G_IO_HUP));
            }
        }
    }

    /// After epoll_wait: calls the library, and with it the callbacks.
    void Dispatch()
    {
        // Before the callbacks: they may close descriptors.
        Forget();
        if (g_main_context_check(m_context, m_priority, m_polls.data(),
                                 static_cast<gint>(m_polls.size())) != FALSE) {
            g_main_context_dispatch(m_context);
        }
    }

private:
    int Query(int& timeout)
    {
        return g_main_context_query(m_context, m_priority, &timeout, m_polls.data(),
                                    static_cast<gint>(m_polls.size()));
    }

    /// Two sources may wait for one descriptor; epoll takes it once, with the bits of both.
    void Register(const GPollFD& poll)
    {
        epoll_event event{};
        event.data.fd = poll.fd;
        for (const GPollFD& other : m_polls) {
            event.events |= other.fd == poll.fd ? other.events : 0U;
        }
        if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, poll.fd, &event) == 0) {
            m_registered.push_back(poll.fd);
        }
    }

    void Forget()
    {
        for (const int descriptor : m_registered) {
            epoll_ctl(m_epoll, EPOLL_CTL_DEL, descriptor, nullptr);
        }
        m_registered.clear();
    }

    GMainContext* m_context = g_main_context_default();
    int m_epoll;
    gint m_priority = 0;
    std::vector<GPollFD> m_polls;
    std::vector<int> m_registered;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " PACKAGE_ID\n";
        return 2;
    }
    bool done = false;
    const auto connection = Emporium::GetDaemonConnection();
    if (!connection) {
        return 1;
    }
    const auto report = [&](const char* what) {
        return Emporium::PackageCallback([&, what](const Emporium::Package& package) {
            std::cout << what << ' ' << package.GetID() << '\n' << std::flush;
            done = done || package.GetID() == argv[1];
        });
    };
    using Emporium::EventType;
    const auto installed =
        connection.SubscribeToEvent(EventType::PackageInstalled, report("installed"));
    const auto removed = connection.SubscribeToEvent(EventType::PackageRemoved, report("removed"));
    const Emporium::DaemonWatch watch([](Emporium::DaemonState) {});

    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    GlibInEpoll glib(epoll); // the application adds its own descriptors to `epoll`
    while (!done && watch.State() != Emporium::DaemonState::Disconnected) {
        epoll_event events[16];
        const int count = epoll_wait(epoll, events, 16, glib.Prepare());
        std::for_each(events, events + std::max(count, 0),
                      [&](const epoll_event& event) { glib.Note(event); });
        glib.Dispatch();
    }
    close(epoll);
    return done ? 0 : 1;
}
