// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gio/gio.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace TestSupport {

/// Stands between one application and the bus, and passes on only the first bytes that the bus sends.
class Relay
{
public:
    enum class Then
    {
        Disconnect, ///< Closes the connection, as a bus that ends does.
        KeepSilent, ///< Keeps the connection open, as a suspended bus does.
    };

    Relay(const std::string& busAddress, std::size_t bytes, Then then)
        : m_bus(PathOf(busAddress)), m_bytes(bytes), m_then(then),
          m_listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        unlink(m_path.c_str());
        const sockaddr_un address = AddressOf(m_path);
        if (bind(m_listening, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            listen(m_listening, 1) != 0) {
            throw std::runtime_error("the relay cannot listen");
        }
        m_thread = std::jthread([this] { Run(); });
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    ~Relay()
    {
        m_thread.join();
        close(m_listening);
    }

    std::string Address() const
    {
        gchar* const escaped = g_dbus_address_escape_value(m_path.c_str());
        std::string address = std::string("unix:path=") + escaped;
        g_free(escaped);
        return address;
    }

    /// True if the bus has sent more than was passed on. After the end of the application.
    bool HasCut()
    {
        m_thread.join();
        m_thread = std::jthread([] {});
        return m_cut;
    }

private:
    static std::string PathOf(const std::string& address)
    {
        const std::size_t begin = address.find('=') + 1;
        const std::string escaped = address.substr(begin, address.find(',') - begin);
        gchar* const unescaped = g_uri_unescape_string(escaped.c_str(), nullptr);
        std::string path = unescaped;
        g_free(unescaped);
        return path;
    }

    static sockaddr_un AddressOf(const std::string& path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return address;
    }

    void Run()
    {
        const int application = accept4(m_listening, nullptr, nullptr, SOCK_CLOEXEC);
        const int bus = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address = AddressOf(m_bus);
        if (connect(bus, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            Pass(application, bus);
        }
        close(bus);
        close(application);
    }

    /// Until one of the two disconnects.
    void Pass(int application, int bus)
    {
        pollfd ready[2] = {{application, POLLIN, 0}, {bus, POLLIN, 0}};
        while (poll(ready, 2, -1) > 0) {
            if (ready[0].revents != 0 && !Copy(application, bus)) {
                return;
            }
            if (ready[1].revents != 0 && !CopyFirst(bus, application)) {
                return;
            }
        }
    }

    static bool Copy(int from, int to)
    {
        char bytes[4096];
        const ssize_t count = read(from, bytes, sizeof bytes);
        return count > 0 && Send(to, bytes, static_cast<std::size_t>(count));
    }

    bool CopyFirst(int from, int to)
    {
        char bytes[4096];
        const ssize_t count = read(from, bytes, sizeof bytes);
        if (count <= 0) {
            return false;
        }
        const auto passed = std::min(static_cast<std::size_t>(count), m_bytes);
        m_bytes -= passed;
        m_cut = m_cut || passed < static_cast<std::size_t>(count);
        return Send(to, bytes, passed) && (!m_cut || m_then == Then::KeepSilent);
    }

    static bool Send(int to, const char* bytes, std::size_t count)
    {
        return count == 0 || send(to, bytes, count, MSG_NOSIGNAL) == static_cast<ssize_t>(count);
    }

    const std::string m_bus;
    // In the directory of the bus, whose path is short enough for a socket, and which is removed with it.
    const std::string m_path = std::filesystem::path(m_bus).replace_filename("relay");
    std::size_t m_bytes;
    const Then m_then;
    bool m_cut = false;
    const int m_listening;
    std::jthread m_thread;
};

} // namespace TestSupport
