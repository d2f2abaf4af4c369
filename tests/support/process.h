// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace TestSupport {

/// A child process whose standard output can be read line by line. Terminates it on destruction.
class Process
{
public:
    explicit Process(std::vector<std::string> arguments)
    {
        int output[2];
        if (pipe2(output, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const pid_t parent = getpid();
        m_pid = fork();
        if (m_pid == 0) {
            Execute(parent, argv.data(), output[1]);
        }
        close(output[1]);
        m_output = output[0];
        if (m_pid < 0) {
            throw std::runtime_error("cannot start " + arguments[0]);
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process()
    {
        Stop();
        close(m_output);
    }

    /// Returns the next line of output, or what remains at the end of the output.
    std::string ReadLine()
    {
        std::string line;
        char character = '\0';
        while (read(m_output, &character, 1) == 1 && character != '\n') {
            line += character;
        }
        return line;
    }

    void Stop() { End(SIGTERM); }
    void Kill() { End(SIGKILL); }

    /// Suspends the process, and returns when it is suspended.
    void Suspend()
    {
        kill(m_pid, SIGSTOP);
        siginfo_t ignored{};
        waitid(P_PID, static_cast<id_t>(m_pid), &ignored, WSTOPPED);
        m_suspended = true;
    }

    void Resume()
    {
        kill(m_pid, SIGCONT);
        m_suspended = false;
    }

    int Wait()
    {
        int status = -1;
        if (m_pid > 0) {
            waitpid(m_pid, &status, 0);
            m_pid = -1;
        }
        return status;
    }

private:
    /// In the child. It ends with a test that is killed, which would not destroy this object: a child
    /// that lived on would keep the test's output open.
    [[noreturn]] static void Execute(pid_t parent, char** argv, int output)
    {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() == parent) { // else it was killed before the request
            dup2(output, STDOUT_FILENO);
            execvp(argv[0], argv);
            std::perror(argv[0]);
        }
        _exit(127);
    }

    void End(int signal)
    {
        if (m_pid > 0) {
            kill(m_pid, signal);
            // A suspended process does not handle SIGTERM. Any other one is not continued: the leak
            // check at its end suspends the process itself.
            if (m_suspended) {
                Resume();
            }
            Wait();
        }
    }

    pid_t m_pid = -1;
    int m_output = -1;
    bool m_suspended = false;
};

} // namespace TestSupport
