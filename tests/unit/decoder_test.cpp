// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/decoder.h"

#include "support/output.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstdint>
#include <dlfcn.h>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

int valuesRead = 0;

} // namespace

// Stands before the bus library's own, which it calls.
extern "C" int sd_bus_message_read_basic(sd_bus_message* message, char type, void* value)
{
    ++valuesRead;
    static const auto next = reinterpret_cast<decltype(&sd_bus_message_read_basic)>(
        dlsym(RTLD_NEXT, "sd_bus_message_read_basic"));
    return next(message, type, value);
}

namespace {

using namespace Emporium;
using TestSupport::MessageOf;

using OperationRecord =
    sdbus::Struct<std::string, std::string, std::int32_t, std::int32_t, std::int32_t>;
using Dictionary = std::map<std::string, sdbus::Variant>;
using PackageRecord = sdbus::Struct<std::string, std::string, std::string, std::string, Dictionary>;

Dictionary DictionaryOfEverything()
{
    return {
        {"b", sdbus::Variant(true)},
        {"y", sdbus::Variant(std::uint8_t{1})},
        {"n", sdbus::Variant(std::int16_t{1})},
        {"q", sdbus::Variant(std::uint16_t{1})},
        {"i", sdbus::Variant(std::int32_t{1})},
        {"u", sdbus::Variant(std::uint32_t{1})},
        {"x", sdbus::Variant(std::int64_t{1})},
        {"t", sdbus::Variant(std::uint64_t{1})},
        {"d", sdbus::Variant(1.5)},
        {"s", sdbus::Variant("text")},
        {"o", sdbus::Variant(sdbus::ObjectPath("/a"))},
        {"g", sdbus::Variant(sdbus::Signature("a{sv}"))},
        {"v", sdbus::Variant(sdbus::Variant(sdbus::Variant(std::int32_t{3})))},
        {"ay", sdbus::Variant(std::vector<std::uint8_t>{1, 2, 3})},
        {"ab", sdbus::Variant(std::vector<bool>{true, false})},
        {"ad", sdbus::Variant(std::vector<double>{})},
        {"as", sdbus::Variant(std::vector<std::string>{"a", "", "c"})},
        {"aas", sdbus::Variant(std::vector<std::vector<std::string>>{{"a"}, {}})},
        {"a{sv}", sdbus::Variant(Dictionary{{"inner", sdbus::Variant(std::int32_t{1})}})},
        {"a{is}", sdbus::Variant(std::map<std::int32_t, std::string>{{1, "one"}})},
        {"(si)", sdbus::Variant(sdbus::Struct<std::string, std::int32_t>("a", 1))},
        {"a(sa{sv})", sdbus::Variant(std::vector<sdbus::Struct<std::string, Dictionary>>{
                          sdbus::Struct<std::string, Dictionary>("a", Dictionary{})})},
    };
}

sdbus::PlainMessage MessageWith(const std::function<void(sdbus::Message&)>& write)
{
    sdbus::PlainMessage message = sdbus::createPlainMessage();
    write(message);
    message.seal();
    return message;
}

TEST(Decoder, AnOperationRecordIsReadInTheOrderOfTheWireAndItsNumbersAreCarriedUnchanged)
{
    auto message =
        MessageWith([](sdbus::Message& m) { m << OperationRecord{"uuid", "package", 7, -3, 12}; });
    const Operation operation = Decoder::ReadOperationBody(message);
    EXPECT_EQ(operation.GetUUID(), "uuid");
    EXPECT_EQ(operation.GetPackageID(), "package");
    EXPECT_EQ(static_cast<int>(operation.GetType()), 7);
    EXPECT_EQ(static_cast<int>(operation.GetStatus()), -3);
    EXPECT_EQ(static_cast<int>(operation.GetErrorCode()), 12);
}

TEST(Decoder, AnOperationBodyThatIsEmptyIsADefaultOperation)
{
    auto message = MessageWith([](sdbus::Message&) {});
    const Operation operation = Decoder::ReadOperationBody(message);
    EXPECT_EQ(operation.GetUUID(), "");
    EXPECT_EQ(operation.GetPackageID(), "");
    EXPECT_EQ(static_cast<int>(operation.GetStatus()), 0);
}

TEST(Decoder, APackageRecordCarriesTheSubgroupBeforeTheCertificateID)
{
    auto message = MessageWith([](sdbus::Message& m) {
        m << PackageRecord{"id", "version", "subgroup", "certificate", Dictionary{}};
    });
    const Package package = Decoder::ReadPackageBody(message);
    EXPECT_EQ(package.GetID(), "id");
    EXPECT_EQ(package.GetVersion(), "version");
    EXPECT_EQ(package.GetDeveloperCertificateSubgroup(), "subgroup");
    EXPECT_EQ(package.GetDeveloperCertificateID(), "certificate");
}

TEST(Decoder, ADictionaryOfAnyContentIsWalkedAndDropped)
{
    auto message = MessageWith([](sdbus::Message& m) {
        m << PackageRecord{"id", "version", "subgroup", "certificate", DictionaryOfEverything()};
    });
    EXPECT_EQ(Decoder::ReadPackageBody(message).GetDeveloperCertificateID(), "certificate");
}

TEST(Decoder, EachKindOfDictionaryValueIsDroppedByItself)
{
    for (const auto& [key, value] : DictionaryOfEverything()) {
        auto message = MessageWith([&, name = key, content = value](sdbus::Message& m) {
            m << PackageRecord{"id", "version", "subgroup", "certificate",
                               Dictionary{{name, content}}};
        });
        EXPECT_EQ(Decoder::ReadPackageBody(message).GetID(), "id") << key;
    }
}

TEST(Decoder, AnArrayOfNumbersIsDroppedAtOnce)
{
    const auto valuesReadWith = [](std::size_t numbers) {
        auto message = MessageWith([&](sdbus::Message& m) {
            m << PackageRecord{"id", "1", "s", "c",
                               Dictionary{{"y", sdbus::Variant(std::vector<std::uint8_t>(numbers))},
                                          {"i", sdbus::Variant(std::vector<std::int32_t>(numbers))},
                                          {"d", sdbus::Variant(std::vector<double>(numbers))}}};
        });
        valuesRead = 0;
        Decoder::ReadPackageBody(message);
        return valuesRead;
    };
    EXPECT_EQ(valuesReadWith(1000), 4 + 3) << "the texts of the record and the keys";
    EXPECT_EQ(valuesReadWith(0), 4 + 3);
}

TEST(Decoder, AnotherSignatureThanTheRecordsIsRefused)
{
    const std::vector<std::function<void(sdbus::Message&)>> bodies = {
        [](sdbus::Message& m) { m << "text"; },
        [](sdbus::Message& m) { m << std::int32_t{1}; },
        [](sdbus::Message& m) { m << sdbus::Struct<std::string, std::string>{"a", "b"}; },
        [](sdbus::Message& m) {
            m << "a"
              << "b" << std::int32_t{1} << std::int32_t{1};
        },
        [](sdbus::Message& m) { m << std::vector<OperationRecord>{}; },
        [](sdbus::Message& m) { m << OperationRecord{"a", "b", 1, 2, 3} << "more"; },
        [](sdbus::Message& m) {
            m << PackageRecord{"a", "b", "c", "d", Dictionary{}} << std::int32_t{1};
        },
    };
    for (const auto& body : bodies) {
        auto message = MessageWith(body);
        EXPECT_THROW(Decoder::ReadOperationBody(message), sdbus::Error);
        message.rewind(true);
        EXPECT_THROW(Decoder::ReadPackageBody(message), sdbus::Error);
    }
    auto empty = MessageWith([](sdbus::Message&) {});
    EXPECT_THROW(Decoder::ReadPackageBody(empty), sdbus::Error);
    EXPECT_THROW(Decoder::ReadStringBody(empty), sdbus::Error);
    EXPECT_NO_THROW(Decoder::ReadEmptyBody(empty));
    auto two = MessageWith([](sdbus::Message& m) {
        m << "one"
          << "two";
    });
    EXPECT_THROW(Decoder::ReadStringBody(two), sdbus::Error);
    two.rewind(true);
    EXPECT_THROW(Decoder::ReadEmptyBody(two), sdbus::Error);
}

// --- the properties -------------------------------------------------------------------------------

using Property = std::pair<std::string, sdbus::Variant>;

std::vector<Property> AllProperties()
{
    return {
        {"Architecture", sdbus::Variant("aarch64")},
        {"VeyraVersion", sdbus::Variant("5.1")},
        {"Packages", sdbus::Variant(std::vector<PackageRecord>{
                         {"b", "1", "s", "c", DictionaryOfEverything()},
                         {"a", "2", "", "", Dictionary{}},
                     })},
        {"Operations", sdbus::Variant(std::vector<OperationRecord>{{"one", "p", 0, 10, 0}})},
        {"CompletedOperations", sdbus::Variant(std::vector<OperationRecord>{
                                    {"two", "q", 1, 100, 0}, {"three", "r", 2, 101, 28}})},
    };
}

/// As the daemon writes it: keys may come in any order and, from a broken daemon, more than once.
void WriteProperties(sdbus::Message& message, const std::vector<Property>& properties)
{
    message.openContainer("{sv}");
    for (const auto& [name, value] : properties) {
        message.openDictEntry("sv");
        message << name << value;
        message.closeDictEntry();
    }
    message.closeContainer();
}

sdbus::PlainMessage Reply(const std::vector<Property>& properties)
{
    return MessageWith([&](sdbus::Message& message) { WriteProperties(message, properties); });
}

std::string Describe(const Properties& properties)
{
    std::string text = properties.Architecture + "|" + properties.VeyraVersion;
    for (const Package& package : properties.Packages) {
        text += "|" + package.GetID() + "," + package.GetVersion() + "," +
                package.GetDeveloperCertificateSubgroup() + "," +
                package.GetDeveloperCertificateID();
    }
    for (const auto* list : {&properties.Operations, &properties.CompletedOperations}) {
        text += "|";
        for (const Operation& operation : *list) {
            text += operation.GetUUID() + "," + operation.GetPackageID() + "," +
                    std::to_string(static_cast<int>(operation.GetStatus())) + ";";
        }
    }
    return text;
}

constexpr const char* allDescribed = "aarch64|5.1|b,1,s,c|a,2,,|one,p,10;|two,q,100;three,r,101;";

TEST(Properties, AllFiveAreDecodedInTheDaemonsOrder)
{
    auto reply = Reply(AllProperties());
    EXPECT_EQ(Describe(Decoder::ReadProperties(reply)), allDescribed);
}

TEST(Properties, EmptyListsAreEmpty)
{
    auto properties = AllProperties();
    properties[2].second = sdbus::Variant(std::vector<PackageRecord>{});
    properties[3].second = sdbus::Variant(std::vector<OperationRecord>{});
    properties[4].second = sdbus::Variant(std::vector<OperationRecord>{});
    auto reply = Reply(properties);
    EXPECT_EQ(Describe(Decoder::ReadProperties(reply)), "aarch64|5.1||");
}

TEST(Properties, FurtherOnesAreIgnored)
{
    auto properties = AllProperties();
    for (const auto& [key, value] : DictionaryOfEverything()) {
        properties.insert(properties.begin() + 2, {"further " + key, value});
    }
    auto reply = Reply(properties);
    EXPECT_EQ(Describe(Decoder::ReadProperties(reply)), allDescribed);
}

TEST(Properties, EachOneThatIsMissingIsNamed)
{
    for (const Property& property : AllProperties()) {
        auto properties = AllProperties();
        std::erase_if(properties,
                      [&](const Property& other) { return other.first == property.first; });
        auto reply = Reply(properties);
        EXPECT_EQ(MessageOf<std::runtime_error>([&] { Decoder::ReadProperties(reply); }),
                  "Couldn't parse " + property.first +
                      " property from initial emporium properties");
    }
}

TEST(Properties, OfSeveralMissingTheFirstInFixedOrderIsNamed)
{
    auto properties = AllProperties();
    properties.erase(properties.begin() + 2, properties.begin() + 4);
    auto reply = Reply({properties.rbegin(), properties.rend()});
    EXPECT_EQ(MessageOf<std::runtime_error>([&] { Decoder::ReadProperties(reply); }),
              "Couldn't parse Packages property from initial emporium properties");
}

TEST(Properties, PresenceIsCheckedBeforeAnythingIsDecoded)
{
    auto properties = AllProperties();
    properties[0].second = sdbus::Variant(std::int32_t{1});
    properties.pop_back();
    auto reply = Reply(properties);
    EXPECT_EQ(MessageOf<std::runtime_error>([&] { Decoder::ReadProperties(reply); }),
              "Couldn't parse CompletedOperations property from initial emporium properties");
}

TEST(Properties, EachOneOfAnotherTypeIsRefused)
{
    for (std::size_t index = 0; index < AllProperties().size(); ++index) {
        auto properties = AllProperties();
        properties[index].second = sdbus::Variant(std::int32_t{1});
        auto reply = Reply(properties);
        EXPECT_THROW(Decoder::ReadProperties(reply), sdbus::Error) << properties[index].first;
    }
}

TEST(Properties, OfARepeatedOneTheFirstCounts)
{
    auto properties = AllProperties();
    properties.push_back({"Architecture", sdbus::Variant("other")});
    properties.push_back({"Packages", sdbus::Variant(std::int32_t{1})});
    auto reply = Reply(properties);
    EXPECT_EQ(Describe(Decoder::ReadProperties(reply)), allDescribed);
}

TEST(Properties, AReplyOfAnotherSignatureIsRefused)
{
    auto text = MessageWith([](sdbus::Message& message) { message << "text"; });
    EXPECT_THROW(Decoder::ReadProperties(text), sdbus::Error);
    auto empty = MessageWith([](sdbus::Message&) {});
    EXPECT_THROW(Decoder::ReadProperties(empty), sdbus::Error);
    auto more =
        MessageWith([](sdbus::Message& message) { message << Dictionary{} << std::int32_t{1}; });
    EXPECT_THROW(Decoder::ReadProperties(more), sdbus::Error);
}

/// The straight way may leave a reply to the thorough one, but where it gives an answer, both
/// agree.
TEST(Properties, BothWaysAgreeOverManyReplies)
{
    std::mt19937 random(20261121);
    const auto chance = [&](unsigned of) { return random() % of == 0; };
    int straightOnes = 0;
    for (int round = 0; round < 2000; ++round) {
        auto properties = AllProperties();
        if (chance(3)) {
            properties.erase(properties.begin() +
                             static_cast<std::ptrdiff_t>(random() % properties.size()));
        }
        if (chance(3)) {
            properties.push_back(AllProperties()[random() % 5]);
        }
        if (chance(3)) {
            properties[random() % properties.size()].second = sdbus::Variant(std::int32_t{1});
        }
        if (chance(2)) {
            properties.push_back({"further", sdbus::Variant(DictionaryOfEverything())});
        }
        std::shuffle(properties.begin(), properties.end(), random);
        auto reply = Reply(properties);
        std::string thorough;
        try {
            thorough = Describe(Decoder::ReadPropertiesThoroughly(reply));
        } catch (const std::exception& error) {
            thorough = error.what();
        }
        reply.clearFlags();
        reply.rewind(true);
        std::string chosen;
        try {
            chosen = Describe(Decoder::ReadProperties(reply));
        } catch (const std::exception& error) {
            chosen = error.what();
        }
        ASSERT_EQ(chosen, thorough);
        reply.clearFlags();
        reply.rewind(true);
        Properties straight;
        if (Decoder::ReadPropertiesStraight(reply, straight)) {
            ++straightOnes;
            ASSERT_EQ(Describe(straight), thorough);
        }
    }
    EXPECT_GT(straightOnes, 100);
}

TEST(Properties, ARegularReplyTakesTheStraightWay)
{
    auto reply = Reply(AllProperties());
    Properties properties;
    EXPECT_TRUE(Decoder::ReadPropertiesStraight(reply, properties));
    EXPECT_EQ(Describe(properties), allDescribed);
}

bool GoesStraight(const std::vector<Property>& properties)
{
    auto reply = Reply(properties);
    Properties decoded;
    return Decoder::ReadPropertiesStraight(reply, decoded);
}

TEST(Properties, WhatIsIrregularIsLeftToTheThoroughWay)
{
    auto missing = AllProperties();
    missing.erase(missing.begin() + 1);
    EXPECT_FALSE(GoesStraight(missing));
    auto repeated = AllProperties();
    repeated.insert(repeated.begin() + 1, repeated.front());
    EXPECT_FALSE(GoesStraight(repeated));
    auto ofAnotherType = AllProperties();
    ofAnotherType[1].second = sdbus::Variant(std::int32_t{1});
    EXPECT_FALSE(GoesStraight(ofAnotherType));
}

TEST(Properties, AnArgumentBehindThemIsRefused)
{
    auto reply = MessageWith([](sdbus::Message& message) {
        WriteProperties(message, AllProperties());
        message << "one more";
    });
    EXPECT_THROW(Decoder::ReadProperties(reply), sdbus::Error);
}

/// Whatever the records before led to expect.
void ExpectStraight(const std::vector<Dictionary>& dictionaries)
{
    std::vector<PackageRecord> records;
    for (const Dictionary& dictionary : dictionaries) {
        records.emplace_back(std::to_string(records.size()), "version", "subgroup", "certificate",
                             dictionary);
    }
    auto properties = AllProperties();
    properties[2].second = sdbus::Variant(records);
    auto reply = Reply(properties);
    Properties decoded;
    ASSERT_TRUE(Decoder::ReadPropertiesStraight(reply, decoded));
    ASSERT_EQ(decoded.Packages.size(), records.size());
    for (std::size_t position = 0; position < records.size(); ++position) {
        EXPECT_EQ(decoded.Packages[position].GetID(), std::to_string(position));
    }
    EXPECT_EQ(decoded.CompletedOperations.size(), 2U);
}

TEST(Properties, DictionariesOfTheSameKeysAndTypesAreDropped)
{
    ExpectStraight(std::vector<Dictionary>(5, DictionaryOfEverything()));
}

TEST(Properties, AKeyMayHoldAnotherTypeInEveryRecord)
{
    std::vector<Dictionary> dictionaries;
    for (const auto& [key, value] : DictionaryOfEverything()) {
        dictionaries.push_back({{"key", value}});
        dictionaries.push_back({{"key", value}});
    }
    ExpectStraight(dictionaries);
    std::reverse(dictionaries.begin(), dictionaries.end());
    ExpectStraight(dictionaries);
}

TEST(Properties, TheSamePlaceMayHoldAnotherKeyInEveryRecord)
{
    std::vector<Dictionary> dictionaries;
    for (const auto& [key, value] : DictionaryOfEverything()) {
        dictionaries.push_back({{key, value}, {"z", sdbus::Variant(std::int32_t{1})}});
        dictionaries.push_back({});
    }
    ExpectStraight(dictionaries);
}

TEST(Properties, ADictionaryMayBeLong)
{
    Dictionary dictionary;
    for (int entry = 0; entry < 300; ++entry) {
        dictionary.emplace(std::to_string(entry),
                           entry % 2 == 0 ? sdbus::Variant("text") : sdbus::Variant(entry));
    }
    ExpectStraight({dictionary, {}, dictionary, dictionary});
}

} // namespace
