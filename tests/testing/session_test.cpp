// SPDX-License-Identifier: BSD-3-Clause
#include "support/output.h"
#include "support/temporary_directory.h"

#include <emporium/testing/error.h>
#include <emporium/testing/session.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

using namespace Emporium::Testing;
using TestSupport::MessageOf;
using TestSupport::TemporaryDirectory;

/// A program that is started instead of the dbus-daemon.
class OtherBusProgram
{
public:
    explicit OtherBusProgram(const char* script)
    {
        const auto program = m_directory.Path() / "dbus-daemon";
        std::ofstream(program) << "#!/bin/sh\n" << script;
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        m_environment.Set("PATH", m_directory.Path().string() + ":" + std::getenv("PATH"));
    }

private:
    TemporaryDirectory m_directory;
    Environment m_environment;
};

TEST(TestSession, SetsTheVariablesOfAnApplication)
{
    const Session session("org.example.editor");
    EXPECT_EQ(std::getenv("DBUS_SESSION_BUS_ADDRESS"), session.Bus().Address());
    EXPECT_EQ(std::getenv("HOME"), session.Home());
    EXPECT_EQ(std::getenv("XDG_CACHE_HOME"), session.CacheHome());
    EXPECT_STREQ(std::getenv("VEYRA_APP_ID"), "org.example.editor");
    EXPECT_TRUE(std::filesystem::is_empty(session.Home()));
    EXPECT_TRUE(std::filesystem::is_empty(session.CacheHome()));
    EXPECT_TRUE(session.Bus().NameHasOwner("org.freedesktop.DBus"));
    EXPECT_FALSE(session.Bus().NameHasOwner("org.velmora.Emporium"));
}

TEST(TestSession, RestoresTheVariablesAndRemovesItsFiles)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/former", 1);
    setenv("HOME", "/former", 1);
    unsetenv("VEYRA_APP_ID");
    std::filesystem::path directory;
    {
        Session session;
        directory = session.Bus().Directory();
        session.Variables().Set("HOME", "/another");
        session.PackageFile("org.example.clock");
    }
    EXPECT_STREQ(std::getenv("DBUS_SESSION_BUS_ADDRESS"), "unix:path=/former");
    EXPECT_STREQ(std::getenv("HOME"), "/former");
    EXPECT_EQ(std::getenv("VEYRA_APP_ID"), nullptr);
    EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST(TestSession, KeepsWhatIsStoredAtExitOutOfTheUsersCache)
{
    setenv("XDG_CACHE_HOME", "/former", 1);
    {
        const Session session;
    }
    const std::filesystem::path cache = std::getenv("XDG_CACHE_HOME");
    EXPECT_NE(cache, "/former");
    EXPECT_TRUE(std::filesystem::is_directory(cache));
}

TEST(TestSession, SaysWhyABusDoesNotStart)
{
    const OtherBusProgram program("echo 'no bus today' >&2\nexit 1\n");
    EXPECT_EQ(MessageOf<Error>([] { const Session session; }),
              "the private bus does not start: no bus today");
}

TEST(TestBus, ThatDoesNotStartInTimeIsAnError)
{
    const OtherBusProgram program("exec sleep 600\n");
    EXPECT_EQ(MessageOf<DeadlineExceeded>(
                  [] { const PrivateBus bus({}, std::chrono::milliseconds(30)); }),
              "the private bus did not start within 30 ms");
}

TEST(TestBus, ThatIsSuspendedIsAnErrorAtTheDeadline)
{
    constexpr std::chrono::milliseconds soon(50);
    PrivateBus bus;
    bus.Suspend();
    EXPECT_EQ(MessageOf<DeadlineExceeded>([&] { bus.NameHasOwner("a.b", soon); }),
              "the bus did not accept a connection within 50 ms");
    bus.Resume();
    EXPECT_FALSE(bus.NameHasOwner("a.b"));
    bus.Suspend();
    EXPECT_EQ(MessageOf<DeadlineExceeded>([&] { bus.NameHasOwner("a.b", soon); }),
              "the bus did not answer within 50 ms");
    bus.Resume();
}

TEST(TestBus, CanBeStartedAgainAtItsAddress)
{
    PrivateBus bus;
    const std::string address = bus.Address();
    EXPECT_FALSE(bus.NameHasOwner("a.b"));
    bus.Kill();
    EXPECT_NE(MessageOf<Error>([&] { bus.NameHasOwner("a.b"); }), "");
    bus.Start();
    EXPECT_EQ(bus.Address().substr(0, address.find(',')), address.substr(0, address.find(',')));
    EXPECT_FALSE(bus.NameHasOwner("a.b"));
}

} // namespace
