// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/daemon_watch.h>

#include "common/log/log_message.h"
#include "dbus/idbus_proxy.h"

#include <boost/signals2/connection.hpp>

#include <exception>

namespace Emporium {

class DaemonWatchPrivate : public std::enable_shared_from_this<DaemonWatchPrivate>
{
public:
    explicit DaemonWatchPrivate(const DaemonStateCallback& callback)
        : m_callback(callback), m_proxy(GetDBusProxy())
    {
        if (m_proxy) {
            m_state = m_proxy->CurrentDaemonState;
            m_handler = m_proxy->DaemonStateChanged.connect(
                [this](DaemonState state) { OnStateChanged(state); });
        }
    }
    DaemonWatchPrivate(const DaemonWatchPrivate&) = delete;
    DaemonWatchPrivate& operator=(const DaemonWatchPrivate&) = delete;
    ~DaemonWatchPrivate() = default;

    DaemonState State() const { return m_state; }

private:
    void OnStateChanged(DaemonState state);

    DaemonState m_state = DaemonState::Disconnected;
    const DaemonStateCallback m_callback;
    const std::shared_ptr<IDBusProxy> m_proxy;

    // Last member: the handler is disconnected before anything that it uses is destroyed.
    boost::signals2::scoped_connection m_handler;
};

void DaemonWatchPrivate::OnStateChanged(DaemonState state)
{
    // The proxy repeats a state, and can know it before this watch reports it.
    if (state == m_state) {
        return;
    }
    m_state = state;
    if (!m_callback) {
        return;
    }
    // The callback may destroy the last handle.
    const std::shared_ptr<DaemonWatchPrivate> self = shared_from_this();
    // An exception must not keep the other watches from their callbacks.
    try {
        m_callback(state);
    } catch (const std::exception& error) {
        Common::LogMessage(Common::LogLevel::Error)
            << "The callback of a daemon watch failed (" << error.what() << ")";
    } catch (...) {
        Common::LogMessage(Common::LogLevel::Error) << "The callback of a daemon watch failed";
    }
}

DaemonWatch::DaemonWatch(const DaemonStateCallback& callback)
    : m_private(std::make_shared<DaemonWatchPrivate>(callback))
{
}

DaemonWatch::DaemonWatch(const DaemonWatch&) = default;
DaemonWatch::DaemonWatch(DaemonWatch&&) noexcept = default;
DaemonWatch& DaemonWatch::operator=(const DaemonWatch&) = default;
DaemonWatch& DaemonWatch::operator=(DaemonWatch&&) noexcept = default;
DaemonWatch::~DaemonWatch() = default;

DaemonState DaemonWatch::State() const
{
    return m_private->State();
}

} // namespace Emporium
