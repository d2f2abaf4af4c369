// SPDX-License-Identifier: BSD-3-Clause
//
// Holds the names and signatures in code against the contract as data.

#include "dbus/contract.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

namespace Contract = Emporium::Contract;

struct Unref
{
    void operator()(GDBusNodeInfo* node) const { g_dbus_node_info_unref(node); }
    void operator()(char* text) const { g_free(text); }
};

class BusContract : public testing::Test
{
protected:
    BusContract()
    {
        char* raw = nullptr;
        g_file_get_contents(EMPORIUM_CONTRACT, &raw, nullptr, nullptr);
        const std::unique_ptr<char, Unref> xml(raw);
        node.reset(g_dbus_node_info_new_for_xml(xml.get(), nullptr));
    }

    GDBusInterfaceInfo* Interface() const
    {
        return g_dbus_node_info_lookup_interface(node.get(), Contract::interfaceName);
    }

    static std::string SignatureOf(GDBusArgInfo** arguments)
    {
        std::string signature;
        for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
            signature += (*arguments)->signature;
        }
        return signature;
    }

    void ExpectMethod(const char* name, const std::string& in, const std::string& out) const
    {
        const GDBusMethodInfo* const method =
            g_dbus_interface_info_lookup_method(Interface(), name);
        ASSERT_NE(method, nullptr) << name;
        EXPECT_EQ(SignatureOf(method->in_args), in) << name;
        EXPECT_EQ(SignatureOf(method->out_args), out) << name;
    }

    void ExpectSignal(const char* name, const std::string& arguments) const
    {
        const GDBusSignalInfo* const signal =
            g_dbus_interface_info_lookup_signal(Interface(), name);
        ASSERT_NE(signal, nullptr) << name;
        EXPECT_EQ(SignatureOf(signal->args), arguments) << name;
    }

    std::unique_ptr<GDBusNodeInfo, Unref> node;
};

TEST_F(BusContract, TheObjectAndItsInterfaceAreTheSame)
{
    EXPECT_STREQ(node->path, Contract::objectPath);
    ASSERT_NE(Interface(), nullptr);
    EXPECT_STREQ(Contract::busName, "org.velmora.Emporium");
}

TEST_F(BusContract, TheMethodsAreTheSame)
{
    const std::string record = Contract::operationRecord;
    ExpectMethod(Contract::Method::getAllProperties, "", "a{sv}");
    ExpectMethod(Contract::Method::install, "s", record);
    ExpectMethod(Contract::Method::remove, "s", record);
    ExpectMethod(Contract::Method::start, "s", "");
    ExpectMethod(Contract::Method::restart, "s", "");
    int count = 0;
    while (Interface()->methods[count] != nullptr) {
        ++count;
    }
    EXPECT_EQ(count, 5);
}

TEST_F(BusContract, TheSignalsAreTheSame)
{
    ExpectSignal(Contract::Signal::operationStatusChanged, Contract::operationRecord);
    ExpectSignal(Contract::Signal::packageInstalled, Contract::packageRecord);
    ExpectSignal(Contract::Signal::packageUpgraded, Contract::packageRecord);
    ExpectSignal(Contract::Signal::packageRemoved, "s");
}

TEST_F(BusContract, TheSignaturesInCodeFitOneAnother)
{
    EXPECT_EQ(Contract::operationRecord, "(" + std::string(Contract::operationFields) + ")");
    EXPECT_EQ(Contract::packageRecord, "(" + std::string(Contract::packageFields) + ")");
    EXPECT_EQ(Contract::operationRecordArray, "a" + std::string(Contract::operationRecord));
    EXPECT_EQ(Contract::packageRecordArray, "a" + std::string(Contract::packageRecord));
    EXPECT_EQ(Contract::dictionaryEntry, "{" + std::string(Contract::dictionaryEntryFields) + "}");
}

} // namespace
