// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_directory.h"

#include <emporium/testing/error.h>
#include <emporium/testing/session.h>

#include <filesystem>
#include <fstream>

#include <stdlib.h>

namespace Emporium::Testing {

namespace {

/// Constructed before the application first uses the library, so that it is removed after the library
/// has stored its operations.
const std::filesystem::path& CacheHomeAtExit()
{
    static const ::Simulator::PrivateDirectory directory;
    return directory.Path();
}

void SetCacheHome(const std::filesystem::path& path)
{
    setenv("XDG_CACHE_HOME", path.c_str(), 1);
}

} // namespace

Session::Session(const std::string& applicationID, const PrivateBus::Limits& limits)
    : m_bus(limits), m_home(m_bus.Directory() / "home"), m_cacheHome(m_bus.Directory() / "cache")
{
    CacheHomeAtExit();
    std::filesystem::create_directory(m_home);
    std::filesystem::create_directory(m_cacheHome);
    m_environment.Set("DBUS_SESSION_BUS_ADDRESS", m_bus.Address());
    m_environment.Set("HOME", m_home);
    m_environment.Set("VEYRA_APP_ID", applicationID);
    SetCacheHome(m_cacheHome);
}

Session::~Session()
{
    SetCacheHome(CacheHomeAtExit());
}

std::string Session::PackageFile(const std::string& id, const std::string& version) const
{
    const std::filesystem::path path = m_home / (id + ".pkg");
    std::ofstream file(path);
    file << "[Package]\nId=" << id << "\nVersion=" << version
         << "\nDeveloper=developer\nSubgroup=regular\n";
    file.close();
    if (!file) {
        throw Error("cannot write " + path.string());
    }
    return path;
}

} // namespace Emporium::Testing
