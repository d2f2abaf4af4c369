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
    ~ErrorSlot() { g_clear_error(&error_); }

    GError** operator&() { return &error_; }
    const GError* Get() const { return error_; }
    std::string Message() const { return error_ != nullptr ? error_->message : "unknown error"; }

private:
    GError* error_ = nullptr;
};

/// A counted reference to an immutable value of the bus.
class Variant
{
public:
    Variant() = default;
    /// Takes over a floating reference, or one that the caller owns.
    explicit Variant(GVariant* value) : value_(value != nullptr ? g_variant_take_ref(value) : value)
    {
    }
    Variant(const Variant& other)
        : value_(other.value_ != nullptr ? g_variant_ref(other.value_) : nullptr)
    {
    }
    Variant(Variant&& other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
    Variant& operator=(Variant other) noexcept
    {
        std::swap(value_, other.value_);
        return *this;
    }
    ~Variant()
    {
        if (value_ != nullptr)
            g_variant_unref(value_);
    }

    static Variant Share(GVariant* value) { return Variant(g_variant_ref(value)); }

    GVariant* Get() const { return value_; }
    explicit operator bool() const { return value_ != nullptr; }

private:
    GVariant* value_ = nullptr;
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
        source_ = RunLater(milliseconds, [this, function = std::move(function)] {
            source_ = 0;
            function();
        });
    }

    void Stop()
    {
        if (source_ != 0)
            g_source_remove(std::exchange(source_, 0U));
    }

    bool IsPending() const { return source_ != 0; }

private:
    guint source_ = 0;
};

} // namespace Simulator
