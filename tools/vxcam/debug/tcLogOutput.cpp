#include "tcLogOutput.h"

#include "failure.h"
#include "logrecord.h"
#include "report.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

using tpClock = std::chrono::steady_clock;

constexpr std::chrono::seconds gtIdle{5};

using tpFile = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

tpFile OpenFile(const std::string& path, bool force)
{
    if (path.empty() || path == "-") return {nullptr, std::fclose};
    const int mode = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (force ? O_TRUNC : O_EXCL);
    const int descriptor = ::open(path.c_str(), mode, 0666);
    if (descriptor < 0) {
        throw tcFailure(eExitFile, path + ": " +
                                       (errno == EEXIST ? "exists already (--force replaces it)"
                                                        : std::strerror(errno)));
    }
    return {::fdopen(descriptor, "w"), std::fclose};
}

nlohmann::ordered_json RecordDocument(const tsLogRecord& record)
{
    // The time stands in the line, as that of this host's time zone.
    nlohmann::ordered_json document = LogLineDocument(LogLine(record));
    document["seconds"] = record.seconds;
    document["level"] = record.level;
    document["error"] = record.errorNumber;
    return document;
}

std::string WithoutEnd(std::string text)
{
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

} // namespace

tcLogOutput::tcLogOutput(const std::string& file, bool force, bool json)
    : msFile(file), mbJson(json), mpFile(OpenFile(file, force))
{}

void tcLogOutput::Put(const tsDatagram& datagram)
{
    const auto record = ParseLogRecord(datagram.bytes.data(), datagram.bytes.size());
    ++(record ? mtCounts.binaries : mtCounts.texts);
    if (!mbJson) return Print(Printable(record ? LogLine(*record) : WithoutEnd(datagram.bytes)));
    nlohmann::ordered_json document{
        {"from", datagram.address + ":" + std::to_string(datagram.port)},
        {"form", record ? "binary" : "text"}};
    document.update(record ? RecordDocument(*record) : LogLineDocument(WithoutEnd(datagram.bytes)));
    Print(LineText(document));
}

void tcLogOutput::Print(const std::string& line)
{
    if (!mpFile) return PrintLine(line);
    if (std::fputs((line + "\n").c_str(), mpFile.get()) < 0 || std::fflush(mpFile.get()) != 0) {
        throw tcFailure(eExitFile, msFile + ": " + std::strerror(errno));
    }
}

void PassOn(tcDatagrams& datagrams, tcLogOutput& output, const tsLogEnd& end,
            const std::function<void()>& idle)
{
    const auto start = tpClock::now();
    auto next = start + gtIdle;
    while (end.count == 0 || output.Counts().All() < end.count) {
        const auto until = end.duration ? std::min(next, start + *end.duration) : next;
        if (const auto datagram = datagrams.Receive(until)) {
            output.Put(*datagram);
            if (end.duration && tpClock::now() >= start + *end.duration) return;
        }
        if (tpClock::now() < until) continue;
        if (until != next) return;
        if (idle) idle();
        next = tpClock::now() + gtIdle;
    }
}

nlohmann::ordered_json LogLineDocument(const std::string& text)
{
    const std::optional<tsLogLine> line = ParseLogLine(text);
    if (!line) return {{"text", text}};
    return {{"time", line->time},
            {"millis", line->millis},
            {"tag", line->tag},
            {"label", line->label},
            {"message", line->message}};
}
