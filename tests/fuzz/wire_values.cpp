// SPDX-License-Identifier: BSD-3-Clause
//
// Correct messages of any signature, given to every decoder. A decoder takes a message if, and only if,
// it has the signature of the contract, and then reads what the bus library's own operators read.
#include "dbus/contract.h"
#include "dbus/decoder.h"
#include "fuzz/describe.h"
#include "fuzz/input.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace Emporium;
using Fuzz::Describe;

using OperationRecord =
    sdbus::Struct<std::string, std::string, std::int32_t, std::int32_t, std::int32_t>;
using Dictionary = std::map<std::string, sdbus::Variant>;
using PackageRecord = sdbus::Struct<std::string, std::string, std::string, std::string, Dictionary>;

constexpr std::string_view basicTypes = "ybnqiuxtdsogh";
constexpr int deepest = 6;
constexpr std::size_t mostItems = 4;

// --- values of any type ---

std::string TakeType(Fuzz::Input& input, int depth = 0)
{
    const std::size_t choice = depth < deepest ? input.Below(20) : input.Below(basicTypes.size());
    if (choice < basicTypes.size()) {
        return std::string(1, basicTypes[choice]);
    }
    switch (choice) {
    case 13:
    case 14:
        return "v";
    case 15:
        return "a{" + std::string(1, basicTypes[input.Below(basicTypes.size())]) +
               TakeType(input, depth + 1) + "}";
    case 16: {
        std::string type = "(";
        for (std::size_t count = 1 + input.Below(3); count > 0; --count) {
            type += TakeType(input, depth + 1);
        }
        return type + ")";
    }
    case 17:
        return Contract::packageRecord;
    default:
        return "a" + TakeType(input, depth + 1);
    }
}

/// The length of the first complete type.
std::size_t LengthOfType(std::string_view types)
{
    if (types.front() == 'a') {
        return 1 + LengthOfType(types.substr(1));
    }
    std::size_t length = 0;
    int open = 0;
    do {
        const char letter = types[length++];
        open += letter == '(' || letter == '{' ? 1 : 0;
        open -= letter == ')' || letter == '}' ? 1 : 0;
    } while (open > 0);
    return length;
}

std::string TakeText(Fuzz::Input& input)
{
    std::string text;
    for (const char character : input.Bytes(input.Below(32))) {
        const bool isPlain = character > 0 && character < 0x7f;
        text += isPlain ? std::string(1, character) : "ä";
    }
    return text;
}

void Append(sdbus::Message& message, std::string_view types, Fuzz::Input& input, int depth = 0);

void AppendVariant(sdbus::Message& message, Fuzz::Input& input, int depth)
{
    const std::string type = TakeType(input, depth + 1);
    message.openVariant(type.c_str());
    Append(message, type, input, depth + 1);
    message.closeVariant();
}

void AppendBasic(sdbus::Message& message, char type, Fuzz::Input& input)
{
    switch (type) {
    case 'y':
        message << input.Byte();
        break;
    case 'b':
        message << (input.Below(2) != 0);
        break;
    case 'n':
        message << input.Take<std::int16_t>();
        break;
    case 'q':
        message << input.Take<std::uint16_t>();
        break;
    case 'i':
        message << input.Take<std::int32_t>();
        break;
    case 'u':
        message << input.Take<std::uint32_t>();
        break;
    case 'x':
        message << input.Take<std::int64_t>();
        break;
    case 't':
        message << input.Take<std::uint64_t>();
        break;
    case 'd':
        message << input.Take<double>();
        break;
    case 'o':
        message << sdbus::ObjectPath("/a" + std::to_string(input.Byte()));
        break;
    case 'g':
        message << sdbus::Signature(TakeType(input));
        break;
    case 'h':
        message << sdbus::UnixFd(STDERR_FILENO);
        break;
    default:
        message << TakeText(input);
        break;
    }
}

void AppendArray(sdbus::Message& message, const std::string& content, Fuzz::Input& input, int depth)
{
    message.openContainer(content.c_str());
    for (std::size_t count = input.Below(mostItems); count > 0; --count) {
        Append(message, content, input, depth + 1);
    }
    message.closeContainer();
}

void AppendOne(sdbus::Message& message, std::string_view type, Fuzz::Input& input, int depth)
{
    const std::string content(type.size() > 2 ? type.substr(1, type.size() - 2) : "");
    switch (type.front()) {
    case 'v':
        AppendVariant(message, input, depth);
        break;
    case 'a':
        AppendArray(message, std::string(type.substr(1)), input, depth);
        break;
    case '(':
        message.openStruct(content.c_str());
        Append(message, content, input, depth + 1);
        message.closeStruct();
        break;
    case '{':
        message.openDictEntry(content.c_str());
        Append(message, content, input, depth + 1);
        message.closeDictEntry();
        break;
    default:
        AppendBasic(message, type.front(), input);
        break;
    }
}

void Append(sdbus::Message& message, std::string_view types, Fuzz::Input& input, int depth)
{
    while (!types.empty()) {
        const std::size_t length = LengthOfType(types);
        AppendOne(message, types.substr(0, length), input, depth);
        types.remove_prefix(length);
    }
}

// --- bodies ---

/// A reply with all properties: in any order, some missing or repeated, some of another type.
void AppendProperties(sdbus::Message& message, Fuzz::Input& input)
{
    message.openContainer(Contract::dictionaryEntry);
    for (std::size_t count = input.Below(12); count > 0; --count) {
        const Contract::PropertyShape& property = Contract::allProperties[input.Below(5)];
        const std::size_t choice = input.Below(8);
        const std::string type = choice == 0 ? TakeType(input) : property.signature;
        message.openDictEntry(Contract::dictionaryEntryFields);
        message << (choice == 1 ? TakeText(input) : std::string(property.name));
        message.openVariant(type.c_str());
        Append(message, type, input);
        message.closeVariant();
        message.closeDictEntry();
    }
    message.closeContainer();
}

/// Returns the signature.
std::string AppendBody(sdbus::Message& message, Fuzz::Input& input)
{
    constexpr std::array<const char*, 4> contract = {Contract::operationRecord,
                                                     Contract::packageRecord, Contract::string, ""};
    std::string signature;
    const std::size_t choice = input.Below(8);
    if (choice < 3) {
        AppendProperties(message, input);
        signature = Contract::dictionary;
    } else {
        signature = choice < 7 ? contract[choice - 3] : TakeType(input);
        Append(message, signature, input);
    }
    if (input.Below(4) == 0) {
        const std::string more = TakeType(input);
        Append(message, more, input);
        signature += more;
    }
    return signature;
}

// --- the two ways of reading ---

std::string Describe(const OperationRecord& record)
{
    return record.get<0>() + "|" + record.get<1>() + "|" + std::to_string(record.get<2>()) + "|" +
           std::to_string(record.get<3>()) + "|" + std::to_string(record.get<4>()) + "\n";
}

std::string Describe(const PackageRecord& record)
{
    return record.get<0>() + "|" + record.get<1>() + "|" + record.get<2>() + "|" + record.get<3>() +
           "\n";
}

template <typename Record>
std::string DescribeRecords(const std::vector<Record>& records)
{
    std::string text = "[";
    for (const Record& record : records) {
        text += Describe(record);
    }
    return text + "]";
}

std::string Describe(std::string text)
{
    return text;
}

/// Nothing if the decoder refuses the message.
template <typename Content>
std::optional<std::string> Decoded(sdbus::Message& message, Content (*read)(sdbus::Message&))
{
    try {
        message.rewind(true);
        return Describe(read(message));
    } catch (const sdbus::Error&) {
        return std::nullopt;
    } catch (const std::runtime_error& error) {
        Fuzz::Require(std::string_view(error.what()).starts_with("Couldn't parse "),
                      "the only other failure is a missing property");
        return std::nullopt;
    }
}

template <typename Content>
std::string Plain(sdbus::Message& message)
{
    message.rewind(true);
    Content content;
    message >> content;
    return Describe(content);
}

/// Of a repeated key, the first value is kept.
std::optional<std::string> PlainProperties(sdbus::Message& message)
{
    message.rewind(true);
    Dictionary dictionary;
    message >> dictionary;
    std::vector<sdbus::Variant> values;
    for (const Contract::PropertyShape& property : Contract::allProperties) {
        const auto found = dictionary.find(property.name);
        if (found == dictionary.end() ||
            std::string_view(found->second.peekValueType()) != property.signature) {
            return std::nullopt;
        }
        values.push_back(found->second);
    }
    return values[0].get<std::string>() + "|" + values[1].get<std::string>() + "|" +
           DescribeRecords(values[2].get<std::vector<PackageRecord>>()) +
           DescribeRecords(values[3].get<std::vector<OperationRecord>>()) +
           DescribeRecords(values[4].get<std::vector<OperationRecord>>());
}

template <typename Content>
std::optional<std::string> PlainIf(bool isContract, sdbus::Message& message)
{
    return isContract ? std::optional(Plain<Content>(message)) : std::nullopt;
}

/// Throws if the bus library's own operators cannot read the message.
void Compare(sdbus::Message& message, std::string_view signature)
{
    Fuzz::Require(Decoded(message, Decoder::ReadOperationBody) ==
                      (signature.empty() ? Describe(Operation())
                                         : PlainIf<OperationRecord>(
                                               signature == Contract::operationRecord, message)),
                  "an operation is read if the message has one, or nothing");
    Fuzz::Require(Decoded(message, Decoder::ReadPackageBody) ==
                      PlainIf<PackageRecord>(signature == Contract::packageRecord, message),
                  "a package is read if the message has one");
    Fuzz::Require(Decoded(message, Decoder::ReadStringBody) ==
                      PlainIf<std::string>(signature == Contract::string, message),
                  "a text is read if the message has one");
    Fuzz::Require(Decoded(message, Decoder::ReadProperties) ==
                      (signature == Contract::dictionary ? PlainProperties(message) : std::nullopt),
                  "the properties are read if all are there with their types");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fuzz::Input input(data, size);
    sdbus::PlainMessage message = sdbus::createPlainMessage();
    try {
        const std::string signature = AppendBody(message, input);
        message.seal();
        Compare(message, signature);
    } catch (const sdbus::Error&) {
        return 0; // the signature or the content is too long or too deep
    }
    return 0;
}
