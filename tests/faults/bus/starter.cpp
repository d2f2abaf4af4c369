// SPDX-License-Identifier: BSD-3-Clause
//
// An application that starts, prints how far it came, and dispatches the pending events.

#include <emporium/emporium.h>

#include <glib.h>

#include <iostream>

int main()
{
    const auto connection = Emporium::GetDaemonConnection();
    if (connection) {
        std::cout << connection.GetPackageList().size() << " packages\n";
    } else {
        std::cout << "no connection\n";
    }
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    std::cout << "end\n";
}
