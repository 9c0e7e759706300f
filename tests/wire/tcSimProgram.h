// The simulated camera as the program that it is, and a client of bare bytes in front of it.
#ifndef TCSIMPROGRAM_H
#define TCSIMPROGRAM_H

#include "tcByteLink.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

// A running vxcamsim, on loopback and a free port, with one client connected to it.
// Threads: one.
// Owns: the process, which ends with this.
class tcSimProgram
{
public:
    // Starts the program with more options and connects to it.
    explicit tcSimProgram(std::vector<std::string> options)
    {
        options.insert(options.begin(), {VXCAMSIM_PROGRAM, "--json"});
        std::vector<char*> arguments;
        for (std::string& option : options)
            arguments.push_back(option.data());
        arguments.push_back(nullptr);
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        if (posix_spawn(&mnProcess, arguments[0], &actions, nullptr, arguments.data(), environ) !=
            0)
            mnProcess = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        mpOutput = fdopen(ends[0], "r");
        char line[4096];
        while (mnPort == 0 && fgets(line, sizeof line, mpOutput)) {
            mnPort = Number(line, "\"port\":");
            mnDiscoveryPort = Number(line, "\"discoveryPort\":");
        }
        mLink = tcByteLink::Connect(mnPort);
    }
    ~tcSimProgram()
    {
        mLink.Close();
        if (mnProcess > 0) {
            kill(mnProcess, SIGTERM);
            waitpid(mnProcess, nullptr, 0);
        }
        if (mpOutput) fclose(mpOutput);
    }
    tcSimProgram(const tcSimProgram&) = delete;
    tcSimProgram& operator=(const tcSimProgram&) = delete;

    unsigned short Port() const { return mnPort; }
    unsigned short DiscoveryPort() const { return mnDiscoveryPort; }
    tcByteLink& Link() { return mLink; }

    void Tell(unsigned id, const tcPattern& payload) { ASSERT_TRUE(mLink.Send(id, payload)); }

    // The next message that is no heartbeat.
    tsFrame Next()
    {
        tsFrame frame = mLink.Read();
        while (frame.Came && frame.Id == 0x69)
            frame = mLink.Read();
        return frame;
    }

    // The camera's next message is this one.
    void Answers(unsigned id, const tcPattern& payload)
    {
        const tsFrame frame = Next();
        ASSERT_TRUE(frame.Came) << "no message";
        EXPECT_EQ(frame.Id, id) << tcPattern::Text(frame.Payload);
        EXPECT_EQ(frame.Version, 3U);
        EXPECT_TRUE(payload.Fits(frame.Payload)) << "message " << std::hex << id;
    }

private:
    static unsigned short Number(const char* line, const char* name)
    {
        const char* at = strstr(line, name);
        return static_cast<unsigned short>(at ? atoi(at + strlen(name)) : 0);
    }

    pid_t mnProcess = -1;
    FILE* mpOutput = nullptr;
    unsigned short mnPort = 0, mnDiscoveryPort = 0;
    tcByteLink mLink;
};

#endif
