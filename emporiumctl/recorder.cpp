// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/events.h"
#include "emporiumctl/json.h"
#include "emporiumctl/waiting.h"

#include <chrono>
#include <ctime>
#include <fstream>
#include <iostream>

namespace EmporiumCtl {
namespace {

std::string Now()
{
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

/// Writes a recording: the snapshot, then every event with its time. Flushes each line, so that a
/// crash loses at most the last one.
class Recorder
{
public:
    explicit Recorder(const std::string& path) : m_file(path) {}

    bool Good() const { return m_file.good(); }

    void Begin(const Emporium::DaemonConnection& connection)
    {
        Write({{"type", "snapshot"},
               {"time", Now()},
               {"architecture", connection.GetArchitecture()},
               {"version", connection.GetVeyraVersion()},
               {"packages", ToJson(connection.GetPackageList())},
               {"active", ToJson(connection.GetActiveOperations())},
               {"completed", ToJson(connection.GetCompletedOperations())}});
    }

    template <typename Content>
    void Event(const char* name, const Content& content)
    {
        const auto offset = std::chrono::steady_clock::now() - m_begin;
        Json line = {
            {"type", "event"},
            {"time", Now()},
            {"offset_ms", std::chrono::duration_cast<std::chrono::milliseconds>(offset).count()}};
        line.update(EventToJson(name, content));
        Write(line);
    }

private:
    void Write(const Json& line) { m_file << Line(line) << '\n' << std::flush; }

    std::ofstream m_file;
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

} // namespace

ExitStatus Record(const Emporium::DaemonConnection& connection, const std::string& path)
{
    Recorder recorder(path);
    recorder.Begin(connection);
    const EventListener listener(
        connection,
        [&](const char* name, const Emporium::Package& package) { recorder.Event(name, package); },
        [&](const char* name, const Emporium::Operation& operation) {
            recorder.Event(name, operation);
        });
    const bool never = false;
    if (recorder.Good()) {
        MainLoop().RunUntil(never, 0);
    }
    if (!recorder.Good()) {
        std::cerr << "emporiumctl: cannot write " << path << '\n';
        return ExitStatus::Failed;
    }
    return ExitStatus::Done;
}

} // namespace EmporiumCtl
