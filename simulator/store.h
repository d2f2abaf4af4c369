// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "catalogue.h"

#include <string>

namespace Simulator {

/// The lists of the daemon, and their copy in a state directory if there is one.
class Store
{
public:
    /// @param stateDirectory where every change is kept; empty for nowhere. A state that is there
    /// already takes the place of the catalogue.
    /// @throws InputError when the state that is there is damaged
    Store(Catalogue catalogue, const std::string& stateDirectory);

    const Catalogue& Lists() const { return m_lists; }
    const Package* FindPackage(const std::string& id) const;

    /// @return whether a package of the same ID gave way to it
    bool PutPackage(Package package);
    bool RemovePackage(const std::string& id);
    /// Adds an active operation, or overwrites the one of its UUID.
    void PutActive(const Operation& operation);
    /// Adds a completed operation and removes it from the active ones.
    void PutCompleted(const Operation& operation);
    void Reset();
    void Replace(Catalogue catalogue);

    /// The value of the property Packages, kept until the list changes.
    const Variant& PackagesValue();

private:
    void Save();

    Catalogue m_initial;
    Catalogue m_lists;
    std::string m_statePath;
    Variant m_packagesValue;
};

} // namespace Simulator
