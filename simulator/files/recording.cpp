// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/files/recording.h"

#include "dbus/contract.h"
#include "simulator/files/input_error.h"
#include "simulator/files/text_file.h"

#include <nlohmann/json.hpp>

#include <sstream>
#include <stdexcept>

namespace Simulator {

namespace {

namespace Contract = Emporium::Contract;
using Json = nlohmann::json;

constexpr std::size_t largestRecording = 512U << 20U;
constexpr double longestOffset = 4e12;

// The bus cannot transport a text with a zero byte.
std::string Text(const Json& object, const char* key)
{
    std::string text = object.at(key).get<std::string>();
    if (text.find('\0') != std::string::npos) {
        throw std::invalid_argument(std::string("a zero byte in ") + key);
    }
    return text;
}

std::int32_t Number(const Json& object, const char* key)
{
    const Json& value = object.at(key);
    if (!value.is_number_integer()) {
        throw std::invalid_argument(std::string(key) + " is not a whole number");
    }
    const bool huge = value.is_number_unsigned() && value.get<std::uint64_t>() > G_MAXINT32;
    const auto number = huge ? std::int64_t{G_MAXINT64} : value.get<std::int64_t>();
    if (number < G_MININT32 || number > G_MAXINT32) {
        throw std::invalid_argument(std::string(key) + " does not fit 32 bits");
    }
    return static_cast<std::int32_t>(number);
}

Package ReadPackage(const Json& object)
{
    return {Text(object, "id"),
            Text(object, "version"),
            Text(object, "subgroup"),
            Text(object, "developer"),
            {}};
}

Operation ReadOperation(const Json& object)
{
    return {Text(object, "uuid"), Text(object, "package"), Number(object, "type"),
            Number(object, "status"), Number(object, "error")};
}

const Json& List(const Json& object, const char* key)
{
    const Json& list = object.at(key);
    if (!list.is_array()) {
        throw std::invalid_argument(std::string(key) + " is not a list");
    }
    return list;
}

Catalogue ReadSnapshot(const Json& object)
{
    if (Text(object, "type") != "snapshot") {
        throw std::invalid_argument("a recording begins with its snapshot");
    }
    Catalogue snapshot = {Text(object, "architecture"), Text(object, "version"), {}, {}, {}};
    for (const Json& package : List(object, "packages")) {
        snapshot.packages.push_back(ReadPackage(package));
    }
    for (const Json& operation : List(object, "active")) {
        snapshot.active.push_back(ReadOperation(operation));
    }
    for (const Json& operation : List(object, "completed")) {
        snapshot.completed.push_back(ReadOperation(operation));
    }
    return snapshot;
}

// A removed package may be recorded as an object or as its ID alone.
std::string RemovedId(const Json& package)
{
    return package.is_object() ? Text(package, "id") : package.get<std::string>();
}

RecordedEvent ReadEvent(const Json& object)
{
    if (Text(object, "type") != "event") {
        throw std::invalid_argument("neither a snapshot nor an event");
    }
    RecordedEvent event;
    event.offsetMilliseconds = object.at("offset_ms").get<double>();
    if (!(event.offsetMilliseconds >= 0 && event.offsetMilliseconds < longestOffset)) {
        throw std::invalid_argument("offset_ms is out of range");
    }
    const std::string name = Text(object, "event");
    if (name == Contract::Signal::operationStatusChanged) {
        event.content = ReadOperation(object.at("operation"));
    } else if (name == Contract::Signal::packageInstalled ||
               name == Contract::Signal::packageUpgraded) {
        event.content = PackageArrival{ReadPackage(object.at("package")),
                                       name == Contract::Signal::packageUpgraded};
    } else if (name == Contract::Signal::packageRemoved) {
        event.content = PackageRemoval{RemovedId(object.at("package"))};
    } else {
        throw std::invalid_argument("unknown event " + name);
    }
    return event;
}

void ReadLine(const std::string& text, std::size_t line, Recording& recording)
{
    const Json object = Json::parse(text);
    if (line == 1) {
        recording.snapshot = ReadSnapshot(object);
    } else {
        recording.events.push_back(ReadEvent(object));
    }
}

} // namespace

Recording ReadRecording(const std::string& path)
{
    Recording recording;
    std::istringstream content(ReadTextFile(path, largestRecording));
    std::string text;
    std::size_t line = 0;
    while (std::getline(content, text)) {
        ++line;
        try {
            ReadLine(text, line, recording);
        } catch (const std::exception& error) {
            throw InputError(path, line, error.what());
        }
    }
    if (line == 0) {
        throw InputError(path, 1, "an empty recording");
    }
    return recording;
}

} // namespace Simulator
