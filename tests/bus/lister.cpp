// SPDX-License-Identifier: BSD-3-Clause
//
// An application in a process of its own: lists, runs its main loop for a moment, and tells how
// many threads it has if asked.

#include <emporium/emporium.h>

#include <glib.h>

#include <filesystem>
#include <iostream>
#include <iterator>

int main(int argc, char**)
{
    const auto connection = Emporium::GetDaemonConnection();
    std::cout << connection.GetPackageList().size() << " packages\n";
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    if (argc > 1) {
        const auto threads = std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                           std::filesystem::directory_iterator());
        std::cout << threads << " thread\n";
    }
}
