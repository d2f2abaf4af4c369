// SPDX-License-Identifier: BSD-3-Clause
#include <common/error.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

namespace {

using Common::ErrorCode;
using Common::ErrorCodeHelper;

struct Row
{
    int number;
    const char* name;
    const char* message;
};

// Repeated on purpose, so that the library's table is not compared with itself.
const std::array<Row, 31> rows{{
    {0, "None", "No error occurred"},
    {1, "Filesystem", "Filesystem error occurred"},
    {2, "Internal", "Internal error occurred"},
    {3, "FileNotFound", "The installation package path does not exist"},
    {5, "BadPackageID", "The package has an invalid ID"},
    {6, "BadPackageArchitecture",
     "The package architecture does not match the system architecture"},
    {8, "DowngradeAttempt", "Attempt to downgrade the package"},
    {10, "PackageNotExist", "The package does not exist"},
    {11, "CorruptedInstalledPackage", "Attempt to retrieve data about a corrupted package"},
    {13, "UnauthorizedAccess", "The process is not authorized to perform the action"},
    {14, "SystemPackageInstallationAttempt",
     "Attempt to install a package with system developer signature"},
    {15, "PackagesWithoutSourceNotAllowed",
     "Installation of packages without a source signature is not allowed"},
    {16, "SourceRejectedByAdministrator",
     "The administrator rejected the request to add a source to the trusted list"},
    {17, "UserNotAuthorizedToManageTrustedSources",
     "The current user has no rights to add a source to the trusted list"},
    {18, "MissingDeveloperSignature", "The package does not have a developer's signature"},
    {19, "DeveloperMismatch",
     "The developer of the already installed package does not match the developer of the package "
     "being installed"},
    {20, "DeveloperKeySuperseded",
     "The package is signed with a developer key that has been superseded"},
    {21, "DeveloperKeyBlacklisted",
     "The package is signed with a developer key that has been blacklisted"},
    {22, "IllegalDeveloperCertificate",
     "The package is signed with an illegal developer certificate"},
    {23, "IllegalSourceCertificate", "The package is signed with an illegal source certificate"},
    {24, "BadPackageVersion", "The package version has an incorrect value"},
    {25, "BadPackageContent", "The package did not pass content validation"},
    {26, "BadPackageFileFormat", "Failed to parse the package or read the required package data"},
    {27, "PackageHasDisallowedOrgname", "The package has a disallowed organization name"},
    {28, "FileConflict", "File conflict found when installing the package"},
    {29, "SamePackageIsInstalled", "Package with the same version is already installed"},
    {30, "InvalidArguments", "The passed arguments are not valid"},
    {31, "SourceNotAllowed", "Source not allowed by administrator"},
    {32, "PackageProfileConflict", "Package with this unique profile is already installed"},
    {33, "SignatureVerificationFailed", "Package signature verification failed"},
    {34, "DisallowedDeveloperSubgroup",
     "The package has a developer signature with a disallowed subgroup"},
}};

std::string BusName(const Row& row)
{
    return std::string("org.velmora.KVD.Error.") + row.name;
}

TEST(ErrorCode, EveryNumberHasItsBusNameAndItsShortName)
{
    for (const Row& row : rows) {
        const ErrorCodeHelper helper(row.number);
        EXPECT_EQ(static_cast<int>(helper.errorCode()), row.number);
        EXPECT_EQ(helper.errorCodeAsDBusErrorString(), BusName(row));
        EXPECT_EQ(helper.errorCodeAsString(), row.name);
    }
}

TEST(ErrorCode, EveryBusNameHasItsNumber)
{
    for (const Row& row : rows) {
        EXPECT_EQ(static_cast<int>(ErrorCodeHelper(BusName(row)).errorCode()), row.number)
            << row.name;
    }
}

TEST(ErrorCode, EveryNumberHasItsMessage)
{
    for (const Row& row : rows) {
        EXPECT_EQ(Common::ErrorCodeCategroty().message(row.number), row.message);
    }
}

TEST(ErrorCode, AGapInTheNumberingKeepsItsNumberAndHasTheNamesOfInternal)
{
    for (const int hole : {4, 7, 9, 12}) {
        const ErrorCodeHelper helper(hole);
        EXPECT_EQ(static_cast<int>(helper.errorCode()), hole);
        EXPECT_EQ(helper.errorCodeAsDBusErrorString(), "org.velmora.KVD.Error.Internal");
        EXPECT_EQ(helper.errorCodeAsString(), "Internal");
    }
}

TEST(ErrorCode, ANumberOutOfRangeKeepsItsNumberAndHasTheNamesOfInternal)
{
    for (const int number : {-1, 35, 99, 2147483647}) {
        const ErrorCodeHelper helper(number);
        EXPECT_EQ(static_cast<int>(helper.errorCode()), number);
        EXPECT_EQ(helper.errorCodeAsString(), "Internal");
    }
}

TEST(ErrorCode, FileConflictHasNumber28)
{
    const ErrorCodeHelper helper(28);
    EXPECT_EQ(helper.errorCodeAsDBusErrorString(), "org.velmora.KVD.Error.FileConflict");
    EXPECT_EQ(helper.errorCodeAsString(), "FileConflict");
}

TEST(ErrorCode, AHelperConstructedFromANameKeepsTheWholeNameAndHasNoBusName)
{
    const ErrorCodeHelper helper(std::string("org.velmora.KVD.Error.DowngradeAttempt"));
    EXPECT_EQ(static_cast<int>(helper.errorCode()), 8);
    EXPECT_EQ(helper.errorCodeAsString(), "org.velmora.KVD.Error.DowngradeAttempt");
    EXPECT_EQ(helper.errorCodeAsDBusErrorString(), "");
}

TEST(ErrorCode, ANameThatIsNotExactlyABusNameIsInternal)
{
    for (const char* name :
         {"", "BadPackageID", "org.velmora.KVD.Error.badpackageid",
          "org.velmora.KVD.Error.BadPackageID ", "org.velmora.KVD.Error.", "Internal"}) {
        const ErrorCodeHelper helper{std::string(name)};
        EXPECT_EQ(helper.errorCode(), ErrorCode::Internal) << name;
        EXPECT_EQ(helper.errorCodeAsString(), name);
    }
}

TEST(ErrorCategory, HasItsName)
{
    EXPECT_STREQ(Common::ErrorCodeCategroty().name(), "Common::ErrorCategory");
}

TEST(ErrorCategory, AnUnknownNumberHasTheMessageOfInternal)
{
    EXPECT_EQ(Common::ErrorCodeCategroty().message(-1), "Internal error occurred");
    EXPECT_EQ(Common::ErrorCodeCategroty().message(99), "Internal error occurred");
    EXPECT_EQ(Common::ErrorCodeCategroty().message(4), "Internal error occurred");
    EXPECT_EQ(Common::ErrorCodeCategroty().message(0), "No error occurred");
}

TEST(ErrorCategory, IsOneObject)
{
    EXPECT_EQ(&Common::ErrorCodeCategroty(), &Common::ErrorCodeCategroty());
}

TEST(ErrorCategory, AStandardErrorCodeHasTheNumberAndTheCategory)
{
    const std::error_code code = Common::make_error_code(ErrorCode::BadPackageID);
    EXPECT_EQ(code.value(), 5);
    EXPECT_STREQ(code.category().name(), "Common::ErrorCategory");
    EXPECT_EQ(code.message(), "The package has an invalid ID");
}

TEST(ErrorCategory, AnErrorCodeConvertsImplicitly)
{
    const std::error_code code = ErrorCode::FileConflict;
    EXPECT_EQ(code, Common::make_error_code(ErrorCode::FileConflict));
}

TEST(Error, HasItsDetailAndItsCode)
{
    try {
        throw Common::Error(Common::make_error_code(ErrorCode::Filesystem), "a detail");
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(), "a detail");
        EXPECT_EQ(error.code().value(), 1);
        EXPECT_EQ(error.code().message(), "Filesystem error occurred");
    }
}

TEST(Error, ACopyHasTheSameDetailAndCode)
{
    const Common::Error error(Common::make_error_code(ErrorCode::Internal), "");
    const Common::Error copy = error;
    EXPECT_STREQ(copy.what(), "");
    EXPECT_EQ(copy.code(), error.code());
}

} // namespace
