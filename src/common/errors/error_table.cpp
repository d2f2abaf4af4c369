// SPDX-License-Identifier: BSD-3-Clause
#include "common/errors/error_table.h"

#include <algorithm>

namespace Common {

#define ERROR_ROW(name, message)                                                                   \
    ErrorTableRow                                                                                  \
    {                                                                                              \
        ErrorCode::name, "org.velmora.KVD.Error." #name, message                                   \
    }

constexpr std::array<ErrorTableRow, errorTableSize> errorTable{
    ERROR_ROW(None, "No error occurred"),
    ERROR_ROW(Filesystem, "Filesystem error occurred"),
    ERROR_ROW(Internal, "Internal error occurred"),
    ERROR_ROW(FileNotFound, "The installation package path does not exist"),
    ERROR_ROW(BadPackageID, "The package has an invalid ID"),
    ERROR_ROW(BadPackageArchitecture,
              "The package architecture does not match the system architecture"),
    ERROR_ROW(DowngradeAttempt, "Attempt to downgrade the package"),
    ERROR_ROW(PackageNotExist, "The package does not exist"),
    ERROR_ROW(CorruptedInstalledPackage, "Attempt to retrieve data about a corrupted package"),
    ERROR_ROW(UnauthorizedAccess, "The process is not authorized to perform the action"),
    ERROR_ROW(SystemPackageInstallationAttempt,
              "Attempt to install a package with system developer signature"),
    ERROR_ROW(PackagesWithoutSourceNotAllowed,
              "Installation of packages without a source signature is not allowed"),
    ERROR_ROW(SourceRejectedByAdministrator,
              "The administrator rejected the request to add a source to the trusted list"),
    ERROR_ROW(UserNotAuthorizedToManageTrustedSources,
              "The current user has no rights to add a source to the trusted list"),
    ERROR_ROW(MissingDeveloperSignature, "The package does not have a developer's signature"),
    ERROR_ROW(DeveloperMismatch, "The developer of the already installed package does not match "
                                 "the developer of the package being installed"),
    ERROR_ROW(DeveloperKeySuperseded,
              "The package is signed with a developer key that has been superseded"),
    ERROR_ROW(DeveloperKeyBlacklisted,
              "The package is signed with a developer key that has been blacklisted"),
    ERROR_ROW(IllegalDeveloperCertificate,
              "The package is signed with an illegal developer certificate"),
    ERROR_ROW(IllegalSourceCertificate, "The package is signed with an illegal source certificate"),
    ERROR_ROW(BadPackageVersion, "The package version has an incorrect value"),
    ERROR_ROW(BadPackageContent, "The package did not pass content validation"),
    ERROR_ROW(BadPackageFileFormat,
              "Failed to parse the package or read the required package data"),
    ERROR_ROW(PackageHasDisallowedOrgname, "The package has a disallowed organization name"),
    ERROR_ROW(FileConflict, "File conflict found when installing the package"),
    ERROR_ROW(SamePackageIsInstalled, "Package with the same version is already installed"),
    ERROR_ROW(InvalidArguments, "The passed arguments are not valid"),
    ERROR_ROW(SourceNotAllowed, "Source not allowed by administrator"),
    ERROR_ROW(PackageProfileConflict, "Package with this unique profile is already installed"),
    ERROR_ROW(SignatureVerificationFailed, "Package signature verification failed"),
    ERROR_ROW(DisallowedDeveloperSubgroup,
              "The package has a developer signature with a disallowed subgroup"),
};

#undef ERROR_ROW

namespace {

constexpr bool Less(const ErrorTableRow& left, const ErrorTableRow& right)
{
    return left.code < right.code;
}

static_assert(std::is_sorted(errorTable.begin(), errorTable.end(), Less), "looked up by bisection");

constexpr const ErrorTableRow& internalError = errorTable[2];
static_assert(internalError.code == ErrorCode::Internal);

} // namespace

const ErrorTableRow& FindError(std::int32_t code)
{
    const auto row = std::lower_bound(errorTable.begin(), errorTable.end(), code,
                                      [](const ErrorTableRow& candidate, std::int32_t wanted) {
                                          return static_cast<std::int32_t>(candidate.code) < wanted;
                                      });
    const bool found = row != errorTable.end() && static_cast<std::int32_t>(row->code) == code;
    return found ? *row : internalError;
}

const ErrorTableRow& FindError(std::string_view dbusName)
{
    const auto row =
        std::find_if(errorTable.begin(), errorTable.end(), [&](const ErrorTableRow& candidate) {
            return candidate.dbusName == dbusName;
        });
    return row != errorTable.end() ? *row : internalError;
}

} // namespace Common
