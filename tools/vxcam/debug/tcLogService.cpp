#include "tcLogService.h"

#include "failure.h"
#include "logrecord.h"

namespace {

constexpr size_t gnLongestRequest = 1024;
constexpr size_t gnShownReply = 60;

[[noreturn]] void NoLogger(const std::string& name)
{
    throw tcFailure(eExitCamera, "there is no logger " + name);
}

// What the process does not do for this client, and why.
void ThrowIfRefused(const std::string& reply)
{
    const std::string start = "ERROR: ";
    if (reply.compare(0, start.size(), start) != 0) return;
    const std::string reason = reply.substr(start.size(), reply.find('\n') - start.size());
    throw tcFailure(eExitCamera, "the process refuses: " + Printable(reason));
}

} // namespace

tcLogService::tcLogService(const tsEndpoint& place, std::chrono::milliseconds patience)
    : mtService(place, "debug daemon", patience)
{}

std::string tcLogService::Ask(const std::string& command)
{
    const std::string request = "LOG:" + command;
    if (request.size() > gnLongestRequest) {
        throw tcFailure(eExitUsage, "the request would be longer than 1024 bytes");
    }
    return mtService.Ask(request);
}

void tcLogService::BadReply(const std::string& command, const std::string& reply) const
{
    const std::string shown = Printable(reply.substr(0, gnShownReply));
    throw tcFailure(eExitNoCamera, mtService.Name() + " does not answer LOG:" + command +
                                       " as a debug daemon does: " +
                                       (reply.empty() ? "no answer" : "'" + shown + "'"));
}

std::vector<tsLogger> tcLogService::List()
{
    const std::string reply = Ask("LIST");
    if (auto loggers = ParseLogList(reply)) return *loggers;
    BadReply("LIST", reply);
}

tsLogger tcLogService::Get(const std::string& name)
{
    const std::string reply = Ask("GET " + name);
    if (reply == "ERROR") NoLogger(name);
    const auto logger = ParseLogLevel(reply);
    if (logger && logger->name == name) return *logger;
    BadReply("GET", reply);
}

tsLogConsumer tcLogService::Consumer(const std::string& name)
{
    const std::string reply = Ask("DIR");
    if (auto consumer = ParseLogConsumer(reply, name)) return *consumer;
    BadReply("DIR", reply);
}

std::vector<std::string> tcLogService::Errors()
{
    const std::string reply = Ask("ERRS");
    // Nothing at all is an answer, too; so who answers must be known.
    if (reply.empty()) List();
    if (auto errors = ParseLogErrors(reply)) return *errors;
    BadReply("ERRS", reply);
}

std::optional<std::string> tcLogService::Dump(const std::string& name)
{
    Get(name);
    std::string reply = Ask("DUMP " + name);
    if (reply == "ERROR") return {};
    if (reply.empty() || reply.back() == '\n') return reply;
    BadReply("DUMP", reply);
}

tsLogger tcLogService::Set(const std::string& name, int level, const std::string& where)
{
    const std::string reply =
        Ask("SET " + name + " " + std::to_string(level) + (where.empty() ? "" : " " + where));
    if (reply == "ERROR") NoLogger(name);
    ThrowIfRefused(reply);
    if (!reply.empty()) BadReply("SET", reply);
    tsLogger logger = Get(name);
    if (logger.level == level) return logger;
    throw tcFailure(eExitCamera, name + " stays at level " + std::to_string(logger.level));
}

tsLogger tcLogService::SetUri(const std::string& name, const std::string& uri)
{
    const std::string reply = Ask("URI " + name + (uri.empty() ? "" : " " + uri));
    ThrowIfRefused(reply);
    if (!reply.empty()) BadReply("URI", reply);
    return Get(name);
}

void tcLogService::Enable(bool isEnabled)
{
    List(); // the command itself has no answer
    const std::string reply = Ask(std::string("ENABLE ") + (isEnabled ? "1" : "0"));
    if (!reply.empty()) BadReply("ENABLE", reply);
}

void CheckLogWord(const std::string& what, const std::string& word)
{
    if (!word.empty() && word.find_first_of(std::string(" \t\r\n\0", 5)) == std::string::npos) {
        return;
    }
    throw tcFailure(eExitUsage, what + " '" + Printable(word) +
                                    "': it cannot be empty, nor have blanks or line ends");
}
