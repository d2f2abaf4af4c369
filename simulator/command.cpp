// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/command.h"

#include "simulator/bus/end_with_parent.h"

#include <cstdlib>
#include <stdexcept>

namespace Simulator {

namespace {

struct ChildSetup
{
    const IgnoredSignals& ignored;
    pid_t parent;
};

void PrepareChild(gpointer data)
{
    const auto* setup = static_cast<const ChildSetup*>(data);
    EndWithParent(setup->parent);
    setup->ignored.Restore();
}

} // namespace

Command::Command(const std::vector<std::string>& arguments, const Environment& environment,
                 const IgnoredSignals& ignored, std::function<void(int status)> ended)
    : m_ended(std::move(ended))
{
    std::vector<const char*> texts;
    texts.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        texts.push_back(argument.c_str());
    }
    texts.push_back(nullptr);
    const ObjectPtr<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDIN_INHERIT));
    for (const auto& [name, value] : environment) {
        g_subprocess_launcher_setenv(launcher.get(), name.c_str(), value.c_str(), TRUE);
    }
    g_subprocess_launcher_unsetenv(launcher.get(), "DBUS_STARTER_ADDRESS");
    g_subprocess_launcher_unsetenv(launcher.get(), "DBUS_STARTER_BUS_TYPE");
    ChildSetup setup = {ignored, getpid()};
    g_subprocess_launcher_set_child_setup(launcher.get(), PrepareChild, &setup, nullptr);
    ErrorSlot error;
    m_process.reset(g_subprocess_launcher_spawnv(launcher.get(), texts.data(), &error));
    if (!m_process) {
        throw std::runtime_error(error.Message());
    }
    g_subprocess_wait_async(m_process.get(), nullptr, Ended, this);
}

bool Command::IsInThisProcessGroup() const
{
    const char* process = g_subprocess_get_identifier(m_process.get());
    return process != nullptr && getpgid(std::atoi(process)) == getpgrp();
}

void Command::Ended(GObject* source, GAsyncResult* result, gpointer data)
{
    GSubprocess* process = G_SUBPROCESS(source);
    g_subprocess_wait_finish(process, result, nullptr);
    const bool exited = g_subprocess_get_if_exited(process) != FALSE;
    static_cast<Command*>(data)->m_ended(exited ? g_subprocess_get_exit_status(process)
                                                : 128 + g_subprocess_get_term_sig(process));
}

} // namespace Simulator
