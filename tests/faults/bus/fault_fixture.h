// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bus/follower.h"
#include "bus/idle_loop.h"
#include "faults/bus_fixture.h"

#include <chrono>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <thread>

namespace TestSupport {

/// The message of the error, or an empty text after a success.
using Outcome = std::string;

/// One of the calls that an application makes.
struct DaemonCall
{
    const char* name;
    const char* method;
    std::function<Outcome(const Emporium::DaemonConnection&)> make;

    /// The exact outcome of a call that failed with this error of the bus.
    Outcome Failure(const std::string& error, const std::string& message) const
    {
        const bool returnsNothing = method == Emporium::Contract::Method::start ||
                                    method == Emporium::Contract::Method::restart;
        return std::string("Couldn't call org.velmora.Emporium.") + method + " dbus method (" +
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
    namespace Method = Emporium::Contract::Method;
    using Common::OperationType;
    using Emporium::DaemonConnection;
    return {
        {"GetAllProperties", Method::getAllProperties,
         [](const DaemonConnection&) { return Load(); }},
        {"Install", Method::install,
         [](const DaemonConnection& connection) {
             return Create(connection, OperationType::Install, "/path", "");
         }},
        {"Upgrade", Method::install,
         [](const DaemonConnection& connection) {
             return Create(connection, OperationType::Upgrade, "/path", "");
         }},
        {"Remove", Method::remove,
         [](const DaemonConnection& connection) {
             return Create(connection, OperationType::Remove, "", "com.sample.notes");
         }},
        {"Start", Method::start,
         [](const DaemonConnection& connection) {
             return OutcomeOf(connection.Start("com.sample.notes"));
         }},
        {"Restart", Method::restart,
         [](const DaemonConnection& connection) {
             return OutcomeOf(connection.Restart("com.sample.notes"));
         }},
    };
}

/// A daemon with one completed operation, which the tests kill, suspend or restart.
class FaultTest : public BusTest
{
protected:
    explicit FaultTest(const Simulator::PrivateBus::Limits& limits = {}) : BusTest(limits)
    {
        StartDaemon();
    }

    /// Its operations exist only in its replies: no package file is needed, and no signal follows.
    void StartDaemon()
    {
        simulator.emplace(bus.Address(), Strings{"--step-ms", "0"});
        simulator->SetProperty("CompletedOperations", "[('completed', 'p', 0, 100, 0)]");
        for (int count = 0; count < 20; ++count) {
            simulator->Tell("SetReply", "(ss)", "Install", "(('u', 'p', 0, 0, 0),)");
            simulator->Tell("SetReply", "(ss)", "Remove", "(('u', 'p', 2, 0, 0),)");
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
    std::jthread WhenReceived(const char* method, std::function<void()> action)
    {
        const unsigned before = simulator->Calls(method).first;
        return std::jthread([this, method, before, action = std::move(action)] {
            while (simulator->Calls(method).first == before) {
            }
            action();
        });
    }

    void DelayReply(const char* method, unsigned milliseconds)
    {
        simulator->Tell("DelayReply", "(su)", method, milliseconds);
    }

    void NeverReply(const char* method) { DelayReply(method, 3600000U); }

    /// Waits until the bus has noticed that the daemon has left it.
    void KillDaemon()
    {
        simulator->Kill();
        while (simulator->NameHasOwner(Emporium::Contract::busName)) {
        }
    }

    /// Expects that signals of the daemon are delivered.
    void ExpectFollowed()
    {
        simulator->Emit("PackageInstalled", "(('marker', '1', '', '', @a{sv} {}),)");
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
            cacheHome.Path() / "org.example.test" / "emporium-api" / "completed-operations";
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

    std::optional<SimulatorProcess> simulator;
    std::optional<Emporium::DaemonConnection> connection;
    std::optional<Follower> follower;
};

/// Calls expire after one second instead of 25.
class WithAShortTimeOut : public FaultTest
{
protected:
    explicit WithAShortTimeOut(const Simulator::PrivateBus::Limits& limits = {}) : FaultTest(limits)
    {
        setenv("SYSTEMD_BUS_TIMEOUT", "1s", 1);
    }
};

} // namespace TestSupport
