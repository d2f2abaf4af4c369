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
/// The numbers cross the bus and are stored in cache files. 4, 7, 9 and 12 stay unassigned.
enum class ErrorCode : std::int32_t
{
    None = 0,
    Filesystem = 1,
    Internal = 2,
    FileNotFound = 3,
    BadPackageID = 5,
    BadPackageArchitecture = 6,
    DowngradeAttempt = 8,
    PackageNotExist = 10,
    CorruptedInstalledPackage = 11,
    UnauthorizedAccess = 13,
    SystemPackageInstallationAttempt = 14,
    PackagesWithoutSourceNotAllowed = 15,
    SourceRejectedByAdministrator = 16,
    UserNotAuthorizedToManageTrustedSources = 17,
    MissingDeveloperSignature = 18,
    DeveloperMismatch = 19,
    DeveloperKeySuperseded = 20,
    DeveloperKeyBlacklisted = 21,
    IllegalDeveloperCertificate = 22,
    IllegalSourceCertificate = 23,
    BadPackageVersion = 24,
    BadPackageContent = 25,
    BadPackageFileFormat = 26,
    PackageHasDisallowedOrgname = 27,
    FileConflict = 28,
    SamePackageIsInstalled = 29,
    InvalidArguments = 30,
    SourceNotAllowed = 31,
    PackageProfileConflict = 32,
    SignatureVerificationFailed = 33,
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

    ErrorCodeHelper(const ErrorCodeHelper& other);
    ErrorCodeHelper(ErrorCodeHelper&& other) noexcept;
    ErrorCodeHelper& operator=(const ErrorCodeHelper& other);
    ErrorCodeHelper& operator=(ErrorCodeHelper&& other) noexcept;
    ~ErrorCodeHelper();

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
    Error(std::error_code code, std::string message);

    Error(const Error& other);
    Error& operator=(const Error& other);
    ~Error() override;

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
