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

    /// Records each call under this name.
    PackageCallback Record(const std::string& name)
    {
        return [this, name](const Package&) { calls.push_back(name); };
    }

    Strings calls;
    DaemonConnection connection = GetDaemonConnection();
    EventSubscription first, second, third;
};

TEST_F(Subscription, IDsStartAtOneAndAreNeverReused)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Record("first"));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    EXPECT_EQ(first.GetID(), 1U);
    EXPECT_EQ(second.GetID(), 2U);
    connection.UnsubscribeFromEvent(first);
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Record("third"));
    EXPECT_EQ(third.GetID(), 3U);
    Installed("a");
    EXPECT_EQ(calls, (Strings{"second", "third"}));
}

TEST_F(Subscription, OperationStatusChangedTakesOnlyAnOperationCallback)
{
    EXPECT_EQ(MessageOf<std::logic_error>([&] {
                  static_cast<void>(
                      connection.SubscribeToEvent(EventType::OperationStatusChanged, Record("")));
              }),
              "Attempt to subscribe to the EventType::OperationStatusChanged event using a "
              "function with a signature other than std::function<void(const Operation &)>");
}

TEST_F(Subscription, EveryOtherTypeTakesOnlyAPackageCallback)
{
    const std::vector<std::pair<int, std::string>> names = {
        {0, "EventType::PackageInstalled"},
        {1, "EventType::PackageUpgraded"},
        {2, "EventType::PackageRemoved"},
        {7, "EventType::(Unknown)"},
    };
    for (const auto& [type, name] : names) {
        EXPECT_EQ(MessageOf<std::logic_error>([&, value = type] {
                      static_cast<void>(
                          connection.SubscribeToEvent(static_cast<EventType>(value),
                                                      OperationCallback([](const Operation&) {})));
                  }),
                  "Attempt to subscribe to the " + name +
                      " event using a function with a signature other than "
                      "std::function<void(const Package &)>");
    }
}

TEST_F(Subscription, ARefusedSubscriptionUsesNoID)
{
    EXPECT_THROW(static_cast<void>(
                     connection.SubscribeToEvent(EventType::OperationStatusChanged, Record(""))),
                 std::logic_error);
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Record("first"));
    EXPECT_EQ(first.GetID(), 1U);
}

TEST_F(Subscription, AnUnknownTypeIsAcceptedAndNeverCalled)
{
    first = connection.SubscribeToEvent(static_cast<EventType>(7), Record("first"));
    EXPECT_EQ(first.GetID(), 1U);
    Installed("a");
    EXPECT_TRUE(calls.empty());
}

TEST_F(Subscription, EachTypeIsCalledOnlyForItsOwnEvent)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Record("installed"));
    second = connection.SubscribeToEvent(EventType::PackageUpgraded, Record("upgraded"));
    third = connection.SubscribeToEvent(EventType::PackageRemoved, Record("removed"));
    Installed("a");
    proxy->PackageUpgraded(MakePackage("a", "2"));
    proxy->PackageRemoved("a");
    proxy->OperationStatusChanged(MakeOperation("x"));
    EXPECT_EQ(calls, (Strings{"installed", "upgraded", "removed"}));
}

TEST_F(Subscription, SubscribersAreCalledInTheOrderOfSubscription)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Record("first"));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Record("third"));
    Installed("a");
    EXPECT_EQ(calls, (Strings{"first", "second", "third"}));
}

TEST_F(Subscription, DiscardingTheHandleUnsubscribesAtOnce)
{
    static_cast<void>(
        connection.SubscribeToEvent(EventType::PackageInstalled, Record("discarded")));
    Installed("a");
    EXPECT_TRUE(calls.empty());
}

TEST_F(Subscription, LivesAsLongAsTheLastCopyOfItsHandle)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Record("called"));
    second = first;
    first = EventSubscription();
    Installed("a");
    second = EventSubscription();
    Installed("b");
    EXPECT_EQ(calls, (Strings{"called"}));
}

TEST_F(Subscription, UnsubscribingTwiceOrWithADefaultHandleIsHarmless)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Record("first"));
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

TEST_F(Subscription, DestroyingAHandleActsOnTheProcessWideConnection)
{
    DaemonConnection own;
    first = connection.SubscribeToEvent(EventType::PackageInstalled, Record("shared"));
    second = own.SubscribeToEvent(EventType::PackageInstalled, Record("own"));
    ASSERT_EQ(first.GetID(), second.GetID());
    second = EventSubscription();
    Installed("a");
    EXPECT_EQ(calls, (Strings{"own"}));
}

TEST_F(Subscription, AnEmptyCallbackThrowsWhenItsEventIsDelivered)
{
    first = connection.SubscribeToEvent(EventType::PackageInstalled, PackageCallback());
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    EXPECT_THROW(Installed("a"), std::bad_function_call);
    EXPECT_TRUE(calls.empty()) << "the exception ends the delivery";
    EXPECT_TRUE(static_cast<bool>(connection.GetPackage("a"))) << "the snapshot has changed";
}

TEST_F(Subscription, AThrowingCallbackEndsOnlyThatDelivery)
{
    bool fail = true;
    first = connection.SubscribeToEvent(EventType::PackageInstalled,
                                        PackageCallback([&](const Package&) {
                                            if (fail) {
                                                throw std::runtime_error("callback");
                                            }
                                        }));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
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

TEST_F(Subscription, ACallbackMayReleaseItsOwnHandle)
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

TEST_F(Subscription, WhatACallbackHoldsIsReleasedAtTheEndOfTheDeliveryThatRemovesIt)
{
    auto held = std::make_shared<int>();
    const std::weak_ptr<int> released = held;
    first = connection.SubscribeToEvent(EventType::PackageInstalled,
                                        PackageCallback([&, held](const Package&) {
                                            connection.UnsubscribeFromEvent(first);
                                            EXPECT_FALSE(released.expired());
                                        }));
    held.reset();
    Installed("a");
    EXPECT_TRUE(released.expired());
}

TEST_F(Subscription, ASubscriberRemovedDuringADeliveryIsNoLongerCalled)
{
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled,
        PackageCallback([&](const Package&) { second = EventSubscription(); }));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Record("third"));
    Installed("a");
    EXPECT_EQ(calls, (Strings{"third"}));
}

TEST_F(Subscription, ASubscriberAddedDuringADeliveryIsFirstCalledForTheNextEvent)
{
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled, PackageCallback([&](const Package& package) {
            if (package.GetID() == "a") {
                second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("added"));
            }
        }));
    Installed("a");
    EXPECT_TRUE(calls.empty());
    Installed("b");
    EXPECT_EQ(calls, (Strings{"added"}));
}

TEST_F(Subscription, ASubscriberAddedInANestedDeliveryIsNotCalledInTheOuterOne)
{
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled, PackageCallback([&](const Package& package) {
            if (package.GetID() == "outer") {
                Installed("inner");
            } else {
                second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("added"));
                third = EventSubscription();
            }
        }));
    third = connection.SubscribeToEvent(EventType::PackageInstalled, Record("removed"));
    Installed("outer");
    EXPECT_TRUE(calls.empty());
}

TEST_F(Subscription, ACallbackMayReleaseTheLastHandleOfItsConnection)
{
    std::optional<DaemonConnection> own;
    own.emplace();
    first = own->SubscribeToEvent(EventType::PackageInstalled, PackageCallback([&](const Package&) {
                                      own.reset();
                                      calls.push_back("first");
                                  }));
    second = own->SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    Installed("a");
    Installed("b");
    EXPECT_EQ(calls, (Strings{"first"}))
        << "no subscriber is called after the connection is destroyed";
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

TEST_F(Subscription, ARemovedCallbackMayHoldAHandleThatUnsubscribesOnDestruction)
{
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
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

TEST_F(Subscription, ARemovedCallbackMayHoldTheHandleOfTheNextSubscription)
{
    auto next = std::make_shared<EventSubscription>();
    first = connection.SubscribeToEvent(EventType::PackageInstalled,
                                        PackageCallback([next](const Package&) {}));
    *next = connection.SubscribeToEvent(EventType::PackageInstalled, Record("next"));
    next.reset();
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    Installed("a");
    first = EventSubscription();
    Installed("b");
    EXPECT_EQ(calls, (Strings{"next", "second", "second"}));
}

TEST_F(Subscription, ACallbackRemovedDuringADeliveryMayHoldTheHandleOfTheNextSubscription)
{
    auto next = std::make_shared<EventSubscription>();
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled,
        PackageCallback([&, next](const Package&) { first = EventSubscription(); }));
    *next = connection.SubscribeToEvent(EventType::PackageInstalled, Record("next"));
    next.reset();
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    Installed("a");
    Installed("b");
    EXPECT_EQ(calls, (Strings{"next", "second", "second"}))
        << "the callback is kept until the first delivery ends";
}

TEST_F(Subscription, ACallbackMayUnsubscribeItselfInADeliveryNestedInItsOwn)
{
    const auto watched = std::make_shared<const std::string>("outer ends");
    first = connection.SubscribeToEvent(
        EventType::PackageInstalled,
        PackageCallback(
            [&, held = std::weak_ptr<const std::string>(watched),
             text = std::shared_ptr<const std::string>(watched)](const Package& package) {
                if (package.GetID() == "inner") {
                    connection.UnsubscribeFromEvent(first);
                    return;
                }
                const long holders = held.use_count();
                Installed("inner");
                EXPECT_EQ(held.use_count(), holders) << "the running callback is still there";
                calls.push_back(*text);
            }));
    second = connection.SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    Installed("outer");
    Installed("later");
    EXPECT_EQ(calls, (Strings{"second", "outer ends", "second", "second"}));
    EXPECT_EQ(watched.use_count(), 1) << "the callback is destroyed after the outer delivery";
}

TEST_F(Subscription, TheLastHandleReleasedInANestedDeliveryEndsBothDeliveries)
{
    std::optional<DaemonConnection> own;
    own.emplace();
    first = own->SubscribeToEvent(EventType::PackageInstalled,
                                  PackageCallback([&](const Package& package) {
                                      if (package.GetID() == "inner") {
                                          own.reset();
                                          calls.push_back("inner");
                                          return;
                                      }
                                      Installed("inner");
                                      calls.push_back("outer");
                                  }));
    second = own->SubscribeToEvent(EventType::PackageInstalled, Record("second"));
    Installed("outer");
    Installed("later");
    EXPECT_EQ(calls, (Strings{"inner", "outer"}));
}

} // namespace
