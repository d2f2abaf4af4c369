// SPDX-License-Identifier: BSD-3-Clause
#include "fake_proxy.h"

namespace Emporium {

std::shared_ptr<IDBusProxy> GetDBusProxy()
{
    return TestSupport::currentProxy;
}

} // namespace Emporium
