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
#include <malloc.h>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

std::size_t allocations = 0;
std::size_t bytesInUse = 0;

void* Allocate(std::size_t size)
{
    ++allocations;
    if (void* const memory = std::malloc(size == 0 ? 1 : size)) {
        bytesInUse += malloc_usable_size(memory);
        return memory;
    }
    throw std::bad_alloc();
}

void Free(void* memory)
{
    bytesInUse -= malloc_usable_size(memory); // zero for a null pointer
    std::free(memory);
}

} // namespace

// Every form that is not replaced here calls one of these.
void* operator new(std::size_t size)
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    Free(memory);
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

class Allocations : public testing::Test
{
private:
    TestSupport::CacheHome m_cacheHome;
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

/// The keys are long too: not even for them is memory to be taken.
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

/// What it takes to decode a reply with these records.
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

// Vectors grow to both in the same steps, so that the difference is that of the records alone.
constexpr std::size_t some = 600;
constexpr std::size_t more = 1000;

/// So many records, made by taking these in turn.
template <typename Record>
std::vector<Record> InTurn(std::size_t count, const std::vector<Record>& records)
{
    std::vector<Record> result;
    for (std::size_t number = 0; number < count; ++number) {
        result.push_back(records[number % records.size()]);
    }
    return result;
}

/// Of one record in the long run; these are taken in turn.
std::size_t AllocationsOfAPackage(const std::vector<PackageRecord>& records)
{
    const std::size_t difference =
        AllocationsOfLoading(InTurn(more, records)) - AllocationsOfLoading(InTurn(some, records));
    EXPECT_EQ(difference % (more - some), 0U);
    return difference / (more - some);
}

std::size_t AllocationsOfAnOperation(const OperationRecord& record)
{
    const std::vector<OperationRecord> records{record};
    const std::size_t difference = AllocationsOfLoading({}, InTurn(more, records)) -
                                   AllocationsOfLoading({}, InTurn(some, records));
    EXPECT_EQ(difference % (more - some), 0U);
    return difference / (more - some);
}

TEST_F(Allocations, APackageLoadedIsOneBlock)
{
    EXPECT_EQ(AllocationsOfAPackage({RecordWith({})}), 1U);
}

TEST_F(Allocations, APackageLoadedAlsoTakesWhatItsLongTextsNeed)
{
    EXPECT_EQ(AllocationsOfAPackage({{longText, brief, brief, longText, Dictionary{}}}), 3U);
    EXPECT_EQ(AllocationsOfAPackage({{longText, longText, longText, longText, Dictionary{}}}), 5U);
}

TEST_F(Allocations, TheDictionaryOfAPackageLoadedTakesNothing)
{
    EXPECT_EQ(AllocationsOfAPackage({RecordWith(ADictionary())}), 1U);
}

TEST_F(Allocations, ValuesWhoseTypesChangeFromRecordToRecordTakeNothing)
{
    const PackageRecord text = RecordWith({{"key", sdbus::Variant(longText)}});
    const PackageRecord number = RecordWith({{"key", sdbus::Variant(std::int32_t{1})}});
    EXPECT_EQ(AllocationsOfAPackage({text, number}), 1U);
    EXPECT_EQ(AllocationsOfAPackage({text, text, number, number}), 1U);
}

TEST_F(Allocations, ADictionaryTakesNothingHoweverLongItIs)
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

TEST_F(Allocations, AnOperationLoadedIsOneBlockAndItsLongTexts)
{
    EXPECT_EQ(AllocationsOfAnOperation({brief, brief, 0, 10, 0}), 1U);
    EXPECT_EQ(AllocationsOfAnOperation({longText, longText, 0, 10, 0}), 3U);
}

TEST_F(Allocations, ASignalDecodedIsOneBlockAndItsLongTexts)
{
    auto upgraded = MessageOf(PackageRecord{brief, brief, brief, longText, ADictionary()});
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

/// Longer than what a string holds in itself, so that a copy would be noticed.
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
    const std::string removed = IDOf(7);
    EXPECT_EQ(AllocationsOf([&] { theProxy->PackageRemoved(removed); }), 0U);
    EXPECT_EQ(subscriber.calls, 1);
}

TEST_F(Allocations, ARemovedPackageIsGivenBackAtOnce)
{
    const DaemonConnection connection = ConnectionWith(some);
    theProxy->properties = SuccessResult<Properties>(Properties());
    const std::string removed = IDOf(7);
    const std::size_t before = bytesInUse;
    theProxy->PackageRemoved(removed);
    EXPECT_LT(bytesInUse, before);
}

TEST_F(Allocations, PackagesThatComeAndGoTakeNoMoreAndMoreMemory)
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
    const std::string known = IDOf(7);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetPackage(known)); }), 2U);
    EXPECT_EQ(AllocationsOf([&] { EXPECT_TRUE(connection.GetActiveOperation(known)); }), 2U);
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
    const std::string last = IDOf(100);
    const PackageFilter four = [&](const Package& package) { return package.GetID() <= last; };
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
