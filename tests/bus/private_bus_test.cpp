// SPDX-License-Identifier: BSD-3-Clause

#include "simulator/bus/private_bus.h"
#include "support/gobject.h"
#include "support/output.h"
#include "support/temporary_directory.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

using namespace TestSupport;
using Simulator::PrivateBus;

class EnvironmentVariable
{
public:
    EnvironmentVariable(const char* name, const std::string& value) : m_name(name)
    {
        const char* const former = std::getenv(name);
        m_wasSet = former != nullptr;
        m_former = m_wasSet ? former : "";
        setenv(name, value.c_str(), 1);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
    ~EnvironmentVariable()
    {
        if (m_wasSet) {
            setenv(m_name, m_former.c_str(), 1);
        } else {
            unsetenv(m_name);
        }
    }

private:
    const char* m_name;
    bool m_wasSet;
    std::string m_former;
};

bool CanConnect(const std::string& address)
{
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    const Owned<GDBusConnection> connection(
        g_dbus_connection_new_for_address_sync(address.c_str(), flags, nullptr, nullptr, nullptr));
    return connection != nullptr;
}

class PrivateBusInATemporaryDirectory : public testing::TestWithParam<std::string>
{
};

TEST_P(PrivateBusInATemporaryDirectory, StartsAndLeavesNothingBehind)
{
    const TemporaryDirectory directory;
    const auto temporary = directory.Path() / GetParam();
    std::filesystem::create_directory(temporary);
    const EnvironmentVariable variable("TMPDIR", temporary);
    {
        const PrivateBus bus;
        EXPECT_TRUE(CanConnect(bus.Address())) << bus.Address();
    }
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

INSTANTIATE_TEST_SUITE_P(OddNames, PrivateBusInATemporaryDirectory,
                         testing::Values("plain", "a space", "a&b", "a<b", "100%", "a,b;c=d",
                                         "gr\u00fcn", "\xff\xfe"));

TEST(PrivateBusInATemporaryDirectoryTooLongForASocket, StartsElsewhereAndLeavesNothingBehind)
{
    const TemporaryDirectory directory;
    const auto temporary = directory.Path() / std::string(120, 'l');
    std::filesystem::create_directory(temporary);
    const EnvironmentVariable variable("TMPDIR", temporary);
    std::string address;
    {
        const PrivateBus bus;
        EXPECT_TRUE(CanConnect(bus.Address())) << bus.Address();
        address = bus.Address();
    }
    const std::string prefix = "unix:path=";
    const std::filesystem::path socket =
        address.substr(prefix.size(), address.find(',') - prefix.size());
    EXPECT_EQ(socket.parent_path().parent_path(), "/tmp");
    EXPECT_FALSE(std::filesystem::exists(socket.parent_path()));
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
}

// The bus daemon's limit, that of a socket address, and the lengths around them.
TEST(PrivateBusInATemporaryDirectoryOfAnyLength, Starts)
{
    const std::string suffix = "/emporium-bus-XXXXXX/bus";
    for (const std::size_t length : {98U, 99U, 100U, 106U, 107U, 108U, 109U}) {
        const TemporaryDirectory directory;
        const std::size_t used = directory.Path().native().size() + 1 + suffix.size();
        ASSERT_LT(used, length) << "the temporary directory of this run is too long for this test";
        const auto temporary = directory.Path() / std::string(length - used, 'l');
        std::filesystem::create_directory(temporary);
        const EnvironmentVariable variable("TMPDIR", temporary);
        const PrivateBus bus;
        EXPECT_TRUE(CanConnect(bus.Address())) << length << ": " << bus.Address();
    }
}

TEST(PrivateBusThatCannotStart, ThrowsTheDaemonsMessage)
{
    const TemporaryDirectory directory;
    const auto program = directory.Path() / "dbus-daemon";
    std::ofstream(program) << "#!/bin/sh\necho 'no bus today' >&2\nexit 1\n";
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    const EnvironmentVariable path("PATH", directory.Path().string() + ":" + std::getenv("PATH"));
    const EnvironmentVariable temporary("TMPDIR", directory.Path());
    EXPECT_EQ(MessageOf<std::runtime_error>([] { const PrivateBus bus; }),
              "the private bus does not start: no bus today");
    std::filesystem::remove(program);
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

} // namespace
