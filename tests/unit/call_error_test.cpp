// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/call_error.h"

#include <gtest/gtest.h>

namespace {

using EmporiumCtl::CallError;
using EmporiumCtl::CallOutcome;
using EmporiumCtl::ReadCallError;

CallOutcome OutcomeOf(const std::string& reason)
{
    return ReadCallError("Couldn't call org.velmora.Emporium.Start dbus method (" + reason + ")")
        .outcome;
}

CallOutcome OutcomeOfName(const std::string& name)
{
    return OutcomeOf("[org.freedesktop.DBus.Error." + name + "] text");
}

TEST(CallErrors, WithoutAReplyLeaveTheOutcomeUnknown)
{
    EXPECT_EQ(OutcomeOfName("NoReply"), CallOutcome::NotKnown);
    EXPECT_EQ(OutcomeOfName("Timeout"), CallOutcome::NotKnown);
    EXPECT_EQ(OutcomeOfName("TimedOut"), CallOutcome::NotKnown);
    EXPECT_EQ(OutcomeOf("Connection timed out"), CallOutcome::NotKnown);
    EXPECT_EQ(OutcomeOf("Message recipient disconnected from message bus without replying"),
              CallOutcome::NotKnown);
    EXPECT_EQ(OutcomeOf("Remote peer disconnected"), CallOutcome::NotKnown);
}

TEST(CallErrors, OfAnAbsentNameMeanThatThereIsNoDaemon)
{
    EXPECT_EQ(OutcomeOfName("ServiceUnknown"), CallOutcome::NoDaemon);
    EXPECT_EQ(OutcomeOfName("NameHasNoOwner"), CallOutcome::NoDaemon);
    EXPECT_EQ(OutcomeOf("The name a.b was not provided by any .service files"),
              CallOutcome::NoDaemon);
    EXPECT_EQ(OutcomeOf("Name \"a.b\" does not exist on the bus"), CallOutcome::NoDaemon);
}

TEST(CallErrors, OfTheConnectionMeanThatTheBusIsLost)
{
    EXPECT_EQ(OutcomeOfName("Disconnected"), CallOutcome::BusLost);
    EXPECT_EQ(OutcomeOfName("NoServer"), CallOutcome::BusLost);
    EXPECT_EQ(OutcomeOf("Connection reset by peer"), CallOutcome::BusLost);
    EXPECT_EQ(OutcomeOf("Transport endpoint is not connected"), CallOutcome::BusLost);
    EXPECT_EQ(OutcomeOf("Broken pipe"), CallOutcome::BusLost);
}

TEST(CallErrors, OfAnyOtherNameOrTextAreRefusals)
{
    EXPECT_EQ(OutcomeOfName("AccessDenied"), CallOutcome::Refused);
    EXPECT_EQ(OutcomeOf("[org.example.NoReply] text"), CallOutcome::Refused);
    EXPECT_EQ(OutcomeOf("odd"), CallOutcome::Refused);
    EXPECT_EQ(OutcomeOf(""), CallOutcome::Refused);
}

TEST(CallErrors, HaveTheNameAndTheMessageOfTheReason)
{
    const CallError error = ReadCallError("Couldn't call a dbus method ([a.b.C] text (more))");
    EXPECT_EQ(error.name, "a.b.C");
    EXPECT_EQ(error.message, "text (more)");
    EXPECT_EQ(error.code, std::nullopt);
    EXPECT_EQ(error.Text(), "a.b.C: text (more)");
    EXPECT_EQ(ReadCallError("another text").Text(), "another text");
}

} // namespace
