// SPDX-License-Identifier: BSD-3-Clause
#include "client/process_exit.h"

#include <atomic>
#include <unistd.h>

namespace Emporium::ProcessExit {
namespace {

// Needs no destruction, so it can be asked at any time.
constinit std::atomic<bool> begun = false;

/// The main thread's own objects go before any global does, whenever that was made: this is what
/// tells the end in time for globals that are older than the library's statics.
struct MainThreadWitness
{
    ~MainThreadWitness()
    {
        if (::gettid() == ::getpid()) {
            begun = true;
        }
    }
};

/// For a library that is used, and left by exit(), on another thread.
struct StaticWitness
{
    ~StaticWitness() { begun = true; }
};

} // namespace

void Watch()
{
    static const StaticWitness staticWitness;
    thread_local const MainThreadWitness mainThreadWitness;
    // Naming them is what has them made.
    static_cast<void>(staticWitness);
    static_cast<void>(mainThreadWitness);
}

bool HasBegun()
{
    return begun;
}

} // namespace Emporium::ProcessExit
