// SPDX-License-Identifier: BSD-3-Clause
//
// An application that prints the number of packages and dispatches the pending events. With an
// argument, it also prints whether the library changed the state of the process.

#include <emporium/emporium.h>

#include <glib.h>

#include <clocale>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

/// What belongs to the whole process: signal handlers, locale, environment.
std::string ProcessState()
{
    std::string state = std::setlocale(LC_ALL, nullptr);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        struct sigaction action{};
        sigaction(signal, nullptr, &action);
        state += action.sa_handler == SIG_DFL ? 'd' : 'h';
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        state += *variable;
    }
    return state;
}

void List()
{
    const auto connection = Emporium::GetDaemonConnection();
    std::cout << connection.GetPackageList().size() << " packages\n";
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

} // namespace

int main(int argc, char**)
{
    const std::string before = ProcessState();
    List();
    if (argc > 1) {
        const auto threads = std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                                           std::filesystem::directory_iterator());
        std::cout << threads << " thread\n";
        std::cout << (ProcessState() == before ? "nothing changed\n" : "something changed\n");
    }
}
