// SPDX-License-Identifier: BSD-3-Clause
//
// The daemon's name moves between two daemons, also in the middle of a call.

#include "faults/bus/answering_peer.h"
#include "faults/bus/fault_fixture.h"

namespace {

using namespace Emporium;
using namespace TestSupport;

std::string Package(const std::string& id)
{
    return "(('" + id + "', '1', '', '', @a{sv} {}),)";
}

constexpr unsigned allowReplacement = 1;
constexpr unsigned replaceExisting = 2;

class TwoDaemons : public SessionTest
{
protected:
    TwoDaemons()
    {
        first.RequestName(allowReplacement);
        second.RequestName(allowReplacement); // waits in the queue of the name
    }

    void Connect()
    {
        connection.emplace();
        follower.emplace(*connection);
        RunWhatIsReady();
    }

    DaemonStateCallback Note()
    {
        return [this](DaemonState state) { states.push_back(state); };
    }

    /// Expects that signals of the one daemon are delivered, and those of the other one are not.
    void ExpectFollowed(Peer& owner, Peer& other)
    {
        for (const char* destination : {"org.example.test.KVD.Connection", ""}) {
            other.Emit(*destination != '\0' ? destination : nullptr, "PackageInstalled",
                       Package("other").c_str());
        }
        other.Settle();
        owner.Emit(nullptr, "PackageInstalled", Package("owner").c_str());
        RunUntil([&] { return follower->Has("installed owner"); });
        EXPECT_FALSE(follower->Has("installed other"));
    }

    const std::vector<DaemonState> moved{DaemonState::Absent, DaemonState::Present};
    AnsweringPeer first{bus.Address(), "first"};
    AnsweringPeer second{bus.Address(), "second"};
    std::optional<DaemonConnection> connection;
    std::optional<Follower> follower;
    std::vector<DaemonState> states;
};

TEST_F(TwoDaemons, TheOneThatWaitsForTheNameIsIgnored)
{
    Connect();
    EXPECT_EQ(connection->GetArchitecture(), "first");
    ExpectFollowed(first, second);
}

TEST_F(TwoDaemons, TheOneThatWaitsIsFollowedWhenTheOtherOneReleasesTheName)
{
    Connect();
    const DaemonWatch watch(Note());
    first.ReleaseDaemonName();
    ExpectFollowed(second, first);
    EXPECT_EQ(states, moved);
    EXPECT_EQ(DaemonConnection().GetArchitecture(), "second");
    EXPECT_EQ(connection->GetArchitecture(), "first") << "the snapshot stays";
}

TEST_F(TwoDaemons, TheNameMovesThereAndBackBeforeTheMainLoopRuns)
{
    Connect();
    const DaemonWatch watch(Note());
    second.RequestName(allowReplacement | replaceExisting);
    second.Emit(nullptr, "PackageInstalled", Package("while second").c_str());
    second.Settle();
    first.RequestName(allowReplacement | replaceExisting);
    ExpectFollowed(first, second);
    EXPECT_EQ(states, (std::vector{moved[0], moved[1], moved[0], moved[1]}));
    EXPECT_TRUE(static_cast<bool>(connection->GetPackage("while second")));
}

TEST_F(TwoDaemons, TheNameMovesDuringACallWhichTheFormerOwnerStillAnswers)
{
    Connect();
    const DaemonWatch watch(Note());
    first.beforeReply = [this] { second.RequestName(allowReplacement | replaceExisting); };
    EXPECT_TRUE(static_cast<bool>(connection->Start("id")));
    EXPECT_TRUE(states.empty()) << "nothing is delivered from inside a call";
    ExpectFollowed(second, first);
    EXPECT_EQ(states, moved);
}

TEST_F(TwoDaemons, TheNameMovesDuringTheLoadWhichTheFormerOwnerStillAnswers)
{
    first.beforeReply = [this] { second.RequestName(allowReplacement | replaceExisting); };
    connection.emplace();
    follower.emplace(*connection);
    EXPECT_EQ(connection->GetArchitecture(), "first");
    ExpectFollowed(second, first);
    EXPECT_EQ(DaemonConnection().GetArchitecture(), "second");
}

TEST_F(TwoDaemons, TheNameMovesBetweenTwoCallsBeforeTheMainLoopRuns)
{
    Connect();
    const DaemonWatch watch(Note());
    first.Emit(nullptr, "PackageInstalled", Package("before").c_str());
    first.Settle();
    second.RequestName(allowReplacement | replaceExisting);
    EXPECT_EQ(DaemonConnection().GetArchitecture(), "second");
    second.Emit(nullptr, "PackageInstalled", Package("after").c_str());
    RunUntil([&] { return follower->Has("installed after"); });
    EXPECT_EQ(follower->events, (Strings{"installed before", "installed after"}))
        << "each signal is compared with the owner at its time";
    EXPECT_EQ(states, moved);
    RunWhatIsReady();
    EXPECT_EQ(states, moved);
}

TEST_F(TwoDaemons, BothLeaveAndTheConnectionWaitsForTheNext)
{
    Connect();
    const DaemonWatch watch(Note());
    first.ReleaseDaemonName();
    second.ReleaseDaemonName();
    RunUntil([&] { return states.size() == 3; });
    EXPECT_EQ(watch.State(), DaemonState::Absent);
    EXPECT_TRUE(connection->Start("id").HasError());
    second.RequestName(allowReplacement);
    ExpectFollowed(second, first);
    EXPECT_EQ(watch.State(), DaemonState::Present);
}

} // namespace
