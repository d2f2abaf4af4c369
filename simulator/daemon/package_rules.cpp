// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/daemon/package_rules.h"

#include "simulator/bus/bus_error.h"
#include "simulator/bus/variant_builder.h"
#include "simulator/files/input_error.h"
#include "simulator/files/package_syntax.h"
#include "simulator/print_error.h"

#include <algorithm>
#include <string_view>
#include <system_error>

namespace Simulator {

using Common::ErrorCode;

namespace {

std::string_view TakeComponent(std::string_view& rest)
{
    const auto end = rest.find_first_of(".-");
    const std::string_view component = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return component;
}

bool IsNumber(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string_view WithoutZeros(std::string_view number)
{
    const auto first = number.find_first_not_of('0');
    return first == std::string_view::npos ? number.substr(number.size()) : number.substr(first);
}

int CompareNumbers(std::string_view left, std::string_view right)
{
    left = WithoutZeros(left);
    right = WithoutZeros(right);
    if (left.size() != right.size()) {
        return left.size() < right.size() ? -1 : 1;
    }
    return left.compare(right);
}

int CompareDotted(std::string_view left, std::string_view right)
{
    while (!left.empty() && !right.empty()) {
        const std::string_view first = TakeComponent(left);
        const std::string_view second = TakeComponent(right);
        const int order = IsNumber(first) && IsNumber(second) ? CompareNumbers(first, second)
                                                              : first.compare(second);
        if (order != 0) {
            return order;
        }
    }
    return static_cast<int>(!left.empty()) - static_cast<int>(!right.empty());
}

std::string_view Suffix(std::string_view version)
{
    const auto dash = version.find('-');
    return dash == std::string_view::npos ? std::string_view() : version.substr(dash + 1);
}

/// Returns a number less than, equal to or greater than 0 if the left version is older, the same or
/// newer.
int CompareVersions(const std::string& left, const std::string& right)
{
    const auto number = [](const std::string& version) {
        return std::string_view(version).substr(0, version.find('-'));
    };
    if (const int order = CompareDotted(number(left), number(right)); order != 0) {
        return order;
    }
    const std::string_view first = Suffix(left);
    const std::string_view second = Suffix(right);
    // 1.0-rc1 comes before 1.0.
    if (first.empty() != second.empty()) {
        return first.empty() ? 1 : -1;
    }
    return CompareDotted(first, second);
}

PackageFile ReadOrRefuse(const std::string& path)
{
    try {
        return ReadPackageFile(path);
    } catch (const std::system_error& error) {
        const bool missing = error.code() == std::errc::no_such_file_or_directory ||
                             error.code() == std::errc::not_a_directory;
        throw BusError(missing ? ErrorCode::FileNotFound : ErrorCode::Filesystem);
    } catch (const InputError& error) {
        PrintError(std::string("refused a package: ") + error.what());
        throw BusError(ErrorCode::BadPackageFileFormat);
    }
}

} // namespace

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
    DictionaryBuilder data;
    data.Add("Size", Variant(g_variant_new_uint64(file.payloadSize)));
    return {file.id, file.version, file.subgroup, file.developer, data.Finish()};
}

} // namespace Simulator
