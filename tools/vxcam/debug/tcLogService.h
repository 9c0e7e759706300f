// The LOG commands of a process's debug daemon.
#ifndef TCLOGSERVICE_H
#define TCLOGSERVICE_H

#include "logreplies.h"
#include "tcService.h"

// Errors are tcFailure: eExitCamera when the daemon refuses, those of tcService, and eExitNoCamera
// for answers that no debug daemon gives.
// Threads: one.
class tcLogService
{
public:
    tcLogService(const tsEndpoint& place, std::chrono::milliseconds patience);

    std::vector<tsLogger> List();
    tsLogger Get(const std::string& name);
    tsLogConsumer Consumer(const std::string& name);
    std::vector<std::string> Errors();

    // What was captured, as stored; nothing when nothing is being captured.
    std::optional<std::string> Dump(const std::string& name);

    // Return how the logger is then. `where` is a number of lines, a file, "-", "." or empty.
    tsLogger Set(const std::string& name, int level, const std::string& where);
    tsLogger SetUri(const std::string& name, const std::string& uri);
    void Enable(bool isEnabled);

    tcService& Service() { return mtService; }

private:
    std::string Ask(const std::string& command);
    [[noreturn]] void BadReply(const std::string& command, const std::string& reply) const;

    tcService mtService;
};

// Throws tcFailure with eExitUsage for a word that a LOG command cannot carry.
void CheckLogWord(const std::string& what, const std::string& word);

#endif
