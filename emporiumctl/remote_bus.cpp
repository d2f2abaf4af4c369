// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/remote_bus.h"

#include <glib.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <pthread.h>
#include <string_view>
#include <sys/prctl.h>

namespace EmporiumCtl {
namespace {

/// What ssh runs, in quotes because the user's shell there reads it. Not every version of the bridge
/// finds the user's bus by itself, so its address is given, with the usual one as default.
constexpr std::string_view bridge =
    R"('exec systemd-stdio-bridge --user --bus-path="${DBUS_SESSION_BUS_ADDRESS:-)"
    R"(unix:path=${XDG_RUNTIME_DIR:-/run/user/$(id -u)}/bus}"')";

/// As the values in a bus address are written.
std::string AddressValue(std::string_view text)
{
    std::string value;
    for (const char letter : text) {
        if (g_ascii_isalnum(letter) != FALSE ||
            std::string_view("-_/.").find(letter) != std::string_view::npos) {
            value += letter;
        } else {
            std::array<char, 4> escape{};
            std::snprintf(escape.data(), escape.size(), "%%%02x",
                          static_cast<unsigned char>(letter));
            value += escape.data();
        }
    }
    return value;
}

/// Called in each child process; the only one is ssh. While ssh connects, the end of its input does not
/// end it.
void EndWithParent()
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
}

} // namespace

void UseBusOf(const std::string& host)
{
    // -x and -T: no X11 forwarding, no terminal, because the bus protocol is binary.
    const std::string address = "unixexec:path=ssh,argv1=-xT,argv2=--,argv3=" + AddressValue(host) +
                                ",argv4=sh,argv5=-c,argv6=" + AddressValue(bridge);
    pthread_atfork(nullptr, nullptr, EndWithParent);
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    // The cache of this application is about this machine's operations.
    unsetenv("VEYRA_APP_ID");
}

} // namespace EmporiumCtl
