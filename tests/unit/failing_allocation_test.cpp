// SPDX-License-Identifier: BSD-3-Clause
//
// The main job with `operator new` failing once, at the n-th call, for every n.

#include "dbus/idbus_proxy.h"
#include "support/output.h"
#include "support/temporary_directory.h"

#include "counted_allocations.h"

#include <emporium/emporium.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Emporium;
using namespace TestSupport;

using Strings = std::vector<std::string>;

/// Not a mock: mocks allocate, and do not survive a failed allocation.
class PlainProxy : public IDBusProxy
{
public:
    Result<Properties> GetAllProperties() override { return answer; }
    Result<Operation> Install(const std::string&) override { return ErrorResult("no"); }
    Result<Operation> Remove(const std::string&) override { return ErrorResult("no"); }
    Result<void> Start(const std::string&) override { return ErrorResult("no"); }
    Result<void> Restart(const std::string&) override { return ErrorResult("no"); }

    Result<Properties> answer = SuccessResult<Properties>(Properties());
};

std::shared_ptr<PlainProxy> currentProxy;

Operation MakeOperation(const std::string& uuid)
{
    return Operation(uuid, "package", Common::OperationType::Install,
                     Common::OperationStatus::Succeeded, Common::ErrorCode::None);
}

/// False once a whole action needed no more than n allocations.
bool someFailed = true;

/// True if `action` came to its end although its n-th allocation failed, or has no more than n.
template <typename Action>
bool SucceedsWithFailureAt(std::size_t n, Action action)
{
    bool succeeded = true;
    failsOnce = true;
    allocationsLeft = n;
    try {
        action();
    } catch (const std::bad_alloc&) {
        succeeded = false;
    }
    someFailed = allocationsLeft == unlimited; // which the failure sets it to
    allocationsLeft = unlimited;
    return succeeded;
}

class WithoutMemory : public testing::Test
{
protected:
    WithoutMemory()
    {
        someFailed = true;
        setenv("VEYRA_APP_ID", "test.app", 1);
        currentProxy = std::make_shared<PlainProxy>();
        Properties properties;
        properties.Packages = {Package("id", "1", "", "", {})};
        properties.Operations = {MakeOperation("active")};
        properties.CompletedOperations = {MakeOperation("from the daemon")};
        currentProxy->answer = SuccessResult<Properties>(properties);
    }
    ~WithoutMemory() override { currentProxy.reset(); }

    static Strings UUIDs(const DaemonConnection& connection)
    {
        Strings uuids;
        for (const Operation& operation : connection.GetCompletedOperations()) {
            uuids.push_back(operation.GetUUID());
        }
        std::sort(uuids.begin(), uuids.end());
        uuids.erase(std::unique(uuids.begin(), uuids.end()), uuids.end());
        return uuids;
    }

    CacheHome cacheHome;
};

TEST_F(WithoutMemory, AConnectionThatCannotBeConstructedIsNotCalledAndLosesNoOperation)
{
    {
        // What the daemon completed is in the cache from here on.
        const DaemonConnection first;
    }
    for (std::size_t n = 0; someFailed; ++n) {
        OutputOf([&] {
            std::optional<DaemonConnection> connection;
            SucceedsWithFailureAt(n, [&] { connection.emplace(); });
            currentProxy->PackageInstalled(Package());
            currentProxy->PackageUpgraded(Package());
            currentProxy->PackageRemoved("");
            currentProxy->OperationStatusChanged(Operation());
        });
        currentProxy->answer = SuccessResult<Properties>(Properties());
        EXPECT_EQ(UUIDs(DaemonConnection()), (Strings{"from the daemon"})) << n;
    }
}

TEST_F(WithoutMemory, AConnectionThatIsConstructedHasWhatTheDaemonCompleted)
{
    for (std::size_t n = 0; someFailed; ++n) {
        // The operations that the last connection stored.
        std::filesystem::remove_all(cacheHome.Path() / "test.app");
        OutputOf([&] {
            std::optional<DaemonConnection> connection;
            if (SucceedsWithFailureAt(n, [&] { connection.emplace(); })) {
                EXPECT_EQ(UUIDs(*connection), (Strings{"from the daemon"})) << n;
            }
        });
    }
}

TEST_F(WithoutMemory, WhatIsNotReadIsOneWarningAndStaysInTheCache)
{
    {
        const DaemonConnection first;
    }
    currentProxy->answer = SuccessResult<Properties>(Properties());
    bool warned = false;
    for (std::size_t n = 0; someFailed; ++n) {
        std::optional<DaemonConnection> connection;
        bool constructed = false;
        const std::string log = OutputOf(
            [&] { constructed = SucceedsWithFailureAt(n, [&] { connection.emplace(); }); });
        if (constructed && connection->GetCompletedOperations().empty()) {
            warned = true;
            EXPECT_EQ(log, "[W] Couldn't read cached completed operations (std::bad_alloc)\n") << n;
        } else {
            EXPECT_EQ(log, "") << n;
        }
        connection.reset();
        EXPECT_EQ(UUIDs(DaemonConnection()), (Strings{"from the daemon"})) << n;
    }
    EXPECT_TRUE(warned);
}

TEST_F(WithoutMemory, WhatIsReadIsStoredAgainIfTheConnectionCannotBeConstructed)
{
    {
        const DaemonConnection first;
    }
    Properties more;
    more.CompletedOperations = {MakeOperation("newer")};
    for (std::size_t n = 0; someFailed; ++n) {
        currentProxy->answer = SuccessResult<Properties>(more);
        OutputOf([&] {
            std::optional<DaemonConnection> connection;
            if (SucceedsWithFailureAt(n, [&] { connection.emplace(); })) {
                const Strings uuids = UUIDs(*connection);
                EXPECT_TRUE(std::ranges::count(uuids, "newer") == 1) << n;
            }
        });
        currentProxy->answer = SuccessResult<Properties>(Properties());
        const Strings uuids = UUIDs(DaemonConnection());
        EXPECT_EQ(std::ranges::count(uuids, "from the daemon"), 1) << n;
    }
}

TEST_F(WithoutMemory, AnOperationThatCannotBeSerializedIsAnErrorResult)
{
    const std::string path = (cacheHome.Path() / "operation").string();
    const Operation operation = MakeOperation("some-longer-uuid-than-fits-into-a-string");
    int refused = 0;
    for (std::size_t n = 0; someFailed; ++n) {
        std::optional<Result<void>> result;
        SucceedsWithFailureAt(n, [&] { result = operation.SaveToFile(path); });
        if (result && result->HasError()) {
            ++refused;
            EXPECT_EQ(result->GetError(), "Couldn't serialize operation to " + path);
        }
    }
    EXPECT_GE(refused, 1);
}

TEST_F(WithoutMemory, AConnectionThatEndsStoresItsOperationsOrWarns)
{
    for (std::size_t n = 0; someFailed; ++n) {
        auto connection = std::make_unique<DaemonConnection>();
        const std::string log =
            OutputOf([&] { SucceedsWithFailureAt(n, [&] { connection.reset(); }); });
        const Result<Properties> answer = currentProxy->answer;
        currentProxy->answer = SuccessResult<Properties>(Properties());
        if (UUIDs(DaemonConnection()).empty()) {
            EXPECT_EQ(log.rfind("[W] Couldn't ", 0), 0U) << n;
        }
        currentProxy->answer = answer;
    }
}

TEST_F(WithoutMemory, ASubscriptionThatFailsIsNotCalled)
{
    const DaemonConnection connection;
    int failures = 0;
    for (std::size_t n = 0; someFailed; ++n) {
        int calls = 0;
        const EventCallback callback = PackageCallback([&calls](const Package&) { ++calls; });
        std::optional<EventSubscription> subscription;
        const bool subscribed = SucceedsWithFailureAt(n, [&] {
            subscription = connection.SubscribeToEvent(EventType::PackageUpgraded, callback);
        });
        currentProxy->PackageUpgraded(Package("id", "2", "", "", {}));
        EXPECT_EQ(calls, subscribed ? 1 : 0) << n;
        failures += subscribed ? 0 : 1;
        if (subscribed) {
            DaemonConnection(connection).UnsubscribeFromEvent(*subscription);
        }
    }
    EXPECT_GE(failures, 2);
}

} // namespace

namespace Emporium {

std::shared_ptr<IDBusProxy> GetDBusProxy()
{
    return currentProxy;
}

} // namespace Emporium
