// Where received log records go: standard output or a file, as lines or as JSON.
#ifndef TCLOGOUTPUT_H
#define TCLOGOUTPUT_H

#include "tcDatagrams.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

struct tsLogCounts {
    uint64_t texts = 0, binaries = 0;
    uint64_t All() const { return texts + binaries; }
};

// Threads: one. Owns: the file.
class tcLogOutput
{
public:
    // To standard output when `file` is empty or "-". A file must not exist, unless `force`
    // replaces it. Throws tcFailure with eExitFile.
    tcLogOutput(const std::string& file, bool force, bool json);

    // Tells binary records and text apart. Throws tcFailure with eExitFile.
    void Put(const tsDatagram& datagram);

    const tsLogCounts& Counts() const { return mtCounts; }

private:
    void Print(const std::string& line);

    const std::string msFile;
    const bool mbJson;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> mpFile;
    tsLogCounts mtCounts;
};

// When a stream of records ends by itself.
struct tsLogEnd {
    uint64_t count = 0;                                // records; 0: never
    std::optional<std::chrono::milliseconds> duration; // none: never
};

// Hands every datagram to the output until the end, or until a signal throws tcFailure. `idle` is
// called at least every 5 s and may throw.
void PassOn(tcDatagrams& datagrams, tcLogOutput& output, const tsLogEnd& end,
            const std::function<void()>& idle = {});

// What is told of a line of text; just "text" when it is no record.
nlohmann::ordered_json LogLineDocument(const std::string& text);

#endif
