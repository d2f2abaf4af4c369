// SPDX-License-Identifier: BSD-3-Clause
//
// The bus dies and is suspended at each point of an application's start.

#include "faults/bus/fault_fixture.h"
#include "faults/bus/relay.h"

#include "testing/child_process.h"

namespace {

using namespace TestSupport;

class AnApplication : public FaultTest
{
protected:
    /// Runs an application that makes a connection and prints it, and returns its output.
    std::string Run(const std::string& address)
    {
        setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
        Emporium::Testing::ChildProcess application({EMPORIUM_STARTER});
        std::string output;
        for (std::string line = application.ReadLine(); !line.empty();
             line = application.ReadLine()) {
            output += line + "\n";
        }
        EXPECT_EQ(application.Wait(), 0) << output << application.Errors();
        return output;
    }
};

TEST_F(AnApplication, EndsWellAndLogsTheReasonWhereverTheBusDiesAtItsStart)
{
    std::string output;
    bool cut = true;
    for (std::size_t bytes = 0; cut; bytes += 90) {
        Relay relay(bus.Address(), bytes, Relay::Then::Disconnect);
        output = Run(relay.Address());
        cut = relay.HasCut();
        EXPECT_EQ(output.find("[E] ") != std::string::npos, cut) << bytes << ": " << output;
    }
    EXPECT_EQ(output, "6 packages\nend\n");
}

// Not while it authenticates: that time-out cannot be shortened. With the default time-outs, the test
// would exceed its limit.
TEST_F(AnApplication, IsNotBlockedForLongerThanTheTimeOutsWhereverTheBusFallsSilentAtItsStart)
{
    setenv("SYSTEMD_BUS_TIMEOUT", "200ms", 1);
    bool cut = true;
    for (std::size_t bytes = 100; cut; bytes += 400) {
        Relay relay(bus.Address(), bytes, Relay::Then::KeepSilent);
        const std::string output = Run(relay.Address());
        cut = relay.HasCut();
        EXPECT_TRUE(!cut || output.find("[E] ") != std::string::npos) << bytes << ": " << output;
    }
}

} // namespace
