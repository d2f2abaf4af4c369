// SPDX-License-Identifier: BSD-3-Clause
#include "package_file.h"

#include "failures.h"
#include "key_file.h"
#include "package_rules.h"

#include <algorithm>
#include <system_error>

namespace Simulator {

using Common::ErrorCode;

namespace {

constexpr std::size_t largestPackageFile = 1U << 20U;

std::string Value(const KeyFile::Group& group, std::string_view key, const std::string& usual)
{
    const KeyFile::Entry* entry = group.Find(key);
    return entry != nullptr ? entry->value : usual;
}

std::uint64_t ReadPayloadSize(const KeyFile& file, const KeyFile::Group& group)
{
    const KeyFile::Entry* entry = group.Find("PayloadSize");
    guint64 size = 0;
    if (entry != nullptr && g_ascii_string_to_unsigned(entry->value.c_str(), 10, 0, G_MAXUINT64,
                                                       &size, nullptr) == FALSE) {
        throw InputError(file.Path(), entry->line, "not a size: " + entry->value);
    }
    return size;
}

PackageFile Read(const std::string& path)
{
    const KeyFile file = KeyFile::Read(path, largestPackageFile);
    if (file.Groups().size() != 1 || file.Groups().front().name != "Package") {
        throw InputError(path, 0, "a package file has the one group [Package]");
    }
    const KeyFile::Group& group = file.Groups().front();
    file.AllowOnly(group,
                   {"Id", "Version", "Architecture", "Developer", "Subgroup", "PayloadSize"});
    PackageFile package;
    package.id = file.Require(group, "Id");
    package.version = file.Require(group, "Version");
    package.architecture = Value(group, "Architecture", package.architecture);
    package.developer = Value(group, "Developer", {});
    package.subgroup = Value(group, "Subgroup", {});
    package.payloadSize = ReadPayloadSize(file, group);
    return package;
}

PackageFile ReadOrRefuse(const std::string& path)
{
    try {
        return Read(path);
    } catch (const std::system_error& error) {
        const bool missing = error.code() == std::errc::no_such_file_or_directory ||
                             error.code() == std::errc::not_a_directory;
        throw BusError(missing ? ErrorCode::FileNotFound : ErrorCode::Filesystem);
    } catch (const InputError& error) {
        g_printerr("emporium-simulator: refused a package: %s\n", error.what());
        throw BusError(ErrorCode::BadPackageFileFormat);
    }
}

} // namespace

void WritePackageFile(const std::string& path, const PackageFile& package)
{
    const std::string text =
        "[Package]\n" + FormatEntry("Id", package.id) + FormatEntry("Version", package.version) +
        FormatEntry("Architecture", package.architecture) +
        FormatEntry("Developer", package.developer) + FormatEntry("Subgroup", package.subgroup) +
        FormatEntry("PayloadSize", std::to_string(package.payloadSize));
    ErrorSlot error;
    if (g_file_set_contents(path.c_str(), text.data(), static_cast<gssize>(text.size()), &error) ==
        FALSE) {
        throw std::runtime_error(error.Message());
    }
}

PackageFile CheckPackageFile(const std::string& path, const Catalogue& catalogue)
{
    PackageFile package = ReadOrRefuse(path);
    if (!IsPackageId(package.id)) {
        throw BusError(ErrorCode::BadPackageID);
    }
    if (!IsPackageVersion(package.version)) {
        throw BusError(ErrorCode::BadPackageVersion);
    }
    if (package.architecture != "noarch" && package.architecture != catalogue.architecture) {
        throw BusError(ErrorCode::BadPackageArchitecture);
    }
    CheckAgainstInstalled(package, catalogue);
    return package;
}

void CheckAgainstInstalled(const PackageFile& package, const Catalogue& catalogue)
{
    const auto installed =
        std::find_if(catalogue.packages.begin(), catalogue.packages.end(),
                     [&package](const Package& other) { return other.id == package.id; });
    if (installed == catalogue.packages.end()) {
        return;
    }
    if (installed->developer != package.developer) {
        throw BusError(ErrorCode::DeveloperMismatch);
    }
    const int order = CompareVersions(package.version, installed->version);
    if (order < 0) {
        throw BusError(ErrorCode::DowngradeAttempt);
    }
    if (order == 0) {
        throw BusError(ErrorCode::SamePackageIsInstalled);
    }
}

Package ToPackage(const PackageFile& file)
{
    GVariantDict data;
    g_variant_dict_init(&data, nullptr);
    g_variant_dict_insert(&data, "Size", "t", guint64{file.payloadSize});
    return {file.id, file.version, file.subgroup, file.developer,
            Variant(g_variant_dict_end(&data))};
}

} // namespace Simulator
