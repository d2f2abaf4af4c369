// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gtk/gtk.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

/// A list model of lines, each with a key. The list view of GTK follows its changes.
class Lines
{
public:
    Lines() : m_model(gtk_string_list_new(nullptr)) {}
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;
    ~Lines() { g_object_unref(m_model); }

    GListModel* Model() const { return G_LIST_MODEL(m_model); }

    void Put(const std::string& key, const std::string& line)
    {
        const guint row = RowOf(key);
        const bool known = row < m_keys.size();
        const char* const added[] = {line.c_str(), nullptr};
        gtk_string_list_splice(m_model, row, known ? 1 : 0, added);
        m_keys.resize(known ? m_keys.size() : row + 1, key);
    }

    void Remove(const std::string& key)
    {
        const guint row = RowOf(key);
        if (row < m_keys.size()) {
            m_keys.erase(m_keys.begin() + row);
            gtk_string_list_remove(m_model, row);
        }
    }

private:
    guint RowOf(const std::string& key) const
    {
        const auto found = std::find(m_keys.begin(), m_keys.end(), key);
        return static_cast<guint>(std::distance(m_keys.begin(), found));
    }

    GtkStringList* m_model;
    std::vector<std::string> m_keys;
};
