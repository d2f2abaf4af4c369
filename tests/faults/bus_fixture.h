// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bus/peer.h"
#include "bus/session_test.h"
#include "simulator/bus/private_bus.h"

#include <gio/gio.h>

#include <utility>

namespace TestSupport {

/// The simulator with verbs by name and format, for tests that choose them at run time.
class SimulatorProcess : public Emporium::Testing::Simulator
{
public:
    explicit SimulatorProcess(const std::string& address, const Strings& arguments = {})
        : Emporium::Testing::Simulator(address, arguments), m_address(address)
    {
    }

    /// Calls a verb of the control interface.
    template <typename... Arguments>
    void Tell(const char* verb, const char* format, Arguments... arguments)
    {
        const Owned<GVariant> tuple(g_variant_ref_sink(g_variant_new(format, arguments...)));
        std::string text;
        for (gsize index = 0; index < g_variant_n_children(tuple.get()); ++index) {
            const Owned<GVariant> value(g_variant_get_child_value(tuple.get(), index));
            char* const printed = g_variant_print(value.get(), TRUE);
            text += (index == 0 ? "" : ", ") + std::string(printed);
            g_free(printed);
        }
        Call(verb, text);
    }

    void Emit(const char* signal, const char* body, unsigned count = 1)
    {
        Tell("EmitSignal", "(ssu)", signal, body, count);
    }

    /// Replaces a value in the reply of GetAllProperties. `text` is in GVariant text format.
    void SetProperty(const std::string& name, const std::string& text)
    {
        Call("SetProperty", "'" + name + "', <" + text + ">");
    }

    /// Returns how often the method was called, and the argument of the last call.
    std::pair<unsigned, std::string> Calls(const char* method)
    {
        const Owned<GVariant> reply(
            g_variant_parse(nullptr, Call("Calls", "'" + std::string(method) + "'").c_str(),
                            nullptr, nullptr, nullptr));
        unsigned count = 0;
        const char* argument = nullptr;
        g_variant_get(reply.get(), "(u&s)", &count, &argument);
        return {count, argument};
    }

    bool NameHasOwner(const char* name)
    {
        if (!m_peer) {
            m_peer.emplace(m_address); // late: a test may limit the number of connections
        }
        return m_peer->NameHasOwner(name);
    }

private:
    std::string m_address;
    std::optional<Peer> m_peer;
};

/// The same for the home of the cache.
class BusTest : public SessionTest
{
protected:
    using SessionTest::SessionTest;

    struct
    {
        const std::filesystem::path& Path() const { return path; }
        const std::filesystem::path& path;
    } cacheHome{session.CacheHome()};
};

} // namespace TestSupport
