// SPDX-License-Identifier: BSD-3-Clause
#include "session_test.h"

namespace {

using namespace Emporium;
using namespace TestSupport;
using Emporium::Testing::Signal;

class LargeCatalogue : public SessionTest
{
};

TEST_F(LargeCatalogue, IsLoadedAndKeptCurrent)
{
    Testing::Simulator simulator(session, {"--packages", "5000", "--dictionary-entries", "4"});
    const auto connection = GetDaemonConnection();
    EXPECT_EQ(connection.GetPackageList().size(), 5000U);
    EXPECT_EQ(connection.GetPackage("org.example.package4999")->GetVersion(), "1.9.0");
    int changes = 0;
    const auto subscription = connection.SubscribeToEvent(
        EventType::PackageUpgraded, PackageCallback([&](const Package&) { ++changes; }));
    simulator.EmitSignal(Signal::PackageUpgraded,
                         "(('org.example.package7', '2', '', '', @a{sv} {}),)", 20000);
    RunUntil([&] { return changes == 20000; });
    EXPECT_EQ(connection.GetPackage("org.example.package7")->GetVersion(), "2");
}

} // namespace
