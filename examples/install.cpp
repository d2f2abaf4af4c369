// SPDX-License-Identifier: BSD-3-Clause
//
// Lists the installed packages, then installs a package file and follows the operation to its end.
// Exit status: 0 installed, 1 refused or failed, 2 usage, 3 no daemon.

#include <emporium/emporium.h>

#include <glib.h>

#include <iostream>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " PACKAGE_FILE\n";
        return 2;
    }
    const auto connection = Emporium::GetDaemonConnection();
    if (!connection || connection.GetArchitecture().empty()) {
        std::cerr << "the application-store daemon is not running\n";
        return 3;
    }
    for (const auto& package : connection.GetPackageList()) {
        std::cout << package.GetID() << ' ' << package.GetVersion() << '\n';
    }

    const auto uuid =
        connection.CreateOperation(Emporium::OperationRequest::Builder()
                                       .SetOperationType(Common::OperationType::Install)
                                       .SetPackagePath(argv[1])
                                       .Build());
    if (!uuid) {
        std::cerr << uuid.GetError() << '\n';
        return 1;
    }

    // Events arrive only while the main loop iterates, so none is missed before this.
    auto operation = connection.GetActiveOperation(uuid.Get()).Get();
    const auto subscription = connection.SubscribeToEvent(
        Emporium::EventType::OperationStatusChanged, [&](const Emporium::Operation& changed) {
            if (changed.GetUUID() == operation.GetUUID()) {
                operation = changed;
                std::cout << changed.GetPackageID() << ": " << static_cast<int>(changed.GetStatus())
                          << '\n';
            }
        });
    while (!IsFinished(operation.GetStatus())) {
        g_main_context_iteration(nullptr, TRUE);
    }
    if (operation.GetStatus() == Common::OperationStatus::Succeeded) {
        return 0;
    }
    const Common::ErrorCodeHelper error(static_cast<int>(operation.GetErrorCode()));
    std::cerr << "failed: " << error.errorCodeAsString() << '\n';
    return 1;
}
