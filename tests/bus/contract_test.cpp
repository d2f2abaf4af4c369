// SPDX-License-Identifier: BSD-3-Clause
//
// Compares the names and signatures in code with the introspection data, in both directions.

#include "dbus/contract.h"
#include "simulator/faults/control_contract.h"
#include "support/gobject.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

namespace {

namespace Contract = Emporium::Contract;
namespace ControlContract = Simulator::ControlContract;
using TestSupport::Owned;

/// Signatures of the arguments and of the reply.
using Signatures = std::pair<std::string, std::string>;

std::string SignatureOf(GDBusArgInfo** arguments)
{
    std::string signature;
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        signature += (*arguments)->signature;
    }
    return signature;
}

Owned<GDBusNodeInfo> ReadNode(const char* path)
{
    char* raw = nullptr;
    if (g_file_get_contents(path, &raw, nullptr, nullptr) == FALSE) {
        return nullptr;
    }
    const std::unique_ptr<char, decltype(&g_free)> xml(raw, g_free);
    return Owned<GDBusNodeInfo>(g_dbus_node_info_new_for_xml(xml.get(), nullptr));
}

std::map<std::string, Signatures> MethodsOf(const GDBusInterfaceInfo& interface)
{
    std::map<std::string, Signatures> methods;
    for (GDBusMethodInfo** method = interface.methods; method != nullptr && *method != nullptr;
         ++method) {
        methods[(*method)->name] = {SignatureOf((*method)->in_args),
                                    SignatureOf((*method)->out_args)};
    }
    return methods;
}

std::map<std::string, std::string> SignalsOf(const GDBusInterfaceInfo& interface)
{
    std::map<std::string, std::string> signals;
    for (GDBusSignalInfo** signal = interface.signals; signal != nullptr && *signal != nullptr;
         ++signal) {
        signals[(*signal)->name] = SignatureOf((*signal)->args);
    }
    return signals;
}

/// Returns the signatures in the annotations that describe the properties, by the property's name.
std::map<std::string, std::string> AnnotatedPropertiesOf(const GDBusMethodInfo& method)
{
    const std::string prefix = std::string(Contract::interfaceName) + ".Property.";
    std::map<std::string, std::string> properties;
    for (GDBusAnnotationInfo** annotation = method.annotations;
         annotation != nullptr && *annotation != nullptr; ++annotation) {
        const std::string key = (*annotation)->key;
        EXPECT_EQ(key.substr(0, prefix.size()), prefix);
        properties[key.substr(prefix.size())] = (*annotation)->value;
    }
    return properties;
}

class BusContract : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_NE(node, nullptr);
        ASSERT_NE(Interface(), nullptr);
    }

    GDBusInterfaceInfo* Interface() const
    {
        return g_dbus_node_info_lookup_interface(node.get(), Contract::interfaceName);
    }

    Owned<GDBusNodeInfo> node = ReadNode(EMPORIUM_DATA_DIR "/org.velmora.Emporium.xml");
};

TEST_F(BusContract, TheObjectAndItsInterfaceAreTheSame)
{
    EXPECT_STREQ(node->path, Contract::objectPath);
    EXPECT_EQ(node->interfaces[1], nullptr);
    EXPECT_STREQ(Contract::busName, "org.velmora.Emporium");
}

TEST_F(BusContract, TheMethodsAreTheSame)
{
    std::map<std::string, Signatures> inCode;
    for (const auto& method : Contract::allMethods) {
        inCode[method.name] = {method.arguments, method.reply};
    }
    EXPECT_EQ(inCode, MethodsOf(*Interface()));
}

TEST_F(BusContract, TheSignalsAreTheSame)
{
    std::map<std::string, std::string> inCode;
    for (const auto& signal : Contract::allSignals) {
        inCode[signal.name] = signal.arguments;
    }
    EXPECT_EQ(inCode, SignalsOf(*Interface()));
}

TEST_F(BusContract, ThePropertiesAreTheSame)
{
    std::map<std::string, std::string> inCode;
    for (const auto& property : Contract::allProperties) {
        inCode[property.name] = property.signature;
    }
    const GDBusMethodInfo* const method =
        g_dbus_interface_info_lookup_method(Interface(), Contract::Method::getAllProperties);
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(inCode, AnnotatedPropertiesOf(*method));
    GDBusPropertyInfo** const standard = Interface()->properties;
    EXPECT_TRUE(standard == nullptr || *standard == nullptr) << "the standard ones are not used";
}

TEST_F(BusContract, TheSignaturesInCodeAreConsistent)
{
    EXPECT_EQ(Contract::operationRecord, "(" + std::string(Contract::operationFields) + ")");
    EXPECT_EQ(Contract::packageRecord, "(" + std::string(Contract::packageFields) + ")");
    EXPECT_EQ(Contract::operationRecordArray, "a" + std::string(Contract::operationRecord));
    EXPECT_EQ(Contract::packageRecordArray, "a" + std::string(Contract::packageRecord));
    EXPECT_EQ(Contract::dictionaryEntry, "{" + std::string(Contract::dictionaryEntryFields) + "}");
    EXPECT_EQ(Contract::dictionary, "a" + std::string(Contract::dictionaryEntry));
}

TEST(SimulatorControlContract, TheVerbsAreTheSame)
{
    const auto node = ReadNode(EMPORIUM_DATA_DIR "/org.velmora.Emporium.Simulator.xml");
    ASSERT_NE(node, nullptr);
    EXPECT_STREQ(node->path, ControlContract::objectPath);
    const GDBusInterfaceInfo* const interface =
        g_dbus_node_info_lookup_interface(node.get(), ControlContract::interfaceName);
    ASSERT_NE(interface, nullptr);
    EXPECT_EQ(node->interfaces[1], nullptr);
    std::map<std::string, Signatures> inCode;
    for (const auto& verb : ControlContract::allVerbs) {
        inCode[verb.name] = {verb.arguments, verb.reply};
    }
    EXPECT_EQ(inCode, MethodsOf(*interface));
    EXPECT_TRUE(SignalsOf(*interface).empty());
}

} // namespace
