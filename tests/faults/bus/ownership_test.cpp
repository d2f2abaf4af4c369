// SPDX-License-Identifier: BSD-3-Clause
//
// The daemon's name moves between two daemons, also in the middle of a call.

#include "bus/peer.h"
#include "faults/bus/fault_fixture.h"

namespace {

using namespace Emporium;
using namespace TestSupport;

std::string Package(const std::string& id)
{
    return "(('" + id + "', '1', '', '', @a{sv} {}),)";
}

/// A peer that answers the daemon's methods: with an empty snapshot, which has its architecture, and
/// without content.
class AnsweringPeer : public Peer
{
public:
    AnsweringPeer(const std::string& address, std::string architecture)
        : Peer(address), m_architecture(std::move(architecture)),
          m_filter(g_dbus_connection_add_filter(Connection(), OnMessage, this, nullptr))
    {
    }
    AnsweringPeer(const AnsweringPeer&) = delete;
    AnsweringPeer& operator=(const AnsweringPeer&) = delete;
    ~AnsweringPeer() { g_dbus_connection_remove_filter(Connection(), m_filter); }

    /// Called before the next call is answered, on another thread.
    std::function<void()> beforeReply = [] {};

    void RequestName(unsigned flags)
    {
        const Owned<GVariant> answer(g_dbus_connection_call_sync(
            Connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", Contract::busName, flags), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        if (!answer) {
            throw std::runtime_error("the name cannot be requested");
        }
    }

private:
    static GDBusMessage* OnMessage(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                   gpointer peer)
    {
        const char* const interface = g_dbus_message_get_interface(message);
        if (incoming == FALSE || interface == nullptr ||
            std::string_view(interface) != Contract::interfaceName ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return message;
        }
        // GDBus calls this on the thread that serves all peers; waiting for one of them needs another.
        AnsweringPeer& self = *static_cast<AnsweringPeer*>(peer);
        self.m_answering = std::jthread([&self, message] {
            self.Answer(message);
            g_object_unref(message);
        });
        return nullptr;
    }

    void Answer(GDBusMessage* call)
    {
        std::exchange(beforeReply, [] {})();
        GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
        if (std::string_view(g_dbus_message_get_member(call)) ==
            Contract::Method::getAllProperties) {
            const std::string snapshot =
                "({'Architecture': <'" + m_architecture +
                "'>, 'VeyraVersion': <'1'>, 'Packages': <@a(ssssa{sv}) []>, "
                "'Operations': <@a(ssiii) []>, 'CompletedOperations': "
                "<[('completed', 'p', 0, 100, 0)]>},)";
            const Owned<GVariant> body(
                g_variant_parse(nullptr, snapshot.c_str(), nullptr, nullptr, nullptr));
            g_dbus_message_set_body(reply, body.get());
        }
        g_dbus_connection_send_message(Connection(), reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
        g_object_unref(reply);
    }

    const std::string m_architecture;
    const guint m_filter;
    std::jthread m_answering;
};

constexpr unsigned allowReplacement = 1;
constexpr unsigned replaceExisting = 2;

class TwoDaemons : public BusTest
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
