// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/progress.h"

namespace EmporiumCtl {

/// A line of text for each event.
class LineProgress : public Progress
{
public:
    explicit LineProgress(Output& out) : m_out(out) {}

    void Created(const Task& task) override;
    void Refused(const Task& task, const CallError& error) override;
    void Changed(const Task& task) override;
    void Ended(const Task& task) override;
    void NotKnown(const Task& task, const std::string& reason) override;
    void Continues(const Task& task) override;
    void NotRequested(const Task& task) override;
    void DaemonVanished() override;
    void DaemonAppeared() override;

protected:
    virtual void Print(const std::string& line, Colour colour);
    virtual void PrintError(const std::string& message);

    Output& m_out;
};

} // namespace EmporiumCtl
