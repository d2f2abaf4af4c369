// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/package_file.h"

#include <charconv>
#include <vector>

namespace Simulator {
namespace {

using Common::ErrorCode;

constexpr const char* group = "Package";

/// False if the key is missing or no text.
bool ReadText(GKeyFile* file, const char* key, std::string& text)
{
    const Owned<char> value(g_key_file_get_string(file, group, key, nullptr));
    if (!value) {
        return false;
    }
    text = value.get();
    return true;
}

bool IsValidID(const std::string& id)
{
    return id.size() <= 255 &&
           g_regex_match_simple("^[A-Za-z][A-Za-z0-9_-]*(\\.[A-Za-z0-9_-]+)+$", id.c_str(),
                                G_REGEX_DOLLAR_ENDONLY, G_REGEX_MATCH_DEFAULT);
}

bool IsValidVersion(const std::string& version)
{
    return g_regex_match_simple("^[0-9]{1,9}(\\.[0-9]{1,9})*$", version.c_str(),
                                G_REGEX_DOLLAR_ENDONLY, G_REGEX_MATCH_DEFAULT);
}

std::vector<int> Numbers(const std::string& version)
{
    std::vector<int> numbers;
    const char* position = version.data();
    const char* const end = position + version.size();
    while (position < end) {
        int number = 0;
        const auto [next, failure] = std::from_chars(position, end, number);
        if (failure != std::errc()) {
            break;
        }
        numbers.push_back(number);
        position = next + 1;
    }
    return numbers;
}

} // namespace

std::string WritePackageFile(const std::string& path, const PackageFile& package)
{
    const Owned<GKeyFile> file(g_key_file_new());
    g_key_file_set_string(file.get(), group, "ID", package.id.c_str());
    g_key_file_set_string(file.get(), group, "Version", package.version.c_str());
    g_key_file_set_string(file.get(), group, "Architecture", package.architecture.c_str());
    g_key_file_set_string(file.get(), group, "DeveloperCertificateID",
                          package.certificateID.c_str());
    g_key_file_set_string(file.get(), group, "DeveloperCertificateSubgroup",
                          package.subgroup.c_str());
    g_key_file_set_integer(file.get(), group, "PayloadSize", package.payloadSize);
    std::string failure;
    g_key_file_save_to_file(file.get(), path.c_str(), Failure(failure));
    return failure;
}

std::variant<PackageFile, ErrorCode> ReadPackageFile(const std::string& path)
{
    if (!g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR)) {
        return ErrorCode::FileNotFound;
    }
    const Owned<GKeyFile> file(g_key_file_new());
    PackageFile package;
    if (!g_key_file_load_from_file(file.get(), path.c_str(), G_KEY_FILE_NONE, nullptr) ||
        !ReadText(file.get(), "ID", package.id) ||
        !ReadText(file.get(), "Version", package.version) ||
        !ReadText(file.get(), "Architecture", package.architecture) ||
        !ReadText(file.get(), "DeveloperCertificateID", package.certificateID) ||
        !ReadText(file.get(), "DeveloperCertificateSubgroup", package.subgroup)) {
        return ErrorCode::BadPackageFileFormat;
    }
    if (!IsValidID(package.id)) {
        return ErrorCode::BadPackageID;
    }
    if (!IsValidVersion(package.version)) {
        return ErrorCode::BadPackageVersion;
    }
    return package;
}

ErrorCode CheckPackage(const PackageFile& package, State& state)
{
    if (package.architecture != "noarch" && package.architecture != state.architecture) {
        return ErrorCode::BadPackageArchitecture;
    }
    const PackageRecord* const installed = state.FindPackage(package.id);
    if (installed == nullptr) {
        return ErrorCode::None;
    }
    if (installed->certificateID != package.certificateID) {
        return ErrorCode::DeveloperMismatch;
    }
    const std::vector<int> present = Numbers(installed->version);
    const std::vector<int> offered = Numbers(package.version);
    if (offered == present) {
        return ErrorCode::SamePackageIsInstalled;
    }
    return offered < present ? ErrorCode::DowngradeAttempt : ErrorCode::None;
}

} // namespace Simulator
