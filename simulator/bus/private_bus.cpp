// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_bus.h"

#include "simulator/bus/end_with_parent.h"

#include <gio/gunixinputstream.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>

namespace Simulator {

namespace {

// The limits are those of a session bus: with the default limits, a large catalogue does not fit in a
// message. The address comes from the command line, but without <listen> dbus-daemon refuses the file.
constexpr std::string_view configuration =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=/tmp</listen>
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
)";
constexpr std::string_view endOfConfiguration = "</busconfig>\n";
constexpr const char* configurationName = "bus.conf";
constexpr const char* errorsName = "bus.errors";
constexpr const char* socketName = "bus";

// Of two limits with the same name, the later one counts.
void WriteConfiguration(const std::filesystem::path& path, const PrivateBus::Limits& limits)
{
    std::ofstream file(path);
    file << configuration;
    for (const auto& [name, value] : limits) {
        file << "  <limit name=\"" << name << "\">" << value << "</limit>\n";
    }
    file << endOfConfiguration;
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

void PrepareChild(gpointer parent)
{
    setpgid(0, 0);
    EndWithParent(GPOINTER_TO_INT(parent));
}

} // namespace

PrivateBus::PrivateBus(const Limits& limits, int interrupt)
{
    WriteConfiguration(Directory() / configurationName, limits);
    Start(interrupt);
}

void PrivateBus::Start(int interrupt)
{
    const std::filesystem::path& directory = Directory();
    const std::filesystem::path file = directory / configurationName;
    const TextPtr socket(g_dbus_address_escape_value((directory / socketName).c_str()));
    const std::string address = std::string("unix:path=") + socket.get();

    const ObjectPtr<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE));
    // A file instead of a pipe: dbus-daemon also warns there about limits that it cannot raise, and
    // nothing reads a pipe while it runs.
    g_subprocess_launcher_set_stderr_file_path(launcher.get(), (directory / errorsName).c_str());
    g_subprocess_launcher_set_child_setup(launcher.get(), PrepareChild, GINT_TO_POINTER(getpid()),
                                          nullptr);
    ErrorSlot error;
    m_process.reset(g_subprocess_launcher_spawn(
        launcher.get(), &error, "dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
        ("--config-file=" + file.native()).c_str(), ("--address=" + address).c_str(), nullptr));
    if (!m_process) {
        throw std::runtime_error("cannot start dbus-daemon: " + error.Message());
    }
    try {
        m_address = ReadAddress(interrupt);
    } catch (...) {
        g_subprocess_force_exit(m_process.get());
        g_subprocess_wait(m_process.get(), nullptr, nullptr);
        throw;
    }
}

std::string PrivateBus::ReadAddress(int interrupt)
{
    const int output = g_unix_input_stream_get_fd(
        G_UNIX_INPUT_STREAM(g_subprocess_get_stdout_pipe(m_process.get())));
    std::string address;
    for (;;) {
        pollfd descriptors[] = {{output, POLLIN, 0}, {interrupt, POLLIN, 0}};
        if (poll(descriptors, std::size(descriptors), -1) < 0) {
            continue; // EINTR
        }
        if (descriptors[1].revents != 0) {
            throw Interrupted("interrupted while the private bus started");
        }
        char letter = '\0';
        if (read(output, &letter, 1) != 1) {
            throw std::runtime_error("the private bus does not start: " +
                                     ReadFile(Directory() / errorsName));
        }
        if (letter == '\n') {
            return address;
        }
        address += letter;
    }
}

void PrivateBus::Suspend()
{
    const char* const id = g_subprocess_get_identifier(m_process.get());
    if (id != nullptr) {
        Send(SIGSTOP);
        siginfo_t ignored{};
        waitid(P_PID, static_cast<id_t>(std::stoi(id)), &ignored, WSTOPPED);
    }
}

void PrivateBus::Send(int signal)
{
    g_subprocess_send_signal(m_process.get(), signal);
}

void PrivateBus::End(int signal)
{
    Send(signal);
    Resume(); // a suspended process does not handle SIGTERM
    g_subprocess_wait(m_process.get(), nullptr, nullptr);
}

PrivateBus::~PrivateBus()
{
    Stop();
}

} // namespace Simulator
