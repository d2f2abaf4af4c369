// SPDX-License-Identifier: BSD-3-Clause

// How often the main paths take memory. An allocation that creeps in turns a test red.
#include "dbus/decoder.h"
#include "dbus/idbus_proxy.h"

#include "support/temporary_directory.h"

#include <emporium/emporium.h>

#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

std::size_t allocations = 0;

void* Allocate(std::size_t size)
{
    ++allocations;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}

} // namespace

// Every form that is not replaced here calls one of these.
void* operator new(std::size_t size)
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace {

using namespace Emporium;

template <typename Action>
std::size_t AllocationsOf(Action action)
{
    const std::size_t before = allocations;
    action();
    return allocations - before;
}

/// The connections' cache has a directory of the test's own.
class Allocations : public testing::Test
{
protected:
    Allocations() { setenv("XDG_CACHE_HOME", m_cacheHome.Path().c_str(), 1); }

private:
    TestSupport::TemporaryDirectory m_cacheHome;
};

// A text that a string holds in itself, and one for which it takes memory.
const std::string brief = "brief";
const std::string longText = "a text that is longer than what a string holds in itself";

using Dictionary = std::map<std::string, sdbus::Variant>;
using PackageRecord = sdbus::Struct<std::string, std::string, std::string, std::string, Dictionary>;
using OperationRecord =
    sdbus::Struct<std::string, std::string, std::int32_t, std::int32_t, std::int32_t>;

template <typename... Values>
sdbus::PlainMessage MessageOf(const Values&... values)
{
    sdbus::PlainMessage message = sdbus::createPlainMessage();
    (message << ... << values);
    message.seal();
    return message;
}

Dictionary ADictionary()
{
    return {{"a", sdbus::Variant(longText)},
            {"b", sdbus::Variant(std::int32_t{1})},
            {"c", sdbus::Variant(std::vector<std::int32_t>{1, 2, 3})},
            {"d", sdbus::Variant(true)}};
}

/// What a reply of so many records costs. Between two sizes with the same growth of vectors, the
/// difference is that of the records alone.
std::size_t AllocationsOfLoading(std::size_t packages, const PackageRecord& package,
                                 std::size_t operations, const OperationRecord& operation)
{
    auto reply = MessageOf(std::map<std::string, sdbus::Variant>{
        {"Architecture", sdbus::Variant("x")},
        {"VeyraVersion", sdbus::Variant("y")},
        {"Packages", sdbus::Variant(std::vector<PackageRecord>(packages, package))},
        {"Operations", sdbus::Variant(std::vector<OperationRecord>(operations, operation))},
        {"CompletedOperations", sdbus::Variant(std::vector<OperationRecord>())},
    });
    Properties properties;
    bool straight = false;
    const std::size_t count =
        AllocationsOf([&] { straight = Decoder::ReadPropertiesStraight(reply, properties); });
    EXPECT_TRUE(straight);
    EXPECT_EQ(properties.Packages.size(), packages);
    EXPECT_EQ(properties.Operations.size(), operations);
    return count;
}

constexpr std::size_t some = 600;
constexpr std::size_t more = 1000;

std::size_t AllocationsOfAPackage(const PackageRecord& package)
{
    const OperationRecord none;
    const std::size_t difference =
        AllocationsOfLoading(more, package, 0, none) - AllocationsOfLoading(some, package, 0, none);
    EXPECT_EQ(difference % (more - some), 0U);
    return difference / (more - some);
}

std::size_t AllocationsOfAnOperation(const OperationRecord& operation)
{
    const PackageRecord none;
    const std::size_t difference = AllocationsOfLoading(0, none, more, operation) -
                                   AllocationsOfLoading(0, none, some, operation);
    EXPECT_EQ(difference % (more - some), 0U);
    return difference / (more - some);
}

TEST_F(Allocations, APackageLoadedIsOneBlock)
{
    EXPECT_EQ(AllocationsOfAPackage({brief, brief, brief, brief, Dictionary{}}), 1U);
}

TEST_F(Allocations, APackageLoadedAlsoTakesWhatItsLongTextsNeed)
{
    EXPECT_EQ(AllocationsOfAPackage({longText, brief, brief, longText, Dictionary{}}), 3U);
    EXPECT_EQ(AllocationsOfAPackage({longText, longText, longText, longText, Dictionary{}}), 5U);
}

TEST_F(Allocations, TheDictionaryOfAPackageLoadedTakesNothing)
{
    EXPECT_EQ(AllocationsOfAPackage({brief, brief, brief, brief, ADictionary()}), 1U);
}

TEST_F(Allocations, AnOperationLoadedIsOneBlockAndItsLongTexts)
{
    EXPECT_EQ(AllocationsOfAnOperation({brief, brief, 0, 10, 0}), 1U);
    EXPECT_EQ(AllocationsOfAnOperation({longText, longText, 0, 10, 0}), 3U);
}

TEST_F(Allocations, ASignalDecodedIsOneBlockAndItsLongTexts)
{
    auto upgraded = MessageOf(
        PackageRecord{brief, brief, brief, longText, Dictionary{{"a", sdbus::Variant(1)}}});
    EXPECT_EQ(AllocationsOf([&] { Decoder::ReadPackageBody(upgraded); }), 2U);
    auto changed = MessageOf(OperationRecord{longText, brief, 0, 10, 0});
    EXPECT_EQ(AllocationsOf([&] { Decoder::ReadOperationBody(changed); }), 2U);
    auto removed = MessageOf(brief);
    EXPECT_EQ(AllocationsOf([&] { Decoder::ReadStringBody(removed); }), 0U);
}

// --- from the proxy's signals to the subscribers, and the queries -----------------------------------

class ReplayProxy final : public IDBusProxy
{
public:
    Result<Properties> GetAllProperties() override { return properties; }
    Result<Operation> Install(const std::string&) override { return ErrorResult("no daemon"); }
    Result<Operation> Remove(const std::string&) override { return ErrorResult("no daemon"); }
    Result<void> Start(const std::string&) override { return ErrorResult("no daemon"); }
    Result<void> Restart(const std::string&) override { return ErrorResult("no daemon"); }

    Result<Properties> properties = SuccessResult<Properties>(Properties());
};

std::shared_ptr<ReplayProxy> theProxy;

Package MakePackage(std::size_t number)
{
    return Package(std::to_string(number), "1", "", "", {});
}

Operation MakeOperation(std::size_t number,
                        Common::OperationStatus status = Common::OperationStatus::None)
{
    return Operation(std::to_string(number), "package", Common::OperationType::Install, status,
                     Common::ErrorCode::None);
}

/// A new proxy with so many packages and operations. Connections that have gone have left nothing
/// in its signals.
void MakeProxyWith(std::size_t records)
{
    Properties properties;
    for (std::size_t number = 0; number < records; ++number) {
        properties.Packages.push_back(MakePackage(number));
        properties.Operations.push_back(MakeOperation(number));
    }
    theProxy = std::make_shared<ReplayProxy>();
    theProxy->properties = SuccessResult<Properties>(properties);
}

DaemonConnection ConnectionWith(std::size_t records)
{
    MakeProxyWith(records);
    return DaemonConnection();
}

class Subscriber
{
public:
    explicit Subscriber(const DaemonConnection& connection)
    {
        for (const EventType type :
             {EventType::PackageInstalled, EventType::PackageUpgraded, EventType::PackageRemoved}) {
            m_subscriptions.push_back(
                connection.SubscribeToEvent(type, [this](const Package&) { ++calls; }));
        }
        m_subscriptions.push_back(connection.SubscribeToEvent(
            EventType::OperationStatusChanged, [this](const Operation&) { ++calls; }));
    }

    int calls = 0;

private:
    std::vector<EventSubscription> m_subscriptions;
};

TEST_F(Allocations, TheSnapshotTakesNothingForARecordThatWasLoaded)
{
    const auto allocationsOfConnecting = [](std::size_t records) {
        MakeProxyWith(records);
        return AllocationsOf([] { const DaemonConnection connection; });
    };
    allocationsOfConnecting(some); // what is made once in a process
    EXPECT_EQ(allocationsOfConnecting(more), allocationsOfConnecting(some));
}

TEST_F(Allocations, AnUpgradeThatIsDeliveredTakesNothing)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    const Package upgraded = MakePackage(7);
    EXPECT_EQ(AllocationsOf([&] { theProxy->PackageUpgraded(upgraded); }), 0U);
    EXPECT_EQ(subscriber.calls, 1);
}

TEST_F(Allocations, ARemovalThatIsDeliveredTakesNothing)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    const std::string removed = "7";
    EXPECT_EQ(AllocationsOf([&] { theProxy->PackageRemoved(removed); }), 0U);
    EXPECT_EQ(subscriber.calls, 1);
}

TEST_F(Allocations, InstallationsThatAreDeliveredTakeWhatTheListGrowsBy)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    std::vector<Package> installed;
    for (std::size_t number = some; number < more; ++number) {
        installed.push_back(MakePackage(number));
    }
    // Three vectors, each of them at most doubled.
    EXPECT_LE(AllocationsOf([&] {
                  for (const Package& package : installed) {
                      theProxy->PackageInstalled(package);
                  }
              }),
              3U);
    EXPECT_EQ(subscriber.calls, static_cast<int>(more - some));
}

TEST_F(Allocations, AChangedOperationThatIsDeliveredTakesNothing)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    const Operation changed = MakeOperation(7, static_cast<Common::OperationStatus>(10));
    EXPECT_EQ(AllocationsOf([&] { theProxy->OperationStatusChanged(changed); }), 0U);
    const Operation finished = MakeOperation(7, Common::OperationStatus::Succeeded);
    EXPECT_EQ(AllocationsOf([&] { theProxy->OperationStatusChanged(finished); }), 0U);
    EXPECT_EQ(subscriber.calls, 2);
}

TEST_F(Allocations, AQueryForOneRecordTakesItsResultAlone)
{
    const DaemonConnection connection = ConnectionWith(some);
    const std::string number = "7";
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetPackage(number)); }), 2U);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetActiveOperation(number)); }), 2U);
}

TEST_F(Allocations, AQueryForAListTakesTheListAlone)
{
    const DaemonConnection connection = ConnectionWith(some);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_EQ(connection.GetPackageList().size(), some); }), 1U);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_EQ(connection.GetActiveOperations().size(), some); }), 1U);
}

TEST_F(Allocations, AFilteredQueryTakesWhatTheListGrowsBy)
{
    const DaemonConnection connection = ConnectionWith(some);
    const PackageFilter nothing = [](const Package&) { return false; };
    const PackageFilter four = [](const Package& package) { return package.GetID() <= "100"; };
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetPackageList(nothing).empty()); }), 0U);
    EXPECT_LE(AllocationsOf([&] { EXPECT_EQ(connection.GetPackageList(four).size(), 4U); }), 3U);
}

} // namespace

namespace Emporium {

std::shared_ptr<IDBusProxy> GetDBusProxy()
{
    return theProxy;
}

} // namespace Emporium
