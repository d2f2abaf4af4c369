// SPDX-License-Identifier: BSD-3-Clause
//
// Tests the proxy by itself, on a real bus.

#include "dbus/dbus_proxy.h"

#include "bus_fixture.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/IProxy.h>

#include <memory>

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

TEST_F(Proxy, ItsSourcesAreRemovedOnDestruction)
{
    {
        DBusProxy proxy;
    }
    EXPECT_FALSE(g_main_context_pending(nullptr));
}

} // namespace
