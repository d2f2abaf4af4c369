// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/decoder.h"

#include "dbus/contract.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Types.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <utility>

namespace Emporium::Decoder {
namespace {

/// The text where it stands in the message; it lives as long as the message does.
const char* ReadText(sdbus::Message& message)
{
    char* text = nullptr;
    message >> text;
    return text;
}

template <typename Number>
Number Read(sdbus::Message& message)
{
    Number number{};
    message >> number;
    return number;
}

/// True if a container was entered, false at the end of the array around it.
bool Entered(sdbus::Message& message)
{
    const bool entered = static_cast<bool>(message);
    message.clearFlags();
    return entered;
}

void DropValue(sdbus::Message& message, char type, const char* content);

/// The rest of a variant that was entered with this signature.
void DropEnteredVariant(sdbus::Message& message, const char* signature)
{
    // A variant holds one value, and its signature is all that is needed to read a basic one.
    if (signature[0] != '\0' && signature[1] == '\0') {
        DropValue(message, signature[0], nullptr);
    } else {
        const auto [type, content] = message.peekType();
        DropValue(message, type, content);
    }
    message.exitVariant();
}

void DropVariant(sdbus::Message& message, const char* signature)
{
    message.enterVariant(signature);
    DropEnteredVariant(message, signature);
}

void DropVariant(sdbus::Message& message)
{
    DropVariant(message, message.peekType().second);
}

void DropValues(sdbus::Message& message)
{
    for (auto [type, content] = message.peekType(); type != '\0';
         std::tie(type, content) = message.peekType()) {
        DropValue(message, type, content);
    }
}

void DropArray(sdbus::Message& message, const char* element)
{
    if (std::string_view("ynqiuxtd").find(element[0]) != std::string_view::npos) {
        const void* items = nullptr;
        std::size_t size = 0;
        message.readArray(element[0], &items, &size);
        return;
    }
    // peekType()'s text does not outlive the next reading.
    const std::string signature = element;
    message.enterContainer(signature.c_str());
    DropValues(message);
    message.exitContainer();
}

void DropStruct(sdbus::Message& message, const char* content)
{
    const std::string signature = content;
    message.enterStruct(signature.c_str());
    DropValues(message);
    message.exitStruct();
}

void DropDictionaryEntry(sdbus::Message& message, const char* content)
{
    const std::string signature = content;
    message.enterDictEntry(signature.c_str());
    DropValues(message);
    message.exitDictEntry();
}

void DropValue(sdbus::Message& message, char type, const char* content)
{
    switch (type) {
    case 's':
        ReadText(message);
        return;
    case 'b':
        Read<bool>(message);
        return;
    case 'y':
        Read<std::uint8_t>(message);
        return;
    case 'n':
        Read<std::int16_t>(message);
        return;
    case 'q':
        Read<std::uint16_t>(message);
        return;
    case 'i':
        Read<std::int32_t>(message);
        return;
    case 'u':
        Read<std::uint32_t>(message);
        return;
    case 'x':
        Read<std::int64_t>(message);
        return;
    case 't':
        Read<std::uint64_t>(message);
        return;
    case 'd':
        Read<double>(message);
        return;
    case 'o':
        Read<sdbus::ObjectPath>(message);
        return;
    case 'g':
        Read<sdbus::Signature>(message);
        return;
    case 'h':
        Read<sdbus::UnixFd>(message);
        return;
    case 'v':
        DropVariant(message);
        return;
    case 'a':
        DropArray(message, content);
        return;
    case 'r':
        DropStruct(message, content);
        return;
    case 'e':
        DropDictionaryEntry(message, content);
        return;
    default:
        throw sdbus::createError(EBADMSG, "Failed to read a value of unknown type");
    }
}

/// What the dictionaries of the records before held. To ask the message for the type of a variant
/// costs a sixth of the whole entry, and a key mostly holds the same type in all records.
class ExpectedTypes
{
public:
    /// The signature of the variant under this key at this place, or null if nothing is known.
    const char* Find(std::size_t place, const char* key) const
    {
        const bool known = place < m_entries.size() && m_entries[place].key == key;
        return known ? m_entries[place].signature.c_str() : nullptr;
    }

    void Learn(std::size_t place, const char* key, const char* signature)
    {
        if (m_wrong || place >= maximumPlaces) {
            return;
        }
        m_entries.resize(std::max(m_entries.size(), place + 1));
        m_entries[place].key = key;
        m_entries[place].signature = signature;
    }

    /// To be wrong once costs more than to be right often saves, so nothing is expected any more.
    void GiveUp()
    {
        m_entries.clear();
        m_wrong = true;
    }

private:
    struct Entry
    {
        std::string key;
        std::string signature;
    };

    static constexpr std::size_t maximumPlaces = 64;

    std::vector<Entry> m_entries;
    bool m_wrong = false;
};

/// False, with the message as it was, if the variant holds another type.
bool EnteredVariant(sdbus::Message& message, const char* signature)
{
    try {
        message.enterVariant(signature);
        return true;
    } catch (const sdbus::Error&) {
        return false;
    }
}

/// The variant under this key, at this place of its dictionary.
void DropVariant(sdbus::Message& message, ExpectedTypes& types, std::size_t place, const char* key)
{
    if (const char* const expected = types.Find(place, key)) {
        if (EnteredVariant(message, expected)) {
            DropEnteredVariant(message, expected);
            return;
        }
        types.GiveUp();
    }
    const char* const signature = message.peekType().second;
    types.Learn(place, key, signature);
    DropVariant(message, signature);
}

/// `types` may be null where there is one record only.
void DropDictionary(sdbus::Message& message, ExpectedTypes* types)
{
    message.enterContainer(Contract::dictionaryEntry);
    for (std::size_t place = 0; Entered(message.enterDictEntry(Contract::dictionaryEntryFields));
         ++place) {
        const char* const key = ReadText(message);
        if (types != nullptr) {
            DropVariant(message, *types, place, key);
        } else {
            DropVariant(message);
        }
        message.exitDictEntry();
    }
    message.exitContainer();
}

Operation ReadOperationFields(sdbus::Message& message)
{
    const char* const uuid = ReadText(message);
    const char* const packageID = ReadText(message);
    const auto type = Read<std::int32_t>(message);
    const auto status = Read<std::int32_t>(message);
    const auto errorCode = Read<std::int32_t>(message);
    return Operation(uuid, packageID, static_cast<Common::OperationType>(type),
                     static_cast<Common::OperationStatus>(status),
                     static_cast<Common::ErrorCode>(errorCode));
}

/// The fields in the order of the wire, on which the subgroup comes before the certificate ID.
Package ReadPackageFields(sdbus::Message& message, ExpectedTypes* types)
{
    const char* const id = ReadText(message);
    const char* const version = ReadText(message);
    const char* const subgroup = ReadText(message);
    const char* const certificateID = ReadText(message);
    DropDictionary(message, types);
    return Package(id, version, subgroup, certificateID, {});
}

/// All operations of the array at which the message stands.
void ReadOperations(sdbus::Message& message, std::vector<Operation>& operations)
{
    message.enterContainer(Contract::operationRecord);
    while (Entered(message.enterStruct(Contract::operationFields))) {
        operations.push_back(ReadOperationFields(message));
        message.exitStruct();
    }
    message.exitContainer();
}

/// All packages of the array at which the message stands.
void ReadPackages(sdbus::Message& message, std::vector<Package>& packages)
{
    ExpectedTypes types;
    message.enterContainer(Contract::packageRecord);
    while (Entered(message.enterStruct(Contract::packageFields))) {
        packages.push_back(ReadPackageFields(message, &types));
        message.exitStruct();
    }
    message.exitContainer();
}

/// A property: its name, the signature of its value, and how the value is read.
struct PropertyReader
{
    std::string_view name;
    const char* signature;
    void (*read)(sdbus::Message&, Properties&);
};

// In the order in which a reply is checked and decoded.
constexpr std::array<PropertyReader, 5> propertyReaders{{
    {Contract::Property::architecture, "s",
     [](sdbus::Message& message, Properties& properties) {
         properties.Architecture = ReadText(message);
     }},
    {Contract::Property::veyraVersion, "s",
     [](sdbus::Message& message, Properties& properties) {
         properties.VeyraVersion = ReadText(message);
     }},
    {Contract::Property::packages, Contract::packageRecordArray,
     [](sdbus::Message& message, Properties& properties) {
         ReadPackages(message, properties.Packages);
     }},
    {Contract::Property::operations, Contract::operationRecordArray,
     [](sdbus::Message& message, Properties& properties) {
         ReadOperations(message, properties.Operations);
     }},
    {Contract::Property::completedOperations, Contract::operationRecordArray,
     [](sdbus::Message& message, Properties& properties) {
         ReadOperations(message, properties.CompletedOperations);
     }},
}};

void ReadProperty(sdbus::Message& message, const PropertyReader& reader, Properties& properties)
{
    message.enterVariant(reader.signature);
    reader.read(message, properties);
    message.exitVariant();
}

void ExpectEnd(sdbus::Message& message)
{
    if (!message.isAtEnd(true)) {
        throw sdbus::createError(EBADMSG, "Unexpected arguments in the message");
    }
}

/// The place of a property among propertyReaders, or their number for one that is not known.
std::size_t PropertyIndex(std::string_view name)
{
    std::size_t index = 0;
    while (index < propertyReaders.size() && propertyReaders[index].name != name) {
        ++index;
    }
    return index;
}

/// Walks the whole reply, so that damage anywhere in it is noticed, and tells which properties
/// there are.
std::array<bool, propertyReaders.size()> FindProperties(sdbus::Message& reply)
{
    std::array<bool, propertyReaders.size()> present{};
    reply.enterContainer(Contract::dictionaryEntry);
    while (Entered(reply.enterDictEntry(Contract::dictionaryEntryFields))) {
        const std::size_t index = PropertyIndex(ReadText(reply));
        if (index < present.size()) {
            present[index] = true;
        }
        DropVariant(reply);
        reply.exitDictEntry();
    }
    reply.exitContainer();
    ExpectEnd(reply);
    return present;
}

/// Reads the first value that the reply has for this property.
void FindAndReadProperty(sdbus::Message& reply, const PropertyReader& reader,
                         Properties& properties)
{
    reply.rewind(true);
    reply.enterContainer(Contract::dictionaryEntry);
    while (Entered(reply.enterDictEntry(Contract::dictionaryEntryFields))) {
        if (ReadText(reply) == reader.name) {
            ReadProperty(reply, reader, properties);
            return;
        }
        DropVariant(reply);
        reply.exitDictEntry();
    }
}

} // namespace

Operation ReadOperation(sdbus::Message& message)
{
    message.enterStruct(Contract::operationFields);
    Operation operation = ReadOperationFields(message);
    message.exitStruct();
    return operation;
}

Package ReadPackage(sdbus::Message& message)
{
    message.enterStruct(Contract::packageFields);
    Package package = ReadPackageFields(message, nullptr);
    message.exitStruct();
    return package;
}

Operation ReadOperationBody(sdbus::Message& message)
{
    if (message.isEmpty()) {
        return Operation();
    }
    Operation operation = ReadOperation(message);
    ExpectEnd(message);
    return operation;
}

Package ReadPackageBody(sdbus::Message& message)
{
    Package package = ReadPackage(message);
    ExpectEnd(message);
    return package;
}

std::string ReadStringBody(sdbus::Message& message)
{
    std::string text = ReadText(message);
    ExpectEnd(message);
    return text;
}

void ReadEmptyBody(sdbus::Message& message)
{
    ExpectEnd(message);
}

bool ReadPropertiesStraight(sdbus::Message& reply, Properties& properties)
{
    std::array<bool, propertyReaders.size()> present{};
    std::size_t count = 0;
    try {
        reply.enterContainer(Contract::dictionaryEntry);
        while (Entered(reply.enterDictEntry(Contract::dictionaryEntryFields))) {
            const std::size_t index = PropertyIndex(ReadText(reply));
            if (index == present.size()) {
                DropVariant(reply);
            } else if (std::exchange(present[index], true)) {
                return false;
            } else {
                ReadProperty(reply, propertyReaders[index], properties);
                ++count;
            }
            reply.exitDictEntry();
        }
        reply.exitContainer();
    } catch (const sdbus::Error&) {
        return false;
    }
    return count == present.size() && reply.isAtEnd(true);
}

Properties ReadPropertiesThoroughly(sdbus::Message& reply)
{
    const auto present = FindProperties(reply);
    for (std::size_t index = 0; index < present.size(); ++index) {
        if (!present[index]) {
            throw std::runtime_error("Couldn't parse " + std::string(propertyReaders[index].name) +
                                     " property from initial emporium properties");
        }
    }
    Properties properties;
    for (const PropertyReader& reader : propertyReaders) {
        FindAndReadProperty(reply, reader, properties);
    }
    return properties;
}

Properties ReadProperties(sdbus::Message& reply)
{
    Properties properties;
    if (ReadPropertiesStraight(reply, properties)) {
        return properties;
    }
    reply.clearFlags();
    reply.rewind(true);
    return ReadPropertiesThoroughly(reply);
}

} // namespace Emporium::Decoder
