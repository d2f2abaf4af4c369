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

/// A value of a line, and the name of its field for messages.
class Field
{
public:
    Field(const Json& value, std::string name) : m_value(value), m_name(std::move(name)) {}

    bool IsObject() const { return m_value.is_object(); }
    bool Has(const char* key) const { return m_value.contains(key); }

    Field Member(const char* key) const
    {
        if (!m_value.is_object()) {
            throw Error("is not an object");
        }
        const auto member = m_value.find(key);
        const std::string name = m_name.empty() ? key : m_name + "." + key;
        if (member == m_value.end()) {
            throw std::invalid_argument("the field " + name + " is missing");
        }
        return {*member, name};
    }

    // The bus cannot transport a text with a zero byte.
    std::string Text() const
    {
        if (!m_value.is_string()) {
            throw Error("is not a text");
        }
        std::string text = m_value.get<std::string>();
        if (text.find('\0') != std::string::npos) {
            throw Error("has a zero byte");
        }
        return text;
    }

    std::int32_t Number() const
    {
        if (!m_value.is_number_integer()) {
            throw Error("is not a whole number");
        }
        const bool huge = m_value.is_number_unsigned() && m_value.get<std::uint64_t>() > G_MAXINT32;
        const auto number = huge ? std::int64_t{G_MAXINT64} : m_value.get<std::int64_t>();
        if (number < G_MININT32 || number > G_MAXINT32) {
            throw Error("does not fit 32 bits");
        }
        return static_cast<std::int32_t>(number);
    }

    double Offset() const
    {
        const double offset = m_value.is_number() ? m_value.get<double>() : -1;
        if (!(offset >= 0 && offset < longestOffset)) {
            throw Error("is not a number of milliseconds");
        }
        return offset;
    }

    std::vector<Field> List() const
    {
        if (!m_value.is_array()) {
            throw Error("is not a list");
        }
        std::vector<Field> list;
        for (const Json& value : m_value) {
            list.emplace_back(value, m_name + "[" + std::to_string(list.size()) + "]");
        }
        return list;
    }

    std::invalid_argument Error(const std::string& text) const
    {
        return std::invalid_argument((m_name.empty() ? "the line " : "the field " + m_name + " ") +
                                     text);
    }

private:
    const Json& m_value;
    std::string m_name;
};

Package ReadPackage(const Field& object)
{
    return {object.Member("id").Text(),
            object.Member("version").Text(),
            object.Member("subgroup").Text(),
            object.Member("developer").Text(),
            {}};
}

Operation ReadOperation(const Field& object)
{
    return {object.Member("uuid").Text(), object.Member("package").Text(),
            object.Member("type").Number(), object.Member("status").Number(),
            object.Member("error").Number()};
}

Catalogue ReadLists(const Field& object)
{
    Catalogue lists = {
        object.Member("architecture").Text(), object.Member("version").Text(), {}, {}, {}};
    for (const Field& package : object.Member("packages").List()) {
        lists.packages.push_back(ReadPackage(package));
    }
    for (const Field& operation : object.Member("active").List()) {
        lists.active.push_back(ReadOperation(operation));
    }
    for (const Field& operation : object.Member("completed").List()) {
        lists.completed.push_back(ReadOperation(operation));
    }
    return lists;
}

Catalogue ReadSnapshot(const Field& object)
{
    const Field type = object.Member("type");
    if (type.Text() != "snapshot") {
        throw type.Error("is not \"snapshot\", with which a recording begins");
    }
    return ReadLists(object);
}

// A removed package may be recorded as an object or as its ID alone.
std::string RemovedId(const Field& package)
{
    return package.IsObject() ? package.Member("id").Text() : package.Text();
}

RecordedEvent ReadEvent(const Field& object)
{
    const Field type = object.Member("type");
    if (type.Text() != "event") {
        throw type.Error("is not \"event\"");
    }
    RecordedEvent event;
    event.offsetMilliseconds = object.Member("offset_ms").Offset();
    const Field name = object.Member("event");
    const std::string text = name.Text();
    if (text == Contract::Signal::operationStatusChanged) {
        event.content = ReadOperation(object.Member("operation"));
    } else if (text == Contract::Signal::packageInstalled ||
               text == Contract::Signal::packageUpgraded) {
        event.content = PackageArrival{ReadPackage(object.Member("package")),
                                       text == Contract::Signal::packageUpgraded};
    } else if (text == Contract::Signal::packageRemoved) {
        event.content = PackageRemoval{RemovedId(object.Member("package"))};
    } else if (text == "DaemonVanished") {
        event.content = DaemonLoss{};
    } else if (text == "DaemonAppeared") {
        event.content = DaemonReturn{ReadLists(object.Member("snapshot"))};
    } else {
        throw name.Error("is not the name of an event: " + text);
    }
    return event;
}

void ReadLine(const std::string& text, std::size_t line, Recording& recording)
{
    const Json object = Json::parse(text);
    if (line == 1) {
        recording.snapshot = ReadSnapshot({object, {}});
    } else {
        recording.events.push_back(ReadEvent({object, {}}));
    }
}

} // namespace

Recording ReadRecording(const std::string& path)
{
    Recording recording;
    std::string content = ReadStreamUnchecked(path, largestRecording);
    // A crash while recording cuts the last line, perhaps within a character.
    const auto lastLine = content.rfind('\n') + 1;
    if (lastLine != 0 && lastLine < content.size() && !Json::accept(content.substr(lastLine))) {
        content.resize(lastLine);
        recording.cut = true;
    }
    RequireText(path, content);
    std::istringstream lines(content);
    std::string text;
    std::size_t line = 0;
    while (std::getline(lines, text)) {
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
