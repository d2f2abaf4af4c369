// SPDX-License-Identifier: BSD-3-Clause
//
// An application on a real bus whose `operator new` fails at the n-th call, for every n.

#include "bus/session_test.h"

#include "testing/child_process.h"

#include <algorithm>
#include <fstream>

namespace {

using namespace TestSupport;
using namespace Emporium::Testing;

/// The tests share the points among them.
constexpr int parts = 4;

class ApplicationWithoutMemory : public SessionTest, public testing::WithParamInterface<int>
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
        simulator.Reset();
        simulator.SetReply(Method::Install, OperationRecord{"first", "org.example.new"});
        simulator.SetReply(Method::Install, OperationRecord{"later", "org.example.new"});
        QueueProgress(Method::Start, "first");
        QueueProgress(Method::Restart, "later");
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

    Emporium::Testing::Simulator simulator{session};

private:
    void QueueProgress(Method method, const std::string& uuid)
    {
        OperationRecord operation{uuid, "org.example.new"};
        operation.status = static_cast<Common::OperationStatus>(10);
        simulator.QueueSignal(method, Signal::OperationStatusChanged, Body(operation));
        simulator.QueueSignal(method, Signal::PackageInstalled,
                              Body(PackageRecord{"org.example.new"}));
        operation.status = Common::OperationStatus::Succeeded;
        simulator.QueueSignal(method, Signal::OperationStatusChanged, Body(operation));
    }

    std::optional<ChildProcess> m_job;
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
