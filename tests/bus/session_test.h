// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/contract.h"
#include "support/gobject.h"
#include "support/output.h"
#include "support/temporary_directory.h"

#include <emporium/emporium.h>
#include <emporium/testing/testing.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace TestSupport {

using Emporium::Testing::RunUntil;
using Emporium::Testing::RunWhatIsReady;

using Strings = std::vector<std::string>;

/// Gives each test a session of the test kit: its own bus and an application's environment. Each test
/// starts the simulator itself.
class SessionTest : public testing::Test
{
protected:
    explicit SessionTest(const Emporium::Testing::PrivateBus::Limits& limits = {})
        : session("org.example.test", limits)
    {
        session.Variables().Set("EMPORIUM_SIMULATOR", EMPORIUM_SIMULATOR);
        // In the temporary directory itself, whose name a test may choose.
        session.Variables().Set("HOME", directory.Path());
    }

    /// Writes a package file that the simulator accepts, and returns its path.
    std::string PackageFile(const std::string& id) const
    {
        const std::filesystem::path written = session.PackageFile(id);
        std::filesystem::rename(written, directory.Path() / written.filename());
        return directory.Path() / written.filename();
    }

    static Emporium::OperationRequest InstallRequest(const std::string& path)
    {
        return Emporium::OperationRequest::Builder()
            .SetOperationType(Common::OperationType::Install)
            .SetPackagePath(path)
            .Build();
    }

    static Emporium::OperationRequest RemoveRequest(const std::string& id)
    {
        return Emporium::OperationRequest::Builder()
            .SetOperationType(Common::OperationType::Remove)
            .SetPackageID(id)
            .Build();
    }

    TemporaryDirectory directory;
    Emporium::Testing::Session session;
    Emporium::Testing::PrivateBus& bus = session.Bus();
};

} // namespace TestSupport
