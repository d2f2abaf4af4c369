// SPDX-License-Identifier: BSD-3-Clause
//
// A daemon whose messages have the byte order of another machine, as over a bridge to its bus.

#include "faults/bus/answering_peer.h"
#include "faults/bus/fault_fixture.h"

namespace {

using namespace Emporium;
using namespace TestSupport;

class ADaemonOfByteOrder : public SessionTest,
                           public testing::WithParamInterface<GDBusMessageByteOrder>
{
};

TEST_P(ADaemonOfByteOrder, IsUnderstoodInRepliesAndSignals)
{
    AnsweringPeer daemon(bus.Address(), "other");
    daemon.byteOrder = GetParam();
    daemon.OwnDaemonName();

    const DaemonConnection connection;
    EXPECT_EQ(connection.GetArchitecture(), "other");
    const auto completed = connection.GetCompletedOperations();
    ASSERT_EQ(completed.size(), 1U);
    EXPECT_EQ(completed[0].GetUUID(), "completed");
    EXPECT_EQ(completed[0].GetStatus(), Common::OperationStatus::Succeeded);

    daemon.EmitInByteOrder("OperationStatusChanged", "(('uuid', 'package', 2, 50, 28),)");
    RunUntil([&] { return !connection.GetActiveOperations().empty(); });
    const Operation operation = connection.GetActiveOperations().front();
    EXPECT_EQ(operation.GetUUID(), "uuid");
    EXPECT_EQ(operation.GetPackageID(), "package");
    EXPECT_EQ(operation.GetType(), Common::OperationType::Remove);
    EXPECT_EQ(static_cast<int>(operation.GetStatus()), 50);
    EXPECT_EQ(operation.GetErrorCode(), Common::ErrorCode::FileConflict);
}

INSTANTIATE_TEST_SUITE_P(BothOrders, ADaemonOfByteOrder,
                         testing::Values(G_DBUS_MESSAGE_BYTE_ORDER_BIG_ENDIAN,
                                         G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN));

} // namespace
