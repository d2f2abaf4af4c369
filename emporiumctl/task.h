// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <chrono>
#include <optional>
#include <string>

namespace EmporiumCtl {

/// What the user has asked for, one target of the command line, and what is known of its operation.
struct Task
{
    enum class State
    {
        NotRequested,
        Requested, ///< During the call that creates the operation.
        Lost,      ///< That call was not answered.
        Active,
        Over
    };
    using Clock = std::chrono::steady_clock;

    bool Awaited() const { return state == State::Lost || state == State::Active; }
    bool Failed() const { return last.GetStatus() == Common::OperationStatus::Failed; }
    int Seconds() const
    {
        const auto elapsed = (ended ? *ended : Clock::now()) - began;
        return static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count());
    }

    Common::OperationType type{};
    std::string target;
    std::string uuid; ///< Empty while it is not known.
    State state = State::NotRequested;
    Emporium::Operation last; ///< As it was described last, if it was.
    bool described = false;
    Clock::time_point began = Clock::now();
    std::optional<Clock::time_point> ended;
};

} // namespace EmporiumCtl
