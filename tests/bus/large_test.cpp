// SPDX-License-Identifier: BSD-3-Clause
#include "bus_fixture.h"

namespace {

using namespace Emporium;
using namespace TestSupport;

class LargeCatalogue : public BusTest
{
};

TEST_F(LargeCatalogue, IsLoadedAndKeptCurrent)
{
    SimulatorProcess simulator(bus.Address(), {"--packages", "5000", "--dictionary-entries", "4"});
    const auto connection = GetDaemonConnection();
    EXPECT_EQ(connection.GetPackageList().size(), 5000U);
    EXPECT_EQ(connection.GetPackage("org.example.package4999")->GetVersion(), "1.9.0");
    int changes = 0;
    const auto subscription = connection.SubscribeToEvent(
        EventType::PackageUpgraded, PackageCallback([&](const Package&) { ++changes; }));
    simulator.Emit("PackageUpgraded", "(('org.example.package7', '2', '', '', @a{sv} {}),)", 20000);
    RunUntil([&] { return changes == 20000; });
    EXPECT_EQ(connection.GetPackage("org.example.package7")->GetVersion(), "2");
}

} // namespace
