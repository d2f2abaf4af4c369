// SPDX-License-Identifier: BSD-3-Clause
//
// The process may open no further descriptor.

#include "faults/bus/descriptors.h"

#include "bus/peer.h"
#include "faults/bus/fault_fixture.h"
#include "support/sanitizers.h"

#include <gio/gunixfdlist.h>

#include <algorithm>
#include <fcntl.h>

namespace {

using namespace Emporium;
using namespace TestSupport;

class WithoutFreeDescriptors : public FaultTest
{
protected:
    // GLib ends the process if it cannot create the main context.
    WithoutFreeDescriptors() { g_main_context_default(); }

    void SetUp() override
    {
        if (hasAddressSanitizer) {
            GTEST_SKIP()
                << "the sanitizer opens descriptors itself, and reports errors without them";
        }
    }

    /// Sends this process messages that carry a descriptor.
    void SendDescriptors(int count)
    {
        Peer peer(bus.Address());
        for (int number = 0; number < count; ++number) {
            const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
            GUnixFDList* const list = g_unix_fd_list_new_from_array(&descriptor, 1);
            GDBusMessage* const message =
                g_dbus_message_new_signal("/a", "org.example.A", "Signal");
            g_dbus_message_set_destination(message, "org.example.test.KVD.Connection");
            g_dbus_message_set_unix_fd_list(message, list);
            g_dbus_connection_send_message(peer.Connection(), message,
                                           G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
            g_object_unref(message);
            g_object_unref(list);
        }
        peer.Settle();
    }
};

TEST_F(WithoutFreeDescriptors, AConnectionIsInvalidWhichIsLoggedAndOneWithEnoughIsValid)
{
    unsigned missed = 0;
    for (unsigned free = 0; !connection || !*connection; ++free) {
        const std::string log = OutputOf([&] {
            const DescriptorLimit limit(free);
            connection.emplace();
        });
        if (!*connection) {
            ++missed;
            EXPECT_EQ(log.rfind("[E] Failed to create a proxy for the emporium dbus interface\n"
                                "[E] [System.Error.EMFILE] ",
                                0),
                      0U)
                << log;
            EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
        }
        ExpectIdle();
    }
    EXPECT_GE(missed, 3U);
    Connect();
    ExpectFollowed();
    ExpectCleanEnd();
}

TEST_F(WithoutFreeDescriptors, CallsAndSignalsAreNotDisturbed)
{
    Connect();
    SendMarker();
    {
        const DescriptorLimit limit(0);
        for (const DaemonCall& call : EveryCall()) {
            if (call.method != Method::GetAllProperties) {
                EXPECT_EQ(call.make(*connection), "") << call;
            }
        }
        RunUntil([&] { return follower->Has("installed marker"); });
    }
    ExpectFollowed();
    ExpectCleanEnd();
}

TEST_F(WithoutFreeDescriptors, ASnapshotIsLoaded)
{
    Connect();
    const std::string log = OutputOf([] {
        const DescriptorLimit limit(0);
        EXPECT_EQ(DaemonConnection().GetPackageList().size(), 6U);
    });
    EXPECT_EQ(log.find("[E]"), std::string::npos) << log;
}

TEST_F(WithoutFreeDescriptors, OneThatAPeerSendsEndsTheConnectionToTheBus)
{
    Connect();
    SendDescriptors(1);
    const std::string log = OutputOf([] {
        const DescriptorLimit limit(0);
        RunWhatIsReady();
    });
    // The cause depends on the version of the bus library.
    EXPECT_TRUE(log.starts_with("[E] Failed to process dbus connection events (")) << log;
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_EQ(DaemonWatch(nullptr).State(), DaemonState::Disconnected);
    EXPECT_TRUE(connection->Start("com.sample.notes").HasError());
    ExpectIdle();
    ExpectCleanEnd();
}

TEST_F(WithoutFreeDescriptors, ThoseThatAPeerSentBeforeAreClosed)
{
    Connect();
    SendDescriptors(20);
    const auto before = OpenDescriptors();
    RunWhatIsReady();
    EXPECT_LT(OpenDescriptors(), before + 10);
    ExpectFollowed();
    ExpectCleanEnd();
}

} // namespace
