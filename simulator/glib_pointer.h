// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>
#include <utility>

namespace Simulator {

/// The one place that gives GLib's things back.
struct Release
{
    void operator()(GDBusConnection* connection) const { g_object_unref(connection); }
    void operator()(GDBusMessage* message) const { g_object_unref(message); }
    void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
    void operator()(GOptionContext* context) const { g_option_context_free(context); }
    void operator()(GTestDBus* bus) const { g_object_unref(bus); }
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
    void operator()(char* text) const { g_free(text); }
    void operator()(char** texts) const { g_strfreev(texts); }
};

template <typename T>
using Owned = std::unique_ptr<T, Release>;

/// Receives the error of a GLib call: `call(..., Failure(error))`.
class Failure
{
public:
    explicit Failure(std::string& message) : m_message(message) {}
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;
    ~Failure()
    {
        if (m_error != nullptr) {
            m_message = m_error->message;
            g_error_free(m_error);
        }
    }

    operator GError**() { return &m_error; }

private:
    std::string& m_message;
    GError* m_error = nullptr;
};

/// Has `action` called once by the main loop, after this time.
template <typename Action>
void After(unsigned milliseconds, Action action)
{
    auto held = std::make_unique<Action>(std::move(action));
    g_timeout_add_full(
        G_PRIORITY_DEFAULT, milliseconds,
        [](gpointer data) -> gboolean {
            (*static_cast<Action*>(data))();
            return G_SOURCE_REMOVE;
        },
        held.release(),
        [](gpointer data) { std::unique_ptr<Action>(static_cast<Action*>(data)).reset(); });
}

} // namespace Simulator
