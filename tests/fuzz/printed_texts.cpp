// SPDX-License-Identifier: BSD-3-Clause
//
// Texts of the daemon as emporiumctl prints and records them. A table has no control characters and
// fits the terminal; a record is one line of JSON, which the simulator can replay.
#include "emporiumctl/json.h"
#include "emporiumctl/names.h"
#include "emporiumctl/output.h"
#include "emporiumctl/table.h"
#include "fuzz/input.h"
#include "fuzz/operations.h"
#include "simulator/files/recording.h"
#include "text/printable.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

namespace {

using namespace EmporiumCtl;

/// Standard output, which is a file in memory as long as the object exists.
class CapturedOutput
{
public:
    CapturedOutput() { dup2(File(), STDOUT_FILENO); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
    ~CapturedOutput()
    {
        dup2(Original(), STDOUT_FILENO);
        Fuzz::Require(ftruncate(File(), 0) == 0 && lseek(File(), 0, SEEK_SET) == 0,
                      "the file can be emptied");
    }

    static std::string Text()
    {
        std::string text(static_cast<std::size_t>(lseek(File(), 0, SEEK_END)), '\0');
        const ssize_t size = pread(File(), text.data(), text.size(), 0);
        Fuzz::Require(size == static_cast<ssize_t>(text.size()), "the file can be read");
        return text;
    }

private:
    static int Original()
    {
        static const int descriptor = dup(STDOUT_FILENO);
        return descriptor;
    }

    static int File()
    {
        static const int descriptor = memfd_create("output", MFD_CLOEXEC);
        static_cast<void>(Original()); // before the first replacement
        return descriptor;
    }
};

bool HasControlCharacters(const std::string& text)
{
    return std::any_of(text.begin(), text.end(), [](unsigned char character) {
        return character < 0x20 || character == 0x7f;
    });
}

void CheckTable(const std::vector<Row>& rows)
{
    const CapturedOutput captured;
    Output out{OutputStyle{}};
    PrintTable(out, {"UUID", "PACKAGE", "TYPE", "STATUS", "ERROR"}, rows, {});
    Fuzz::Require(out.Flush(), "a file can be written");
    std::istringstream lines(CapturedOutput::Text());
    std::string line;
    std::size_t count = 0;
    for (; std::getline(lines, line); ++count) {
        Fuzz::Require(!HasControlCharacters(line), "a table has no control characters");
    }
    Fuzz::Require(count == rows.size() + 1, "each row is one line");
}

void CheckCells(const Row& row, std::size_t columns)
{
    for (const std::string& cell : row) {
        const std::string text = Text::Printable(cell);
        Fuzz::Require(Text::Printable(text) == text, "a printable text is left as it is");
        Fuzz::Require(Text::Columns(Text::Shorten(text, columns)) <= columns,
                      "a shortened text fits its columns");
    }
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
    const std::size_t columns = 1U + input.Byte();
    std::vector<Row> rows;
    do {
        const Emporium::Operation operation = Fuzz::TakeOperation(input);
        rows.push_back({operation.GetUUID(), operation.GetPackageID(), NameOf(operation.GetType()),
                        NameOf(operation.GetStatus()), Describe(operation.GetErrorCode())});
        CheckCells(rows.back(), columns);
        CheckRecord(operation);
    } while (!input.IsEmpty());
    CheckTable(rows);
    return 0;
}
