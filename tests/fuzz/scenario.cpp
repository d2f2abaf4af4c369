// SPDX-License-Identifier: BSD-3-Clause
//
// A scenario of any content, whose steps are executed up to the first Wait. The bodies of messages in
// it are parsed, and can be sent.
#include "simulator/faults/scenario.h"

#include "fuzz/simulator_file.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

void CheckText(const char* text)
{
    Simulator::Variant body;
    try {
        body = Simulator::ParseBody(text);
    } catch (const std::invalid_argument&) {
        return;
    }
    Fuzz::RequireSendable(body);
}

void Perform(const std::string& verb, GVariant* arguments)
{
    Fuzz::Require(!verb.empty(), "a step has a verb");
    Fuzz::RequireSendable(Simulator::Variant(g_variant_ref(arguments)));
    for (gsize index = 0; index < g_variant_n_children(arguments); ++index) {
        const Simulator::Variant argument(g_variant_get_child_value(arguments, index));
        if (g_variant_is_of_type(argument.Get(), G_VARIANT_TYPE_STRING) != FALSE) {
            CheckText(g_variant_get_string(argument.Get(), nullptr));
        }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto scenario = Fuzz::ReadUserFile(data, size, [](const std::string& path) {
        auto read = std::make_unique<Simulator::Scenario>();
        read->AddFile(path);
        return read;
    });
    if (scenario) {
        Simulator::Scenario::Actions actions;
        actions.perform = Perform;
        actions.conditionOf = [](const std::string&, GVariant*) {
            return Simulator::Progress::Condition();
        };
        actions.failed = [](const std::string&) {
            Fuzz::Require(false, "no step fails: each throws nothing");
        };
        (*scenario)->Run(std::move(actions));
    }
    return 0;
}
