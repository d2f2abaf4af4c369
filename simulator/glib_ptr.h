// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace Simulator {

template <auto Release>
struct Releaser
{
    template <typename T>
    void operator()(T* pointer) const
    {
        Release(pointer);
    }
};

template <typename T>
using ObjectPtr = std::unique_ptr<T, Releaser<g_object_unref>>;
using TextPtr = std::unique_ptr<char, Releaser<g_free>>;
using LoopPtr = std::unique_ptr<GMainLoop, Releaser<g_main_loop_unref>>;
using NodeInfoPtr = std::unique_ptr<GDBusNodeInfo, Releaser<g_dbus_node_info_unref>>;

/// Receives a GError and frees it.
class ErrorSlot
{
public:
    ErrorSlot() = default;
    ErrorSlot(const ErrorSlot&) = delete;
    ErrorSlot& operator=(const ErrorSlot&) = delete;
    ~ErrorSlot() { g_clear_error(&m_error); }

    GError** operator&() { return &m_error; }
    const GError* Get() const { return m_error; }
    std::string Message() const { return m_error != nullptr ? m_error->message : "unknown error"; }

private:
    GError* m_error = nullptr;
};

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

    static Variant Share(GVariant* value) { return Variant(g_variant_ref(value)); }

    GVariant* Get() const { return m_value; }
    explicit operator bool() const { return m_value != nullptr; }

private:
    GVariant* m_value = nullptr;
};

/// Calls the function once, from the main loop.
inline guint RunLater(guint milliseconds, std::function<void()> function)
{
    using Function = std::function<void()>;
    auto call = [](gpointer data) -> gboolean {
        (*static_cast<Function*>(data))();
        return G_SOURCE_REMOVE;
    };
    auto destroy = [](gpointer data) {
        std::default_delete<Function>()(static_cast<Function*>(data));
    };
    auto owned = std::make_unique<Function>(std::move(function));
    return g_timeout_add_full(G_PRIORITY_DEFAULT, milliseconds, call, owned.release(), destroy);
}

/// At most one pending call; it is dropped with the timer.
class Timer
{
public:
    Timer() = default;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;
    ~Timer() { Stop(); }

    void Start(guint milliseconds, std::function<void()> function)
    {
        Stop();
        m_source = RunLater(milliseconds, [this, function = std::move(function)] {
            m_source = 0;
            function();
        });
    }

    void Stop()
    {
        if (m_source != 0) {
            g_source_remove(std::exchange(m_source, 0U));
        }
    }

    bool IsPending() const { return m_source != 0; }

private:
    guint m_source = 0;
};

} // namespace Simulator
