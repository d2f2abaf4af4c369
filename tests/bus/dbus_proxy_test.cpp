// SPDX-License-Identifier: BSD-3-Clause
//
// The proxy by itself, on a real bus, with the bus library's object replaced where a test needs one
// that fails.

#include "dbus/dbus_proxy.h"

#include "bus_fixture.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/IProxy.h>
#include <sdbus-c++/Types.h>

#include <cstdint>
#include <future>
#include <memory>
#include <utility>

namespace {

bool unregisteringFails = false;

/// Passes everything on to the real object, but for what is asked to fail.
class FailingProxy final : public sdbus::IProxy
{
public:
    explicit FailingProxy(std::unique_ptr<sdbus::IProxy> real) : m_real(std::move(real)) {}

    void unregister() override
    {
        m_real->unregister();
        if (unregisteringFails) {
            throw sdbus::Error(sdbus::Error::Name("org.example.Error"), "cannot unregister");
        }
    }

    void registerSignalHandler(const sdbus::InterfaceName& interface,
                               const sdbus::SignalName& signal,
                               sdbus::signal_handler handler) override
    {
        m_real->registerSignalHandler(interface, signal, std::move(handler));
    }
    sdbus::MethodCall createMethodCall(const sdbus::InterfaceName& interface,
                                       const sdbus::MethodName& method) const override
    {
        return m_real->createMethodCall(interface, method);
    }
    sdbus::MethodReply callMethod(const sdbus::MethodCall& call, std::uint64_t timeout) override
    {
        return m_real->callMethod(call, timeout);
    }
    sdbus::IConnection& getConnection() const override { return m_real->getConnection(); }
    const sdbus::ObjectPath& getObjectPath() const override { return m_real->getObjectPath(); }
    sdbus::Message getCurrentlyProcessedMessage() const override
    {
        return m_real->getCurrentlyProcessedMessage();
    }

    // Not called by anything that is tested here.
    sdbus::MethodReply callMethod(const sdbus::MethodCall&) override { throw Unexpected(); }
    sdbus::PendingAsyncCall callMethodAsync(const sdbus::MethodCall&,
                                            sdbus::async_reply_handler) override
    {
        throw Unexpected();
    }
    sdbus::Slot callMethodAsync(const sdbus::MethodCall&, sdbus::async_reply_handler,
                                sdbus::return_slot_t) override
    {
        throw Unexpected();
    }
    sdbus::PendingAsyncCall callMethodAsync(const sdbus::MethodCall&, sdbus::async_reply_handler,
                                            std::uint64_t) override
    {
        throw Unexpected();
    }
    sdbus::Slot callMethodAsync(const sdbus::MethodCall&, sdbus::async_reply_handler, std::uint64_t,
                                sdbus::return_slot_t) override
    {
        throw Unexpected();
    }
    std::future<sdbus::MethodReply> callMethodAsync(const sdbus::MethodCall&,
                                                    sdbus::with_future_t) override
    {
        throw Unexpected();
    }
    std::future<sdbus::MethodReply> callMethodAsync(const sdbus::MethodCall&, std::uint64_t,
                                                    sdbus::with_future_t) override
    {
        throw Unexpected();
    }
    sdbus::Slot registerSignalHandler(const sdbus::InterfaceName&, const sdbus::SignalName&,
                                      sdbus::signal_handler, sdbus::return_slot_t) override
    {
        throw Unexpected();
    }
    sdbus::MethodCall createMethodCall(const char*, const char*) const override
    {
        throw Unexpected();
    }
    void registerSignalHandler(const char*, const char*, sdbus::signal_handler) override
    {
        throw Unexpected();
    }
    sdbus::Slot registerSignalHandler(const char*, const char*, sdbus::signal_handler,
                                      sdbus::return_slot_t) override
    {
        throw Unexpected();
    }

private:
    static std::logic_error Unexpected() { return std::logic_error("not expected to be called"); }

    std::unique_ptr<sdbus::IProxy> m_real;
};

} // namespace

// The linker leads the library's calls of createProxy() here.
extern "C" std::unique_ptr<sdbus::IProxy>
__real__ZN5sdbus11createProxyERNS_11IConnectionENS_7BusNameENS_10ObjectPathE(
    sdbus::IConnection& connection, sdbus::ServiceName destination, sdbus::ObjectPath path);

extern "C" std::unique_ptr<sdbus::IProxy>
__wrap__ZN5sdbus11createProxyERNS_11IConnectionENS_7BusNameENS_10ObjectPathE(
    sdbus::IConnection& connection, sdbus::ServiceName destination, sdbus::ObjectPath path)
{
    return std::make_unique<FailingProxy>(
        __real__ZN5sdbus11createProxyERNS_11IConnectionENS_7BusNameENS_10ObjectPathE(
            connection, std::move(destination), std::move(path)));
}

namespace {

using namespace Emporium;
using namespace TestSupport;

class Proxy : public BusTest
{
protected:
    Simulator simulator{bus.Address()};
};

TEST_F(Proxy, TwoCallsOfTheFactoryGiveTheSameObject)
{
    const std::shared_ptr<IDBusProxy> first = GetDBusProxy();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetDBusProxy(), first);
}

TEST_F(Proxy, AFailedCreationIsToldAndTriedAnewByTheNextCall)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    const std::string log = OutputOf([] { EXPECT_EQ(GetDBusProxy(), nullptr); });
    EXPECT_EQ(log.rfind("[E] Failed to create a proxy for the emporium dbus interface\n[E] ", 0),
              0U);
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.Address().c_str(), 1);
    EXPECT_NE(GetDBusProxy(), nullptr);
}

TEST_F(Proxy, AFailureToUnregisterIsTwoWarningsAndTheDestructionGoesOn)
{
    unregisteringFails = true;
    EXPECT_EQ(OutputOf([] { DBusProxy(); }),
              "[W] cannot unregister\n"
              "[W] Couldn't unregister proxy for the org.velmora.Emporium dbus interface\n");
    unregisteringFails = false;
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

TEST_F(Proxy, AfterItHasGoneItsSourcesAreGoneToo)
{
    {
        DBusProxy proxy;
    }
    EXPECT_FALSE(g_main_context_pending(nullptr));
}

} // namespace
