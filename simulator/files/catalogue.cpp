// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/files/catalogue.h"

#include "simulator/bus/message_body.h"
#include "simulator/bus/variant_builder.h"
#include "simulator/files/input_error.h"
#include "simulator/files/key_file.h"
#include "simulator/files/package_syntax.h"
#include "simulator/files/text_file.h"
#include "simulator/glib_ptr.h"

#include <common/error.h>
#include <common/operation_status.h>

#include <algorithm>
#include <array>
#include <set>
#include <stdexcept>
#include <string_view>

namespace Simulator {

namespace {

constexpr std::size_t largestCatalogue = 512U << 20U;
constexpr std::string_view packagePrefix = "Package ";
constexpr std::string_view operationPrefix = "Operation ";
constexpr std::string_view dataPrefix = "Data.";
constexpr std::int32_t statusSucceeded =
    static_cast<std::int32_t>(Common::OperationStatus::Succeeded);

// The index of each name is its number.
constexpr std::array<std::string_view, 3> typeNames = {"install", "upgrade", "remove"};

class CatalogueReader
{
public:
    explicit CatalogueReader(const std::string& path)
        : m_file(KeyFile::Read(path, largestCatalogue, ReadStream))
    {
    }

    Catalogue Read()
    {
        for (const KeyFile::Group& group : m_file.Groups()) {
            ReadGroup(group);
        }
        return std::move(m_catalogue);
    }

private:
    void ReadGroup(const KeyFile::Group& group)
    {
        if (!m_names.insert(group.name).second) {
            throw InputError(m_file.Path(), group.line,
                             "the group [" + group.name + "] occurs twice");
        }
        if (group.name == "System") {
            ReadSystem(group);
        } else if (group.name.starts_with(packagePrefix)) {
            ReadPackage(group, group.name.substr(packagePrefix.size()));
        } else if (group.name.starts_with(operationPrefix)) {
            ReadOperation(group, group.name.substr(operationPrefix.size()));
        } else {
            throw InputError(m_file.Path(), group.line, "unknown group [" + group.name + "]");
        }
    }

    void ReadSystem(const KeyFile::Group& group)
    {
        m_file.AllowOnly(group, {"Architecture", "VeyraVersion"});
        m_catalogue.architecture = m_file.Require(group, "Architecture");
        m_catalogue.version = m_file.Require(group, "VeyraVersion");
    }

    void ReadPackage(const KeyFile::Group& group, const std::string& id)
    {
        m_file.AllowOnly(group, {"Version", "Subgroup", "Developer"}, dataPrefix);
        if (!IsPackageId(id)) {
            throw InputError(m_file.Path(), group.line, "not a package ID: " + id);
        }
        const std::string& version = m_file.Require(group, "Version");
        if (!IsPackageVersion(version)) {
            throw InputError(m_file.Path(), group.Find("Version")->line,
                             "not a package version: " + version);
        }
        m_catalogue.packages.push_back({id, version, Optional(group, "Subgroup"),
                                        Optional(group, "Developer"), ReadData(group)});
    }

    Variant ReadData(const KeyFile::Group& group)
    {
        DictionaryBuilder data;
        for (const KeyFile::Entry& entry : group.entries) {
            if (entry.key.starts_with(dataPrefix)) {
                data.Add(entry.key.substr(dataPrefix.size()), ReadValue(entry));
            }
        }
        return data.Finish();
    }

    Variant ReadValue(const KeyFile::Entry& entry)
    {
        try {
            return ParseBusValue(entry.value);
        } catch (const std::invalid_argument& error) {
            throw InputError(m_file.Path(), entry.line, error.what());
        }
    }

    void ReadOperation(const KeyFile::Group& group, const std::string& uuid)
    {
        m_file.AllowOnly(group, {"Package", "Type", "Status", "Error"});
        const Operation operation = {uuid, m_file.Require(group, "Package"), ReadType(group),
                                     ReadNumber(group, "Status", statusSucceeded),
                                     ReadNumber(group, "Error", 0)};
        if (!IsFinished(operation)) {
            throw InputError(m_file.Path(), group.Find("Status")->line,
                             "the status of a completed operation is 100 or 101");
        }
        m_catalogue.completed.push_back(operation);
    }

    std::int32_t ReadType(const KeyFile::Group& group)
    {
        const std::string& name = m_file.Require(group, "Type");
        const auto found = std::find(typeNames.begin(), typeNames.end(), name);
        if (found == typeNames.end()) {
            throw InputError(m_file.Path(), group.Find("Type")->line,
                             "the type of an operation is install, upgrade or remove");
        }
        return static_cast<std::int32_t>(found - typeNames.begin());
    }

    std::int32_t ReadNumber(const KeyFile::Group& group, std::string_view key, std::int32_t usual)
    {
        const KeyFile::Entry* entry = group.Find(key);
        if (entry == nullptr) {
            return usual;
        }
        gint64 number = 0;
        if (g_ascii_string_to_signed(entry->value.c_str(), 10, G_MININT32, G_MAXINT32, &number,
                                     nullptr) == FALSE) {
            throw InputError(m_file.Path(), entry->line, "not a number: " + entry->value);
        }
        return static_cast<std::int32_t>(number);
    }

    static std::string Optional(const KeyFile::Group& group, std::string_view key)
    {
        const KeyFile::Entry* entry = group.Find(key);
        return entry != nullptr ? entry->value : std::string();
    }

    KeyFile m_file;
    Catalogue m_catalogue = {"aarch64", "5.1.2", {}, {}, {}};
    std::set<std::string> m_names;
};

Variant Summary(const std::string& text)
{
    DictionaryBuilder data;
    data.Add("Summary", ToVariant(text));
    return data.Finish();
}

// The control interface accepts any values in the lists. Those that the file format cannot express are
// not written, so that a saved state can always be read.
bool IsPlainName(std::string_view name)
{
    return !name.empty() && name.find_first_of("[]=\n\r\t #\\") == std::string_view::npos;
}

bool CanBeWritten(const Package& package)
{
    return IsPackageId(package.id) && IsPackageVersion(package.version);
}

bool CanBeWritten(const Operation& operation)
{
    return IsFinished(operation) && operation.type >= 0 &&
           static_cast<std::size_t>(operation.type) < typeNames.size() &&
           IsPlainName(operation.uuid);
}

std::string FormatPackage(const Package& package)
{
    std::string text = "\n[" + std::string(packagePrefix) + package.id + "]\n";
    text += FormatEntry("Version", package.version);
    text += FormatEntry("Subgroup", package.subgroup);
    text += FormatEntry("Developer", package.developer);
    if (!package.data) {
        return text;
    }
    GVariantIter entries;
    g_variant_iter_init(&entries, package.data.Get());
    const char* key = nullptr;
    GVariant* value = nullptr;
    std::set<std::string> written;
    while (g_variant_iter_next(&entries, "{&sv}", &key, &value) != FALSE) {
        const Variant owned(value);
        if (!IsPlainName(key) || !written.insert(key).second) {
            continue;
        }
        const TextPtr printed(g_variant_print(value, TRUE));
        text += FormatEntry(std::string(dataPrefix) + key, printed.get());
    }
    return text;
}

std::string FormatOperation(const Operation& operation)
{
    const auto type = static_cast<std::size_t>(operation.type);
    std::string text = "\n[" + std::string(operationPrefix) + operation.uuid + "]\n";
    text += FormatEntry("Package", operation.package);
    text += FormatEntry("Type", typeNames[type]);
    text += FormatEntry("Status", std::to_string(operation.status));
    text += FormatEntry("Error", std::to_string(operation.error));
    return text;
}

} // namespace

Catalogue BuiltInCatalogue()
{
    const std::string developer = "3f1c9a52-example-developer";
    return {"aarch64",
            "5.1.2",
            {{"org.example.calculator", "1.2.0", "regular", developer, Summary("Calculator")},
             {"org.example.calendar", "2.0.1", "regular", developer, Summary("Calendar")},
             {"org.example.camera", "3.4.0", "system", "1a2b3c-platform", Summary("Camera")},
             {"org.example.gallery", "3.1.7", "system", "1a2b3c-platform", Summary("Gallery")},
             {"com.sample.weather", "0.9.4", "extended", "77d0-sample", Summary("Weather")},
             {"com.sample.notes", "5.0.0", "regular", "77d0-sample", Summary("Notes")}},
            {},
            {}};
}

Catalogue GeneratedCatalogue(unsigned packages, unsigned dictionaryEntries)
{
    DictionaryBuilder entries;
    for (unsigned i = 0; i < dictionaryEntries; ++i) {
        entries.Add("Key" + std::to_string(i), ToVariant("value " + std::to_string(i)));
    }
    const Variant data = entries.Finish();

    Catalogue catalogue = {"aarch64", "5.1.2", {}, {}, {}};
    catalogue.packages.reserve(packages);
    for (unsigned i = 0; i < packages; ++i) {
        catalogue.packages.push_back({"org.example.package" + std::to_string(i),
                                      "1." + std::to_string(i % 10) + ".0", "regular",
                                      "developer" + std::to_string(i % 100), data});
    }
    return catalogue;
}

Catalogue ReadCatalogue(const std::string& path)
{
    return CatalogueReader(path).Read();
}

std::string FormatCatalogue(const Catalogue& catalogue)
{
    std::string text = "[System]\n" + FormatEntry("Architecture", catalogue.architecture) +
                       FormatEntry("VeyraVersion", catalogue.version);
    for (const Package& package : catalogue.packages) {
        if (CanBeWritten(package)) {
            text += FormatPackage(package);
        }
    }
    std::vector<Operation> operations = catalogue.completed;
    for (Operation operation : catalogue.active) {
        operation.status = static_cast<std::int32_t>(Common::OperationStatus::Failed);
        operation.error = static_cast<std::int32_t>(Common::ErrorCode::Internal);
        operations.push_back(operation);
    }
    std::set<std::string> written;
    for (const Operation& operation : operations) {
        if (CanBeWritten(operation) && written.insert(operation.uuid).second) {
            text += FormatOperation(operation);
        }
    }
    return text;
}

} // namespace Simulator
