// SPDX-License-Identifier: BSD-3-Clause
//
// An application that exits in the way that EXIT_CASE names. The variable is read before main(),
// because some of the cases are about globals.

#include <emporium/emporium.h>

#include <glib.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace Emporium;

std::string Case()
{
    const char* const name = std::getenv("EXIT_CASE");
    return name != nullptr ? name : "";
}

using Callback = std::function<void(const Package&)>;

EventSubscription Subscribe(const DaemonConnection& connection, Callback callback)
{
    return connection.SubscribeToEvent(EventType::PackageRemoved, std::move(callback));
}

// Constructed before the library's own objects, so destroyed after them.
EventSubscription oldest;
std::optional<DaemonConnection> oldConnection;
std::optional<Result<Package>> oldResult;
DaemonConnection* volatile neverFreed = nullptr;

/// Handles created before main() begins.
struct Globals
{
    Globals()
    {
        if (Case() == "own connection as a global") {
            connection.emplace();
            subscription = Subscribe(*connection, [](const Package&) {});
        } else if (Case() == "shared connection as a global") {
            connection = GetDaemonConnection();
            subscription = Subscribe(*connection, [](const Package&) {});
            result = connection->GetPackage("com.sample.notes");
        }
    }

    std::optional<Result<Package>> result;
    std::optional<DaemonConnection> connection;
    EventSubscription subscription;
};
Globals globals;

/// Requests the connection after the library's own objects are destroyed.
struct LateCaller
{
    ~LateCaller()
    {
        const bool isRequested = Case() == "requested after the library's statics" ||
                                 Case() == "an own connection without a subscription";
        if (isRequested && GetDaemonConnection()) {
            std::cout << "a valid connection after the library's statics\n" << std::flush;
        }
    }
};
LateCaller lateCaller;

/// Requests the connection during the exit, while the library's own objects still exist.
struct EarlyCaller
{
    ~EarlyCaller()
    {
        const DaemonConnection connection = GetDaemonConnection();
        std::cout << connection.GetPackageList().size() << " packages at exit\n" << std::flush;
    }
};

/// Prints the number of a signal, or the status with which the child exited.
void ForkAndWait(const std::function<void()>& inChild)
{
    const pid_t child = fork();
    if (child == 0) {
        inChild();
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::cout << (WIFEXITED(status) ? "child exited" : "child died") << '\n' << std::flush;
}

void WaitForInput()
{
    std::string line;
    std::getline(std::cin, line);
}

void RunUntil(const bool& done)
{
    while (!done) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

void DispatchWhatIsReady()
{
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

/// As if the reader of the output had ended.
void BreakOutput()
{
    int ends[2];
    if (pipe(ends) == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
    }
}

void Main(const std::string& name)
{
    if (name == "old handles assigned in main") {
        oldConnection = GetDaemonConnection();
        oldest = Subscribe(*oldConnection, [](const Package&) {});
        oldResult = oldConnection->GetPackage("com.sample.notes");
    } else if (name == "subscription of an own connection in an old global") {
        oldConnection.emplace();
        oldest = Subscribe(*oldConnection, [](const Package&) {});
    } else if (name == "an own connection without a subscription") {
        oldConnection.emplace();
    } else if (name == "a handle of an ID without a connection") {
        oldest = EventSubscription(1);
    } else if (name == "a thread that connects and exits") {
        std::thread([] {
            oldConnection.emplace();
            oldest = Subscribe(*oldConnection, [](const Package&) {});
            std::exit(0);
        }).join();
    } else if (name == "a worker thread that ends") {
        std::thread([] { const DaemonConnection connection; }).join();
        std::cout << (GetDaemonConnection() ? "valid\n" : "invalid\n");
    } else if (name == "a copy that is never destroyed") {
        neverFreed = new DaemonConnection(GetDaemonConnection());
    } else if (name == "exit in a callback") {
        oldest = Subscribe(GetDaemonConnection(), [](const Package&) { std::exit(0); });
        while (true) {
            g_main_context_iteration(nullptr, TRUE);
        }
    } else if (name == "a child that calls _exit") {
        GetDaemonConnection();
        ForkAndWait([] { _exit(0); });
        WaitForInput();
    } else if (name == "a child that calls exit") {
        GetDaemonConnection();
        ForkAndWait([] { std::exit(0); });
        WaitForInput();
    } else if (name == "a child that destroys an own connection") {
        oldConnection.emplace();
        ForkAndWait([] {
            oldConnection.reset();
            _exit(0);
        });
        WaitForInput();
    } else if (name == "a child that uses the connection") {
        bool removed = false;
        const DaemonConnection connection = GetDaemonConnection();
        const EventSubscription subscription =
            Subscribe(connection, [&removed](const Package&) { removed = true; });
        std::cout << "subscribed\n" << std::flush;
        WaitForInput();
        ForkAndWait([&] {
            std::cout << (connection.GetPackage("com.sample.notes") ? "found" : "not found")
                      << '\n';
            std::cout << connection.Start("com.sample.notes").GetError() << '\n';
            DispatchWhatIsReady();
            std::cout << (removed ? "an event in the child" : "no event in the child") << '\n';
            std::exit(0);
        });
        RunUntil(removed);
        std::cout << "an event in the parent\n";
    } else if (name == "a daemon that was connected before") {
        GetDaemonConnection();
        if (daemon(1, 1) == 0) {
            WaitForInput();
        }
    } else if (name == "a daemon that connects") {
        if (daemon(1, 1) == 0) {
            bool removed = false;
            oldest =
                Subscribe(GetDaemonConnection(), [&removed](const Package&) { removed = true; });
            std::cout << "subscribed\n" << std::flush;
            RunUntil(removed);
        }
    } else if (name == "_exit") {
        GetDaemonConnection();
        _exit(0);
    } else if (name == "quick_exit") {
        GetDaemonConnection();
        std::quick_exit(0);
    } else if (name == "exit on another thread") {
        oldest = Subscribe(GetDaemonConnection(), [](const Package&) {});
        std::thread([] { std::exit(0); }).join();
    } else if (name == "a log line to a closed pipe") {
        std::signal(SIGPIPE, SIG_DFL);
        unsetenv("VEYRA_APP_ID");
        BreakOutput();
        GetDaemonConnection();
    } else if (name == "a log line to a closed pipe where SIGPIPE is ignored") {
        std::signal(SIGPIPE, SIG_IGN);
        unsetenv("VEYRA_APP_ID");
        BreakOutput();
        const bool valid = static_cast<bool>(GetDaemonConnection());
        std::exit(valid ? 0 : 1);
    } else if (name == "requested after the library's statics") {
        GetDaemonConnection();
    } else if (name == "requested during the exit") {
        std::cout << GetDaemonConnection().GetPackageList().size() << " packages\n" << std::flush;
        static const EarlyCaller earlyCaller;
    } else if (name == "a callback owns a handle of its connection") {
        oldest = Subscribe(GetDaemonConnection(),
                           [connection = GetDaemonConnection()](const Package&) {});
    } else if (name == "the bus is lost") {
        GetDaemonConnection();
        std::cout << "up\n" << std::flush;
        std::string line;
        std::getline(std::cin, line);
        g_main_context_iteration(nullptr, TRUE);
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }
}

} // namespace

int main()
{
    Main(Case());
    std::cout << "end of main\n" << std::flush;
}
