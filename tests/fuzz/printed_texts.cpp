// SPDX-License-Identifier: BSD-3-Clause
//
// Texts of the daemon as emporiumctl prints and records them. A table has no control characters and
// fits the terminal; a record is one line of JSON, which the simulator can replay.
#include "emporiumctl/json.h"
#include "emporiumctl/output.h"
#include "fuzz/input.h"
#include "fuzz/operations.h"
#include "simulator/files/recording.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace EmporiumCtl;

bool HasControlCharacters(const std::string& text)
{
    return std::any_of(text.begin(), text.end(), [](unsigned char character) {
        return character < 0x20 || character == 0x7f;
    });
}

void CheckTable(const std::vector<std::vector<std::string>>& rows, std::size_t columns)
{
    std::ostringstream stream;
    Output out{stream};
    out.columns = columns;
    PrintTable(out, rows);
    std::istringstream lines(stream.str());
    std::string line;
    std::size_t count = 0;
    for (; std::getline(lines, line); ++count) {
        Fuzz::Require(!HasControlCharacters(line), "a table has no control characters");
    }
    Fuzz::Require(count == rows.size(), "each row is one line");
}

void CheckRecord(const Emporium::Operation& operation)
{
    const std::string snapshot = Line({{"type", "snapshot"},
                                       {"architecture", operation.GetPackageID()},
                                       {"version", operation.GetUUID()},
                                       {"packages", Json::array()},
                                       {"active", Json::array({ToJson(operation)})},
                                       {"completed", Json::array()}});
    Json event = {{"type", "event"}, {"offset_ms", 1}};
    event.update(EventToJson("OperationStatusChanged", operation));
    static const Fuzz::InputFile file;
    file.Write(snapshot + "\n" + Line(event) + "\n");

    const std::string texts = operation.GetUUID() + operation.GetPackageID();
    if (texts.find('\0') != std::string::npos) {
        return; // the bus has no such text
    }
    const Simulator::Recording recording = Simulator::ReadRecording(file.Path());
    Fuzz::Require(recording.snapshot.active.size() == 1 && recording.events.size() == 1,
                  "the record of an operation can be replayed");
    const auto& replayed = std::get<Simulator::Operation>(recording.events.front().content);
    Fuzz::Require(replayed.status == static_cast<std::int32_t>(operation.GetStatus()) &&
                      replayed.error == static_cast<std::int32_t>(operation.GetErrorCode()),
                  "the numbers are recorded");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fuzz::Input input(data, size);
    const std::size_t columns = input.Byte();
    std::vector<std::vector<std::string>> rows = {{"UUID", "PACKAGE", "TYPE", "STATUS", "ERROR"}};
    do {
        const Emporium::Operation operation = Fuzz::TakeOperation(input);
        rows.push_back({operation.GetUUID(), operation.GetPackageID(), NameOf(operation.GetType()),
                        NameOf(operation.GetStatus()), Describe(operation.GetErrorCode())});
        CheckRecord(operation);
    } while (!input.IsEmpty());
    CheckTable(rows, columns);
    return 0;
}
