// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/commands.h"
#include "emporiumctl/descriptor_writer.h"
#include "emporiumctl/events.h"
#include "emporiumctl/json.h"
#include "emporiumctl/now.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace EmporiumCtl {
namespace {

/// The file of a recording.
class RecordingFile
{
public:
    /// Blocks on a named pipe until it is read.
    RecordingFile(const std::string& path, bool replace)
    {
        if (path == "-") {
            m_descriptor = STDOUT_FILENO;
            return;
        }
        m_descriptor = Open(path, O_CREAT | (replace ? O_TRUNC : O_EXCL));
        // A device or a pipe cannot be overwritten.
        if (m_descriptor < 0 && errno == EEXIST && !IsRegular(path)) {
            m_descriptor = Open(path, 0);
        }
        if (m_descriptor < 0) {
            m_error = errno == EEXIST ? "it exists; --force replaces it"
                                      : std::generic_category().message(errno);
        }
    }
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;
    ~RecordingFile()
    {
        if (m_descriptor > STDERR_FILENO) {
            close(m_descriptor);
        }
    }

    int Descriptor() const { return m_descriptor; }
    /// Why the file could not be opened, or empty.
    const std::string& Error() const { return m_error; }

private:
    static int Open(const std::string& path, int flags)
    {
        return open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0666);
    }

    static bool IsRegular(const std::string& path)
    {
        struct stat status{};
        const bool regular = stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
        errno = EEXIST;
        return regular;
    }

    int m_descriptor = -1;
    std::string m_error;
};

/// Writes a recording: the snapshot, then every event with its time. Writes each line at once, so that
/// a crash loses at most the last one.
class Recorder
{
public:
    explicit Recorder(int descriptor) : m_writer(descriptor) {}

    DescriptorWriter& Writer() { return m_writer; }

    void Begin(const Snapshot& snapshot)
    {
        Json line = {{"type", "snapshot"}, {"time", Now()}};
        line.update(ToJson(snapshot));
        Write(line);
    }

    void Add(const Event& event)
    {
        const auto offset = std::chrono::steady_clock::now() - m_begin;
        Json line = {
            {"type", "event"},
            {"time", Now()},
            {"offset_ms", std::chrono::duration_cast<std::chrono::milliseconds>(offset).count()}};
        line.update(ToJson(event));
        Write(line);
    }

private:
    void Write(const Json& line)
    {
        m_writer.Append(Line(line) + '\n');
        m_writer.Flush();
    }

    DescriptorWriter m_writer;
    std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
};

ExitStatus CannotWrite(Output& out, const std::string& path, const std::string& reason,
                       ExitStatus status = ExitStatus::Failed)
{
    return Report(out, FailureOf(status, "cannot write " + Shown(path) + ": " + reason));
}

} // namespace

ExitStatus Record(Session& session, Output& out, const RecordOptions& options)
{
    session.Settle();
    const RecordingFile file = session.Call(
        [&] {
            CannotWrite(out, options.path, session.TheInterruption().Reason(),
                        ExitStatus::NotKnown);
        },
        [&] { return RecordingFile(options.path, options.force); });
    if (!file.Error().empty()) {
        return CannotWrite(out, options.path, file.Error());
    }
    Recorder recorder(file.Descriptor());
    recorder.Begin(Snapshot(session.Connection()));
    EventStream events(session, [&](const Event& event) { recorder.Add(event); });
    const auto failure = events.Run([&] { return recorder.Writer().Good(); });
    if (!recorder.Writer().Finish()) {
        return CannotWrite(out, options.path == "-" ? "to standard output" : options.path,
                           recorder.Writer().Error());
    }
    return failure ? Report(out, *failure) : ExitStatus::Done;
}

} // namespace EmporiumCtl
