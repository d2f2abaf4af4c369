// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_bus.h"

#include "testing/bus_client.h"
#include "testing/duration.h"

#include "common/fs/file_descriptor.h"

#include <emporium/testing/error.h>
#include <emporium/testing/private_bus.h>

#include <sys/timerfd.h>

#include <exception>
#include <memory>
#include <optional>

namespace Emporium::Testing {

namespace {

/// A descriptor that becomes readable when the time is over.
Common::FileDescriptor TimerOf(std::chrono::milliseconds deadline)
{
    Common::FileDescriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
    const auto milliseconds = static_cast<long>(Milliseconds(deadline));
    itimerspec time{};
    time.it_value.tv_sec = milliseconds / 1000;
    // 0 would disarm the timer.
    time.it_value.tv_nsec = milliseconds % 1000 * 1000000 + 1;
    timerfd_settime(timer.Get(), 0, &time, nullptr);
    return timer;
}

/// Translates the exceptions of the simulator's code into those of the kit.
template <typename Action>
auto Started(std::chrono::milliseconds deadline, Action action)
{
    try {
        return action();
    } catch (const ::Simulator::Interrupted&) {
        throw DeadlineExceeded("the private bus did not start within " + Text(deadline));
    } catch (const std::exception& error) {
        throw Error(error.what());
    }
}

} // namespace

struct PrivateBus::Private
{
    std::chrono::milliseconds deadline = defaultDeadline;
    std::unique_ptr<::Simulator::PrivateBus> bus;
    /// Opened when it is first used: a test may limit the number of connections.
    std::unique_ptr<BusClient> client;
};

PrivateBus::PrivateBus(const Limits& limits, std::chrono::milliseconds deadline)
    : m_private(std::make_unique<Private>())
{
    m_private->deadline = deadline;
    m_private->bus = Started(deadline, [&] {
        return std::make_unique<::Simulator::PrivateBus>(limits, TimerOf(deadline).Get());
    });
}

PrivateBus::~PrivateBus() = default;

const std::string& PrivateBus::Address() const
{
    return m_private->bus->Address();
}

const std::filesystem::path& PrivateBus::Directory() const
{
    return m_private->bus->Directory();
}

void PrivateBus::Stop()
{
    m_private->client.reset();
    m_private->bus->Stop();
}

void PrivateBus::Kill()
{
    m_private->client.reset();
    m_private->bus->Kill();
}

void PrivateBus::Start()
{
    Started(m_private->deadline, [&] { m_private->bus->Start(); });
}

void PrivateBus::Suspend()
{
    m_private->bus->Suspend();
}

void PrivateBus::Resume()
{
    m_private->bus->Resume();
}

bool PrivateBus::NameHasOwner(const std::string& name, std::chrono::milliseconds deadline) const
{
    if (!m_private->client) {
        m_private->client = std::make_unique<BusClient>(Address(), deadline);
    }
    m_private->client->SetDeadline(deadline);
    const VariantPtr reply =
        m_private->client->CallBus("NameHasOwner", g_variant_new("(s)", name.c_str()));
    gboolean owned = FALSE;
    g_variant_get(reply.get(), "(b)", &owned);
    return owned != FALSE;
}

} // namespace Emporium::Testing
