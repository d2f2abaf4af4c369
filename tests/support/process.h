// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern "C" char** environ;

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
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        const int failure = posix_spawnp(&m_pid, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(output[1]);
        m_output = output[0];
        if (failure != 0) {
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
    void End(int signal)
    {
        if (m_pid > 0) {
            kill(m_pid, signal);
            Wait();
        }
    }

    pid_t m_pid = -1;
    int m_output = -1;
};

} // namespace TestSupport
