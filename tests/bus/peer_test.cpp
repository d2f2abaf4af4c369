// SPDX-License-Identifier: BSD-3-Clause
//
// Signals of peers that do not own the daemon's name: the bus carries whatever is addressed to us.

#include "follower.h"
#include "peer.h"
#include "session_test.h"

namespace {

using namespace Emporium;
using namespace TestSupport;
using Emporium::Testing::Property;
using Emporium::Testing::Signal;

constexpr const char* evilPackage = "(('evil.app', '1', '', '', @a{sv} {}),)";
constexpr const char* markerPackage = "(('marker', '1', '', '', @a{sv} {}),)";
constexpr const char* endOfOperation = "(('u', 'p', 0, 100, 0),)";
constexpr const char* ourName = "org.example.test.KVD.Connection";

void EmitEverySignal(Peer& peer, const char* destination)
{
    peer.Emit(destination, "PackageInstalled", evilPackage);
    peer.Emit(destination, "PackageUpgraded", evilPackage);
    peer.Emit(destination, "PackageRemoved", "('com.sample.notes',)");
    peer.Emit(destination, "OperationStatusChanged", endOfOperation);
    peer.Settle();
}

class AForeignPeer : public SessionTest
{
protected:
    Peer foreigner{bus.Address()};
};

class AForeignPeerBesideTheDaemon : public AForeignPeer
{
protected:
    AForeignPeerBesideTheDaemon()
    {
        simulator.SetProperty(Property::Operations, "[('u', 'p', 0, 40, 0)]");
    }

    void ExpectIgnored(const DaemonConnection& connection, Follower& follower)
    {
        simulator.EmitSignal(Signal::PackageInstalled, markerPackage);
        RunUntil([&] { return follower.Has("installed marker"); });
        EXPECT_EQ(follower.events, (Strings{"installed marker"}));
        EXPECT_TRUE(static_cast<bool>(connection.GetPackage("com.sample.notes")));
        EXPECT_FALSE(static_cast<bool>(connection.GetPackage("evil.app")));
        EXPECT_TRUE(static_cast<bool>(connection.GetActiveOperation("u")));
    }

    Testing::Simulator simulator{session};
};

TEST_F(AForeignPeerBesideTheDaemon, IsIgnoredWhereItAddressesTheConnectionsUniqueName)
{
    const auto connection = GetDaemonConnection();
    Follower follower(connection);
    EmitEverySignal(foreigner, foreigner.OwnerOf(ourName).c_str());
    ExpectIgnored(connection, follower);
}

TEST_F(AForeignPeerBesideTheDaemon, IsIgnoredWhereItAddressesTheConnectionsName)
{
    const auto connection = GetDaemonConnection();
    Follower follower(connection);
    EmitEverySignal(foreigner, ourName);
    ExpectIgnored(connection, follower);
}

TEST_F(AForeignPeerBesideTheDaemon, IsIgnoredWhereItBroadcasts)
{
    const auto connection = GetDaemonConnection();
    Follower follower(connection);
    EmitEverySignal(foreigner, nullptr);
    ExpectIgnored(connection, follower);
}

TEST_F(AForeignPeerBesideTheDaemon, CannotDeclareItselfTheOwnerOfTheDaemonsName)
{
    const auto connection = GetDaemonConnection();
    Follower follower(connection);
    const std::string daemon = foreigner.OwnerOf(Contract::busName);
    for (const std::string& former : {daemon, std::string()}) {
        const std::string body =
            "('org.velmora.Emporium', '" + former + "', '" + foreigner.UniqueName() + "')";
        foreigner.Emit(ourName, "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                       body.c_str());
    }
    EmitEverySignal(foreigner, ourName);
    ExpectIgnored(connection, follower);
}

TEST_F(AForeignPeerBesideTheDaemon, IsIgnoredAfterTheDaemonHasRestarted)
{
    const auto connection = GetDaemonConnection();
    Follower follower(connection);
    simulator.Stop();
    EmitEverySignal(foreigner, ourName);
    Testing::Simulator again(session);
    EmitEverySignal(foreigner, ourName);
    again.EmitSignal(Signal::PackageInstalled, markerPackage);
    RunUntil([&] { return follower.Has("installed marker"); });
    EXPECT_EQ(follower.events, (Strings{"installed marker"}));
}

TEST_F(AForeignPeer, IsIgnoredWhereThereIsNoDaemonAndOneThatAppearsIsFollowed)
{
    const auto connection = GetDaemonConnection();
    Follower follower(connection);
    EmitEverySignal(foreigner, ourName);
    Testing::Simulator simulator(session);
    EmitEverySignal(foreigner, ourName);
    simulator.EmitSignal(Signal::PackageInstalled, markerPackage);
    RunUntil([&] { return follower.Has("installed marker"); });
    EXPECT_EQ(follower.events, (Strings{"installed marker"}));
    EXPECT_FALSE(static_cast<bool>(connection.GetPackage("evil.app")));
}

TEST_F(AForeignPeer, IsIgnoredBeforeTheMainLoopHasRunOnce)
{
    Peer daemon(bus.Address());
    daemon.OwnDaemonName();
    const auto connection = GetDaemonConnection(); // whose load fails: the peer knows no method
    Follower follower(connection);
    EmitEverySignal(foreigner, ourName);
    daemon.Emit(nullptr, "PackageInstalled", markerPackage);
    RunUntil([&] { return follower.Has("installed marker"); });
    EXPECT_EQ(follower.events, (Strings{"installed marker"}));
}

TEST_F(AForeignPeer, IsFollowedFromTheMomentAtWhichItTakesOverTheNameAndTheFormerOwnerNoMore)
{
    Peer former(bus.Address());
    former.OwnDaemonName();
    const auto connection = GetDaemonConnection();
    Follower follower(connection);
    former.Emit(nullptr, "PackageInstalled", "(('a', '1', '', '', @a{sv} {}),)");
    former.Settle();
    foreigner.Emit(ourName, "PackageInstalled", "(('b', '1', '', '', @a{sv} {}),)");
    foreigner.OwnDaemonName();
    foreigner.Emit(ourName, "PackageInstalled", "(('c', '1', '', '', @a{sv} {}),)");
    foreigner.Settle();
    former.Emit(ourName, "PackageInstalled", "(('d', '1', '', '', @a{sv} {}),)");
    former.Settle();
    foreigner.Emit(nullptr, "PackageInstalled", markerPackage);
    RunUntil([&] { return follower.Has("installed marker"); });
    EXPECT_EQ(follower.events, (Strings{"installed a", "installed c", "installed marker"}));
}

} // namespace
