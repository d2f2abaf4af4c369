// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/json_progress.h"
#include "emporiumctl/line_progress.h"

namespace EmporiumCtl {

// What is shown of operations that are not waited for.

/// The UUIDs, a line for each.
class UuidProgress final : public LineProgress
{
public:
    using LineProgress::LineProgress;

    void Created(const Task& task) override;
    void Changed(const Task& /*task*/) override {}
    void Ended(const Task& /*task*/) override {}
    void Continues(const Task& /*task*/) override {}
};

/// One JSON array, with what became of each target.
class JsonArrayProgress final : public JsonProgress
{
public:
    using JsonProgress::JsonProgress;

    void Changed(const Task& /*task*/) override {}
    void Ended(const Task& /*task*/) override {}
    void Continues(const Task& /*task*/) override {}
    void Close() override;

private:
    void Print(const Json& event) override { m_outcomes.push_back(event); }

    Json m_outcomes = Json::array();
};

} // namespace EmporiumCtl
