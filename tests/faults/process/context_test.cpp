// SPDX-License-Identifier: BSD-3-Clause
//
// An application that has pushed a main context of its own as the default one of its thread.

#include "bus/session_test.h"

namespace {

using namespace Emporium;
using namespace TestSupport;

/// The default context of this thread while this object lives.
class ThreadDefaultContext
{
public:
    ThreadDefaultContext() { g_main_context_push_thread_default(m_context); }
    ThreadDefaultContext(const ThreadDefaultContext&) = delete;
    ThreadDefaultContext& operator=(const ThreadDefaultContext&) = delete;
    ~ThreadDefaultContext()
    {
        g_main_context_pop_thread_default(m_context);
        g_main_context_unref(m_context);
    }

    void RunWhatIsReady() const
    {
        while (g_main_context_iteration(m_context, FALSE)) {
        }
    }

private:
    GMainContext* const m_context = g_main_context_new();
};

class WithAThreadDefaultContext : public SessionTest
{
protected:
    Testing::Simulator simulator{session};
};

TEST_F(WithAThreadDefaultContext, EventsComeInTheGlobalDefaultContextOnly)
{
    const ThreadDefaultContext own;
    const DaemonConnection connection = GetDaemonConnection();
    EXPECT_FALSE(connection.GetPackageList().empty());
    int removed = 0;
    const EventSubscription subscription = connection.SubscribeToEvent(
        EventType::PackageRemoved, PackageCallback([&](const Package&) { ++removed; }));
    simulator.EmitSignal(Testing::Signal::PackageRemoved, Testing::Body("com.sample.notes"));
    // The reply comes after the signal, so the signal has arrived.
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.weather")));
    own.RunWhatIsReady();
    EXPECT_EQ(removed, 0);
    RunUntil([&] { return removed == 1; });
}

TEST_F(WithAThreadDefaultContext, CallsWorkAndEventsComeAlsoAfterItIsGone)
{
    std::optional<ThreadDefaultContext> own;
    own.emplace();
    const DaemonConnection connection = GetDaemonConnection();
    own.reset();
    int removed = 0;
    const EventSubscription subscription = connection.SubscribeToEvent(
        EventType::PackageRemoved, PackageCallback([&](const Package&) { ++removed; }));
    EXPECT_TRUE(static_cast<bool>(connection.Start("com.sample.weather")));
    simulator.EmitSignal(Testing::Signal::PackageRemoved, Testing::Body("com.sample.notes"));
    RunUntil([&] { return removed == 1; });
}

} // namespace
