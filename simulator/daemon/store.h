// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/files/catalogue.h"

#include <functional>
#include <string>
#include <utility>

namespace Simulator {

/// The lists of the daemon, saved to a state directory if there is one.
class Store
{
public:
    /// @param stateDirectory where every change is saved; if empty, nothing is saved. A state that
    /// was saved there earlier replaces the catalogue.
    /// @throws InputError when the saved state is damaged
    Store(Catalogue catalogue, const std::string& stateDirectory);

    /// Calls the function with each operation that is added or overwritten.
    void OnOperation(std::function<void(const Operation&)> function)
    {
        m_operationChanged = std::move(function);
    }

    const Catalogue& Lists() const { return m_lists; }
    const Package* FindPackage(const std::string& id) const;

    /// @return whether it replaced a package of the same ID
    bool PutPackage(Package package);
    bool RemovePackage(const std::string& id);
    /// Adds an active operation, or overwrites the one with its UUID.
    void PutActive(const Operation& operation);
    /// Adds a completed operation and removes it from the active ones.
    void PutCompleted(const Operation& operation);
    void Replace(const Catalogue& lists);
    void Reset() { Replace(m_initial); }

    /// The value of the property Packages; cached until the list changes.
    const Variant& PackagesValue();

private:
    void Save();

    Catalogue m_initial;
    Catalogue m_lists;
    std::string m_statePath;
    Variant m_packagesValue;
    std::function<void(const Operation&)> m_operationChanged = [](const Operation&) {};
};

} // namespace Simulator
