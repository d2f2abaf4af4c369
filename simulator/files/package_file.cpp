// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/files/package_file.h"

#include "simulator/files/input_error.h"
#include "simulator/files/key_file.h"
#include "simulator/files/text_file.h"
#include "simulator/glib_ptr.h"

#include <sys/stat.h>

#include <stdexcept>

namespace Simulator {

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

} // namespace

PackageFile ReadPackageFile(const std::string& path)
{
    const KeyFile file = KeyFile::Read(path, largestPackageFile, ReadTextFile);
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

void WritePackageFile(const std::string& path, const PackageFile& package)
{
    // Writing replaces what has this name: a device or a symbolic link would be lost.
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw InputError(path, 0, "not a regular file");
    }
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

} // namespace Simulator
