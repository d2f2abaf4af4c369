// SPDX-License-Identifier: BSD-3-Clause
//
// Tests the proxy by itself, on a real bus.

#include "dbus/dbus_proxy.h"

#include "session_test.h"
#include "unit/counted_allocations.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/IProxy.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstdint>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

/// The members called by the bus library, each with its time-out in microseconds.
std::vector<std::pair<std::string, std::uint64_t>> calls;

} // namespace

// Interposes the bus library's function, and calls it. Exported, so that a shared sdbus-c++ calls
// this one too.
extern "C" [[gnu::visibility("default")]] int sd_bus_call(sd_bus* bus, sd_bus_message* message,
                                                          std::uint64_t timeout,
                                                          sd_bus_error* error,
                                                          sd_bus_message** reply)
{
    calls.emplace_back(sd_bus_message_get_member(message), timeout);
    static const auto next =
        reinterpret_cast<decltype(&sd_bus_call)>(dlsym(RTLD_NEXT, "sd_bus_call"));
    return next(bus, message, timeout, error, reply);
}

namespace {

using namespace Emporium;
using namespace TestSupport;
using Emporium::Testing::Signal;

class Proxy : public SessionTest
{
protected:
    Testing::Simulator simulator{session};
};

TEST_F(Proxy, TwoCallsOfTheFactoryReturnTheSameObject)
{
    const std::shared_ptr<IDBusProxy> first = GetDBusProxy();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetDBusProxy(), first);
}

TEST_F(Proxy, AFailedCreationIsLoggedAndRetriedByTheNextCall)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    const std::string log = OutputOf([] { EXPECT_EQ(GetDBusProxy(), nullptr); });
    EXPECT_EQ(log.rfind("[E] Failed to create a proxy for the emporium dbus interface\n[E] ", 0),
              0U);
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.Address().c_str(), 1);
    EXPECT_NE(GetDBusProxy(), nullptr);
}

TEST_F(Proxy, AFailureToUnregisterLogsTwoWarningsAndDestructionContinues)
{
    const auto unregister = [](sdbus::IProxy& proxy) {
        proxy.unregister();
        throw sdbus::Error(sdbus::Error::Name("org.example.Error"), "cannot unregister");
    };
    EXPECT_EQ(OutputOf([&] { DBusProxy{unregister}; }),
              "[W] cannot unregister\n"
              "[W] Couldn't unregister proxy for the org.velmora.Emporium dbus interface\n");
    EXPECT_FALSE(g_main_context_pending(nullptr));
}

TEST_F(Proxy, WithoutAFailureNothingIsLogged)
{
    EXPECT_EQ(OutputOf([] { DBusProxy(); }), "");
}

TEST_F(Proxy, ARemovedPackageWithAnEmptyIdentifierIsEmittedToo)
{
    DBusProxy proxy;
    Strings removed;
    proxy.PackageRemoved.connect([&](const std::string& id) { removed.push_back(id); });
    simulator.EmitSignal(Signal::PackageRemoved, "('',)");
    RunUntil([&] { return !removed.empty(); });
    EXPECT_EQ(removed, (Strings{""}));
}

using Descriptors = std::vector<int>;

constexpr const char* noMemory =
    "[E] Failed to process the PackageInstalled signal (std::bad_alloc)\n";
constexpr const char* package =
    "(('a package identifier that is too long to be kept in place', '1', '', '', @a{sv} {}),)";

TEST_F(Proxy, ASignalThatCannotBeDeliveredForLackOfMemoryLogsOneLine)
{
    DBusProxy proxy;
    bool called = false;
    proxy.PackageInstalled.connect([&](const Package&) {
        called = true;
        throw std::bad_alloc();
    });
    simulator.EmitSignal(Signal::PackageInstalled, package);
    EXPECT_EQ(OutputOf([&] { RunUntil([&] { return called; }); }), noMemory);
}

TEST_F(Proxy, ASignalThatCannotBeDecodedForLackOfMemoryLogsOneLine)
{
    DBusProxy proxy;
    int called = 0;
    int marked = 0;
    proxy.PackageInstalled.connect([&](const Package&) { ++called; });
    proxy.PackageRemoved.connect([&](const std::string&) {
        // The next signals are processed in the same dispatch.
        failsOnce = true;
        allocationsLeft = static_cast<std::size_t>(marked++);
    });
    RunWhatIsReady();
    int failures = 0;
    bool someFailed = true;
    while (someFailed) {
        const int before = called;
        simulator.EmitSignal(Signal::PackageRemoved, "('',)");
        simulator.EmitSignal(Signal::PackageInstalled, package);
        bus.NameHasOwner("org.velmora.Emporium"); // the bus has now sent both
        const std::string log = OutputOf([&] {
            RunWhatIsReady();
            someFailed = allocationsLeft == unlimited;
            allocationsLeft = unlimited;
        });
        if (called == before) {
            EXPECT_EQ(log, noMemory) << marked;
            ++failures;
        }
    }
    EXPECT_GE(failures, 2);
}

TEST_F(Proxy, ItLeavesClosedStandardDescriptorsClosed)
{
    for (const Descriptors& closed : {Descriptors{0}, {1}, {2}, {0, 1, 2}}) {
        const pid_t child = fork();
        if (child == 0) {
            for (const int number : closed) {
                close(number);
            }
            const bool created = GetDBusProxy() != nullptr;
            const bool allClosed = std::all_of(closed.begin(), closed.end(), [](int number) {
                return fcntl(number, F_GETFD) == -1;
            });
            _exit(created && allClosed ? 0 : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << closed.front();
    }
}

TEST_F(Proxy, EveryCallUsesTheDefaultTimeout)
{
    DBusProxy proxy;
    calls.clear();
    proxy.GetAllProperties();
    proxy.Install("/path");
    proxy.Remove("id");
    proxy.Start("id");
    proxy.Restart("id");
    const std::vector<std::pair<std::string, std::uint64_t>> expected = {
        {"GetAllProperties", 0}, {"Install", 0}, {"Remove", 0}, {"Start", 0}, {"Restart", 0}};
    EXPECT_EQ(calls, expected);
}

/// The sources of the default context with an ID above this one; GLib counts the IDs up.
int SourcesSince(guint id)
{
    int sources = 0;
    for (guint candidate = id + 1; candidate < id + 100; ++candidate) {
        sources += g_main_context_find_source_by_id(nullptr, candidate) != nullptr ? 1 : 0;
    }
    return sources;
}

TEST_F(Proxy, ItsSourcesLeaveTheContextOnDestruction)
{
    const guint id = g_idle_add([](gpointer) -> gboolean { return G_SOURCE_REMOVE; }, nullptr);
    {
        DBusProxy proxy;
        EXPECT_EQ(SourcesSince(id), 2);
    }
    EXPECT_EQ(SourcesSince(id), 0);
    g_source_remove(id);
}

TEST_F(Proxy, ItsSourcesAreRemovedOnDestruction)
{
    {
        DBusProxy proxy;
    }
    EXPECT_FALSE(g_main_context_pending(nullptr));
}

} // namespace
