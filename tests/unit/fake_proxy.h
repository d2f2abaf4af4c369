// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/idbus_proxy.h"
#include "support/output.h"
#include "support/temporary_directory.h"

#include <emporium/emporium.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace TestSupport {

class FakeProxy : public Emporium::IDBusProxy
{
public:
    MOCK_METHOD(Emporium::Result<Emporium::Properties>, GetAllProperties, (), (override));
    MOCK_METHOD(Emporium::Result<Emporium::Operation>, Install, (const std::string&), (override));
    MOCK_METHOD(Emporium::Result<Emporium::Operation>, Remove, (const std::string&), (override));
    MOCK_METHOD(Emporium::Result<void>, Start, (const std::string&), (override));
    MOCK_METHOD(Emporium::Result<void>, Restart, (const std::string&), (override));
};

/// What GetDBusProxy() returns in these tests; null means that the bus cannot be reached.
inline std::shared_ptr<Emporium::IDBusProxy> currentProxy;

inline Emporium::Package MakePackage(const std::string& id, const std::string& version = "1.0")
{
    return Emporium::Package(id, version, "subgroup", "certificate", {});
}

inline Emporium::Operation MakeOperation(const std::string& uuid, int status = 10)
{
    return Emporium::Operation(uuid, "package", Common::OperationType::Install,
                               static_cast<Common::OperationStatus>(status),
                               Common::ErrorCode::None);
}

inline Emporium::Result<Emporium::Properties> Snapshot(Emporium::Properties properties)
{
    return Emporium::SuccessResult<Emporium::Properties>(std::move(properties));
}

/// Gives each test a fake proxy and its own cache directory.
class ConnectionTest : public testing::Test
{
protected:
    ConnectionTest()
    {
        setenv("VEYRA_APP_ID", "test.app", 1);
        ON_CALL(*proxy, GetAllProperties).WillByDefault([this] { return Snapshot(properties); });
        currentProxy = proxy;
    }

    ~ConnectionTest() override { currentProxy.reset(); }

    static std::vector<std::string> Contents(const std::vector<Emporium::Package>& packages)
    {
        std::vector<std::string> contents;
        for (const Emporium::Package& package : packages) {
            contents.push_back(package.GetID() + " " + package.GetVersion());
        }
        return contents;
    }

    static std::vector<std::string> Contents(const std::vector<Emporium::Operation>& operations)
    {
        std::vector<std::string> contents;
        for (const Emporium::Operation& operation : operations) {
            contents.push_back(operation.GetUUID() + " " +
                               std::to_string(static_cast<int>(operation.GetStatus())));
        }
        return contents;
    }

    std::filesystem::path CacheDirectory() const
    {
        return cacheHome.Path() / "test.app" / "emporium-api" / "completed-operations";
    }

    CacheHome cacheHome;
    Emporium::Properties properties;
    std::shared_ptr<testing::NiceMock<FakeProxy>> proxy =
        std::make_shared<testing::NiceMock<FakeProxy>>();
};

using Strings = std::vector<std::string>;

} // namespace TestSupport
