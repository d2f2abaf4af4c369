// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/properties.h"

#include "model/result_impl.h"

namespace Emporium {

template class SuccessResult<Properties>;
template class Result<Properties>;

} // namespace Emporium
