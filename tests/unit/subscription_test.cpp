// SPDX-License-Identifier: BSD-3-Clause
#include "fake_proxy.h"

#include <optional>
#include <stdexcept>

namespace {

using namespace Emporium;
using namespace TestSupport;
using testing::Return;

class Subscription : public ConnectionTest
{
protected:
    void Installed(const std::string& id) { proxy->PackageInstalled(MakePackage(id)); }

    /// Notes the call under this name.
    PackageCallback Note(const std::string& name)
    {
        return [this, name](const Package&) { calls.push_back(name); };
    }

    Strings calls;
    DaemonConnection connection = GetDaemonConnection();
    EventSubscription first, second, third;
};

TEST_F(Subscription, IDsBeginWithOneAndAreNeverUsedAgain)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Note("first"));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("second"));
    EXPECT_EQ(first.GetID(), 1U);
    EXPECT_EQ(second.GetID(), 2U);
    connection.UnsubscribeFromEvent(first);
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Note("third"));
    EXPECT_EQ(third.GetID(), 3U);
    Installed("a");
    EXPECT_EQ(calls, (Strings{"second", "third"}));
}

TEST_F(Subscription, OperationStatusChangedWantsTheOperationForm)
{
    EXPECT_EQ(MessageOf<std::logic_error>([&] {
                  connection.SubscribeToEvent(EventType::OperationStatusChanged, Note(""));
              }),
              "Attempt to subscribe to the EventType::OperationStatusChanged event using a "
              "function with a signature other than std::function<void(const Operation &)>");
}

TEST_F(Subscription, EveryOtherTypeWantsThePackageForm)
{
    const std::vector<std::pair<int, std::string>> names = {
        {0, "EventType::PackageInstalled"},
        {1, "EventType::PackageUpgraded"},
        {2, "EventType::PackageRemoved"},
        {7, "EventType::(Unknown)"},
    };
    for (const auto& [type, name] : names) {
        EXPECT_EQ(MessageOf<std::logic_error>([&, value = type] {
                      connection.SubscribeToEvent(static_cast<EventType>(value),
                                                  OperationCallback([](const Operation&) {}));
                  }),
                  "Attempt to subscribe to the " + name +
                      " event using a function with a signature other than "
                      "std::function<void(const Package &)>");
    }
}

TEST_F(Subscription, ARefusedOneTakesNoID)
{
    EXPECT_THROW(connection.SubscribeToEvent(EventType::OperationStatusChanged, Note("")),
                 std::logic_error);
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Note("first"));
    EXPECT_EQ(first.GetID(), 1U);
}

TEST_F(Subscription, AnUnknownTypeIsTakenAndNeverCalled)
{
    first = connection.SubscribeToEvent(static_cast<EventType>(7), Note("first"));
    EXPECT_EQ(first.GetID(), 1U);
    Installed("a");
    EXPECT_TRUE(calls.empty());
}

TEST_F(Subscription, EachTypeIsCalledForItsOwnEventOnly)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Note("installed"));
    second = connection.SubscribeToEvent(EventType::PackageUpgraded, Note("upgraded"));
    third = connection.SubscribeToEvent(EventType::PackageRemoved, Note("removed"));
    Installed("a");
    proxy->PackageUpgraded(MakePackage("a", "2"));
    proxy->PackageRemoved("a");
    proxy->OperationStatusChanged(MakeOperation("x"));
    EXPECT_EQ(calls, (Strings{"installed", "upgraded", "removed"}));
}

TEST_F(Subscription, SubscribersAreCalledInTheOrderOfSubscription)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Note("first"));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("second"));
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Note("third"));
    Installed("a");
    EXPECT_EQ(calls, (Strings{"first", "second", "third"}));
}

TEST_F(Subscription, ADiscardedHandleEndsItAtOnce)
{
    connection.SubscribeToEvent(EventType::PackageInstalled, Note("discarded"));
    Installed("a");
    EXPECT_TRUE(calls.empty());
}

TEST_F(Subscription, LivesAsLongAsTheLastCopyOfItsHandle)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Note("called"));
    second = first;
    first = EventSubscription();
    Installed("a");
    second = EventSubscription();
    Installed("b");
    EXPECT_EQ(calls, (Strings{"called"}));
}

TEST_F(Subscription, EndingItTwiceOrEndingNoneIsHarmless)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Note("first"));
    connection.UnsubscribeFromEvent(EventSubscription());
    Installed("a");
    connection.UnsubscribeFromEvent(first);
    connection.UnsubscribeFromEvent(first);
    Installed("b");
    EXPECT_EQ(calls, (Strings{"first"}));
}

TEST_F(Subscription, ADefaultHandleHasIDZeroAndNeverLogs)
{
    EXPECT_EQ(OutputOf([] {
                  const EventSubscription subscription;
                  EXPECT_EQ(subscription.GetID(), 0U);
              }),
              "");
}

TEST_F(Subscription, TheEndOfAHandleActsOnTheProcessWideConnection)
{
    DaemonConnection own;
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Note("shared"));
    second = own.SubscribeToEvent(EventType::PackageInstalled, Note("own"));
    ASSERT_EQ(first.GetID(), second.GetID());
    second = EventSubscription();
    Installed("a");
    EXPECT_EQ(calls, (Strings{"own"}));
}

TEST_F(Subscription, AnEmptyCallbackOfTheRightFormThrowsAtItsEvent)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, PackageCallback());
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("second"));
    EXPECT_THROW(Installed("a"), std::bad_function_call);
    EXPECT_TRUE(calls.empty()) << "it ends the delivery";
    EXPECT_TRUE(static_cast<bool>(connection.GetPackage("a"))) << "the snapshot has changed";
}

TEST_F(Subscription, AThrowingCallbackEndsItsDeliveryAndNoLaterOne)
{
    bool fail = true;
    first = connection.SubscribeToEvent(EventType::PackageInstalled,
                                        PackageCallback([&](const Package&) {
                                            if (fail) {
                                                throw std::runtime_error("callback");
                                            }
                                        }));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("second"));
    EXPECT_THROW(Installed("a"), std::runtime_error);
    EXPECT_TRUE(static_cast<bool>(connection.GetPackage("a")));
    fail = false;
    Installed("b");
    EXPECT_EQ(calls, (Strings{"second"}));
}

TEST_F(Subscription, ACallbackMayUnsubscribeItself)
{
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled,
        PackageCallback([&, held = std::string(100, 'x')](const Package&) {
            connection.UnsubscribeFromEvent(first);
            calls.push_back(held.substr(0, 1));
        }));
    Installed("a");
    Installed("b");
    EXPECT_EQ(calls, (Strings{"x"}));
}

TEST_F(Subscription, ACallbackMayDropItsOwnHandle)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled,
                                        PackageCallback([&](const Package&) {
                                            first = EventSubscription();
                                            calls.push_back("called");
                                        }));
    Installed("a");
    Installed("b");
    EXPECT_EQ(calls, (Strings{"called"}));
}

TEST_F(Subscription, OneRemovedDuringADeliveryIsNotCalledAnyMoreInIt)
{
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled,
        PackageCallback([&](const Package&) { second = EventSubscription(); }));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("second"));
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Note("third"));
    Installed("a");
    EXPECT_EQ(calls, (Strings{"third"}));
}

TEST_F(Subscription, OneAddedDuringADeliveryIsFirstCalledAtTheNextEvent)
{
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled, PackageCallback([&](const Package& package) {
            if (package.GetID() == "a") {
                second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("added"));
            }
        }));
    Installed("a");
    EXPECT_TRUE(calls.empty());
    Installed("b");
    EXPECT_EQ(calls, (Strings{"added"}));
}

TEST_F(Subscription, OneAddedInADeliveryNestedInAnotherIsNotCalledInTheOuterOne)
{
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled, PackageCallback([&](const Package& package) {
            if (package.GetID() == "outer") {
                Installed("inner");
            } else {
                second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("added"));
                third = EventSubscription();
            }
        }));
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Note("removed"));
    Installed("outer");
    EXPECT_TRUE(calls.empty());
}

TEST_F(Subscription, ACallbackMayDropTheLastHandleOfItsConnection)
{
    std::optional<DaemonConnection> own;
    own.emplace();
    first = own->SubscribeToEvent(EventType::PackageInstalled, PackageCallback([&](const Package&) {
                                      own.reset();
                                      calls.push_back("first");
                                  }));
    second = own->SubscribeToEvent(EventType::PackageInstalled, Note("second"));
    Installed("a");
    Installed("b");
    EXPECT_EQ(calls, (Strings{"first"})) << "nobody is called when the connection has gone";
}

TEST_F(Subscription, ACallbackMayQueryAndCommand)
{
    ON_CALL(*proxy, Install)
        .WillByDefault(Return(Result<Operation>(SuccessResult<Operation>(MakeOperation("new")))));
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled, PackageCallback([&](const Package&) {
            calls.push_back(connection.CreateOperation(OperationRequest()).Get());
            calls.push_back(connection.GetPackageList().front().GetID());
        }));
    Installed("a");
    EXPECT_EQ(calls, (Strings{"new", "a"}));
}

TEST_F(Subscription, WhatARemovedCallbackHoldsMayUnsubscribeWhenItGoes)
{
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Note("second"));
    auto holder = std::make_shared<EventSubscription>(second);
    second = EventSubscription();
    first = connection.SubscribeToEvent(EventType::PackageInstalled,
                                        PackageCallback([holder](const Package&) {}));
    holder.reset();
    Installed("a");
    first = EventSubscription();
    Installed("b");
    EXPECT_EQ(calls, (Strings{"second"}));
}

} // namespace
