// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_bus.h"

#include <sys/prctl.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace Simulator {

namespace {

// The limits are those of a session bus: without them, a large catalogue does not fit a message.
std::string Configuration(const std::string& directory)
{
    return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=)" +
           directory + R"(/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="max_replies_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
</busconfig>
)";
}

std::string NewDirectory()
{
    ErrorSlot error;
    const TextPtr path(g_dir_make_tmp("emporium-bus-XXXXXX", &error));
    if (!path) {
        throw std::runtime_error(error.Message());
    }
    return path.get();
}

// The bus must not outlive us, even if we are killed.
void DieWithParent(gpointer)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

std::string ReadLine(GSubprocess* process)
{
    ErrorSlot error;
    const ObjectPtr<GDataInputStream> stream(
        g_data_input_stream_new(g_subprocess_get_stdout_pipe(process)));
    const TextPtr line(g_data_input_stream_read_line_utf8(stream.get(), nullptr, nullptr, &error));
    if (!line) {
        throw std::runtime_error("the private bus does not start");
    }
    return line.get();
}

} // namespace

PrivateBus::PrivateBus() : m_directory(NewDirectory())
{
    try {
        Start();
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove_all(m_directory, ignored);
        throw;
    }
}

void PrivateBus::Start()
{
    const std::string file = m_directory + "/bus.conf";
    const std::string text = Configuration(m_directory);
    ErrorSlot error;
    if (g_file_set_contents(file.c_str(), text.c_str(), -1, &error) == FALSE) {
        throw std::runtime_error(error.Message());
    }
    // Its standard error is dropped: the bus complains there about limits that it cannot raise.
    const auto flags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                     G_SUBPROCESS_FLAGS_STDERR_SILENCE);
    const ObjectPtr<GSubprocessLauncher> launcher(g_subprocess_launcher_new(flags));
    g_subprocess_launcher_set_child_setup(launcher.get(), DieWithParent, nullptr, nullptr);
    m_process.reset(g_subprocess_launcher_spawn(launcher.get(), &error, "dbus-daemon", "--nofork",
                                                "--nopidfile", "--print-address=1",
                                                ("--config-file=" + file).c_str(), nullptr));
    if (!m_process) {
        throw std::runtime_error("cannot start dbus-daemon: " + error.Message());
    }
    m_address = ReadLine(m_process.get());
}

PrivateBus::~PrivateBus()
{
    g_subprocess_send_signal(m_process.get(), SIGTERM);
    g_subprocess_wait(m_process.get(), nullptr, nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(m_directory, ignored);
}

} // namespace Simulator
