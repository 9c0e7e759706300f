// What the debug daemon answers to LOG commands. Knows no sockets; takes any text.
#ifndef LOGREPLIES_H
#define LOGREPLIES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// A logger as LIST and GET tell of it.
struct tsLogger {
    std::string name;
    int32_t level = 0;
    std::string consumer;    // where its records go, in words; empty: nowhere
    std::string description; // LIST only
};

// "NAME = LEVEL [CONSUMER] (DESCRIPTION)" a line; nothing when a line is something else.
std::optional<std::vector<tsLogger>> ParseLogList(const std::string& reply);

// "NAME = LEVEL [CONSUMER]"; nothing when it is something else.
std::optional<tsLogger> ParseLogLevel(const std::string& reply);

// What DIR tells of a logger's consumer: its kind ("UDP", "FILE", ...), and its settings in their
// order. Nothing when the reply does not speak of the logger.
struct tsLogConsumer {
    std::string kind;
    std::vector<std::string> settings;
};
std::optional<tsLogConsumer> ParseLogConsumer(const std::string& reply, const std::string& name);

// The texts of the error ring, oldest first. Nothing when the reply is something else.
std::optional<std::vector<std::string>> ParseLogErrors(const std::string& reply);

#endif
