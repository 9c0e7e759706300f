// The simple commands, and the life of the built-in handlers.
#include "background.h"
#include "dbgdserver.h"
#include "tcDbgd.h"
#include "tcLog.h"

#include <unistd.h>

#include <cstring>
#include <utility>

tcDbgdWB_echo* DbgdWB_echoPtr = nullptr;
tcDbgdWB_help* DbgdWB_helpPtr = nullptr;
tcDbgdWB_list* DbgdWB_listPtr = nullptr;
tcDbgdWB_log* DbgdWB_logPtr = nullptr;

static constexpr int nDisposalWaitMs = 100;

tcDbgdWB_echo::tcDbgdWB_echo()
    : tcDbgdWB("ECHO", "ECHO:<string to echo>\n   returns string send in command to requester\n")
{}

void tcDbgdWB_echo::Run(HSocket* client, char* args)
{
    vx::Reply(client, args);
    vx::Reply(client, "\n");
}

tcDbgdWB_help::tcDbgdWB_help()
    : tcDbgdWB("HELP", "HELP:[CMDNAME]\n   Provides a description on specific command name\n")
{}

void tcDbgdWB_help::Run(HSocket* client, char* args)
{
    tcDbgd::GetLog().logDebug(5, "tcDbgdWB_help:Run command = %s", args);
    if (const tcDbgd::tcHeldWB handler = tcDbgd::getItem()->HoldWB(args)) {
        vx::Reply(client, handler->msHelp);
        return;
    }
    tcDbgd::GetLog().logDebug(5, "Couldn't find token handler for %s", args);
    vx::Reply(client, std::string(args) + ": unknown command token\n");
}

tcDbgdWB_list::tcDbgdWB_list() : tcDbgdWB("LIST", "LIST \n   Lists All known tokens\n") {}

void tcDbgdWB_list::Run(HSocket* client, char* args)
{
    tcDbgd::GetLog().logDebug(5, "tcDbgdWB_list:Run command = %s", args);
    vx::Reply(client, tcDbgd::getItem()->List());
}

// The built-in handlers live from the loading of the library to the exit of the process, or longer
// when a client is still being served then.
struct tsBuiltInHandlers {
    tsBuiltInHandlers()
    {
        Add(DbgdWB_echoPtr, "_init() loading for tcDbgdWB_echo module");
        Add(DbgdWB_helpPtr, "_init() loading for tcDbgdWB_help module");
        Add(DbgdWB_listPtr, "_init() loading for tcDbgdWB_list module");
        Add(DbgdWB_logPtr, "_init() loading for tcDbgdWB_log module");
        if (const tcDbgd* daemon = tcDbgd::getItem()) mpRegistry = daemon->mpRegistry;
    }

    ~tsBuiltInHandlers()
    {
        // In a child process other threads' locks may be held for ever.
        if (getpid() != mnProcess || !mpRegistry) return;
        tcDbgdWB* const handlers[] = {
            std::exchange(DbgdWB_echoPtr, nullptr), std::exchange(DbgdWB_helpPtr, nullptr),
            std::exchange(DbgdWB_listPtr, nullptr), std::exchange(DbgdWB_logPtr, nullptr)};
        for (const tcDbgdWB* handler : handlers) {
            if (!handler) continue;
            tcDbgd::GetLog().logDebug(1, "tcDbgd::RemoveWB removing %s token handler",
                                      handler->msToken.c_str());
            mpRegistry->Remove(handler->msToken);
        }
        for (tcDbgdWB* handler : handlers) {
            if (handler && mpRegistry->WaitUnused(handler, nDisposalWaitMs)) delete handler;
        }
    }

    tsBuiltInHandlers(const tsBuiltInHandlers&) = delete;
    tsBuiltInHandlers& operator=(const tsBuiltInHandlers&) = delete;

private:
    // One that there is no memory for is done without.
    template <typename tHandler>
    static void Add(tHandler*& handler, const char* text)
    {
        try {
            tcDbgd::GetLog().logDebug(1, text);
            handler = new tHandler;
            if (tcDbgd* daemon = tcDbgd::getItem()) daemon->RegisterWB(handler);
        } catch (std::exception const& failure) {
            vx::ReportFailure(failure.what());
        }
    }

    const pid_t mnProcess = getpid();
    // Where they are, whatever daemon there is later.
    std::shared_ptr<tcDbgd::tcRegistry> mpRegistry;
};

static tsBuiltInHandlers gBuiltInHandlers;
