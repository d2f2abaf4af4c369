// SPDX-License-Identifier: BSD-3-Clause

// Counts the allocations of the main paths, so that each added one fails a test.
#include "client/keyed_list.h"
#include "dbus/decoder.h"
#include "dbus/idbus_proxy.h"

#include "counted_allocations.h"
#include "support/temporary_directory.h"

#include <emporium/emporium.h>

#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Emporium;
using TestSupport::allocations;
using TestSupport::bytesInUse;

template <typename Action>
std::size_t AllocationsOf(Action action)
{
    const std::size_t before = allocations;
    action();
    return allocations - before;
}

class Allocations : public testing::Test
{
private:
    TestSupport::CacheHome m_cacheHome;
};

// A text that fits a string's internal buffer, and one that needs an allocation.
const std::string brief = "brief";
const std::string longText = "a text that is longer than the internal buffer of a string";

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

/// The keys are long too: skipping them must not allocate either.
Dictionary ADictionary()
{
    return {{longText + ", a", sdbus::Variant(longText)},
            {longText + ", b", sdbus::Variant(std::int32_t{1})},
            {longText + ", c", sdbus::Variant(std::vector<std::int32_t>{1, 2, 3})},
            {longText + ", d", sdbus::Variant(std::vector<std::string>{longText, longText})},
            {longText + ", e", sdbus::Variant(true)}};
}

PackageRecord RecordWith(const Dictionary& dictionary)
{
    return {brief, brief, brief, brief, dictionary};
}

/// Counts the allocations that decode a reply with these records.
std::size_t AllocationsOfLoading(const std::vector<PackageRecord>& packages,
                                 const std::vector<OperationRecord>& operations = {})
{
    auto reply = MessageOf(std::map<std::string, sdbus::Variant>{
        {"Architecture", sdbus::Variant("x")},
        {"VeyraVersion", sdbus::Variant("y")},
        {"Packages", sdbus::Variant(packages)},
        {"Operations", sdbus::Variant(operations)},
        {"CompletedOperations", sdbus::Variant(std::vector<OperationRecord>())},
    });
    Properties properties;
    const std::size_t count = AllocationsOf([&] { properties = Decoder::ReadProperties(reply); });
    EXPECT_EQ(properties.Packages.size(), packages.size());
    EXPECT_EQ(properties.Operations.size(), operations.size());
    return count;
}

// A vector grows to either size in the same steps, so the difference comes from the records alone.
constexpr std::size_t some = 600;
constexpr std::size_t more = 1000;

/// Returns `count` records, cycling through these.
template <typename Record>
std::vector<Record> Cycle(std::size_t count, const std::vector<Record>& records)
{
    std::vector<Record> result;
    for (std::size_t number = 0; number < count; ++number) {
        result.push_back(records[number % records.size()]);
    }
    return result;
}

/// Counts the allocations for one more package, cycling through these records.
std::size_t AllocationsOfAPackage(const std::vector<PackageRecord>& records)
{
    const std::size_t difference =
        AllocationsOfLoading(Cycle(more, records)) - AllocationsOfLoading(Cycle(some, records));
    EXPECT_EQ(difference % (more - some), 0U);
    return difference / (more - some);
}

std::size_t AllocationsOfAnOperation(const OperationRecord& record)
{
    const std::vector<OperationRecord> records{record};
    const std::size_t difference = AllocationsOfLoading({}, Cycle(more, records)) -
                                   AllocationsOfLoading({}, Cycle(some, records));
    EXPECT_EQ(difference % (more - some), 0U);
    return difference / (more - some);
}

TEST_F(Allocations, ALoadedPackageTakesOne)
{
    EXPECT_EQ(AllocationsOfAPackage({RecordWith({})}), 1U);
}

TEST_F(Allocations, EachLongTextOfALoadedPackageTakesOneMore)
{
    EXPECT_EQ(AllocationsOfAPackage({{longText, brief, brief, longText, Dictionary{}}}), 3U);
    EXPECT_EQ(AllocationsOfAPackage({{longText, longText, longText, longText, Dictionary{}}}), 5U);
}

TEST_F(Allocations, TheDictionaryOfALoadedPackageTakesNone)
{
    EXPECT_EQ(AllocationsOfAPackage({RecordWith(ADictionary())}), 1U);
}

TEST_F(Allocations, ValuesWhoseTypesChangeFromRecordToRecordTakeNone)
{
    const PackageRecord text = RecordWith({{"key", sdbus::Variant(longText)}});
    const PackageRecord number = RecordWith({{"key", sdbus::Variant(std::int32_t{1})}});
    EXPECT_EQ(AllocationsOfAPackage({text, number}), 1U);
    EXPECT_EQ(AllocationsOfAPackage({text, text, number, number}), 1U);
}

TEST_F(Allocations, ADictionaryTakesNoneWhateverItsLength)
{
    const auto dictionaryOf = [](int entries) {
        Dictionary dictionary;
        for (int entry = 0; entry < entries; ++entry) {
            dictionary.emplace(std::to_string(entry), sdbus::Variant(entry));
        }
        return dictionary;
    };
    EXPECT_EQ(AllocationsOfLoading({RecordWith(dictionaryOf(1000))}),
              AllocationsOfLoading({RecordWith({})}));
}

TEST_F(Allocations, ALoadedOperationTakesOneAndOneMoreForEachLongText)
{
    EXPECT_EQ(AllocationsOfAnOperation({brief, brief, 0, 10, 0}), 1U);
    EXPECT_EQ(AllocationsOfAnOperation({longText, longText, 0, 10, 0}), 3U);
}

TEST_F(Allocations, ADecodedSignalTakesOneAndOneMoreForEachLongText)
{
    auto upgraded = MessageOf(PackageRecord{brief, brief, brief, longText, ADictionary()});
    EXPECT_EQ(AllocationsOf([&] { Decoder::ReadPackageBody(upgraded); }), 2U);
    auto changed = MessageOf(OperationRecord{longText, brief, 0, 10, 0});
    EXPECT_EQ(AllocationsOf([&] { Decoder::ReadOperationBody(changed); }), 2U);
    auto removed = MessageOf(brief);
    EXPECT_EQ(AllocationsOf([&] { Decoder::ReadStringBody(removed); }), 0U);
}

// --- from the proxy's signals to the subscribers, and the queries ---

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

/// Longer than a string's internal buffer, so that a copy is counted.
std::string IDOf(std::size_t number)
{
    return "org.example.package-" + std::to_string(number);
}

Package MakePackage(std::size_t number)
{
    return Package(IDOf(number), "1", "", "", {});
}

Operation MakeOperation(std::size_t number,
                        Common::OperationStatus status = Common::OperationStatus::None)
{
    return Operation(IDOf(number), "package", Common::OperationType::Install, status,
                     Common::ErrorCode::None);
}

/// Creates a proxy with this many packages and operations. A new one, because the signals of a used
/// proxy keep memory for earlier connections.
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

// The one allocation is the entry of the list, which holds the handle and its links.
TEST_F(Allocations, TheSnapshotTakesOneForEachLoadedRecord)
{
    const auto allocationsOfConnecting = [](std::size_t records) {
        MakeProxyWith(records);
        return AllocationsOf([] { const DaemonConnection connection; });
    };
    allocationsOfConnecting(some);                     // creates what exists once in a process
    constexpr std::size_t records = 2 * (more - some); // packages and operations
    EXPECT_EQ(allocationsOfConnecting(more), allocationsOfConnecting(some) + records);
}

TEST_F(Allocations, ADeliveredUpgradeTakesNone)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    const Package upgraded = MakePackage(7);
    EXPECT_EQ(AllocationsOf([&] { theProxy->PackageUpgraded(upgraded); }), 0U);
    EXPECT_EQ(subscriber.calls, 1);
}

TEST_F(Allocations, ADeliveredRemovalTakesNone)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    const std::string removed = IDOf(7);
    EXPECT_EQ(AllocationsOf([&] { theProxy->PackageRemoved(removed); }), 0U);
    EXPECT_EQ(subscriber.calls, 1);
}

TEST_F(Allocations, TheMemoryOfARemovedPackageIsFreedAtOnce)
{
    const DaemonConnection connection = ConnectionWith(some);
    theProxy->properties = SuccessResult<Properties>(Properties());
    const std::string removed = IDOf(7);
    const std::size_t before = bytesInUse;
    theProxy->PackageRemoved(removed);
    EXPECT_LT(bytesInUse, before);
}

TEST_F(Allocations, RepeatedRemovalAndInstallationDoesNotGrowMemory)
{
    const DaemonConnection connection = ConnectionWith(10);
    const auto removeAndInstall = [](int times) {
        const Package package = MakePackage(7);
        for (int time = 0; time < times; ++time) {
            theProxy->PackageRemoved(package.GetID());
            theProxy->PackageInstalled(package);
        }
    };
    removeAndInstall(100);
    const std::size_t before = bytesInUse;
    removeAndInstall(10'000);
    EXPECT_LE(bytesInUse, before + 1024);
}

TEST_F(Allocations, DeliveredInstallationsTakeOneEachAndTheGrowthOfTheIndex)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    std::vector<Package> installed;
    for (std::size_t number = some; number < more; ++number) {
        installed.push_back(MakePackage(number));
    }
    EXPECT_LE(AllocationsOf([&] {
                  for (const Package& package : installed) {
                      theProxy->PackageInstalled(package);
                  }
              }),
              installed.size() + 3) // one growth of the index: its table and two temporary arrays
        << "beyond the entries of the list";
    EXPECT_EQ(subscriber.calls, static_cast<int>(more - some));
}

TEST_F(Allocations, ADeliveredOperationChangeTakesNone)
{
    const DaemonConnection connection = ConnectionWith(some);
    Subscriber subscriber(connection);
    const Operation changed = MakeOperation(7, static_cast<Common::OperationStatus>(10));
    EXPECT_EQ(AllocationsOf([&] { theProxy->OperationStatusChanged(changed); }), 0U);
    const Operation finished = MakeOperation(7, Common::OperationStatus::Succeeded);
    EXPECT_EQ(AllocationsOf([&] { theProxy->OperationStatusChanged(finished); }), 0U);
    EXPECT_EQ(subscriber.calls, 2);
}

TEST_F(Allocations, AQueryForOneRecordTakesOnlyItsResult)
{
    const DaemonConnection connection = ConnectionWith(some);
    const std::string known = IDOf(7);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetPackage(known)); }), 2U);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetActiveOperation(known)); }), 2U);
}

TEST_F(Allocations, AQueryForAListTakesOnlyTheList)
{
    const DaemonConnection connection = ConnectionWith(some);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_EQ(connection.GetPackageList().size(), some); }), 1U);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_EQ(connection.GetActiveOperations().size(), some); }), 1U);
}

TEST_F(Allocations, AFilteredQueryTakesOnlyTheGrowthOfItsList)
{
    const DaemonConnection connection = ConnectionWith(some);
    const PackageFilter nothing = [](const Package&) { return false; };
    const std::string last = IDOf(100);
    const PackageFilter four = [&](const Package& package) { return package.GetID() <= last; };
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetPackageList(nothing).empty()); }), 0U);
    EXPECT_LE(AllocationsOf([&] { EXPECT_EQ(connection.GetPackageList(four).size(), 4U); }), 3U);
}

// --- the list when memory runs out ---

using List = KeyedList<Package, &Package::GetID>;

/// Runs the action and fails all its allocations after this many. Returns whether it completed.
template <typename Action>
bool CompletedWith(std::size_t successes, Action action)
{
    TestSupport::allocationsLeft = successes;
    bool completed = true;
    try {
        action();
    } catch (const std::bad_alloc&) {
        completed = false;
    }
    TestSupport::allocationsLeft = TestSupport::unlimited;
    return completed;
}

void ExpectContent(const List& list, const std::vector<Package>& expected)
{
    const std::vector<Package> content = list.ToVector();
    ASSERT_EQ(content.size(), expected.size());
    for (std::size_t position = 0; position < expected.size(); ++position) {
        ASSERT_EQ(&content[position].GetID(), &expected[position].GetID()) << position;
    }
    for (const Package& package : expected) {
        const auto first =
            std::find_if(expected.begin(), expected.end(), [&](const Package& candidate) {
                return candidate.GetID() == package.GetID();
            });
        const Package* const found = list.Find(package.GetID());
        ASSERT_NE(found, nullptr);
        ASSERT_EQ(&found->GetID(), &first->GetID());
    }
}

/// Fails one allocation of the step after the other; each time, the list must stay as before. Then
/// completes the step. Returns the number of failures.
template <typename Step>
std::size_t FailuresOf(List& list, const std::vector<Package>& before, Step step)
{
    std::size_t failures = 0;
    while (!CompletedWith(failures, step)) {
        ++failures;
        ExpectContent(list, before);
    }
    return failures;
}

TEST_F(Allocations, AFailedAppendLeavesTheListUnchanged)
{
    List list;
    std::vector<Package> expected;
    std::size_t failures = 0;
    constexpr std::size_t appended = 250;
    for (std::size_t number = 0; number < appended; ++number) {
        const Package package = MakePackage(number % 100); // keys repeat
        failures += FailuresOf(list, expected, [&] { list.Append(package); });
        expected.push_back(package);
        ExpectContent(list, expected);
    }
    EXPECT_GT(failures, appended) << "one for each entry, and some for the index";
}

TEST_F(Allocations, AFailedAssignLeavesTheListUnchanged)
{
    const std::vector<Package> before = {MakePackage(1), MakePackage(2), MakePackage(1)};
    std::vector<Package> after;
    for (std::size_t number = 0; number < 70; ++number) {
        after.push_back(MakePackage(number % 50));
    }
    List list;
    list.Assign(before);
    EXPECT_GT(FailuresOf(list, before, [&] { list.Assign(after); }), after.size());
    ExpectContent(list, after);
}

TEST_F(Allocations, OverwritingAndErasingCannotFail)
{
    std::vector<Package> expected = {MakePackage(1), MakePackage(2), MakePackage(1)};
    List list;
    list.Assign(expected);
    const Package upgraded = MakePackage(1);
    const std::string erased = IDOf(2);
    EXPECT_EQ(FailuresOf(list, expected, [&] { list.Overwrite(upgraded); }), 0U);
    expected[0] = upgraded;
    ExpectContent(list, expected);
    EXPECT_EQ(FailuresOf(list, expected, [&] { list.Erase(erased); }), 0U);
    expected.erase(expected.begin() + 1);
    ExpectContent(list, expected);
}

} // namespace

namespace Emporium {

std::shared_ptr<IDBusProxy> GetDBusProxy()
{
    return theProxy;
}

} // namespace Emporium
