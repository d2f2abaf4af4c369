// SPDX-License-Identifier: BSD-3-Clause
//
// Tests the proxy by itself, on a real bus.

#include "dbus/dbus_proxy.h"

#include "bus_fixture.h"
#include "unit/counted_allocations.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/IProxy.h>

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace Emporium;
using namespace TestSupport;

class Proxy : public BusTest
{
protected:
    SimulatorProcess simulator{bus.Address()};
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
    simulator.Emit("PackageRemoved", "('',)");
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
    simulator.Emit("PackageInstalled", package);
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
        simulator.Emit("PackageRemoved", "('',)");
        simulator.Emit("PackageInstalled", package);
        simulator.NameHasOwner("org.velmora.Emporium"); // the bus has now sent both
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

TEST_F(Proxy, ItsSourcesAreRemovedOnDestruction)
{
    {
        DBusProxy proxy;
    }
    EXPECT_FALSE(g_main_context_pending(nullptr));
}

} // namespace
