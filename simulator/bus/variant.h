// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <glib.h>

#include <utility>

namespace Simulator {

/// A counted reference to an immutable value of the bus.
class Variant
{
public:
    Variant() = default;
    /// Takes over a floating reference, or one that the caller owns.
    explicit Variant(GVariant* value)
        : m_value(value != nullptr ? g_variant_take_ref(value) : value)
    {
    }
    Variant(const Variant& other)
        : m_value(other.m_value != nullptr ? g_variant_ref(other.m_value) : nullptr)
    {
    }
    Variant(Variant&& other) noexcept : m_value(std::exchange(other.m_value, nullptr)) {}
    Variant& operator=(Variant other) noexcept
    {
        std::swap(m_value, other.m_value);
        return *this;
    }
    ~Variant()
    {
        if (m_value != nullptr) {
            g_variant_unref(m_value);
        }
    }

    GVariant* Get() const { return m_value; }
    explicit operator bool() const { return m_value != nullptr; }

private:
    GVariant* m_value = nullptr;
};

} // namespace Simulator
