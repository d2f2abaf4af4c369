// SPDX-License-Identifier: BSD-3-Clause
#include "fake_proxy.h"
#include "several_threads.h"

#include "client/process_exit.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <unistd.h>

namespace {

using namespace Emporium;
using namespace TestSupport;

constexpr int events = 500;

/// Provides a snapshot only. Not a mock: the end of a subscription creates the process-wide connection,
/// which may outlive the test.
class PlainProxy : public IDBusProxy
{
public:
    Result<Properties> GetAllProperties() override
    {
        Properties properties;
        properties.Architecture = "x86_64";
        properties.Packages = {MakePackage("a", "0"), MakePackage("b", "0")};
        properties.CompletedOperations = {MakeOperation("completed", 100)};
        return Snapshot(properties);
    }
    Result<Operation> Install(const std::string&) override { return ErrorResult("no"); }
    Result<Operation> Remove(const std::string&) override { return ErrorResult("no"); }
    Result<void> Start(const std::string&) override { return ErrorResult("no"); }
    Result<void> Restart(const std::string&) override { return ErrorResult("no"); }
};

class ConnectionThreads : public testing::Test
{
protected:
    ConnectionThreads()
    {
        setenv("VEYRA_APP_ID", "test.app", 1);
        currentProxy = proxy;
    }

    ~ConnectionThreads() override { currentProxy.reset(); }

    void Upgrade(int version) { proxy->PackageUpgraded(MakePackage("a", std::to_string(version))); }

    bool CompletedOperationIsStored() const
    {
        return std::filesystem::exists(cacheHome.Path() / "test.app" / "emporium-api" /
                                       "completed-operations" / "completed");
    }

    CacheHome cacheHome;
    std::shared_ptr<PlainProxy> proxy = std::make_shared<PlainProxy>();
};

/// Hands lists of packages from one thread to another.
class Queue
{
public:
    void Push(std::vector<Package> packages)
    {
        const std::lock_guard lock(m_mutex);
        m_lists.push_back(std::move(packages));
        m_filled.notify_one();
    }

    std::vector<Package> Pop()
    {
        std::unique_lock lock(m_mutex);
        m_filled.wait(lock, [this] { return !m_lists.empty(); });
        std::vector<Package> packages = std::move(m_lists.front());
        m_lists.pop_front();
        return packages;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_filled;
    std::deque<std::vector<Package>> m_lists;
};

TEST_F(ConnectionThreads, WhatAQueryReturnedIsReadOnAnotherThreadWhileTheSnapshotChanges)
{
    const DaemonConnection connection;
    Queue queue;
    std::size_t wrong = 0;
    std::thread reader([&] {
        for (int event = 0; event < events; ++event) {
            const std::vector<Package> packages = queue.Pop();
            const bool good = packages.size() == 2 && packages[0].GetID() == "a" &&
                              packages[0].GetVersion() == std::to_string(event);
            wrong += good ? 0 : 1;
        }
    });
    for (int event = 0; event < events; ++event) {
        queue.Push(connection.GetPackageList());
        Upgrade(event + 1);
    }
    reader.join();
    EXPECT_EQ(wrong, 0U);
}

TEST_F(ConnectionThreads, WhatACallbackGotIsReadOnAnotherThread)
{
    DaemonConnection connection;
    Queue queue;
    const auto subscription =
        connection.SubscribeToEvent(EventType::PackageUpgraded, [&](const Package& package) {
            queue.Push({package, package});
        });
    std::size_t wrong = 0;
    std::thread reader([&] {
        for (int event = 0; event < events; ++event) {
            wrong += queue.Pop().back().GetVersion() == std::to_string(event) ? 0 : 1;
        }
    });
    for (int event = 0; event < events; ++event) {
        Upgrade(event);
    }
    reader.join();
    connection.UnsubscribeFromEvent(subscription);
    EXPECT_EQ(wrong, 0U);
}

TEST_F(ConnectionThreads, HandlesAreCopiedOnOtherThreadsWhileEventsAreDelivered)
{
    DaemonConnection connection;
    int delivered = 0;
    const EventSubscription subscription = connection.SubscribeToEvent(
        EventType::PackageUpgraded, [&](const Package&) { ++delivered; });
    std::atomic<bool> done = false;
    const auto copyHandles = [&] {
        while (!done.load(std::memory_order_relaxed)) {
            const DaemonConnection copy = connection;
            const EventSubscription second = subscription;
            const DaemonConnection third = copy;
        }
    };
    std::thread first(copyHandles);
    std::thread second(copyHandles);
    for (int event = 0; event < events; ++event) {
        Upgrade(event);
    }
    done.store(true, std::memory_order_relaxed);
    first.join();
    second.join();
    EXPECT_EQ(delivered, events);
    connection.UnsubscribeFromEvent(subscription);
}

TEST_F(ConnectionThreads, AConnectionMayLiveOnAThreadOfItsOwn)
{
    std::string last;
    std::thread owner([&] {
        DaemonConnection connection;
        const EventSubscription subscription =
            connection.SubscribeToEvent(EventType::PackageUpgraded, [&](const Package& package) {
                last = package.GetVersion() + connection.GetArchitecture();
            });
        for (int event = 0; event < events; ++event) {
            Upgrade(event);
        }
        connection.UnsubscribeFromEvent(subscription);
    });
    OnSeveralThreads([](std::size_t number) { // what other threads may do meanwhile
        return !Common::ErrorCodeHelper(static_cast<int>(number) + 5).errorCodeAsString().empty();
    });
    owner.join();
    EXPECT_EQ(last, std::to_string(events - 1) + "x86_64");
    EXPECT_TRUE(CompletedOperationIsStored());
}

/// The thread of the connection notices the exit, which runs on another one.
[[noreturn]] void ExitOnAnotherThread(const std::filesystem::path& ownCache)
{
    std::filesystem::remove_all(ownCache); // its owner is not destroyed
    setenv("XDG_CACHE_HOME", getenv("CACHE_OF_THE_TEST"), 1);
    const DaemonConnection connection = GetDaemonConnection();
    std::thread exiting([] { std::exit(0); });
    while (!ProcessExit::HasBegun()) {
        std::this_thread::yield();
    }
    while (true) {
        pause();
    }
}

TEST_F(ConnectionThreads, ExitOnAnotherThreadStoresTheCompletedOperations)
{
    // In a new process, because a forked one leaves the connection of an earlier test to its parent. The
    // new process runs this function, too, and keeps the directory that it inherits.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr int keep = 0;
    setenv("CACHE_OF_THE_TEST", cacheHome.Path().c_str(), keep);
    EXPECT_EXIT(ExitOnAnotherThread(cacheHome.Path()), testing::ExitedWithCode(0), "");
    EXPECT_TRUE(CompletedOperationIsStored());
}

} // namespace
