// SPDX-License-Identifier: BSD-3-Clause
//
// An application that compiles, and with CASE one that must not. check-compile reads what is expected
// from the comments: "CASE N: DESCRIPTION" and, below it, a part of the compiler's message.

#include <emporium/emporium.h>

#include <string>

namespace {

[[maybe_unused]] void Compiles(const Emporium::DaemonConnection& connection)
{
    using Emporium::EventType;

    const Emporium::EventCallback callback = [](const Emporium::Package&) {};
    const auto byVariable = connection.SubscribeToEvent(EventType::PackageInstalled, callback);
    const auto byLambda =
        connection.SubscribeToEvent(EventType::PackageRemoved, [](const Emporium::Package&) {});
    const auto byValue = connection.SubscribeToEvent(EventType::OperationStatusChanged,
                                                     [](Emporium::Operation) { return 1; });
    const auto byFunction = connection.SubscribeToEvent(
        EventType::PackageUpgraded, Emporium::PackageCallback([](const auto&) {}));
    const auto empty = connection.SubscribeToEvent(EventType::OperationStatusChanged, {});
    Emporium::EventSubscription assigned;
    assigned = connection.SubscribeToEvent(EventType::OperationStatusChanged,
                                           Emporium::OperationCallback());
    const Emporium::DaemonWatch watch([](Emporium::DaemonState) {});
    if (connection) {
        static_cast<void>(connection.SubscribeToEvent(EventType::PackageInstalled, callback));
    }
}

#ifdef CASE
[[maybe_unused]] void DoesNotCompile([[maybe_unused]] Emporium::DaemonConnection& connection)
{
    using Emporium::EventType;

#if CASE == 1 // CASE 1: a callback that takes something else
    // an event callback takes either a const Emporium::Package& or a const Emporium::Operation&
    auto wrong = connection.SubscribeToEvent(EventType::PackageInstalled, [](int) {});
#elif CASE == 2 // CASE 2: a callback that takes anything
    // an event callback takes either a const Emporium::Package& or a const Emporium::Operation&
    auto both = connection.SubscribeToEvent(EventType::PackageInstalled, [](const auto&) {});
#elif CASE == 3 // CASE 3: a callback that would change the package
    // an event callback takes either a const Emporium::Package& or a const Emporium::Operation&
    auto changes =
        connection.SubscribeToEvent(EventType::PackageInstalled, [](Emporium::Package&) {});
#elif CASE == 4 // CASE 4: no callback at all
    // an event callback takes either a const Emporium::Package& or a const Emporium::Operation&
    auto text = connection.SubscribeToEvent(EventType::PackageInstalled, std::string("callback"));
#elif CASE == 5 // CASE 5: a subscription that is dropped
    // nodiscard
    connection.SubscribeToEvent(EventType::PackageInstalled, [](const Emporium::Package&) {});
#elif CASE == 6 // CASE 6: a watch that is dropped
    // nodiscard
    Emporium::DaemonWatch([](Emporium::DaemonState) {});
#elif CASE == 7 // CASE 7: a connection that is taken for a number
    // Emporium::DaemonConnection
    const int number = connection;
#elif CASE == 8 // CASE 8: an ID that is taken for a subscription
    // EventSubscription
    connection.UnsubscribeFromEvent(7);
#endif
}
#endif

} // namespace
