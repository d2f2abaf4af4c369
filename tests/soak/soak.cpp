// SPDX-License-Identifier: BSD-3-Clause
//
// An application that receives many signals and runs many operations, and checks that nothing is lost
// and nothing grows. The daemon is the simulator; a raw sd-bus connection of this process tells it what
// to change.
//
// Usage: soak SIGNALS OPERATIONS, with a simulator on the session bus

#include "dbus/contract.h"
#include "simulator/faults/control_contract.h"
#include "support/temporary_directory.h"

#include <emporium/emporium.h>

#include <glib.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <malloc.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace Emporium;
using Clock = std::chrono::steady_clock;

/// Bounds what waits on the bus: beyond its limits, a bus drops signals.
constexpr std::uint64_t batchSize = 500;
constexpr std::size_t packageCount = 64;
constexpr const char* operationPackage = "org.example.soak";
constexpr unsigned stallLimitSeconds = 120;
constexpr std::chrono::seconds idleTime{2};

/// What the allocator and the buffers of the bus library may differ by; a leak of one byte for each
/// signal or operation of a full run is larger.
constexpr std::size_t heapTolerance = 16384;

struct FreeBus
{
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};

int Checked(int result)
{
    if (result < 0) {
        throw std::runtime_error("the control connection failed: " +
                                 std::generic_category().message(-result));
    }
    return result;
}

/// The changes of the packages: the same number always means the same change, so that the receiver
/// knows which signal comes next.
class Changes
{
public:
    struct Change
    {
        EventType type;
        std::string id;
        std::string version;
    };

    Change Next()
    {
        const std::uint64_t number = m_number++;
        std::string& version = m_versions.at(number % packageCount);
        Change change{EventType::PackageUpgraded,
                      "package-" + std::to_string(number % packageCount), std::to_string(number)};
        if (version.empty()) {
            change.type = EventType::PackageInstalled;
        } else if (number % 5 == 0) {
            change.type = EventType::PackageRemoved;
            change.version = version; // the event carries the package as it was
        }
        version = change.type == EventType::PackageRemoved ? "" : change.version;
        return change;
    }

private:
    std::uint64_t m_number = 0;
    std::array<std::string, packageCount> m_versions;
};

/// Makes the simulator change its packages, and announce it.
class Controller
{
public:
    Controller()
    {
        sd_bus* bus = nullptr;
        Checked(sd_bus_open_user(&bus));
        m_bus.reset(bus);
    }

    void Announce(std::uint64_t count)
    {
        for (std::uint64_t number = 0; number < count; ++number) {
            const Changes::Change change = m_changes.Next();
            if (change.type == EventType::PackageRemoved) {
                Message message = Call("RemovePackage");
                Checked(sd_bus_message_append(message.get(), "sb", change.id.c_str(), 1));
                Send(message);
            } else {
                Message message = Call("AddPackage");
                Checked(sd_bus_message_append(message.get(), "(ssssa{sv})b", change.id.c_str(),
                                              change.version.c_str(), "regular", "certificate", 0,
                                              1));
                Send(message);
            }
        }
        Checked(sd_bus_flush(m_bus.get()));
    }

private:
    using Message = std::unique_ptr<sd_bus_message, FreeBus>;

    Message Call(const char* verb)
    {
        namespace Control = Simulator::ControlContract;
        sd_bus_message* message = nullptr;
        Checked(sd_bus_message_new_method_call(m_bus.get(), &message, Contract::busName,
                                               Control::objectPath, Control::interfaceName, verb));
        return Message(message);
    }

    void Send(const Message& message)
    {
        Checked(sd_bus_message_set_expect_reply(message.get(), 0));
        Checked(sd_bus_send(m_bus.get(), message.get(), nullptr));
    }

    std::unique_ptr<sd_bus, FreeBus> m_bus;
    Changes m_changes;
};

struct Resources
{
    std::size_t heap = mallinfo2().uordblks;
    std::ptrdiff_t descriptors =
        std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
};

/// Subscribes to every event and compares it with the expected one.
class Application
{
public:
    Application()
    {
        std::ofstream(m_packageFile) << "[Package]\nId=" << operationPackage
                                     << "\nVersion=1.0\nDeveloper=developer\nSubgroup=regular\n";
        for (const EventType type :
             {EventType::PackageInstalled, EventType::PackageUpgraded, EventType::PackageRemoved}) {
            m_subscriptions.push_back(m_connection.SubscribeToEvent(
                type, [this, type](const Package& package) { OnPackage(type, package); }));
        }
        m_subscriptions.push_back(m_connection.SubscribeToEvent(
            EventType::OperationStatusChanged,
            [this](const Operation& operation) { OnOperation(operation); }));
    }

    void ReceiveSignals(Controller& controller, std::uint64_t count)
    {
        while (count > 0) {
            const std::uint64_t batch = std::min(count, batchSize);
            const std::uint64_t wanted = m_signals + batch;
            controller.Announce(batch);
            RunUntil([&] { return m_signals >= wanted; });
            count -= batch;
        }
    }

    void RunOperations(std::uint64_t count)
    {
        for (std::uint64_t number = 0; number < count; ++number) {
            RunOperation();
        }
    }

    /// Describes the first differences; empty if there are none.
    std::string ComparedWithTheDaemon() const;

    DaemonConnection& Connection() { return m_connection; }
    std::uint64_t Signals() const { return m_signals; }
    std::uint64_t Operations() const { return m_operations; }
    std::uint64_t OutOfOrder() const { return m_outOfOrder; }

private:
    template <typename Done>
    static void RunUntil(Done done)
    {
        alarm(stallLimitSeconds);
        while (!done()) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

    void OnPackage(EventType type, const Package& package)
    {
        if (package.GetID() == operationPackage) {
            ++m_packageEvents;
            return;
        }
        const Changes::Change wanted = m_changes.Next();
        if (type != wanted.type || package.GetID() != wanted.id ||
            package.GetVersion() != wanted.version) {
            ++m_outOfOrder;
        }
        ++m_signals;
    }

    void OnOperation(const Operation& operation)
    {
        const int status = static_cast<int>(operation.GetStatus());
        if (status < m_status || (!m_uuid.empty() && operation.GetUUID() != m_uuid)) {
            ++m_outOfOrder;
        }
        m_status = status;
        if (Common::IsFinished(operation.GetStatus())) {
            ++m_operations;
            m_ended += std::hash<std::string>()(operation.GetUUID());
        }
    }

    /// Installs the package of the operations, or removes it.
    void RunOperation()
    {
        OperationRequest::Builder builder;
        if (m_operations % 2 == 0) {
            builder.SetOperationType(Common::OperationType::Install).SetPackagePath(m_packageFile);
        } else {
            builder.SetOperationType(Common::OperationType::Remove).SetPackageID(operationPackage);
        }
        const std::uint64_t wanted = m_operations + 1;
        m_status = 0;
        m_uuid.clear(); // known when the call returns; no event is delivered before
        const Result<std::string> uuid = m_connection.CreateOperation(builder.Build());
        if (!uuid) {
            throw std::runtime_error(uuid.GetError());
        }
        m_uuid = uuid.Get();
        RunUntil([&] { return m_operations >= wanted && m_packageEvents >= wanted; });
        if (m_connection.GetActiveOperation(m_uuid)) {
            throw std::runtime_error("an operation that has ended is still active");
        }
    }

    TestSupport::TemporaryDirectory m_directory;
    const std::string m_packageFile = m_directory.Path() / "soak.pkg";
    DaemonConnection m_connection = GetDaemonConnection();
    std::vector<EventSubscription> m_subscriptions;
    Changes m_changes;
    std::uint64_t m_signals = 0;
    std::uint64_t m_operations = 0;
    std::uint64_t m_packageEvents = 0;
    std::uint64_t m_outOfOrder = 0;
    std::size_t m_ended = 0; ///< The sum of the hashes: a list would make the heap grow.
    int m_status = 0;
    std::string m_uuid;
};

std::vector<std::string> Described(const std::vector<Package>& packages)
{
    std::vector<std::string> texts;
    for (const Package& package : packages) {
        texts.push_back(package.GetID() + ' ' + package.GetVersion() + ' ' +
                        package.GetDeveloperCertificateSubgroup() + ' ' +
                        package.GetDeveloperCertificateID());
    }
    std::sort(texts.begin(), texts.end()); // the daemon may list them in another order
    return texts;
}

std::string Application::ComparedWithTheDaemon() const
{
    // Never destroyed: it would write a file for each of the completed operations.
    static const auto* const fresh = new DaemonConnection();
    if (Described(fresh->GetPackageList()) != Described(m_connection.GetPackageList())) {
        return "other packages";
    }
    if (!fresh->GetActiveOperations().empty() || !m_connection.GetActiveOperations().empty()) {
        return "active operations are left";
    }
    const std::vector<Operation> completed = fresh->GetCompletedOperations();
    std::size_t sum = 0;
    for (const Operation& operation : completed) {
        sum += std::hash<std::string>()(operation.GetUUID());
    }
    if (completed.size() != m_operations || sum != m_ended) {
        return "other completed operations";
    }
    return "";
}

long VoluntarySwitches(pid_t thread)
{
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    std::string name;
    while (status >> name && name != "voluntary_ctxt_switches:") {
    }
    long count = -1;
    status >> count;
    return count;
}

/// Runs an idle main loop, and returns how often it woke up: a thread that waits for something gives
/// up the processor, so each wake-up that waits again counts one.
long WakeUpsWhileIdle()
{
    const std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop(
        g_main_loop_new(nullptr, FALSE), g_main_loop_unref);
    const pid_t mainThread = gettid();
    long wakeUps = -1;
    std::thread watcher([&] {
        // On a busy machine, the loop may not wait yet; one that wakes up regularly does so each time.
        for (int attempt = 0; attempt < 10 && wakeUps != 0; ++attempt) {
            const long before = VoluntarySwitches(mainThread);
            std::this_thread::sleep_for(idleTime);
            wakeUps = VoluntarySwitches(mainThread) - before;
        }
        g_main_loop_quit(loop.get());
    });
    g_main_loop_run(loop.get());
    watcher.join();
    return wakeUps;
}

std::ptrdiff_t ThreadCount()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

class Table
{
public:
    void Row(const char* what, const std::string& result, bool good)
    {
        std::printf("%-12s %-60s %s\n", what, result.c_str(), good ? "ok" : "FAILED");
        m_good = m_good && good;
    }

    bool AllGood() const { return m_good; }

private:
    bool m_good = true;
};

std::string PerSecond(std::uint64_t count, Clock::duration time)
{
    const double seconds = std::chrono::duration<double>(time).count();
    return ", " + std::to_string(static_cast<std::uint64_t>(static_cast<double>(count) / seconds)) +
           " per second";
}

bool Soak(std::uint64_t signals, std::uint64_t operations)
{
    constexpr std::uint64_t rounds = 100;
    constexpr std::uint64_t warmRound = rounds / 10;
    Controller controller;
    Application application;
    if (!application.Connection()) {
        throw std::runtime_error("the bus cannot be reached");
    }
    Clock::duration signalTime{};
    Clock::duration operationTime{};
    Resources warm;
    for (std::uint64_t round = 1; round <= rounds; ++round) {
        const auto begin = Clock::now();
        application.ReceiveSignals(controller, signals * round / rounds - application.Signals());
        const auto middle = Clock::now();
        application.RunOperations(operations * round / rounds - application.Operations());
        signalTime += middle - begin;
        operationTime += Clock::now() - middle;
        if (round == warmRound) {
            warm = Resources();
        }
    }
    alarm(0);
    const Resources end;
    const std::ptrdiff_t threads = ThreadCount();
    const long wakeUps = WakeUpsWhileIdle();
    const std::string difference = application.ComparedWithTheDaemon();

    Table table;
    table.Row("signals",
              std::to_string(application.Signals()) + " received of " + std::to_string(signals) +
                  PerSecond(signals, signalTime),
              application.Signals() == signals);
    table.Row("operations",
              std::to_string(application.Operations()) + " ended of " + std::to_string(operations) +
                  PerSecond(operations, operationTime),
              application.Operations() == operations);
    table.Row("order", std::to_string(application.OutOfOrder()) + " events other than expected",
              application.OutOfOrder() == 0);
    table.Row("end state", difference.empty() ? "equal to a fresh connection's" : difference,
              difference.empty());
    table.Row("heap",
              std::to_string(warm.heap) + " bytes after a tenth, " + std::to_string(end.heap) +
                  " at the end",
              end.heap <= warm.heap + heapTolerance);
    table.Row("descriptors",
              std::to_string(warm.descriptors) + " after a tenth, " +
                  std::to_string(end.descriptors) + " at the end",
              end.descriptors == warm.descriptors);
    table.Row("threads", std::to_string(threads), threads == 1);
    table.Row("idle loop",
              std::to_string(wakeUps) + " wake-ups in " + std::to_string(idleTime.count()) + " s",
              wakeUps == 0);
    return table.AllGood();
}

void OnStall(int)
{
    constexpr char message[] = "soak: an event is lost: nothing came for too long\n";
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, message, sizeof(message) - 1);
    _exit(1);
}

} // namespace

int main(int argc, char** argv)
{
    // The process-wide connection writes its cache at exit, so the directory must outlive it.
    static const TestSupport::TemporaryDirectory home;
    setenv("HOME", home.Path().c_str(), 1);
    setenv("XDG_CACHE_HOME", home.Path().c_str(), 1);
    setenv("VEYRA_APP_ID", "org.example.soak", 1);
    std::signal(SIGALRM, OnStall);
    if (argc != 3) {
        std::cerr << "usage: soak SIGNALS OPERATIONS\n";
        return 2;
    }
    try {
        return Soak(std::stoull(argv[1]), std::stoull(argv[2])) ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "soak: " << error.what() << '\n';
        return 1;
    }
}
