// SPDX-License-Identifier: BSD-3-Clause
//
// Lists the packages, installs a package file, and says how it ends, also if the daemon dies meanwhile.
// Exit status: 0 installed, 1 refused or failed, 2 usage, 3 no bus, 4 the outcome is not known.

#include <emporium/emporium.h>

#include <glib.h>

#include <iostream>
#include <optional>
#include <string>

namespace {

using Emporium::DaemonState;
using Emporium::Operation;

/// What the user should read. The texts of the library are English, and for the log.
const char* Advice(Common::ErrorCode code)
{
    switch (code) {
    case Common::ErrorCode::FileNotFound:
        return "The file is missing. Download it again.";
    case Common::ErrorCode::SamePackageIsInstalled:
        return "This version is installed already.";
    case Common::ErrorCode::FileConflict:
        return "Another package has the same files. Remove it first.";
    case Common::ErrorCode::UnauthorizedAccess:
        return "You are not allowed to install packages.";
    default: // numbers without an enumerator too
        return "The package could not be installed.";
    }
}

/// The code in the text of a refused call: "... ([org.velmora.KVD.Error.FileConflict] message)". A text
/// without a name, as when the daemon died, counts as Internal: so does every unknown name.
Common::ErrorCode CodeOf(const std::string& error)
{
    const auto begin = error.find("([") + 2;
    return Common::ErrorCodeHelper(error.substr(begin, error.find(']') - begin)).errorCode();
}

class StoreFront
{
public:
    int Run(const std::string& path)
    {
        packagePath = path;
        Connect();
        if (status) {
            return *status;
        }
        // After the connection, so that it knows whether the daemon is present.
        const Emporium::DaemonWatch watch([this](DaemonState state) { OnDaemon(state); });
        watch.State() == DaemonState::Present ? Begin() : OnDaemon(watch.State());
        while (!status) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return *status;
    }

private:
    /// Makes a new connection: the snapshot of an old one is not reloaded.
    void Connect()
    {
        connection.emplace();
        if (!*connection) {
            return End("there is no session bus", 3);
        }
        const Emporium::OperationCallback follow = [this](const Operation& operation) {
            uuid == operation.GetUUID() ? Show(operation) : void();
        };
        subscription =
            connection->SubscribeToEvent(Emporium::EventType::OperationStatusChanged, follow);
    }

    void Begin()
    {
        for (const auto& package : connection->GetPackageList()) {
            std::cout << package.GetID() << ' ' << package.GetVersion() << '\n';
        }
        const auto result =
            connection->CreateOperation(Emporium::OperationRequest::Builder()
                                            .SetOperationType(Common::OperationType::Install)
                                            .SetPackagePath(packagePath)
                                            .Build());
        if (!result) {
            std::cerr << result.GetError() << '\n';
            return End(Advice(CodeOf(result.GetError())), 1);
        }
        uuid = result.Get();
        Show(connection->GetActiveOperation(*uuid).Get());
    }

    void End(const char* text, int exitStatus)
    {
        std::cout << text << std::endl;
        status = exitStatus;
    }

    void Show(const Operation& operation)
    {
        if (operation.GetStatus() == Common::OperationStatus::Succeeded) {
            End("installed", 0);
        } else if (operation.GetStatus() == Common::OperationStatus::Failed) {
            End(Advice(operation.GetErrorCode()), 1);
        } else {
            std::cout << static_cast<int>(operation.GetStatus()) << " %" << std::endl;
        }
    }

    void OnDaemon(DaemonState state)
    {
        if (state == DaemonState::Disconnected) {
            End("the session bus is lost", uuid ? 4 : 3);
        } else if (state == DaemonState::Absent) {
            std::cout << "waiting for the service" << std::endl;
        } else {
            Connect();
            uuid ? FindAgain() : Begin();
        }
    }

    /// The operation continues, or has ended, or the new daemon does not know it.
    void FindAgain()
    {
        const auto active = connection->GetActiveOperation(*uuid);
        for (const Operation& completed : connection->GetCompletedOperations()) {
            if (completed.GetUUID() == *uuid) {
                return Show(completed);
            }
        }
        active ? Show(active.Get()) : End("it is not known whether the package was installed", 4);
    }

    std::string packagePath;
    std::optional<Emporium::DaemonConnection> connection;
    Emporium::EventSubscription subscription;
    std::optional<std::string> uuid;
    std::optional<int> status;
};

} // namespace

int main(int argc, char** argv)
{
    return argc == 2 ? StoreFront().Run(argv[1]) : 2;
}
