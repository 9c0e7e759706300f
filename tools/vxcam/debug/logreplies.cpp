#include "logreplies.h"

#include "logrecord.h"

#include <charconv>
#include <string_view>

namespace {

// The text behind a number at its start; nothing when there is none.
std::optional<std::string_view> TakeNumber(std::string_view text, int32_t* number)
{
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    if (error != std::errc()) return {};
    return text.substr(static_cast<size_t>(rest - text.data()));
}

std::vector<std::string_view> Lines(std::string_view text)
{
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

// Cuts "[CONSUMER]" off the text, which is that or nothing.
bool ReadConsumer(std::string_view text, tsLogger* logger)
{
    if (text.empty()) return true;
    if (text.size() < 3 || text.substr(0, 2) != " [" || text.back() != ']') return false;
    logger->consumer = std::string(text.substr(2, text.size() - 3));
    return true;
}

bool ReadDescription(std::string_view* text, tsLogger* logger)
{
    if (text->empty() || text->back() != ')') return false;
    const size_t behindConsumer = text->rfind("] (");
    const size_t start =
        behindConsumer == std::string_view::npos ? text->find(" (") : behindConsumer + 1;
    if (start == std::string_view::npos) return false;
    logger->description = std::string(text->substr(start + 2, text->size() - start - 3));
    *text = text->substr(0, start);
    return true;
}

// A name may hold what looks like the rest, so each place is tried.
std::optional<tsLogger> ReadLogger(std::string_view line, bool isDescribed)
{
    constexpr std::string_view sign = " = ";
    for (size_t at = line.find(sign); at != std::string_view::npos; at = line.find(sign, at + 1)) {
        tsLogger logger;
        auto rest = TakeNumber(line.substr(at + sign.size()), &logger.level);
        if (!rest || (isDescribed && !ReadDescription(&*rest, &logger))) continue;
        if (!ReadConsumer(*rest, &logger)) continue;
        logger.name = std::string(line.substr(0, at));
        return logger;
    }
    return {};
}

} // namespace

std::optional<std::vector<tsLogger>> ParseLogList(const std::string& reply)
{
    std::vector<tsLogger> loggers;
    for (std::string_view line : Lines(reply)) {
        const auto logger = ReadLogger(line, true);
        if (!logger) return {};
        loggers.push_back(*logger);
    }
    if (reply.empty() || reply.back() != '\n') return {};
    return loggers;
}

std::optional<tsLogger> ParseLogLevel(const std::string& reply)
{
    if (reply.empty() || reply.back() != '\n') return {};
    return ReadLogger(std::string_view(reply).substr(0, reply.size() - 1), false);
}

std::optional<tsLogConsumer> ParseLogConsumer(const std::string& reply, const std::string& name)
{
    const std::string start = name + ",", end = " (Log object for " + name + ")";
    for (std::string_view line : Lines(reply)) {
        if (line.substr(0, start.size()) != start || line.size() < start.size() + end.size() ||
            line.substr(line.size() - end.size()) != end) {
            continue;
        }
        line = line.substr(start.size(), line.size() - start.size() - end.size());
        int32_t level = 0;
        auto rest = TakeNumber(line, &level);
        if (!rest || rest->empty() || rest->front() != ',') continue;
        tsLogConsumer consumer;
        std::vector<std::string> words;
        while (!rest->empty()) {
            rest->remove_prefix(1); // the comma
            const size_t comma = rest->find(',');
            words.emplace_back(rest->substr(0, comma));
            rest->remove_prefix(comma == std::string_view::npos ? rest->size() : comma);
        }
        consumer.kind = words.front();
        consumer.settings.assign(words.begin() + 1, words.end());
        return consumer;
    }
    return {};
}

// A line is a slot's number in five columns, a tab and a text, which has a line end of its own.
std::optional<std::vector<std::string>> ParseLogErrors(const std::string& reply)
{
    std::vector<std::string> errors;
    for (std::string_view line : Lines(reply)) {
        const size_t first = line.find_first_not_of(' ');
        int32_t slot = -1;
        const auto rest =
            TakeNumber(line.substr(first == std::string_view::npos ? line.size() : first), &slot);
        const bool isNext = rest && !rest->empty() && rest->front() == '\t' &&
                            slot == static_cast<int32_t>(errors.size());
        if (isNext) {
            errors.emplace_back(rest->substr(1));
        } else if (errors.empty()) {
            return {};
        } else if (!line.empty()) {
            errors.back().append("\n").append(line);
        }
    }
    PutLogInOrder(&errors);
    return errors;
}
