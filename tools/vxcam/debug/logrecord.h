// A record of the library's log as it comes over the network: in binary, or as its line of text.
// Knows no sockets; takes any bytes.
#ifndef LOGRECORD_H
#define LOGRECORD_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr size_t gnLogRecordBytes = 292;

enum teLogRecordType { eLogDebug = 0, eLogJournal = 1, eLogError = 2, eLogEvent = 3 };

// A binary record. Other types than those of teLogRecordType may come.
struct tsLogRecord {
    int32_t type = eLogDebug;
    int32_t seconds = 0; // since the epoch
    int32_t millis = 0;  // 0 to 1000
    int32_t level = 0;
    int32_t errorNumber = 0;
    std::string tag;     // at most 15 bytes, without the blanks in front
    std::string message; // at most 255 bytes
};

// The record that the bytes are: 292 of them, with texts that end inside their fields and
// milliseconds of 0 to 1000. Nothing when they are none, as a line of text never is.
std::optional<tsLogRecord> ParseLogRecord(const void* bytes, size_t count);

// The four columns that tell the kind of a record: "DBG1", " ERR".
std::string LogLabel(const tsLogRecord& record);

// The line that the library writes for the record, in local time, without its end.
std::string LogLine(const tsLogRecord& record);

// A line of text in its parts.
struct tsLogLine {
    std::string time;    // "20240115-13:45:02"
    int32_t millis = 0;  // 0 to 1000
    std::string tag;     // without the blanks in front
    std::string label;   // "DBG1", "ERR"
    std::string message; // what follows, further lines included
};

// Nothing when the text does not begin as the library's lines do.
std::optional<tsLogLine> ParseLogLine(std::string_view text);

// The records that stand in the text, a line each, oldest first: a buffer that has gone round
// begins in the middle of its history. A line that is none belongs to the record before it.
std::vector<std::string> LogLinesInOrder(std::string_view text);

// The same for records that are apart already.
void PutLogInOrder(std::vector<std::string>* records);

// The text with its control characters made visible ("\n", "\x1b"), fit for a terminal.
std::string Printable(std::string_view text);

#endif
