// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "glib_ptr.h"

#include <string>

namespace Simulator {

/// A dbus-daemon of our own with its socket in a new temporary directory. Both go with the object.
/// No service is ever started by it.
class PrivateBus
{
public:
    /// @throws std::runtime_error when it cannot be started
    PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;
    ~PrivateBus();

    const std::string& Address() const { return address_; }

private:
    void Start();

    std::string directory_;
    std::string address_;
    ObjectPtr<GSubprocess> process_;
};

} // namespace Simulator
