// SPDX-License-Identifier: BSD-3-Clause
//
// An application on a real bus whose `operator new` fails at the n-th call, for every n.

#include "faults/bus_fixture.h"

#include "testing/child_process.h"

#include <algorithm>
#include <fstream>

namespace {

using namespace TestSupport;

/// The tests share the points among them.
constexpr int parts = 4;

class ApplicationWithoutMemory : public BusTest, public testing::WithParamInterface<int>
{
protected:
    ApplicationWithoutMemory()
    {
        const std::string fifo = (directory.Path() / "input").string();
        m_job.emplace(Strings{"/bin/sh", "-c",
                              "mkfifo '" + fifo + "'; echo ready; exec '" + EMPORIUM_MEMORY_JOB +
                                  "' <'" + fifo + "'"});
        m_job->ReadLine();
        m_input.open(fifo);
    }

    /// Prepares the daemon for two operations, and returns the application's answer.
    std::string Run(const std::string& mode, int n)
    {
        simulator.Tell("Reset", "()");
        simulator.Tell("SetReply", "(ss)", "Install", "(('first', 'org.example.new', 0, 0, 0),)");
        simulator.Tell("SetReply", "(ss)", "Install", "(('later', 'org.example.new', 0, 0, 0),)");
        QueueProgress("Start", "first");
        QueueProgress("Restart", "later");
        m_input << mode << ' ' << n << '\n' << std::flush;
        return m_job->ReadLine();
    }

    /// Runs the application for every n of this part until it needs no more than n calls.
    void ExpectNothingWrong(const std::string& mode)
    {
        int terminated = 0;
        int n = GetParam();
        for (std::string answer = "reached"; answer != "done"; n += parts) {
            answer = Run(mode, n);
            ASSERT_FALSE(answer.empty()) << "the application has ended: " << m_job->Errors();
            terminated += answer == "terminated" ? 1 : 0;
            EXPECT_TRUE(answer == "reached" || answer == "done" || answer == "terminated")
                << mode << ' ' << n << ": " << answer;
        }
        std::cout << "to the call " << n - parts
                  << ", of which the bus library ended the process at " << terminated << '\n';
        EXPECT_GT(n, 100) << "the failures do not reach the library";
        EXPECT_LE(terminated, mode == "once" ? 0 : n / parts / 10);
    }

    SimulatorProcess simulator{bus.Address()};

private:
    void QueueProgress(const char* method, const std::string& uuid)
    {
        const auto queue = [&](const char* signal, const std::string& body) {
            simulator.Tell("QueueSignal", "(sss)", method, signal, body.c_str());
        };
        const std::string operation = "(('" + uuid + "', 'org.example.new', 0, ";
        queue("OperationStatusChanged", operation + "10, 0),)");
        queue("PackageInstalled", "(('org.example.new', '1', '', '', @a{sv} {}),)");
        queue("OperationStatusChanged", operation + "100, 0),)");
    }

    std::optional<Emporium::Testing::ChildProcess> m_job;
    std::ofstream m_input;
};

TEST_P(ApplicationWithoutMemory, SurvivesOneFailureAtEachCall)
{
    ExpectNothingWrong("once");
}

TEST_P(ApplicationWithoutMemory, SurvivesFailuresFromEachCallOn)
{
    ExpectNothingWrong("all");
}

INSTANTIATE_TEST_SUITE_P(, ApplicationWithoutMemory, testing::Range(0, parts));

} // namespace
