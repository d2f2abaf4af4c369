// SPDX-License-Identifier: BSD-3-Clause
#include "fake_proxy.h"
#include "support/output.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace {

using namespace Emporium;
using namespace TestSupport;

class WatchByItself : public ConnectionTest
{
protected:
    void Change(DaemonState state)
    {
        proxy->CurrentDaemonState = state;
        proxy->DaemonStateChanged(state);
    }

    DaemonStateCallback Note()
    {
        return [this](DaemonState state) { states.push_back(state); };
    }

    std::vector<DaemonState> states;
};

using States = std::vector<DaemonState>;

TEST_F(WatchByItself, StartsWithWhatIsKnownAndReportsEachChangeOnce)
{
    proxy->CurrentDaemonState = DaemonState::Present;
    const DaemonWatch watch(Note());
    EXPECT_EQ(watch.State(), DaemonState::Present);
    Change(DaemonState::Present);
    EXPECT_EQ(states, States());
    Change(DaemonState::Absent);
    Change(DaemonState::Absent);
    Change(DaemonState::Present);
    Change(DaemonState::Disconnected);
    EXPECT_EQ(states,
              (States{DaemonState::Absent, DaemonState::Present, DaemonState::Disconnected}));
    EXPECT_EQ(watch.State(), DaemonState::Disconnected);
}

TEST_F(WatchByItself, WithoutABusIsDisconnected)
{
    currentProxy.reset();
    EXPECT_EQ(DaemonWatch(Note()).State(), DaemonState::Disconnected);
}

TEST_F(WatchByItself, HasTheNewStateInsideItsCallback)
{
    std::optional<DaemonWatch> watch;
    std::optional<DaemonState> inside;
    watch.emplace([&](DaemonState) { inside = watch->State(); });
    Change(DaemonState::Present);
    EXPECT_EQ(inside, DaemonState::Present);
}

TEST_F(WatchByItself, EndsWithItsLastCopy)
{
    std::optional<DaemonWatch> watch(Note());
    std::optional<DaemonWatch> copy(watch);
    watch.reset();
    Change(DaemonState::Present);
    EXPECT_EQ(states, (States{DaemonState::Present}));
    copy.reset();
    Change(DaemonState::Absent);
    EXPECT_EQ(states, (States{DaemonState::Present}));
}

TEST_F(WatchByItself, MayBeDestroyedByItsCallback)
{
    std::optional<DaemonWatch> watch;
    int calls = 0;
    const std::string held(1000, 'x');
    watch.emplace([&watch, &calls, held](DaemonState) {
        watch.reset();
        calls += static_cast<int>(held.size());
    });
    Change(DaemonState::Present);
    Change(DaemonState::Absent);
    EXPECT_EQ(calls, 1000);
}

TEST_F(WatchByItself, MayBeDestroyedByTheCallbackOfAnother)
{
    std::optional<DaemonWatch> second;
    const DaemonWatch first([&](DaemonState) { second.reset(); });
    second.emplace(Note());
    Change(DaemonState::Present);
    EXPECT_EQ(states, States());
}

TEST_F(WatchByItself, ManyAreCalledInTheOrderOfTheirConstructionAlsoAfterOneThatThrows)
{
    std::vector<int> called;
    std::vector<DaemonWatch> watches;
    for (int number = 0; number < 100; ++number) {
        watches.emplace_back([&called, number](DaemonState) {
            called.push_back(number);
            if (number % 2 == 0) {
                throw std::runtime_error("from the callback");
            }
        });
    }
    EXPECT_NO_THROW(Change(DaemonState::Present));
    ASSERT_EQ(called.size(), 100U);
    EXPECT_TRUE(std::is_sorted(called.begin(), called.end()));
    EXPECT_EQ(watches.front().State(), DaemonState::Present);
    Change(DaemonState::Absent);
    EXPECT_EQ(called.size(), 200U);
}

TEST_F(WatchByItself, AnExceptionFromACallbackIsLogged)
{
    const DaemonWatch first([](DaemonState) { throw std::runtime_error("reason"); });
    const DaemonWatch second([](DaemonState) { throw 1; });
    EXPECT_EQ(OutputOf([&] { Change(DaemonState::Present); }),
              "[E] The callback of a daemon watch failed (reason)\n"
              "[E] The callback of a daemon watch failed\n");
}

TEST_F(WatchByItself, HasItsStateWithoutACallback)
{
    const DaemonWatch watch(nullptr);
    EXPECT_EQ(OutputOf([&] { Change(DaemonState::Present); }), "");
    EXPECT_EQ(watch.State(), DaemonState::Present);
}

TEST_F(WatchByItself, AWatchThatACallbackCreatesIsNotCalledForTheSameChange)
{
    std::optional<DaemonWatch> inner;
    const DaemonWatch outer([&](DaemonState) {
        if (!inner) {
            inner.emplace(Note());
        }
    });
    Change(DaemonState::Present);
    EXPECT_EQ(states, States());
    EXPECT_EQ(inner->State(), DaemonState::Present);
    Change(DaemonState::Absent);
    EXPECT_EQ(states, (States{DaemonState::Absent}));
}

} // namespace
