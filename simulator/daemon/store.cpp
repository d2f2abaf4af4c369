// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/daemon/store.h"

#include "dbus/contract.h"
#include "simulator/bus/variant_builder.h"
#include "simulator/glib_ptr.h"
#include "simulator/print_error.h"

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
    if (directory.empty()) {
        return {};
    }
    if (g_mkdir_with_parents(directory.c_str(), 0700) != 0) {
        throw std::runtime_error("cannot create the state directory " + directory);
    }
    return directory + "/state.catalogue";
}

} // namespace

Store::Store(Catalogue catalogue, const std::string& stateDirectory)
    : m_initial(std::move(catalogue)), m_lists(m_initial), m_statePath(PrepareState(stateDirectory))
{
    if (!m_statePath.empty() && g_file_test(m_statePath.c_str(), G_FILE_TEST_EXISTS) != FALSE) {
        m_lists = ReadCatalogue(m_statePath);
    }
}

const Package* Store::FindPackage(const std::string& id) const
{
    const auto found = std::find_if(m_lists.packages.begin(), m_lists.packages.end(), HasId(id));
    return found != m_lists.packages.end() ? &*found : nullptr;
}

bool Store::PutPackage(Package package)
{
    const auto found =
        std::find_if(m_lists.packages.begin(), m_lists.packages.end(), HasId(package.id));
    const bool upgraded = found != m_lists.packages.end();
    if (upgraded) {
        *found = std::move(package);
    } else {
        m_lists.packages.push_back(std::move(package));
    }
    m_packagesValue = {};
    Save();
    return upgraded;
}

bool Store::RemovePackage(const std::string& id)
{
    if (std::erase_if(m_lists.packages, HasId(id)) == 0) {
        return false;
    }
    m_packagesValue = {};
    Save();
    return true;
}

void Store::PutActive(const Operation& operation)
{
    const auto found =
        std::find_if(m_lists.active.begin(), m_lists.active.end(), HasUuid(operation.uuid));
    if (found != m_lists.active.end()) {
        *found = operation;
    } else {
        m_lists.active.push_back(operation);
    }
    Save();
    m_operationChanged(operation);
}

void Store::PutCompleted(const Operation& operation)
{
    std::erase_if(m_lists.active, HasUuid(operation.uuid));
    std::erase_if(m_lists.completed, HasUuid(operation.uuid));
    m_lists.completed.push_back(operation);
    Save();
    m_operationChanged(operation);
}

void Store::Replace(const Catalogue& lists)
{
    m_lists = lists;
    m_packagesValue = {};
    Save();
}

const Variant& Store::PackagesValue()
{
    if (m_packagesValue) {
        return m_packagesValue;
    }
    ArrayBuilder list(Emporium::Contract::packageRecordArray);
    for (const Package& package : m_lists.packages) {
        list.Add(ToVariant(package));
    }
    m_packagesValue = list.Finish();
    return m_packagesValue;
}

void Store::Save()
{
    if (m_statePath.empty()) {
        return;
    }
    const std::string text = FormatCatalogue(m_lists);
    ErrorSlot error;
    if (g_file_set_contents(m_statePath.c_str(), text.data(), static_cast<gssize>(text.size()),
                            &error) == FALSE) {
        PrintError("cannot save the state: " + error.Message());
    }
}

} // namespace Simulator
