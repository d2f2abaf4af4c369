// SPDX-License-Identifier: BSD-3-Clause
//
// Lists the installed packages, then installs a package file and follows it to its end.

// README.md shows the lines below as they are.
// clang-format off

#include <emporium/emporium.h>
#include <glib.h>
#include <iostream>

int main(int argc, char** argv)
{
    const auto connection = Emporium::GetDaemonConnection();
    if (!connection || argc < 2) { std::cerr << "no session bus, or no package file\n"; return 1; }
    for (const auto& package : connection.GetPackageList())
        std::cout << package.GetID() << ' ' << package.GetVersion() << '\n';

    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    const auto subscription = connection.SubscribeToEvent(Emporium::EventType::OperationStatusChanged,
        std::function<void(const Emporium::Operation&)>([&](const Emporium::Operation& operation) {
            std::cout << operation.GetPackageID() << ": " << static_cast<int>(operation.GetStatus()) << '\n';
            if (operation.GetStatus() >= Common::OperationStatus::Succeeded) g_main_loop_quit(loop);
        }));
    const auto uuid = connection.CreateOperation(Emporium::OperationRequest::Builder()
        .SetOperationType(Common::OperationType::Install).SetPackagePath(argv[1]).Build());
    if (uuid) g_main_loop_run(loop); else std::cerr << uuid.GetError() << '\n';
    g_main_loop_unref(loop);
}
