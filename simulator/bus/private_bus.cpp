// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_bus.h"

#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>

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
constexpr std::string_view socketName = "bus";
constexpr std::string_view directoryPattern = "emporium-bus-XXXXXX";

// The bus daemon's limit, a little less than a socket address holds.
constexpr std::size_t longestSocketPath = 99;

bool HasRoomForASocket(const std::filesystem::path& parent)
{
    const std::filesystem::path socket = parent / directoryPattern / socketName;
    return socket.native().size() <= longestSocketPath;
}

// The path of a temporary directory may be longer than that of a socket.
std::filesystem::path NewDirectory()
{
    std::filesystem::path parent = std::filesystem::temp_directory_path();
    if (!HasRoomForASocket(parent)) {
        parent = "/tmp";
    }
    std::string path = parent / directoryPattern;
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("cannot create a directory in " + parent.native() + ": " +
                                 std::generic_category().message(errno));
    }
    return path;
}

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

void RemoveDirectory(const std::filesystem::path& directory)
{
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

// The bus must not outlive this process, even if it is killed.
void DieWithParent(gpointer)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    text.erase(text.find_last_not_of('\n') + 1);
    return text;
}

} // namespace

PrivateBus::PrivateBus(const Limits& limits) : m_directory(NewDirectory())
{
    try {
        WriteConfiguration(m_directory / configurationName, limits);
        Start();
    } catch (...) {
        RemoveDirectory(m_directory);
        throw;
    }
}

void PrivateBus::Start()
{
    const std::filesystem::path file = m_directory / configurationName;
    const TextPtr socket(g_dbus_address_escape_value((m_directory / socketName).c_str()));
    const std::string address = std::string("unix:path=") + socket.get();

    const ObjectPtr<GSubprocessLauncher> launcher(
        g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDOUT_PIPE));
    // A file instead of a pipe: dbus-daemon also warns there about limits that it cannot raise, and
    // nothing reads a pipe while it runs.
    g_subprocess_launcher_set_stderr_file_path(launcher.get(), (m_directory / errorsName).c_str());
    g_subprocess_launcher_set_child_setup(launcher.get(), DieWithParent, nullptr, nullptr);
    ErrorSlot error;
    m_process.reset(g_subprocess_launcher_spawn(
        launcher.get(), &error, "dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
        ("--config-file=" + file.native()).c_str(), ("--address=" + address).c_str(), nullptr));
    if (!m_process) {
        throw std::runtime_error("cannot start dbus-daemon: " + error.Message());
    }
    m_address = ReadAddress();
}

std::string PrivateBus::ReadAddress()
{
    const ObjectPtr<GDataInputStream> stream(
        g_data_input_stream_new(g_subprocess_get_stdout_pipe(m_process.get())));
    const TextPtr line(g_data_input_stream_read_line(stream.get(), nullptr, nullptr, nullptr));
    if (!line) {
        Stop();
        throw std::runtime_error("the private bus does not start: " +
                                 ReadFile(m_directory / errorsName));
    }
    return line.get();
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
    RemoveDirectory(m_directory);
}

} // namespace Simulator
