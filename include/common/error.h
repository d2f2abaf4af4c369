// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>

#include <cstdint>
#include <string>
#include <system_error>
#include <type_traits>

namespace Common {

/// Why a request to the daemon or the library failed.
///
/// The numbers cross the bus and are stored in cache files; 4, 7, 9 and 12 stay unassigned. Unknown
/// numbers are carried unchanged, so a `switch` over this type needs a default.
enum class ErrorCode : std::int32_t
{
    /// No error occurred.
    None = 0,

    /// Filesystem error occurred.
    Filesystem = 1,

    /// Internal error occurred.
    Internal = 2,

    /// The installation package path does not exist.
    FileNotFound = 3,

    /// The package has an invalid ID.
    BadPackageID = 5,

    /// The package architecture does not match the system architecture.
    BadPackageArchitecture = 6,

    /// Attempt to downgrade the package.
    DowngradeAttempt = 8,

    /// The package does not exist.
    PackageNotExist = 10,

    /// Attempt to retrieve data about a corrupted package.
    CorruptedInstalledPackage = 11,

    /// The process is not authorized to perform the action.
    UnauthorizedAccess = 13,

    /// Attempt to install a package with system developer signature.
    SystemPackageInstallationAttempt = 14,

    /// Installation of packages without a source signature is not allowed.
    PackagesWithoutSourceNotAllowed = 15,

    /// The administrator rejected the request to add a source to the trusted list.
    SourceRejectedByAdministrator = 16,

    /// The current user has no rights to add a source to the trusted list.
    UserNotAuthorizedToManageTrustedSources = 17,

    /// The package does not have a developer's signature.
    MissingDeveloperSignature = 18,

    /// The developer of the already installed package does not match the developer of the package
    /// being installed.
    DeveloperMismatch = 19,

    /// The package is signed with a developer key that has been superseded.
    DeveloperKeySuperseded = 20,

    /// The package is signed with a developer key that has been blacklisted.
    DeveloperKeyBlacklisted = 21,

    /// The package is signed with an illegal developer certificate.
    IllegalDeveloperCertificate = 22,

    /// The package is signed with an illegal source certificate.
    IllegalSourceCertificate = 23,

    /// The package version has an incorrect value.
    BadPackageVersion = 24,

    /// The package did not pass content validation.
    BadPackageContent = 25,

    /// Failed to parse the package or read the required package data.
    BadPackageFileFormat = 26,

    /// The package has a disallowed organization name.
    PackageHasDisallowedOrgname = 27,

    /// File conflict found when installing the package.
    FileConflict = 28,

    /// Package with the same version is already installed.
    SamePackageIsInstalled = 29,

    /// The passed arguments are not valid.
    InvalidArguments = 30,

    /// Source not allowed by administrator.
    SourceNotAllowed = 31,

    /// Package with this unique profile is already installed.
    PackageProfileConflict = 32,

    /// Package signature verification failed.
    SignatureVerificationFailed = 33,

    /// The package has a developer signature with a disallowed subgroup.
    DisallowedDeveloperSubgroup = 34,
};

/// The category of all Common::ErrorCode values, named "Common::ErrorCategory".
///
/// `ErrorCodeCategroty().message(value)` returns the English message of a code; a number without an
/// ErrorCode has the message of ErrorCode::Internal. The spelling of the function's name is part of
/// the interface. May be called from any thread.
EMPORIUM_EXPORT const std::error_category& ErrorCodeCategroty();

/// Returns a standard error code of the category above. May be called from any thread.
EMPORIUM_EXPORT std::error_code make_error_code(ErrorCode code);

/// Converts an error's number into its names, or its bus name into its number.
///
///     Common::ErrorCodeHelper helper(static_cast<int>(operation.GetErrorCode()));
///     std::cerr << helper.errorCodeAsString() << '\n';   // DowngradeAttempt
///
/// Never fails: unknown numbers and names count as ErrorCode::Internal.
class EMPORIUM_EXPORT ErrorCodeHelper
{
public:
    /// From a number. An unassigned number is kept in errorCode(), with the names of
    /// ErrorCode::Internal.
    explicit ErrorCodeHelper(int code);

    /// From a full bus error name, compared byte for byte. errorCodeAsString() then returns `name`
    /// unshortened, and errorCodeAsDBusErrorString() an empty text.
    explicit ErrorCodeHelper(const std::string& name);

    /// @name Copying and moving
    /// @{

    /// Copies are independent.
    ErrorCodeHelper(const ErrorCodeHelper& other);
    ErrorCodeHelper(ErrorCodeHelper&& other) noexcept;
    ErrorCodeHelper& operator=(const ErrorCodeHelper& other);
    ErrorCodeHelper& operator=(ErrorCodeHelper&& other) noexcept;
    ~ErrorCodeHelper();
    /// @}

    /// The code; an unassigned number that the constructor was given is kept.
    ErrorCode errorCode() const;

    /// The bus error name, for example "org.velmora.KVD.Error.DowngradeAttempt". The reference is
    /// valid as long as this object.
    const std::string& errorCodeAsDBusErrorString() const;

    /// The short name, for example "DowngradeAttempt". The reference is valid as long as this object.
    const std::string& errorCodeAsString() const;

private:
    ErrorCode m_code;
    std::string m_dbusErrorName;
    std::string m_shortName;
};

/// Thrown by the filesystem utilities: an error code with a detail message.
///
/// what() is the detail message; code() is the error code, and code().message() its general text.
class EMPORIUM_EXPORT Error : public std::system_error
{
public:
    /// An error with this code, whose what() is `message` alone.
    Error(std::error_code code, std::string message);

    /// @name Copying and moving
    /// @{

    /// Copies are independent.
    Error(const Error& other);
    Error& operator=(const Error& other);
    ~Error() override;
    /// @}

    /// The detail message. Valid as long as this object.
    const char* what() const noexcept override;

private:
    std::string m_message;
};

} // namespace Common

/// Converts an ErrorCode to std::error_code implicitly.
template <>
struct std::is_error_code_enum<Common::ErrorCode> : std::true_type
{
};
