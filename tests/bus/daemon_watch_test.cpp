// SPDX-License-Identifier: BSD-3-Clause
#include "peer.h"
#include "session_test.h"

#include <algorithm>
#include <optional>

namespace {

using namespace Emporium;
using namespace TestSupport;
using Emporium::Testing::Method;
using Emporium::Testing::Signal;

constexpr const char* markerPackage = "(('marker', '1', '', '', @a{sv} {}),)";

std::string TextOf(DaemonState state)
{
    switch (state) {
    case DaemonState::Present:
        return "present";
    case DaemonState::Absent:
        return "absent";
    case DaemonState::Disconnected:
        return "disconnected";
    }
    return "unknown";
}

class Watch : public SessionTest
{
protected:
    DaemonStateCallback Note()
    {
        return [this](DaemonState state) { events.push_back(TextOf(state)); };
    }

    void RunUntilEvents(std::size_t count)
    {
        RunUntil([&] { return events.size() >= count; });
        RunWhatIsReady();
    }

    Strings events;
};

TEST_F(Watch, AfterALoadedSnapshotIsPresentAtOnceAndReportsNoChange)
{
    const Testing::Simulator simulator(session);
    const auto connection = GetDaemonConnection();
    const DaemonWatch watch(Note());
    EXPECT_EQ(watch.State(), DaemonState::Present);
    RunWhatIsReady();
    EXPECT_EQ(watch.State(), DaemonState::Present);
    EXPECT_EQ(events, Strings());
}

TEST_F(Watch, BeforeAnythingElseLearnsOfTheDaemonFromTheMainLoop)
{
    const Testing::Simulator simulator(session);
    const DaemonWatch watch(Note());
    EXPECT_EQ(watch.State(), DaemonState::Absent);
    RunUntilEvents(1);
    EXPECT_EQ(events, (Strings{"present"}));
    EXPECT_EQ(watch.State(), DaemonState::Present);
}

TEST_F(Watch, BeforeTheConnectionLearnsOfTheDaemonFromTheMainLoopAndNotInsideTheLoad)
{
    const Testing::Simulator simulator(session);
    const DaemonWatch watch(Note());
    const auto connection = GetDaemonConnection();
    EXPECT_EQ(watch.State(), DaemonState::Absent);
    EXPECT_EQ(events, Strings());
    const DaemonWatch later(Note());
    EXPECT_EQ(later.State(), DaemonState::Present);
    RunUntilEvents(1);
    EXPECT_EQ(events, (Strings{"present"}));
}

TEST_F(Watch, LearnsOfADaemonThatAnswersTheLoadWithAnError)
{
    Testing::Simulator simulator(session);
    simulator.FailCall(Method::GetAllProperties, 1, Common::ErrorCode::Internal, "no");
    const auto connection = GetDaemonConnection();
    const DaemonWatch watch(Note());
    RunUntilEvents(1);
    EXPECT_EQ(events, (Strings{"present"}));
}

TEST_F(Watch, WithoutADaemonIsAbsentUntilOneAppears)
{
    const auto connection = GetDaemonConnection();
    const DaemonWatch watch(Note());
    RunWhatIsReady();
    EXPECT_EQ(watch.State(), DaemonState::Absent);
    EXPECT_EQ(events, Strings());
    const Testing::Simulator simulator(session);
    RunUntilEvents(1);
    EXPECT_EQ(events, (Strings{"present"}));
}

TEST_F(Watch, OfADaemonThatStartsDuringTheLoadReportsNoAbsence)
{
    const DaemonConnection early; // no daemon answers this one
    const Testing::Simulator simulator(session);
    const DaemonConnection connection;
    const DaemonWatch watch(Note());
    EXPECT_EQ(watch.State(), DaemonState::Present);
    RunWhatIsReady();
    EXPECT_EQ(events, Strings());
}

TEST_F(Watch, ReportsADaemonThatIsKilledAndStartedAgain)
{
    std::optional<Testing::Simulator> simulator(std::in_place, session);
    const auto connection = GetDaemonConnection();
    const DaemonWatch watch(Note());
    simulator->Kill();
    RunUntilEvents(1);
    EXPECT_EQ(events, (Strings{"absent"}));
    EXPECT_EQ(watch.State(), DaemonState::Absent);
    simulator.emplace(session);
    RunUntilEvents(2);
    EXPECT_EQ(events, (Strings{"absent", "present"}));
    EXPECT_EQ(watch.State(), DaemonState::Present);
}

TEST_F(Watch, ReportsADaemonThatIsReplacedAsAbsentAndPresent)
{
    Peer former(bus.Address());
    former.OwnDaemonName();
    const DaemonWatch watch(Note());
    RunUntilEvents(1);
    Peer next(bus.Address());
    next.OwnDaemonName();
    RunUntilEvents(3);
    EXPECT_EQ(events, (Strings{"present", "absent", "present"}));
    next.ReleaseDaemonName();
    RunUntilEvents(4);
    EXPECT_EQ(events, (Strings{"present", "absent", "present", "absent"}));
}

TEST_F(Watch, ReportsALostBusOnceAndForGood)
{
    const Testing::Simulator simulator(session);
    const auto connection = GetDaemonConnection();
    const DaemonWatch watch(Note());
    bus.Stop();
    OutputOf([&] { RunUntil([&] { return watch.State() == DaemonState::Disconnected; }); });
    RunWhatIsReady();
    EXPECT_EQ(events.back(), "disconnected");
    EXPECT_EQ(std::count(events.begin(), events.end(), "disconnected"), 1);
    const DaemonWatch later(Note());
    EXPECT_EQ(later.State(), DaemonState::Disconnected);
}

TEST_F(Watch, WithoutABusIsDisconnected)
{
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    std::optional<DaemonWatch> watch;
    EXPECT_NE(OutputOf([&] { watch.emplace(Note()); }), "");
    EXPECT_EQ(watch->State(), DaemonState::Disconnected);
}

TEST_F(Watch, ReportsInOrderWithTheEventsOfTheDaemon)
{
    Peer former(bus.Address());
    former.OwnDaemonName();
    const auto connection = GetDaemonConnection();
    const auto subscription = connection.SubscribeToEvent(
        EventType::PackageInstalled,
        PackageCallback([&](const Package& package) { events.push_back(package.GetID()); }));
    const DaemonWatch watch(Note());
    RunUntilEvents(1);
    former.Emit(nullptr, "PackageInstalled", "(('first', '1', '', '', @a{sv} {}),)");
    former.ReleaseDaemonName();
    former.OwnDaemonName();
    former.Emit(nullptr, "PackageInstalled", "(('second', '1', '', '', @a{sv} {}),)");
    former.Settle();
    RunUntilEvents(5);
    EXPECT_EQ(events, (Strings{"present", "first", "absent", "present", "second"}));
}

TEST_F(Watch, ItsCallbackMayMakeANewConnectionWhichHasTheStateOfTheNewDaemon)
{
    std::optional<Testing::Simulator> simulator(std::in_place, session);
    const auto connection = GetDaemonConnection();
    std::optional<DaemonConnection> latest;
    const DaemonWatch watch([&](DaemonState state) {
        if (state == DaemonState::Present) {
            latest.emplace();
        }
    });
    simulator->Stop();
    simulator.emplace(session, Strings{"--packages", "9"});
    RunUntil([&] { return latest.has_value(); });
    EXPECT_EQ(latest->GetPackageList().size(), 9U);
    simulator->EmitSignal(Signal::PackageInstalled, markerPackage);
    RunUntil([&] { return static_cast<bool>(latest->GetPackage("marker")); });
}

TEST_F(Watch, AForeignPeerChangesNothing)
{
    const Testing::Simulator simulator(session);
    const auto connection = GetDaemonConnection();
    const DaemonWatch watch(Note());
    Peer foreigner(bus.Address());
    const std::string owner = foreigner.OwnerOf(Contract::busName);
    const std::string body = "('org.velmora.Emporium', '" + owner + "', '')";
    for (const char* destination : {"org.example.test.KVD.Connection", ""}) {
        foreigner.Emit(*destination != '\0' ? destination : nullptr, "/org/freedesktop/DBus",
                       "org.freedesktop.DBus", "NameOwnerChanged", body.c_str());
    }
    foreigner.OwnName("org.example.last");
    RunUntil([&] { return bus.NameHasOwner("org.example.last"); });
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.notes")));
    RunWhatIsReady();
    EXPECT_EQ(events, Strings());
    EXPECT_EQ(watch.State(), DaemonState::Present);
}

} // namespace
