// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/variant.h"

#include <string>

namespace Simulator {

/// Builds an array. Releases the added values if the array is never finished.
class ArrayBuilder
{
public:
    /// @param type of the array
    explicit ArrayBuilder(const char* type)
    {
        g_variant_builder_init(&m_builder, G_VARIANT_TYPE(type));
    }
    ArrayBuilder(const ArrayBuilder&) = delete;
    ArrayBuilder& operator=(const ArrayBuilder&) = delete;
    ~ArrayBuilder() { g_variant_builder_clear(&m_builder); }

    void Add(const Variant& value) { g_variant_builder_add_value(&m_builder, value.Get()); }

    Variant Finish() { return Variant(g_variant_builder_end(&m_builder)); }

private:
    GVariantBuilder m_builder;
};

/// Builds an a{sv}; a later value of the same key replaces the earlier one. Releases the added values
/// if the dictionary is never finished.
class DictionaryBuilder
{
public:
    DictionaryBuilder() { g_variant_dict_init(&m_dictionary, nullptr); }
    DictionaryBuilder(const DictionaryBuilder&) = delete;
    DictionaryBuilder& operator=(const DictionaryBuilder&) = delete;
    ~DictionaryBuilder() { g_variant_dict_clear(&m_dictionary); }

    void Add(const std::string& key, const Variant& value)
    {
        g_variant_dict_insert_value(&m_dictionary, key.c_str(), value.Get());
    }

    Variant Finish() { return Variant(g_variant_dict_end(&m_dictionary)); }

private:
    GVariantDict m_dictionary;
};

} // namespace Simulator
