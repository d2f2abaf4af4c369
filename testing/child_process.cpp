// SPDX-License-Identifier: BSD-3-Clause
#include "testing/child_process.h"

#include "testing/duration.h"

#include <emporium/testing/error.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Emporium::Testing {

namespace {

/// In the child: only functions that are safe after a fork of a process with threads.
[[noreturn]] void Execute(pid_t parent, char** argv, int output, int errors)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() == parent) { // else it was killed before the request
        dup2(output, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
        execv(argv[0], argv);
        const char* const reason = strerrordesc_np(errno);
        const auto ignored = write(STDERR_FILENO, reason, std::strlen(reason));
        static_cast<void>(ignored);
    }
    _exit(127);
}

bool IsReadable(int descriptor, std::chrono::steady_clock::time_point end)
{
    pollfd input{descriptor, POLLIN, 0};
    int ready = -1;
    do {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        ready = poll(&input, 1, static_cast<int>(Milliseconds(left)));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

/// A pipe, or negative descriptors.
std::array<int, 2> Pipe()
{
    std::array<int, 2> ends{-1, -1};
    static_cast<void>(pipe2(ends.data(), O_CLOEXEC) == 0);
    return ends;
}

} // namespace

ChildProcess::ChildProcess(std::vector<std::string> arguments)
    : ChildProcess(std::move(arguments), Pipe())
{
}

ChildProcess::ChildProcess(std::vector<std::string> arguments, std::array<int, 2> output)
    : m_errors(memfd_create("errors", MFD_CLOEXEC)), m_output(output[0])
{
    const Common::FileDescriptor input(output[1]);
    if (!m_errors || !m_output) {
        throw Error(std::string("cannot start a process: ") + std::strerror(errno));
    }
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const pid_t parent = getpid();
    m_pid = fork();
    if (m_pid == 0) {
        Execute(parent, argv.data(), input.Get(), m_errors.Get());
    }
    if (m_pid < 0) {
        throw Error("cannot start " + arguments[0] + ": " + std::strerror(errno));
    }
}

ChildProcess::~ChildProcess()
{
    End(SIGTERM);
}

std::string ChildProcess::ReadLine(std::chrono::milliseconds deadline)
{
    const auto end = std::chrono::steady_clock::now() + deadline;
    std::string line;
    char character = '\0';
    for (;;) {
        if (!IsReadable(m_output.Get(), end)) {
            throw DeadlineExceeded("no line of output within " + Text(deadline));
        }
        if (read(m_output.Get(), &character, 1) != 1 || character == '\n') {
            return line;
        }
        line += character;
    }
}

void ChildProcess::End(int signal)
{
    if (m_pid <= 0) {
        return;
    }
    kill(m_pid, signal);
    // A suspended process does not handle SIGTERM. Any other one is not continued: the leak check at
    // its end suspends the process itself.
    if (m_suspended) {
        Resume();
    }
    Wait();
}

void ChildProcess::Suspend()
{
    if (m_pid > 0) {
        kill(m_pid, SIGSTOP);
        siginfo_t ignored{};
        waitid(P_PID, static_cast<id_t>(m_pid), &ignored, WSTOPPED | WEXITED | WNOWAIT);
        m_suspended = true;
    }
}

void ChildProcess::Resume()
{
    if (m_pid > 0) {
        kill(m_pid, SIGCONT);
    }
    m_suspended = false;
}

bool ChildProcess::HasEnded() const
{
    siginfo_t state{};
    return m_pid <= 0 ||
           (waitid(P_PID, static_cast<id_t>(m_pid), &state, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            state.si_pid == m_pid);
}

int ChildProcess::Wait()
{
    int status = -1;
    if (m_pid > 0) {
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
        m_pid = -1;
    }
    return status;
}

std::string ChildProcess::Errors() const
{
    std::string text;
    std::array<char, 4096> part{};
    for (ssize_t length = 1; length > 0;) {
        length = pread(m_errors.Get(), part.data(), part.size(), static_cast<off_t>(text.size()));
        text.append(part.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    }
    return text;
}

} // namespace Emporium::Testing
