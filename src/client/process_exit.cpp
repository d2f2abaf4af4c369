// SPDX-License-Identifier: BSD-3-Clause
#include "client/process_exit.h"

#include <atomic>
#include <unistd.h>

namespace Emporium::ProcessExit {
namespace {

// Trivially destructible: safe to read during static destruction.
constinit std::atomic<bool> begun = false;

/// Thread-local objects of the main thread are destroyed before any global. So this one notices the
/// exit in time even for globals that are older than the library's statics.
struct MainThreadWitness
{
    ~MainThreadWitness()
    {
        if (::gettid() == ::getpid()) {
            begun = true;
        }
    }
};

/// Notices the exit where another thread uses the library and calls exit().
struct StaticWitness
{
    ~StaticWitness() { begun = true; }
};

} // namespace

void Watch()
{
    static const StaticWitness staticWitness;
    thread_local const MainThreadWitness mainThreadWitness;
    // A thread-local object is constructed when it is first named.
    static_cast<void>(staticWitness);
    static_cast<void>(mainThreadWitness);
}

bool HasBegun()
{
    return begun;
}

} // namespace Emporium::ProcessExit
