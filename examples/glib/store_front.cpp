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
        m_packagePath = path;
        Connect();
        if (m_status) {
            return *m_status;
        }
        // After the connection, so that it knows whether the daemon is present.
        const Emporium::DaemonWatch watch([this](DaemonState state) { OnDaemon(state); });
        watch.State() == DaemonState::Present ? Begin() : OnDaemon(watch.State());
        while (!m_status) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return *m_status;
    }

private:
    /// Makes a new connection, which reloads the snapshot. The old one first writes its cache.
    void Connect()
    {
        m_connection.emplace();
        if (!*m_connection) {
            return End("there is no session bus", 3);
        }
        const Emporium::OperationCallback follow = [this](const Operation& operation) {
            m_uuid == operation.GetUUID() ? Show(operation) : void();
        };
        m_subscription =
            m_connection->SubscribeToEvent(Emporium::EventType::OperationStatusChanged, follow);
    }

    void Begin()
    {
        for (const auto& package : m_connection->GetPackageList()) {
            std::cout << package.GetID() << ' ' << package.GetVersion() << '\n';
        }
        const auto result =
            m_connection->CreateOperation(Emporium::OperationRequest::Builder()
                                              .SetOperationType(Common::OperationType::Install)
                                              .SetPackagePath(m_packagePath)
                                              .Build());
        if (!result) {
            std::cerr << result.GetError() << '\n';
            return End(Advice(CodeOf(result.GetError())), 1);
        }
        m_uuid = result.Get();
        Show(m_connection->GetActiveOperation(*m_uuid).Get());
    }

    void End(const char* text, int exitStatus)
    {
        std::cout << text << '\n' << std::flush;
        m_status = exitStatus;
    }

    void Show(const Operation& operation)
    {
        if (operation.GetStatus() == Common::OperationStatus::Succeeded) {
            End("installed", 0);
        } else if (operation.GetStatus() == Common::OperationStatus::Failed) {
            End(Advice(operation.GetErrorCode()), 1);
        } else {
            std::cout << static_cast<int>(operation.GetStatus()) << " %\n" << std::flush;
        }
    }

    void OnDaemon(DaemonState state)
    {
        if (state == DaemonState::Disconnected) {
            End("the session bus is lost", m_uuid ? 4 : 3);
        } else if (state == DaemonState::Absent) {
            std::cout << "waiting for the service\n" << std::flush;
        } else {
            Connect();
            m_uuid ? FindAgain() : Begin();
        }
    }

    /// The operation continues, or has ended, or the new daemon does not know it.
    void FindAgain()
    {
        const auto active = m_connection->GetActiveOperation(*m_uuid);
        for (const Operation& completed : m_connection->GetCompletedOperations()) {
            if (completed.GetUUID() == *m_uuid) {
                return Show(completed);
            }
        }
        active ? Show(active.Get()) : End("it is not known whether the package was installed", 4);
    }

    std::string m_packagePath;
    std::optional<Emporium::DaemonConnection> m_connection;
    Emporium::EventSubscription m_subscription;
    std::optional<std::string> m_uuid;
    std::optional<int> m_status;
};

} // namespace

int main(int argc, char** argv)
{
    return argc == 2 ? StoreFront().Run(argv[1]) : 2;
}
