// SPDX-License-Identifier: BSD-3-Clause
//
// Does what applications do, in a child process for each line of input. "once N" lets the N-th call of
// `operator new` fail, "all N" this one and those after it. Answers with one line: "reached", "done"
// where the job needs fewer calls, "terminated" where the bus library has ended the process in order
// to destroy its proxy, which takes memory, or what is wrong.

#include "unit/counted_allocations.h"

#include <emporium/emporium.h>

#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace Emporium;
using namespace TestSupport;

fs::path HomeDirectory()
{
    return std::getenv("HOME");
}

fs::path LogPath()
{
    return HomeDirectory() / "log";
}

fs::path ProblemPath()
{
    return HomeDirectory() / "problem";
}

std::string ContentOf(const fs::path& path)
{
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

constexpr int jobDone = 10;
constexpr int failureReached = 11;
constexpr int proxyTerminated = 12;

/// Whether the application is in the constructor of a connection, which may have to destroy a proxy.
bool constructing = false;

[[noreturn]] void OnTerminate()
{
    if (constructing && allocationsLeft == 0) {
        _exit(proxyTerminated);
    }
    std::abort();
}

/// The application that runs out of memory.
class Job
{
public:
    Job(bool once, std::size_t n) : m_once(once), m_n(n) {}

    /// False if the job needs no more than n calls.
    bool Run()
    {
        failsOnce = m_once;
        const std::size_t before = allocations;
        allocationsLeft = m_n;
        FirstRun();
        SecondRun();
        allocationsLeft = unlimited;
        const bool reached = allocations - before > m_n;
        m_log = ContentOf(LogPath());
        CheckWhatFailed();
        CheckWithMemory();
        return reached;
    }

private:
    /// An application may catch std::bad_alloc, and nothing else may be thrown.
    template <typename Action>
    static bool Succeeds(Action action)
    {
        try {
            action();
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    static bool Construct(std::optional<DaemonConnection>& connection)
    {
        constructing = true;
        const bool constructed = Succeeds([&] { connection.emplace(); });
        constructing = false;
        return constructed;
    }

    static void Dispatch()
    {
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    bool Logged(std::string_view text) const { return m_log.find(text) != std::string::npos; }

    static void Expect(bool condition, const std::string& text)
    {
        if (!condition) {
            std::ofstream(ProblemPath(), std::ios::app) << text << "; ";
        }
    }

    struct Counts
    {
        int statuses = 0;
        int installed = 0;
        bool operator==(const Counts&) const = default;
    };
    static constexpr Counts complete{2, 1};

    /// Both subscriptions, or none.
    bool Subscribe(const DaemonConnection& connection, Counts& counts)
    {
        return Succeeds([&] {
            m_statuses = connection.SubscribeToEvent(
                EventType::OperationStatusChanged,
                OperationCallback([&counts](const Operation&) { ++counts.statuses; }));
            m_installations = connection.SubscribeToEvent(
                EventType::PackageInstalled,
                PackageCallback([&counts](const Package&) { ++counts.installed; }));
        });
    }

    void FirstRun()
    {
        std::optional<DaemonConnection> connection;
        m_constructed = Construct(connection);
        if (!connection || !*connection) {
            return;
        }
        m_valid = true;
        m_subscribed = Subscribe(*connection, m_counts);
        Succeeds([&] { m_created.emplace(connection->CreateOperation(m_request)); });
        Succeeds([&] { m_started.emplace(connection->Start(m_application)); });
        Dispatch();
        Succeeds([&] { m_package.emplace(connection->GetPackage(m_newPackage)); });
        Succeeds([&] { m_active.emplace(connection->GetActiveOperations()); });
    }

    void SecondRun()
    {
        std::optional<DaemonConnection> connection;
        Construct(connection);
        Dispatch();
    }

    /// Expects that each part of the job succeeded or reported its failure.
    void CheckWhatFailed() const
    {
        if (m_once && m_constructed && !m_valid) {
            Expect(Logged("[E] Failed to create a proxy for the emporium dbus interface\n"),
                   "an invalid connection without a line");
        }
        if (m_created && !*m_created) {
            const std::string& error = m_created->GetError();
            Expect(error.rfind("Couldn't call org.velmora.Emporium.Install dbus method (", 0) == 0,
                   "not the reason: " + error);
        }
        const bool allSignals = m_started && *m_started && !Logged("[E]");
        if (m_once && m_subscribed && allSignals) {
            Expect(m_counts == complete, "events are missing without a line");
        }
        if (m_once && m_created && *m_created && allSignals) {
            Expect(!m_package || *m_package, "the new package is missing without a line");
            Expect(!m_active || m_active->empty(), "the operation is active still");
        }
    }

    /// Expects that everything works once allocations succeed again.
    void CheckWithMemory()
    {
        const DaemonConnection connection;
        Expect(static_cast<bool>(connection), "the later connection is invalid");
        if (!connection) {
            return;
        }
        Expect(connection.GetPackage("com.sample.notes") && !connection.GetArchitecture().empty(),
               "the later connection is empty");
        CheckCompleted(connection);
        Counts counts;
        Expect(Subscribe(connection, counts), "no later subscription");
        const Result<std::string> created = connection.CreateOperation(m_request);
        Expect(static_cast<bool>(created), "no later operation");
        Expect(static_cast<bool>(connection.Restart(m_application)), "no later call");
        Dispatch();
        Expect(counts.statuses >= complete.statuses && counts.installed >= complete.installed,
               "later events are missing");
        Expect(static_cast<bool>(connection.GetPackage(m_newPackage)),
               "the new package is missing");
        m_statuses = {};
        m_installations = {};
    }

    /// Of an application that has read the cached operations and never has memory again, they are lost.
    void CheckCompleted(const DaemonConnection& connection) const
    {
        if (m_once ? Logged("[W] Couldn't ") : m_constructed) {
            return;
        }
        for (const std::string uuid : {"one", "two"}) {
            const std::vector<Operation> completed = connection.GetCompletedOperations();
            Expect(std::any_of(completed.begin(), completed.end(),
                               [&](const Operation& found) { return found.GetUUID() == uuid; }),
                   "lost: " + uuid);
        }
    }

    const bool m_once;
    const std::size_t m_n;
    const OperationRequest m_request = OperationRequest::Builder()
                                           .SetOperationType(Common::OperationType::Install)
                                           .SetPackagePath("/new/package")
                                           .Build();
    const std::string m_application = "com.sample.notes";
    const std::string m_newPackage = "org.example.new";
    bool m_constructed = false;
    bool m_valid = false;
    bool m_subscribed = false;
    Counts m_counts;
    EventSubscription m_statuses;
    EventSubscription m_installations;
    std::optional<Result<std::string>> m_created;
    std::optional<Result<void>> m_started;
    std::optional<Result<Package>> m_package;
    std::optional<std::vector<Operation>> m_active;
    std::string m_log;
};

[[noreturn]] void RunChild(bool once, std::size_t n)
{
    constexpr unsigned longestSeconds = 60;
    alarm(longestSeconds);
    if (std::freopen(LogPath().c_str(), "w", stdout) == nullptr ||
        std::freopen(ProblemPath().c_str(), "w", stderr) == nullptr) {
        _exit(1);
    }
    std::set_terminate(OnTerminate);
    int status = 0;
    {
        Job job(once, n);
        status = job.Run() ? failureReached : jobDone;
    }
    std::exit(status);
}

/// The cache as an earlier run has left it.
void FillCache(const fs::path& cache)
{
    fs::remove_all(cache);
    const fs::path directory =
        cache / std::getenv("VEYRA_APP_ID") / "emporium-api" / "completed-operations";
    fs::create_directories(directory);
    for (const std::string uuid : {"one", "two"}) {
        const Operation operation(uuid, "package", Common::OperationType::Install,
                                  Common::OperationStatus::Succeeded, Common::ErrorCode::None);
        operation.SaveToFile((directory / uuid).string());
    }
}

std::string OneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', '|');
    return text;
}

std::string Answer(bool once, std::size_t n)
{
    FillCache(std::getenv("XDG_CACHE_HOME"));
    const pid_t child = fork();
    if (child == 0) {
        RunChild(once, n);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const std::string problem = OneLine(ContentOf(ProblemPath()));
    const int code = WIFEXITED(status) && problem.empty() ? WEXITSTATUS(status) : 0;
    switch (code) {
    case jobDone:
        return "done";
    case failureReached:
        return "reached";
    case proxyTerminated:
        return "terminated";
    default:
        break;
    }
    return "status " + std::to_string(status) + " " + problem +
           " log: " + OneLine(ContentOf(LogPath()));
}

} // namespace

int main()
{
    std::string mode;
    std::size_t n = 0;
    while (std::cin >> mode >> n) {
        std::cout << Answer(mode == "once", n) << '\n' << std::flush;
    }
}
