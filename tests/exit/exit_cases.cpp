// SPDX-License-Identifier: BSD-3-Clause
//
// An application that exits in the way that EXIT_CASE names. The variable is read before main(),
// because some of the cases are about globals.

#include <emporium/emporium.h>

#include <glib.h>

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
    } else if (name == "exit on another thread") {
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
        const pid_t child = fork();
        if (child == 0) {
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        std::cout << "child exited\n" << std::flush;
        std::string line;
        std::getline(std::cin, line);
    } else if (name == "requested after the library's statics") {
        GetDaemonConnection();
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
