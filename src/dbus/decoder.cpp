// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/decoder.h"

#include "dbus/contract.h"
#include "dbus/skip_value.h"

#include <sdbus-c++/Error.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Emporium::Decoder {
namespace {

/// A text inside the message, valid as long as the message lives.
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

/// Calls `visit` with each key of the a{sv} at the message's position. `visit` reads the variant.
template <typename Visit>
void ForEachEntry(sdbus::Message& message, Visit visit)
{
    message.enterContainer(Contract::dictionaryEntry);
    while (Entered(message.enterDictEntry(Contract::dictionaryEntryFields))) {
        visit(ReadText(message));
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

/// In the order of the wire, where the subgroup comes before the certificate ID.
Package ReadPackageFields(sdbus::Message& message)
{
    const char* const id = ReadText(message);
    const char* const version = ReadText(message);
    const char* const subgroup = ReadText(message);
    const char* const certificateID = ReadText(message);
    ForEachEntry(message, [&](const char*) { SkipVariant(message); });
    return Package(id, version, subgroup, certificateID, {});
}

template <typename Record>
std::vector<Record> ReadRecords(sdbus::Message& message, const char* record, const char* fields,
                                Record (*readFields)(sdbus::Message&))
{
    std::vector<Record> records;
    message.enterContainer(record);
    while (Entered(message.enterStruct(fields))) {
        records.push_back(readFields(message));
        message.exitStruct();
    }
    message.exitContainer();
    return records;
}

std::vector<Package> ReadPackages(sdbus::Message& message)
{
    return ReadRecords(message, Contract::packageRecord, Contract::packageFields,
                       ReadPackageFields);
}

std::vector<Operation> ReadOperations(sdbus::Message& message)
{
    return ReadRecords(message, Contract::operationRecord, Contract::operationFields,
                       ReadOperationFields);
}

void ExpectEnd(sdbus::Message& message)
{
    if (!message.isAtEnd(true)) {
        throw sdbus::createError(EBADMSG, "Unexpected arguments in the message");
    }
}

template <typename Record>
Record ReadRecordBody(sdbus::Message& message, const char* fields,
                      Record (*readFields)(sdbus::Message&))
{
    message.enterStruct(fields);
    Record record = readFields(message);
    message.exitStruct();
    ExpectEnd(message);
    return record;
}

struct PropertyReader
{
    std::string_view name;
    const char* signature;
    void (*read)(sdbus::Message&, Properties&);
};

// In the order in which a reply is checked: with two failures, the first one here is reported.
constexpr std::array<PropertyReader, 5> propertyReaders{{
    {Contract::Property::architecture, Contract::string,
     [](sdbus::Message& message, Properties& properties) {
         properties.Architecture = ReadText(message);
     }},
    {Contract::Property::veyraVersion, Contract::string,
     [](sdbus::Message& message, Properties& properties) {
         properties.VeyraVersion = ReadText(message);
     }},
    {Contract::Property::packages, Contract::packageRecordArray,
     [](sdbus::Message& message, Properties& properties) {
         properties.Packages = ReadPackages(message);
     }},
    {Contract::Property::operations, Contract::operationRecordArray,
     [](sdbus::Message& message, Properties& properties) {
         properties.Operations = ReadOperations(message);
     }},
    {Contract::Property::completedOperations, Contract::operationRecordArray,
     [](sdbus::Message& message, Properties& properties) {
         properties.CompletedOperations = ReadOperations(message);
     }},
}};

/// The result of the walk over a reply, for one property.
struct PropertyState
{
    bool present = false;
    std::optional<sdbus::Error> typeError;
};

/// Decodes the value at the message's position. Records a type error and skips the value: entering a
/// variant of another type fails before it consumes anything.
void ReadProperty(sdbus::Message& message, const PropertyReader& reader, PropertyState& state,
                  Properties& properties)
{
    state.present = true;
    try {
        message.enterVariant(reader.signature);
    } catch (const sdbus::Error& error) {
        state.typeError = error;
        SkipVariant(message);
        return;
    }
    reader.read(message, properties);
    message.exitVariant();
}

using PropertyStates = std::array<PropertyState, propertyReaders.size()>;

/// The index of a property in propertyReaders, or its size for an unknown one.
std::size_t PropertyIndex(std::string_view name)
{
    std::size_t index = 0;
    while (index < propertyReaders.size() && propertyReaders[index].name != name) {
        ++index;
    }
    return index;
}

void ThrowFirstFailure(const PropertyStates& states)
{
    for (std::size_t index = 0; index < states.size(); ++index) {
        if (!states[index].present) {
            throw std::runtime_error("Couldn't parse " + std::string(propertyReaders[index].name) +
                                     " property from initial emporium properties");
        }
    }
    for (const PropertyState& state : states) {
        if (state.typeError) {
            throw sdbus::Error(*state.typeError);
        }
    }
}

} // namespace

Operation ReadOperationBody(sdbus::Message& message)
{
    if (message.isEmpty()) {
        return Operation();
    }
    return ReadRecordBody(message, Contract::operationFields, ReadOperationFields);
}

Package ReadPackageBody(sdbus::Message& message)
{
    return ReadRecordBody(message, Contract::packageFields, ReadPackageFields);
}

std::string ReadStringBody(sdbus::Message& message)
{
    std::string text = ReadText(message);
    ExpectEnd(message);
    return text;
}

Properties ReadProperties(sdbus::Message& reply)
{
    Properties properties;
    PropertyStates states;
    ForEachEntry(reply, [&](const char* name) {
        const std::size_t index = PropertyIndex(name);
        const bool isFirst = index < states.size() && !states[index].present;
        if (isFirst) {
            ReadProperty(reply, propertyReaders[index], states[index], properties);
        } else {
            SkipVariant(reply);
        }
    });
    ExpectEnd(reply);
    ThrowFirstFailure(states);
    return properties;
}

} // namespace Emporium::Decoder
