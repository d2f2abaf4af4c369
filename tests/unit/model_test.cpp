// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/operation.h>
#include <emporium/operation_request.h>
#include <emporium/package.h>
#include <emporium/package_filters.h>

#include "support/output.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

using namespace Emporium;
using Common::OperationType;
using TestSupport::MessageOf;

TEST(Package, ADefaultOneIsEmpty)
{
    const Package package;
    EXPECT_EQ(package.GetID(), "");
    EXPECT_EQ(package.GetVersion(), "");
    EXPECT_EQ(package.GetDeveloperCertificateID(), "");
    EXPECT_EQ(package.GetDeveloperCertificateSubgroup(), "");
}

TEST(Package, TheSubgroupComesBeforeTheCertificateID)
{
    const Package package("id", "version", "subgroup", "certificate", {{"key", "value"}});
    EXPECT_EQ(package.GetID(), "id");
    EXPECT_EQ(package.GetVersion(), "version");
    EXPECT_EQ(package.GetDeveloperCertificateSubgroup(), "subgroup");
    EXPECT_EQ(package.GetDeveloperCertificateID(), "certificate");
}

TEST(Package, CopiesShareTheirStrings)
{
    const Package package("id", "version", "subgroup", "certificate", {});
    const Package copy = package;
    EXPECT_EQ(&copy.GetID(), &package.GetID());
    EXPECT_EQ(&copy.GetVersion(), &package.GetVersion());
    EXPECT_EQ(&copy.GetDeveloperCertificateID(), &package.GetDeveloperCertificateID());
    EXPECT_EQ(&copy.GetDeveloperCertificateSubgroup(), &package.GetDeveloperCertificateSubgroup());
}

TEST(PackageFilters, ComparesTheCertificateIDByteForByte)
{
    const auto filter = PackageFilters::DeveloperCertificateID("Dev");
    EXPECT_TRUE(filter(Package("", "", "other", "Dev", {})));
    EXPECT_FALSE(filter(Package("", "", "Dev", "dev", {})));
    EXPECT_FALSE(filter(Package("", "", "Dev", "Dev ", {})));
    EXPECT_FALSE(filter(Package("", "", "Dev", "De", {})));
}

TEST(PackageFilters, ComparesTheSubgroupByteForByte)
{
    const auto filter = PackageFilters::DeveloperCertificateSubgroup("group");
    EXPECT_TRUE(filter(Package("", "", "group", "other", {})));
    EXPECT_FALSE(filter(Package("", "", "Group", "group", {})));
    EXPECT_FALSE(filter(Package("", "", " group", "group", {})));
}

TEST(PackageFilters, AnEmptyTextMatchesAnEmptyField)
{
    EXPECT_TRUE(PackageFilters::DeveloperCertificateID("")(Package()));
    EXPECT_TRUE(PackageFilters::DeveloperCertificateSubgroup("")(Package()));
    EXPECT_FALSE(PackageFilters::DeveloperCertificateID("")(Package("", "", "", "x", {})));
}

TEST(PackageFilters, KeepACopyOfTheirText)
{
    auto text = std::make_unique<std::string>("a text that is too long for the internal buffer");
    const auto byID = PackageFilters::DeveloperCertificateID(*text);
    const auto bySubgroup = PackageFilters::DeveloperCertificateSubgroup(*text);
    const Package package("", "", *text, *text, {});
    text.reset();
    EXPECT_TRUE(byID(package));
    EXPECT_TRUE(bySubgroup(package));
}

TEST(Operation, ADefaultOneIsAnInstallWithStatusZeroAndNoError)
{
    const Operation operation;
    EXPECT_EQ(operation.GetUUID(), "");
    EXPECT_EQ(operation.GetPackageID(), "");
    EXPECT_EQ(operation.GetType(), OperationType::Install);
    EXPECT_EQ(static_cast<int>(operation.GetStatus()), 0);
    EXPECT_EQ(operation.GetErrorCode(), Common::ErrorCode::None);
}

TEST(Operation, KeepsItsFields)
{
    const Operation operation("uuid", "package", OperationType::Remove,
                              static_cast<Common::OperationStatus>(40),
                              Common::ErrorCode::FileConflict);
    EXPECT_EQ(operation.GetUUID(), "uuid");
    EXPECT_EQ(operation.GetPackageID(), "package");
    EXPECT_EQ(operation.GetType(), OperationType::Remove);
    EXPECT_EQ(static_cast<int>(operation.GetStatus()), 40);
    EXPECT_EQ(operation.GetErrorCode(), Common::ErrorCode::FileConflict);
}

TEST(Operation, AnUnknownTypeIsKept)
{
    const Operation operation("", "", static_cast<OperationType>(7), {}, {});
    EXPECT_EQ(static_cast<int>(operation.GetType()), 7);
}

TEST(Operation, CopiesShareTheirStrings)
{
    const Operation operation("uuid", "package", {}, {}, {});
    const Operation copy = operation;
    EXPECT_EQ(&copy.GetUUID(), &operation.GetUUID());
    EXPECT_EQ(&copy.GetPackageID(), &operation.GetPackageID());
    EXPECT_EQ(&copy.GetType(), &operation.GetType());
}

TEST(OperationRequest, ADefaultOneIsAnInstallWithoutTexts)
{
    const OperationRequest request;
    EXPECT_EQ(request.GetOperationType(), OperationType::Install);
    EXPECT_EQ(request.GetPackageID(), "");
    EXPECT_EQ(request.GetPackagePath(), "");
}

TEST(OperationRequest, ChangingACopyChangesTheRequestItWasCopiedFrom)
{
    const OperationRequest request;
    OperationRequest copy = request;
    copy.SetPackagePath("/path");
    copy.SetPackageID("id");
    copy.SetOperationType(OperationType::Remove);
    EXPECT_EQ(request.GetPackagePath(), "/path");
    EXPECT_EQ(request.GetPackageID(), "id");
    EXPECT_EQ(request.GetOperationType(), OperationType::Remove);
}

std::string BuildFailure(const OperationRequest::Builder& builder)
{
    return MessageOf<std::logic_error>([&] { builder.Build(); });
}

TEST(OperationRequestBuilder, WithNothingSetThrows)
{
    EXPECT_EQ(BuildFailure(OperationRequest::Builder()),
              "Attempt to build an operation request but operation type not specified");
}

TEST(OperationRequestBuilder, RemoveWithOnlyAPathThrows)
{
    EXPECT_EQ(BuildFailure(OperationRequest::Builder()
                               .SetOperationType(OperationType::Remove)
                               .SetPackagePath("/path")),
              "Attempt to build an operation request with type OperationType::Remove but package "
              "id not specified");
}

TEST(OperationRequestBuilder, UpgradeWithOnlyAnIDThrows)
{
    EXPECT_EQ(BuildFailure(OperationRequest::Builder()
                               .SetOperationType(OperationType::Upgrade)
                               .SetPackageID("id")),
              "Attempt to build an operation request with type OperationType::Upgrade but package "
              "path not specified");
}

TEST(OperationRequestBuilder, InstallWithOnlyAnIDThrows)
{
    EXPECT_EQ(BuildFailure(OperationRequest::Builder()
                               .SetOperationType(OperationType::Install)
                               .SetPackageID("id")),
              "Attempt to build an operation request with type OperationType::Install but package "
              "path not specified");
}

TEST(OperationRequestBuilder, AnUnknownTypeNeedsAPath)
{
    OperationRequest::Builder builder;
    builder.SetOperationType(static_cast<OperationType>(5)).SetPackageID("id");
    EXPECT_EQ(BuildFailure(builder),
              "Attempt to build an operation request with type OperationType::(Unknown) but "
              "package path not specified");
    const OperationRequest request = builder.SetPackagePath("/path").Build();
    EXPECT_EQ(static_cast<int>(request.GetOperationType()), 5);
    EXPECT_EQ(request.GetPackageID(), "");
    EXPECT_EQ(request.GetPackagePath(), "/path");
}

TEST(OperationRequestBuilder, InstallKeepsThePathAndDropsTheID)
{
    const OperationRequest request = OperationRequest::Builder()
                                         .SetOperationType(OperationType::Install)
                                         .SetPackageID("id")
                                         .SetPackagePath("/path")
                                         .Build();
    EXPECT_EQ(request.GetPackagePath(), "/path");
    EXPECT_EQ(request.GetPackageID(), "");
}

TEST(OperationRequestBuilder, RemoveKeepsTheIDAndDropsThePath)
{
    const OperationRequest request = OperationRequest::Builder()
                                         .SetOperationType(OperationType::Remove)
                                         .SetPackageID("id")
                                         .SetPackagePath("/path")
                                         .Build();
    EXPECT_EQ(request.GetPackageID(), "id");
    EXPECT_EQ(request.GetPackagePath(), "");
}

TEST(OperationRequestBuilder, AnEmptyTextCountsAsSet)
{
    const OperationRequest request = OperationRequest::Builder()
                                         .SetOperationType(OperationType::Remove)
                                         .SetPackageID("")
                                         .Build();
    EXPECT_EQ(request.GetPackageID(), "");
    EXPECT_NO_THROW(OperationRequest::Builder()
                        .SetOperationType(OperationType::Install)
                        .SetPackagePath("")
                        .Build());
}

TEST(OperationRequestBuilder, BuildsSeveralRequestsThatShareNothing)
{
    OperationRequest::Builder builder;
    builder.SetOperationType(OperationType::Install).SetPackagePath("/first");
    const OperationRequest first = builder.Build();
    const OperationRequest second = builder.SetPackagePath("/second").Build();
    EXPECT_EQ(first.GetPackagePath(), "/first");
    EXPECT_EQ(second.GetPackagePath(), "/second");
}

TEST(OperationRequestBuilder, CopiesShareTheirState)
{
    OperationRequest::Builder builder;
    OperationRequest::Builder copy = builder;
    copy.SetOperationType(OperationType::Remove).SetPackageID("id");
    EXPECT_EQ(builder.Build().GetPackageID(), "id");
}

TEST(OperationStatus, OnlySucceededAndFailedAreFinished)
{
    using Common::OperationStatus;
    static_assert(IsFinished(OperationStatus::Succeeded));
    static_assert(IsFinished(OperationStatus::Failed));
    for (const int number : {-100, 0, 1, 99, 102, 1000}) {
        EXPECT_FALSE(IsFinished(static_cast<OperationStatus>(number))) << number;
    }
}

} // namespace
