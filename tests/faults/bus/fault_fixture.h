// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bus/follower.h"
#include "bus/idle_loop.h"
#include "bus/peer.h"
#include "bus/session_test.h"

#include <chrono>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <thread>

namespace TestSupport {

using Emporium::Testing::Method;
using Emporium::Testing::OperationRecord;

/// The name of the method on the bus.
inline std::string MethodName(Method method)
{
    namespace Names = Emporium::Contract::Method;
    switch (method) {
    case Method::GetAllProperties:
        return Names::getAllProperties;
    case Method::Install:
        return Names::install;
    case Method::Remove:
        return Names::remove;
    case Method::Start:
        return Names::start;
    case Method::Restart:
        return Names::restart;
    }
    throw std::invalid_argument("no method of the daemon");
}

/// The message of the error, or an empty text after a success.
using Outcome = std::string;

/// One of the calls that an application makes.
struct DaemonCall
{
    const char* name;
    Method method;
    std::function<Outcome(const Emporium::DaemonConnection&)> make;

    /// The exact outcome of a call that failed with this error of the bus.
    Outcome Failure(const std::string& error, const std::string& message) const
    {
        const bool returnsNothing = method == Method::Start || method == Method::Restart;
        return "Couldn't call org.velmora.Emporium." + MethodName(method) + " dbus method (" +
               (returnsNothing ? message : "[" + error + "] " + message) + ")";
    }

    Outcome Expired() const
    {
        return Failure("org.freedesktop.DBus.Error.Timeout", "Connection timed out");
    }
};

inline std::ostream& operator<<(std::ostream& stream, const DaemonCall& call)
{
    return stream << call.name;
}

inline std::string NameOf(const testing::TestParamInfo<DaemonCall>& info)
{
    return info.param.name;
}

template <typename Value>
Outcome OutcomeOf(const Emporium::Result<Value>& result)
{
    return result ? "" : result.GetError();
}

/// The initial load. Its error is only logged.
inline Outcome Load()
{
    std::string log = OutputOf([] { const Emporium::DaemonConnection connection; });
    constexpr std::string_view prefix = "[E] ";
    if (log.rfind(prefix, 0) == 0 && log.back() == '\n') {
        return log.substr(prefix.size(), log.size() - prefix.size() - 1);
    }
    return log;
}

inline Outcome Create(const Emporium::DaemonConnection& connection, Common::OperationType type,
                      const char* path, const char* package)
{
    return OutcomeOf(connection.CreateOperation(Emporium::OperationRequest::Builder()
                                                    .SetOperationType(type)
                                                    .SetPackagePath(path)
                                                    .SetPackageID(package)
                                                    .Build()));
}

inline std::vector<DaemonCall> EveryCall()
{
    using Common::OperationType;
    using Emporium::DaemonConnection;
    return {
        {"GetAllProperties", Method::GetAllProperties,
         [](const DaemonConnection&) { return Load(); }},
        {"Install", Method::Install,
         [](const DaemonConnection& connection) {
             return Create(connection, OperationType::Install, "/path", "");
         }},
        {"Upgrade", Method::Install,
         [](const DaemonConnection& connection) {
             return Create(connection, OperationType::Upgrade, "/path", "");
         }},
        {"Remove", Method::Remove,
         [](const DaemonConnection& connection) {
             return Create(connection, OperationType::Remove, "", "com.sample.notes");
         }},
        {"Start", Method::Start,
         [](const DaemonConnection& connection) {
             return OutcomeOf(connection.Start("com.sample.notes"));
         }},
        {"Restart", Method::Restart,
         [](const DaemonConnection& connection) {
             return OutcomeOf(connection.Restart("com.sample.notes"));
         }},
    };
}

/// A daemon with one completed operation, which the tests kill, suspend or restart.
class FaultTest : public SessionTest
{
protected:
    explicit FaultTest(const Emporium::Testing::PrivateBus::Limits& limits = {})
        : SessionTest(limits)
    {
        StartDaemon();
    }

    /// Its operations exist only in its replies: no package file is needed, and no signal follows.
    void StartDaemon()
    {
        simulator.emplace(session);
        simulator->SetProperty(Emporium::Testing::Property::CompletedOperations,
                               "[('completed', 'p', 0, 100, 0)]");
        for (int count = 0; count < 20; ++count) {
            simulator->SetReply(Method::Install, OperationRecord{"u", "p"});
            simulator->SetReply(Method::Remove,
                                OperationRecord{"u", "p", Common::OperationType::Remove});
        }
    }

    /// Connects, also if a short time-out expires on a busy machine.
    void Connect()
    {
        while (!connection || connection->GetArchitecture().empty()) {
            connection.emplace();
        }
        follower.emplace(*connection);
        RunWhatIsReady();
        follower->events.clear();
    }

    /// Runs the action on another thread as soon as the daemon has received a call of the method. It
    /// must start no process: that would end with the thread.
    std::jthread WhenReceived(Method method, std::function<void()> action)
    {
        const unsigned next = simulator->Calls(method).count + 1;
        return std::jthread([this, method, next, action = std::move(action)] {
            simulator->WaitForCall(method, next);
            action();
        });
    }

    void NeverReply(Method method) { simulator->DelayReply(method, std::chrono::hours(1)); }

    /// Waits until the bus has noticed that the daemon has left it.
    void KillDaemon()
    {
        simulator->Kill();
        Peer peer(bus.Address());
        while (peer.NameHasOwner(Emporium::Contract::busName)) {
        }
    }

    /// Sends the signal of the event "installed marker".
    void SendMarker(unsigned count = 1)
    {
        simulator->EmitSignal(Emporium::Testing::Signal::PackageInstalled,
                              Body(Emporium::Testing::PackageRecord{"marker"}), count);
    }

    /// Expects that signals of the daemon are delivered.
    void ExpectFollowed()
    {
        SendMarker();
        RunUntil([&] { return follower->Has("installed marker"); });
    }

    static void ExpectIdle()
    {
        RunWhatIsReady();
        EXPECT_LE(PollsWhileIdle(), 5) << "the main loop spins";
    }

    /// Expects that the end of the connection writes its cache and calls no subscriber.
    void ExpectCleanEnd()
    {
        const auto cache =
            session.CacheHome() / "org.example.test" / "emporium-api" / "completed-operations";
        std::filesystem::remove_all(cache); // a failed load writes an empty one
        const Strings before = follower->events;
        const std::string log = OutputOf([&] {
            connection.reset();
            RunWhatIsReady();
        });
        EXPECT_EQ(log, "");
        EXPECT_EQ(follower->events, before);
        EXPECT_TRUE(std::filesystem::exists(cache / "completed"));
    }

    std::optional<Emporium::Testing::Simulator> simulator;
    std::optional<Emporium::DaemonConnection> connection;
    std::optional<Follower> follower;
};

/// Calls expire after one second instead of 25.
class WithAShortTimeOut : public FaultTest
{
protected:
    explicit WithAShortTimeOut(const Emporium::Testing::PrivateBus::Limits& limits = {})
        : FaultTest(limits)
    {
        setenv("SYSTEMD_BUS_TIMEOUT", "1s", 1);
    }
};

} // namespace TestSupport
