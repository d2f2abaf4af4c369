// SPDX-License-Identifier: BSD-3-Clause
#include "fake_proxy.h"

#include <functional>
#include <utility>

namespace {

using namespace Emporium;
using namespace TestSupport;
using testing::Return;

class InvalidConnection : public ConnectionTest
{
protected:
    InvalidConnection() { currentProxy.reset(); }

    template <typename Use>
    static std::string Refusal(Use use)
    {
        DaemonConnection connection;
        return MessageOf<std::logic_error>([&] { use(connection); });
    }
};

TEST_F(InvalidConnection, IsFalse)
{
    EXPECT_FALSE(static_cast<bool>(DaemonConnection()));
    EXPECT_FALSE(static_cast<bool>(GetDaemonConnection()));
}

TEST_F(InvalidConnection, EveryGuardedCallThrowsItsOwnMessage)
{
    const std::vector<std::pair<std::function<void(DaemonConnection&)>, std::string>> calls = {
        {[](auto& c) { c.GetArchitecture(); },
         "Attempt to use the DaemonConnection::GetArchitecture() method when the daemon connection "
         "is not valid"},
        {[](auto& c) { c.GetVeyraVersion(); },
         "Attempt to use the DaemonConnection::GetVeyraVersion() method when the daemon connection "
         "is not valid"},
        {[](auto& c) { c.GetPackageList(); },
         "Attempt to use the DaemonConnection::GetPackageList() method when the daemon connection "
         "is not valid"},
        {[](auto& c) { c.GetPackageList(PackageFilters::DeveloperCertificateID("x")); },
         "Attempt to use the DaemonConnection::GetPackageList(const PackageFilter &) method when "
         "the daemon connection is not valid"},
        {[](auto& c) { c.GetPackage("id"); },
         "Attempt to use the DaemonConnection::GetPackage() method when the daemon connection is "
         "not valid"},
        {[](auto& c) { c.GetActiveOperations(); },
         "Attempt to use the DaemonConnection::GetActiveOperations() method when the daemon "
         "connection is not valid"},
        {[](auto& c) { c.GetActiveOperation("uuid"); },
         "Attempt to use the DaemonConnection::GetActiveOperation() method when the daemon "
         "connection is not valid"},
        {[](auto& c) { c.GetCompletedOperations(); },
         "Attempt to use the DaemonConnection::GetCompletedOperations() method when the daemon "
         "connection is not valid"},
        {[](auto& c) { c.CreateOperation(OperationRequest()); },
         "Attempt to use the DaemonConnection::QueueOperation() method when the daemon connection "
         "is not valid"},
        {[](auto& c) { c.Start("id"); },
         "Attempt to use the DaemonConnection::Start() method when the daemon connection is not "
         "valid"},
        {[](auto& c) { c.Restart("id"); },
         "Attempt to use the DaemonConnection::Restart() method when the daemon connection is not "
         "valid"},
        {[](auto& c) {
             static_cast<void>(c.SubscribeToEvent(EventType::PackageInstalled,
                                                  PackageCallback([](const auto&) {})));
         },
         "Attempt to use the DaemonConnection::SubscribeToEvent() when the daemon connection is "
         "not valid"},
    };
    for (const auto& [call, message] : calls) {
        EXPECT_EQ(Refusal(call), message);
    }
}

TEST_F(InvalidConnection, ValidityIsCheckedBeforeTheCallbacksForm)
{
    EXPECT_EQ(Refusal([](DaemonConnection& connection) {
                  static_cast<void>(connection.SubscribeToEvent(
                      EventType::PackageInstalled, OperationCallback([](const auto&) {})));
              }),
              "Attempt to use the DaemonConnection::SubscribeToEvent() when the daemon connection "
              "is not valid");
}

TEST_F(InvalidConnection, UnsubscribingIsAllowed)
{
    DaemonConnection connection;
    EXPECT_NO_THROW(connection.UnsubscribeFromEvent(EventSubscription()));
}

TEST_F(InvalidConnection, TheProcessWideOneStaysInvalidEvenIfABusAppears)
{
    ASSERT_FALSE(static_cast<bool>(GetDaemonConnection()));
    currentProxy = proxy;
    EXPECT_FALSE(static_cast<bool>(GetDaemonConnection()));
    EXPECT_TRUE(static_cast<bool>(DaemonConnection()));
}

TEST_F(InvalidConnection, CreatesTheCacheDirectoryOnDestruction)
{
    {
        const DaemonConnection connection;
    }
    EXPECT_TRUE(std::filesystem::is_directory(CacheDirectory()));
}

TEST_F(InvalidConnection, DestroyingASubscriptionOnlyLogsAWarning)
{
    EXPECT_EQ(OutputOf([] { EventSubscription(7); }),
              "[W] Couldn't unsubscribe from event: bad emporium daemon connection (subscription "
              "id = 7)\n");
}

class Connection : public ConnectionTest
{
};

TEST_F(Connection, TakesItsSnapshotFromTheDaemon)
{
    properties.Architecture = "aarch64";
    properties.VeyraVersion = "5.1";
    properties.Packages = {MakePackage("b"), MakePackage("a")};
    properties.Operations = {MakeOperation("one", 1), MakeOperation("two", 2)};
    properties.CompletedOperations = {MakeOperation("old", 100)};
    const DaemonConnection connection;
    EXPECT_TRUE(static_cast<bool>(connection));
    EXPECT_EQ(connection.GetArchitecture(), "aarch64");
    EXPECT_EQ(connection.GetVeyraVersion(), "5.1");
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"b 1.0", "a 1.0"}));
    EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"one 1", "two 2"}));
    EXPECT_EQ(Contents(connection.GetCompletedOperations()), (Strings{"old 100"}));
}

TEST_F(Connection, ADaemonWithoutDataGivesEmptyLists)
{
    const DaemonConnection connection;
    EXPECT_EQ(connection.GetArchitecture(), "");
    EXPECT_TRUE(connection.GetPackageList().empty());
    EXPECT_TRUE(connection.GetActiveOperations().empty());
    EXPECT_TRUE(connection.GetCompletedOperations().empty());
}

TEST_F(Connection, AFailedLoadIsLoggedAndLeavesAValidConnectionWithAnEmptySnapshot)
{
    EXPECT_CALL(*proxy, GetAllProperties)
        .WillOnce(Return(Result<Properties>(ErrorResult("no daemon"))));
    std::filesystem::create_directories(CacheDirectory());
    ASSERT_TRUE(static_cast<bool>(
        MakeOperation("cached").SaveToFile((CacheDirectory() / "cached").string())));
    std::unique_ptr<DaemonConnection> connection;
    EXPECT_EQ(OutputOf([&] { connection = std::make_unique<DaemonConnection>(); }),
              "[E] no daemon\n");
    EXPECT_TRUE(static_cast<bool>(*connection));
    EXPECT_EQ(connection->GetArchitecture(), "");
    EXPECT_TRUE(connection->GetPackageList().empty());
    EXPECT_TRUE(connection->GetCompletedOperations().empty());
    EXPECT_TRUE(std::filesystem::exists(CacheDirectory() / "cached")) << "neither read nor removed";
}

TEST_F(Connection, HandlersAreConnectedBeforeTheLoad)
{
    int connected = 0;
    EXPECT_CALL(*proxy, GetAllProperties).WillOnce([&] {
        connected = static_cast<int>(
            proxy->PackageInstalled.num_slots() + proxy->PackageUpgraded.num_slots() +
            proxy->PackageRemoved.num_slots() + proxy->OperationStatusChanged.num_slots());
        return Snapshot({});
    });
    const DaemonConnection connection;
    EXPECT_EQ(connected, 4);
}

TEST_F(Connection, CopiesOfTheProcessWideOneShareTheirState)
{
    const DaemonConnection first = GetDaemonConnection();
    const DaemonConnection second = GetDaemonConnection();
    proxy->PackageInstalled(MakePackage("new"));
    EXPECT_EQ(Contents(first.GetPackageList()), (Strings{"new 1.0"}));
    EXPECT_EQ(Contents(second.GetPackageList()), (Strings{"new 1.0"}));
    EXPECT_EQ(&first.GetArchitecture(), &second.GetArchitecture());
}

TEST_F(Connection, EachConstructedConnectionHasItsOwnSnapshot)
{
    const DaemonConnection first;
    properties.Architecture = "later";
    const DaemonConnection second;
    EXPECT_EQ(first.GetArchitecture(), "");
    EXPECT_EQ(second.GetArchitecture(), "later");
}

TEST_F(Connection, ReceivesNothingAfterDestruction)
{
    int calls = 0;
    EventSubscription subscription;
    {
        const DaemonConnection connection;
        subscription = connection.SubscribeToEvent(
            EventType::PackageInstalled, PackageCallback([&](const Package&) { ++calls; }));
        proxy->PackageInstalled(MakePackage("one"));
    }
    proxy->PackageInstalled(MakePackage("two"));
    proxy->PackageRemoved("two");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(proxy->PackageInstalled.num_slots(), 0U);
}

/// Emits the signal while it is destroyed.
struct EmitsOnDestruction
{
    explicit EmitsOnDestruction(IDBusProxy& where) : m_proxy(where) {}
    EmitsOnDestruction(const EmitsOnDestruction&) = delete;
    EmitsOnDestruction& operator=(const EmitsOnDestruction&) = delete;
    ~EmitsOnDestruction() { m_proxy.PackageRemoved("unknown"); }

private:
    IDBusProxy& m_proxy;
};

TEST_F(Connection, DoesNotHandleASignalWhileItIsDestroyed)
{
    EventSubscription subscription;
    EXPECT_EQ(OutputOf([&] {
                  const DaemonConnection connection;
                  subscription = connection.SubscribeToEvent(
                      EventType::PackageInstalled,
                      PackageCallback([emits = std::make_shared<EmitsOnDestruction>(*proxy)](
                                          const Package&) {}));
              }),
              "")
        << "handling the signal logs that the package is unknown";
}

TEST_F(Connection, IsInvalidAfterItIsMovedFrom)
{
    DaemonConnection connection;
    const DaemonConnection moved = std::move(connection);
    EXPECT_TRUE(static_cast<bool>(moved));
    EXPECT_FALSE(static_cast<bool>(connection));
    EXPECT_THROW(connection.GetPackageList(), std::logic_error);
}

// --- upkeep ---

class Upkeep : public ConnectionTest
{
protected:
    Upkeep()
    {
        properties.Packages = {MakePackage("a"), MakePackage("b"), MakePackage("c")};
        properties.Operations = {MakeOperation("x"), MakeOperation("y")};
    }

    template <typename Event>
    std::vector<std::string> Delivered(const DaemonConnection& connection, EventType type,
                                       Event event)
    {
        std::vector<std::string> delivered;
        EventSubscription subscription;
        if (type == EventType::OperationStatusChanged) {
            subscription = connection.SubscribeToEvent(
                type, OperationCallback([&](const Operation& operation) {
                    delivered.push_back(Contents(std::vector{operation}).front());
                }));
        } else {
            subscription = connection.SubscribeToEvent(
                type, PackageCallback([&](const Package& package) {
                    delivered.push_back(Contents(std::vector{package}).front());
                }));
        }
        event();
        DaemonConnection(connection).UnsubscribeFromEvent(subscription);
        return delivered;
    }
};

TEST_F(Upkeep, AnInstalledPackageIsAppended)
{
    const DaemonConnection connection;
    const auto event = [&] { proxy->PackageInstalled(MakePackage("d", "2.0")); };
    EXPECT_EQ(Delivered(connection, EventType::PackageInstalled, event), (Strings{"d 2.0"}));
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"a 1.0", "b 1.0", "c 1.0", "d 2.0"}));
}

TEST_F(Upkeep, AnInstalledPackageThatIsListedIsReplacedInPlaceWithOneWarning)
{
    const DaemonConnection connection;
    Strings delivered;
    EXPECT_EQ(OutputOf([&] {
                  delivered = Delivered(connection, EventType::PackageInstalled,
                                        [&] { proxy->PackageInstalled(MakePackage("b", "2.0")); });
              }),
              "[W] Just installed package is already in the list of installed packages\n");
    EXPECT_EQ(delivered, (Strings{"b 2.0"}));
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"a 1.0", "b 2.0", "c 1.0"}));
}

TEST_F(Upkeep, AnUpgradedPackageIsReplacedInPlace)
{
    const DaemonConnection connection;
    Strings delivered;
    EXPECT_EQ(OutputOf([&] {
                  delivered = Delivered(connection, EventType::PackageUpgraded,
                                        [&] { proxy->PackageUpgraded(MakePackage("b", "2.0")); });
              }),
              "");
    EXPECT_EQ(delivered, (Strings{"b 2.0"}));
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"a 1.0", "b 2.0", "c 1.0"}));
}

TEST_F(Upkeep, AnUpgradedPackageThatIsNotListedIsAppendedWithOneWarning)
{
    const DaemonConnection connection;
    Strings delivered;
    EXPECT_EQ(OutputOf([&] {
                  delivered = Delivered(connection, EventType::PackageUpgraded,
                                        [&] { proxy->PackageUpgraded(MakePackage("d", "2.0")); });
              }),
              "[W] Just upgraded package is not in the list of installed packages\n");
    EXPECT_EQ(delivered, (Strings{"d 2.0"}));
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"a 1.0", "b 1.0", "c 1.0", "d 2.0"}));
}

TEST_F(Upkeep, ARemovedPackageIsErasedAndDeliveredAsItWas)
{
    const DaemonConnection connection;
    const auto event = [&] { proxy->PackageRemoved("b"); };
    EXPECT_EQ(Delivered(connection, EventType::PackageRemoved, event), (Strings{"b 1.0"}));
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"a 1.0", "c 1.0"}));
}

TEST_F(Upkeep, RemovingAPackageThatIsNotListedLogsAWarningAndDeliversNothing)
{
    const DaemonConnection connection;
    Strings delivered;
    EXPECT_EQ(OutputOf([&] {
                  delivered = Delivered(connection, EventType::PackageRemoved,
                                        [&] { proxy->PackageRemoved(""); });
              }),
              "[W] The just removed package is not in the list of installed packages\n");
    EXPECT_TRUE(delivered.empty());
    EXPECT_EQ(connection.GetPackageList().size(), 3U);
}

TEST_F(Upkeep, TheFirstOfSeveralPackagesWithTheSameIDIsChanged)
{
    properties.Packages = {MakePackage("a", "1"), MakePackage("a", "2")};
    const DaemonConnection connection;
    proxy->PackageUpgraded(MakePackage("a", "3"));
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"a 3", "a 2"}));
    proxy->PackageRemoved("a");
    EXPECT_EQ(Contents(connection.GetPackageList()), (Strings{"a 2"}));
}

TEST_F(Upkeep, AnOperationInProgressIsReplacedInPlace)
{
    const DaemonConnection connection;
    const auto event = [&] { proxy->OperationStatusChanged(MakeOperation("x", 99)); };
    EXPECT_EQ(Delivered(connection, EventType::OperationStatusChanged, event), (Strings{"x 99"}));
    EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"x 99", "y 10"}));
}

TEST_F(Upkeep, AFinishedOperationLeavesTheActiveOnesAndIsNotAddedToTheCompletedOnes)
{
    for (const int status : {100, 101}) {
        const DaemonConnection connection;
        Strings delivered;
        EXPECT_EQ(OutputOf([&] {
                      delivered = Delivered(connection, EventType::OperationStatusChanged, [&] {
                          proxy->OperationStatusChanged(MakeOperation("x", status));
                      });
                  }),
                  "");
        EXPECT_EQ(delivered, (Strings{"x " + std::to_string(status)}));
        EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"y 10"}));
        EXPECT_TRUE(connection.GetCompletedOperations().empty());
    }
}

TEST_F(Upkeep, AnyOtherStatusLeavesTheOperationActive)
{
    const DaemonConnection connection;
    proxy->OperationStatusChanged(MakeOperation("x", 102));
    proxy->OperationStatusChanged(MakeOperation("y", -100));
    EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"x 102", "y -100"}));
}

TEST_F(Upkeep, AnUnknownOperationIsAppendedWithOneWarningWhateverItsStatus)
{
    const DaemonConnection connection;
    Strings delivered;
    EXPECT_EQ(OutputOf([&] {
                  delivered = Delivered(connection, EventType::OperationStatusChanged, [&] {
                      proxy->OperationStatusChanged(MakeOperation("z", 100));
                  });
              }),
              "[W] The just changed operation is not in the list of active operations\n");
    EXPECT_EQ(delivered, (Strings{"z 100"}));
    EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"x 10", "y 10", "z 100"}));
    proxy->OperationStatusChanged(MakeOperation("z", 100));
    EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"x 10", "y 10"}));
}

TEST_F(Upkeep, ASubscriberSeesTheUpdatedSnapshot)
{
    const DaemonConnection connection;
    Strings seen;
    const EventSubscription installed = connection.SubscribeToEvent(
        EventType::PackageInstalled, PackageCallback([&](const Package& package) {
            seen.push_back(connection.GetPackage(package.GetID())->GetVersion());
        }));
    const EventSubscription removed = connection.SubscribeToEvent(
        EventType::PackageRemoved, PackageCallback([&](const Package& package) {
            seen.push_back(connection.GetPackage(package.GetID()).HasError() ? "removed"
                                                                             : "listed");
        }));
    const EventSubscription status = connection.SubscribeToEvent(
        EventType::OperationStatusChanged, OperationCallback([&](const Operation&) {
            seen.push_back(std::to_string(connection.GetActiveOperations().size()));
        }));
    proxy->PackageInstalled(MakePackage("d", "4"));
    proxy->PackageRemoved("d");
    proxy->OperationStatusChanged(MakeOperation("x", 100));
    EXPECT_EQ(seen, (Strings{"4", "removed", "1"}));
}

TEST_F(Upkeep, AReturnedListDoesNotChange)
{
    const DaemonConnection connection;
    const std::vector<Package> before = connection.GetPackageList();
    proxy->PackageRemoved("a");
    proxy->PackageUpgraded(MakePackage("b", "2.0"));
    EXPECT_EQ(Contents(before), (Strings{"a 1.0", "b 1.0", "c 1.0"}));
}

// --- queries and commands ---

class Queries : public Upkeep
{
};

TEST_F(Queries, GetPackageFindsTheFirstOfEqualIDs)
{
    properties.Packages = {MakePackage("a", "1"), MakePackage("a", "2")};
    EXPECT_EQ(DaemonConnection().GetPackage("a")->GetVersion(), "1");
}

TEST_F(Queries, GetPackageComparesByteForByte)
{
    const DaemonConnection connection;
    EXPECT_EQ(connection.GetPackage("A").GetError(), "No package with id A found");
    EXPECT_EQ(connection.GetPackage("a ").GetError(), "No package with id a  found");
}

TEST_F(Queries, TheErrorForAnEmptyIDHasTwoSpacesInARow)
{
    EXPECT_EQ(DaemonConnection().GetPackage("").GetError(), "No package with id  found");
}

TEST_F(Queries, AnUnknownIDIsNotLogged)
{
    const DaemonConnection connection;
    EXPECT_EQ(OutputOf([&] {
                  connection.GetPackage("unknown");
                  connection.GetActiveOperation("unknown");
              }),
              "");
}

TEST_F(Queries, GetActiveOperationSearchesActiveOperationsOnly)
{
    properties.CompletedOperations = {MakeOperation("done", 100)};
    const DaemonConnection connection;
    EXPECT_EQ(connection.GetActiveOperation("y")->GetUUID(), "y");
    EXPECT_EQ(connection.GetActiveOperation("done").GetError(),
              "No operation with uuid done found");
}

TEST_F(Queries, AFilterKeepsTheOrder)
{
    const DaemonConnection connection;
    EXPECT_EQ(Contents(connection.GetPackageList(
                  [](const Package& package) { return package.GetID() != "b"; })),
              (Strings{"a 1.0", "c 1.0"}));
}

TEST_F(Queries, AFilterThatMatchesNothingGivesAnEmptyList)
{
    EXPECT_TRUE(DaemonConnection().GetPackageList([](const Package&) { return false; }).empty());
}

TEST_F(Queries, AnEmptyFilterThrowsUnlessThereIsNoPackage)
{
    EXPECT_THROW(DaemonConnection().GetPackageList(PackageFilter()), std::bad_function_call);
    properties.Packages.clear();
    EXPECT_TRUE(DaemonConnection().GetPackageList(PackageFilter()).empty());
}

class Commands : public Upkeep
{
};

TEST_F(Commands, ARemovalSendsTheIDAndIgnoresThePath)
{
    const DaemonConnection connection;
    EXPECT_CALL(*proxy, Remove("id"))
        .WillOnce(Return(Result<Operation>(SuccessResult<Operation>(MakeOperation("new")))));
    EXPECT_CALL(*proxy, Install).Times(0);
    OperationRequest request;
    request.SetOperationType(Common::OperationType::Remove);
    request.SetPackageID("id");
    request.SetPackagePath("/path");
    EXPECT_EQ(connection.CreateOperation(request).Get(), "new");
}

TEST_F(Commands, AnyOtherOperationSendsThePathAndIgnoresTheID)
{
    const DaemonConnection connection;
    EXPECT_CALL(*proxy, Install("/path"))
        .Times(3)
        .WillRepeatedly(Return(Result<Operation>(SuccessResult<Operation>(MakeOperation("new")))));
    EXPECT_CALL(*proxy, Remove).Times(0);
    for (const int type : {0, 1, 5}) {
        OperationRequest request;
        request.SetOperationType(static_cast<Common::OperationType>(type));
        request.SetPackageID("id");
        request.SetPackagePath("/path");
        EXPECT_EQ(connection.CreateOperation(request).Get(), "new");
    }
}

TEST_F(Commands, ACreatedOperationIsActiveAtOnceAndNoEventIsDelivered)
{
    const DaemonConnection connection = GetDaemonConnection();
    ON_CALL(*proxy, Install)
        .WillByDefault(
            Return(Result<Operation>(SuccessResult<Operation>(MakeOperation("new", 0)))));
    const Strings delivered = Delivered(connection, EventType::OperationStatusChanged, [&] {
        EXPECT_TRUE(static_cast<bool>(connection.CreateOperation(OperationRequest())));
    });
    EXPECT_TRUE(delivered.empty());
    EXPECT_TRUE(static_cast<bool>(connection.GetActiveOperation("new")));
    EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"x 10", "y 10", "new 0"}));
    EXPECT_EQ(OutputOf([&] { proxy->OperationStatusChanged(MakeOperation("new", 101)); }), "");
    EXPECT_EQ(Contents(connection.GetActiveOperations()), (Strings{"x 10", "y 10"}));
}

TEST_F(Commands, AFailedCreationReturnsTheErrorTextAndChangesNothing)
{
    const DaemonConnection connection;
    ON_CALL(*proxy, Install).WillByDefault(Return(Result<Operation>(ErrorResult("text"))));
    EXPECT_EQ(OutputOf([&] {
                  EXPECT_EQ(connection.CreateOperation(OperationRequest()).GetError(), "text");
              }),
              "");
    EXPECT_EQ(connection.GetActiveOperations().size(), 2U);
}

TEST_F(Commands, StartAndRestartForwardTheirArgumentAndReturnTheResult)
{
    const DaemonConnection connection;
    EXPECT_CALL(*proxy, Start("app")).WillOnce(Return(Result<void>(SuccessResult<void>())));
    EXPECT_CALL(*proxy, Restart("app")).WillOnce(Return(Result<void>(ErrorResult("text"))));
    EXPECT_TRUE(static_cast<bool>(connection.Start("app")));
    EXPECT_EQ(connection.Restart("app").GetError(), "text");
}

} // namespace
