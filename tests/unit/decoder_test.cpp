// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/decoder.h"

#include "support/output.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

int valuesRead = 0;

} // namespace

// Interposes the bus library's function, and calls it. Exported, so that a shared sdbus-c++ calls
// this one too.
extern "C" [[gnu::visibility("default")]] int sd_bus_message_read_basic(sd_bus_message* message,
                                                                        char type, void* value)
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
        {"h", sdbus::Variant(sdbus::UnixFd(0))},
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

TEST(Decoder, AnOperationRecordIsReadInWireOrderAndItsNumbersAreKept)
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

TEST(Decoder, AnEmptyOperationBodyIsADefaultOperation)
{
    auto message = MessageWith([](sdbus::Message&) {});
    const Operation operation = Decoder::ReadOperationBody(message);
    EXPECT_EQ(operation.GetUUID(), "");
    EXPECT_EQ(operation.GetPackageID(), "");
    EXPECT_EQ(static_cast<int>(operation.GetStatus()), 0);
}

TEST(Decoder, APackageRecordHasTheSubgroupBeforeTheCertificateID)
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

TEST(Decoder, ADictionaryOfAnyContentIsSkipped)
{
    auto message = MessageWith([](sdbus::Message& m) {
        m << PackageRecord{"id", "version", "subgroup", "certificate", DictionaryOfEverything()};
    });
    EXPECT_EQ(Decoder::ReadPackageBody(message).GetDeveloperCertificateID(), "certificate");
}

TEST(Decoder, EachKindOfDictionaryValueIsSkipped)
{
    for (const auto& [key, value] : DictionaryOfEverything()) {
        auto message = MessageWith([&, name = key, content = value](sdbus::Message& m) {
            m << PackageRecord{"id", "version", "subgroup", "certificate",
                               Dictionary{{name, content}}};
        });
        EXPECT_EQ(Decoder::ReadPackageBody(message).GetID(), "id") << key;
    }
}

TEST(Decoder, AnArrayOfNumbersIsSkippedInOneStep)
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

TEST(Decoder, ABodyOfAnotherSignatureIsRefused)
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
    auto two = MessageWith([](sdbus::Message& m) {
        m << "one"
          << "two";
    });
    EXPECT_THROW(Decoder::ReadStringBody(two), sdbus::Error);
}

// --- the properties ---

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

/// Writes a reply as the daemon does: keys may come in any order and, from a broken daemon, more
/// than once.
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

/// Returns the decoded properties, or the text of the error.
std::string OutcomeOf(sdbus::Message& reply)
{
    try {
        return Describe(Decoder::ReadProperties(reply));
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string OutcomeOf(const std::vector<Property>& properties)
{
    auto reply = Reply(properties);
    return OutcomeOf(reply);
}

/// Returns the bus library's text for a variant that holds another type.
std::string TypeErrorText()
{
    auto message = MessageWith([](sdbus::Message& m) { m << sdbus::Variant(std::int32_t{1}); });
    return MessageOf<sdbus::Error>([&] { message.enterVariant("s"); });
}

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

TEST(Properties, UnknownOnesAreIgnored)
{
    auto properties = AllProperties();
    for (const auto& [key, value] : DictionaryOfEverything()) {
        properties.insert(properties.begin() + 2, {"further " + key, value});
    }
    auto reply = Reply(properties);
    EXPECT_EQ(Describe(Decoder::ReadProperties(reply)), allDescribed);
}

TEST(Properties, EachMissingOneIsNamed)
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

TEST(Properties, TheFirstMissingOneInFixedOrderIsNamed)
{
    auto properties = AllProperties();
    properties.erase(properties.begin() + 2, properties.begin() + 4);
    auto reply = Reply({properties.rbegin(), properties.rend()});
    EXPECT_EQ(MessageOf<std::runtime_error>([&] { Decoder::ReadProperties(reply); }),
              "Couldn't parse Packages property from initial emporium properties");
}

TEST(Properties, AMissingOneIsReportedBeforeATypeError)
{
    auto properties = AllProperties();
    properties[0].second = sdbus::Variant(std::int32_t{1});
    properties.pop_back();
    auto reply = Reply(properties);
    EXPECT_EQ(MessageOf<std::runtime_error>([&] { Decoder::ReadProperties(reply); }),
              "Couldn't parse CompletedOperations property from initial emporium properties");
}

TEST(Properties, EachOneIsRefusedIfItHasAnotherType)
{
    for (std::size_t index = 0; index < AllProperties().size(); ++index) {
        auto properties = AllProperties();
        properties[index].second = sdbus::Variant(std::int32_t{1});
        auto reply = Reply(properties);
        EXPECT_THROW(Decoder::ReadProperties(reply), sdbus::Error) << properties[index].first;
    }
}

TEST(Properties, TheFirstOccurrenceOfARepeatedOneCounts)
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

TEST(Properties, AnExtraArgumentIsRefused)
{
    auto reply = MessageWith([](sdbus::Message& message) {
        WriteProperties(message, AllProperties());
        message << "one more";
    });
    EXPECT_THROW(Decoder::ReadProperties(reply), sdbus::Error);
}

TEST(Properties, AnExtraArgumentIsReportedBeforeAMissingOne)
{
    auto reply =
        MessageWith([](sdbus::Message& message) { message << Dictionary{} << "one more"; });
    EXPECT_EQ(OutcomeOf(reply).find("Couldn't parse"), std::string::npos);
}

TEST(Properties, TheFirstOccurrenceOfARepeatedOneCountsWhateverTheTypes)
{
    const Property wrong = {"Architecture", sdbus::Variant(std::int32_t{1})};
    auto wrongLater = AllProperties();
    wrongLater.push_back(wrong);
    EXPECT_EQ(OutcomeOf(wrongLater), allDescribed);
    auto wrongFirst = AllProperties();
    wrongFirst.insert(wrongFirst.begin(), wrong);
    EXPECT_EQ(OutcomeOf(wrongFirst), TypeErrorText());
}

TEST(Properties, ATypeErrorHasTheTextOfTheVariantThatCouldNotBeEntered)
{
    auto properties = AllProperties();
    properties[1].second = sdbus::Variant(std::int32_t{1});
    properties[4].second = sdbus::Variant("text");
    EXPECT_EQ(OutcomeOf(properties), TypeErrorText());
    std::reverse(properties.begin(), properties.end());
    EXPECT_EQ(OutcomeOf(properties), TypeErrorText());
}

/// Returns a reply in which `text`, which occurs once, is no longer valid UTF-8.
sdbus::PlainMessage DamagedReply(const std::vector<Property>& properties, const std::string& text)
{
    auto reply = Reply(properties);
    const char* key = nullptr;
    {
        // The first key points into the memory of the message.
        reply.enterContainer("{sv}");
        reply.enterDictEntry("sv");
        char* first = nullptr;
        reply >> first;
        key = first;
        reply.rewind(true);
    }
    constexpr std::size_t bodySize = 4096;
    char* const found =
        static_cast<char*>(memmem(const_cast<char*>(key), bodySize, text.c_str(), text.size() + 1));
    EXPECT_NE(found, nullptr);
    if (found != nullptr) {
        *found = '\xff';
    }
    return reply;
}

TEST(Properties, DamageAnywhereIsReportedBeforeAMissingOne)
{
    const auto bigEnough = sdbus::Variant(std::string(5000, 'x'));
    const std::vector<std::vector<Property>> replies = {
        {{"Architecture", sdbus::Variant("damaged")}},
        {{"Architecture", sdbus::Variant("x")}, {"Architecture", sdbus::Variant("damaged")}},
        {{"further", sdbus::Variant(std::vector<std::string>{"damaged"})}},
        {{"VeyraVersion", sdbus::Variant(std::vector<std::string>{"damaged"})}},
        {{"Packages", sdbus::Variant(std::vector<PackageRecord>{
                          {"a", "b", "c", "d", {{"key", sdbus::Variant("damaged")}}}})}},
    };
    for (std::size_t index = 0; index < replies.size(); ++index) {
        auto properties = replies[index];
        properties.push_back({"filler", bigEnough});
        auto reply = DamagedReply(properties, "damaged");
        const std::string outcome = OutcomeOf(reply);
        EXPECT_NE(outcome.find("Failed to deserialize"), std::string::npos) << index << outcome;
    }
}

/// The expected outcome, computed in the plainest way: one property after the other.
std::string PlainOutcome(const std::vector<Property>& properties)
{
    const auto valueOf = [&](const std::string& name) {
        const auto found =
            std::find_if(properties.begin(), properties.end(),
                         [&](const Property& candidate) { return candidate.first == name; });
        return found != properties.end() ? &found->second : nullptr;
    };
    std::vector<const sdbus::Variant*> values;
    for (const Property& property : AllProperties()) {
        values.push_back(valueOf(property.first));
        if (values.back() == nullptr) {
            return "Couldn't parse " + property.first +
                   " property from initial emporium properties";
        }
    }
    for (std::size_t index = 0; index < values.size(); ++index) {
        if (std::string(values[index]->peekValueType()) !=
            AllProperties()[index].second.peekValueType()) {
            return TypeErrorText();
        }
    }
    Properties expected;
    expected.Architecture = values[0]->get<std::string>();
    expected.VeyraVersion = values[1]->get<std::string>();
    for (const auto& record : values[2]->get<std::vector<PackageRecord>>()) {
        expected.Packages.emplace_back(record.get<0>(), record.get<1>(), record.get<2>(),
                                       record.get<3>(), std::map<std::string, std::string>());
    }
    for (auto [list, value] : {std::pair(&expected.Operations, values[3]),
                               std::pair(&expected.CompletedOperations, values[4])}) {
        for (const auto& record : value->get<std::vector<OperationRecord>>()) {
            list->emplace_back(record.get<0>(), record.get<1>(), Common::OperationType::Install,
                               static_cast<Common::OperationStatus>(record.get<3>()),
                               Common::ErrorCode::None);
        }
    }
    return Describe(expected);
}

/// Returns a value of the right type that differs from the one in AllProperties().
sdbus::Variant AnotherValue(std::size_t index)
{
    switch (index) {
    case 2:
        return sdbus::Variant(std::vector<PackageRecord>{{"z", "9", "t", "d", Dictionary{}}});
    case 3:
    case 4:
        return sdbus::Variant(std::vector<OperationRecord>{{"nine", "z", 0, 20, 0}});
    default:
        return sdbus::Variant("another");
    }
}

TEST(Properties, TheOutcomeMatchesPlainReadingForManyReplies)
{
    std::mt19937 random(20261121);
    const auto chance = [&](unsigned of) { return random() % of == 0; };
    std::set<std::string> outcomes;
    for (int round = 0; round < 2000; ++round) {
        auto properties = AllProperties();
        if (chance(3)) {
            properties.erase(properties.begin() +
                             static_cast<std::ptrdiff_t>(random() % properties.size()));
        }
        if (chance(2)) {
            const std::size_t index = random() % 5;
            properties.push_back({AllProperties()[index].first, AnotherValue(index)});
        }
        if (chance(3)) {
            properties[random() % properties.size()].second = sdbus::Variant(std::int32_t{1});
        }
        if (chance(2)) {
            properties.push_back({"further", sdbus::Variant(DictionaryOfEverything())});
        }
        std::shuffle(properties.begin(), properties.end(), random);
        const std::string outcome = OutcomeOf(properties);
        ASSERT_EQ(outcome, PlainOutcome(properties));
        outcomes.insert(outcome);
    }
    // Decoded, with the values of AllProperties() or with one of five replaced; one of five missing;
    // a type error.
    EXPECT_EQ(outcomes.size(), 6U + 5U + 1U);
}

void ExpectDecoded(const std::vector<Dictionary>& dictionaries)
{
    std::vector<PackageRecord> records;
    for (const Dictionary& dictionary : dictionaries) {
        records.emplace_back(std::to_string(records.size()), "version", "subgroup", "certificate",
                             dictionary);
    }
    auto properties = AllProperties();
    properties[2].second = sdbus::Variant(records);
    auto reply = Reply(properties);
    const Properties decoded = Decoder::ReadProperties(reply);
    ASSERT_EQ(decoded.Packages.size(), records.size());
    for (std::size_t position = 0; position < records.size(); ++position) {
        EXPECT_EQ(decoded.Packages[position].GetID(), std::to_string(position));
    }
    EXPECT_EQ(decoded.CompletedOperations.size(), 2U);
}

TEST(Properties, DictionariesWithTheSameKeysAndTypesAreSkipped)
{
    ExpectDecoded(std::vector<Dictionary>(5, DictionaryOfEverything()));
}

TEST(Properties, AKeyMayHoldAnotherTypeInEveryRecord)
{
    std::vector<Dictionary> dictionaries;
    for (const auto& [key, value] : DictionaryOfEverything()) {
        dictionaries.push_back({{"key", value}});
        dictionaries.push_back({{"key", value}});
    }
    ExpectDecoded(dictionaries);
    std::reverse(dictionaries.begin(), dictionaries.end());
    ExpectDecoded(dictionaries);
}

TEST(Properties, TheSamePositionMayHoldAnotherKeyInEveryRecord)
{
    std::vector<Dictionary> dictionaries;
    for (const auto& [key, value] : DictionaryOfEverything()) {
        dictionaries.push_back({{key, value}, {"z", sdbus::Variant(std::int32_t{1})}});
        dictionaries.push_back({});
    }
    ExpectDecoded(dictionaries);
}

TEST(Properties, ADictionaryMayBeLong)
{
    Dictionary dictionary;
    for (int entry = 0; entry < 300; ++entry) {
        dictionary.emplace(std::to_string(entry),
                           entry % 2 == 0 ? sdbus::Variant("text") : sdbus::Variant(entry));
    }
    ExpectDecoded({dictionary, {}, dictionary, dictionary});
}

} // namespace
