// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/detached_progress.h"

namespace EmporiumCtl {

void UuidProgress::Created(const Task& task)
{
    Print(task.uuid, Colour::None);
}

void JsonArrayProgress::Close()
{
    JsonProgress::Print(m_outcomes);
}

} // namespace EmporiumCtl
