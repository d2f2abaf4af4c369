// SPDX-License-Identifier: BSD-3-Clause
#include "store.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Simulator {

namespace {

auto HasId(const std::string& id)
{
    return [&id](const Package& package) { return package.id == id; };
}

auto HasUuid(const std::string& uuid)
{
    return [&uuid](const Operation& operation) { return operation.uuid == uuid; };
}

std::string PrepareState(const std::string& directory)
{
    if (directory.empty())
        return {};
    if (g_mkdir_with_parents(directory.c_str(), 0700) != 0)
        throw std::runtime_error("cannot create the state directory " + directory);
    return directory + "/state.catalogue";
}

} // namespace

Store::Store(Catalogue catalogue, const std::string& stateDirectory)
    : initial_(std::move(catalogue)), lists_(initial_), statePath_(PrepareState(stateDirectory))
{
    if (!statePath_.empty() && g_file_test(statePath_.c_str(), G_FILE_TEST_EXISTS) != FALSE)
        lists_ = ReadCatalogue(statePath_);
}

const Package* Store::FindPackage(const std::string& id) const
{
    const auto found = std::find_if(lists_.packages.begin(), lists_.packages.end(), HasId(id));
    return found != lists_.packages.end() ? &*found : nullptr;
}

bool Store::PutPackage(Package package)
{
    const auto found =
        std::find_if(lists_.packages.begin(), lists_.packages.end(), HasId(package.id));
    const bool upgraded = found != lists_.packages.end();
    if (upgraded)
        *found = std::move(package);
    else
        lists_.packages.push_back(std::move(package));
    packagesValue_ = {};
    Save();
    return upgraded;
}

bool Store::RemovePackage(const std::string& id)
{
    if (std::erase_if(lists_.packages, HasId(id)) == 0)
        return false;
    packagesValue_ = {};
    Save();
    return true;
}

void Store::PutActive(const Operation& operation)
{
    const auto found =
        std::find_if(lists_.active.begin(), lists_.active.end(), HasUuid(operation.uuid));
    if (found != lists_.active.end())
        *found = operation;
    else
        lists_.active.push_back(operation);
    Save();
}

void Store::PutCompleted(const Operation& operation)
{
    std::erase_if(lists_.active, HasUuid(operation.uuid));
    std::erase_if(lists_.completed, HasUuid(operation.uuid));
    lists_.completed.push_back(operation);
    Save();
}

void Store::Reset()
{
    lists_ = initial_;
    packagesValue_ = {};
    Save();
}

void Store::Replace(Catalogue catalogue)
{
    initial_ = std::move(catalogue);
    Reset();
}

const Variant& Store::PackagesValue()
{
    if (packagesValue_)
        return packagesValue_;
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("a(ssssa{sv})"));
    for (const Package& package : lists_.packages)
        g_variant_builder_add_value(&list, ToVariant(package).Get());
    packagesValue_ = Variant(g_variant_builder_end(&list));
    return packagesValue_;
}

void Store::Save()
{
    if (statePath_.empty())
        return;
    const std::string text = FormatCatalogue(lists_);
    ErrorSlot error;
    if (g_file_set_contents(statePath_.c_str(), text.data(), static_cast<gssize>(text.size()),
                            &error) == FALSE)
        g_printerr("emporium-simulator: cannot keep the state: %s\n", error.Message().c_str());
}

} // namespace Simulator
