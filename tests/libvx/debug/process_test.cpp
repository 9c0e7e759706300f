// The daemon from the loading of the library to the end of the process. VX_EXIT_ROUNDS repeats the
// exits more often.
#include "debug_support.h"
#include "tcNetworkNamespace.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <sstream>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// A running program, ended at the latest when this is destroyed.
class tcProgram
{
public:
    explicit tcProgram(const std::vector<std::string>& words)
    {
        int input[2], output[2], errors[2];
        EXPECT_EQ(0, pipe2(input, O_CLOEXEC) + pipe2(output, O_CLOEXEC) + pipe2(errors, O_CLOEXEC));
        std::vector<char*> arguments;
        for (const std::string& word : words)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        mnProcess = fork();
        if (mnProcess == 0) {
            dup2(input[0], 0);
            dup2(output[1], 1);
            dup2(errors[1], 2);
            execv(arguments[0], arguments.data());
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        close(errors[1]);
        mhInput = input[1];
        mhOutput = output[0];
        mhErrors = errors[0];
    }
    ~tcProgram()
    {
        if (mnProcess > 0) {
            kill(mnProcess, SIGKILL);
            waitpid(mnProcess, nullptr, 0);
        }
        EndInput();
        close(mhOutput);
        close(mhErrors);
    }
    tcProgram(const tcProgram&) = delete;
    tcProgram& operator=(const tcProgram&) = delete;

    void EndInput()
    {
        if (mhInput >= 0) close(mhInput);
        mhInput = -1;
    }

    std::string Line()
    {
        std::string line;
        char byte;
        while (read(mhOutput, &byte, 1) == 1 && byte != '\n')
            line += byte;
        return line;
    }

    std::string Output() { return Rest(mhOutput); }
    std::string Errors() { return Rest(mhErrors); }

    // The exit status, -1 when it crashed, -2 when it did not end in time.
    int Status(int withinMs = Within(15000))
    {
        int status = 0;
        const bool ended =
            Eventually([&] { return waitpid(mnProcess, &status, WNOHANG) == mnProcess; }, withinMs);
        if (!ended) return -2;
        mnProcess = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    static std::string Rest(int descriptor)
    {
        std::string text;
        char data[4096];
        for (ssize_t size; (size = read(descriptor, data, sizeof data)) > 0;)
            text.append(data, static_cast<size_t>(size));
        return text;
    }

    pid_t mnProcess;
    int mhInput, mhOutput, mhErrors;
};

// A copy of a program that runs with the rights of another user.
class tcSetUserId
{
public:
    explicit tcSetUserId(const std::string& program)
    {
        char name[] = "/tmp/debug-host-XXXXXX";
        msFolder = mkdtemp(name);
        std::filesystem::copy_file(program, Path());
        const uid_t nobody = 65534;
        EXPECT_EQ(0, chmod(msFolder.c_str(), 0755));
        EXPECT_EQ(0, chown(Path().c_str(), nobody, 0));
        EXPECT_EQ(0, chmod(Path().c_str(), 04755));
    }
    ~tcSetUserId() { std::filesystem::remove_all(msFolder); }
    tcSetUserId(const tcSetUserId&) = delete;
    tcSetUserId& operator=(const tcSetUserId&) = delete;

    std::string Path() const { return msFolder + "/host"; }

private:
    std::string msFolder;
};

class DaemonProcess : public ::testing::Test
{
protected:
    DaemonProcess() : mAnnouncements(SOCK_DGRAM)
    {
        unsetenv("DBGD_DISABLE");
        setenv("DBGD_PORTNUM", "0", 1);
        setenv("DBGD_BIND", "127.0.0.1", 1);
        setenv("DBGD_ANNOUCE_GROUP", ("127.0.0.1:" + std::to_string(mAnnouncements.Port())).c_str(),
               1);
    }

    static int Rounds()
    {
        const char* rounds = getenv("VX_EXIT_ROUNDS");
        return rounds ? atoi(rounds) : 5;
    }

    // Runs the host program to its end.
    void Run(const char* mode, int rounds)
    {
        for (int i = 0; i < rounds; ++i) {
            tcProgram host({VX_DEBUG_HOST, mode});
            EXPECT_EQ(0, host.Status()) << mode << ", round " << i;
            EXPECT_EQ("", Foreign(host.Errors()));
        }
    }

    // What standard error has beside the lines about clients that were cut off, and what a
    // sanitizer says about threads in a child that has none.
    static std::string Foreign(const std::string& errors)
    {
        std::istringstream lines(errors);
        std::string foreign;
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("read: ", 0) != 0 && line.find("was not suspended") == std::string::npos)
                foreign += line + "\n";
        }
        return foreign;
    }

    tcBound mAnnouncements;
};

} // namespace

TEST_F(DaemonProcess, ServesFromTheLoadingOfTheLibrary)
{
    tcProgram host({VX_DEBUG_HOST, "serve"});
    const auto port = static_cast<unsigned short>(std::stoi(host.Line()));
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", Ask(port, "LIST"));
    const auto start = tcClock::now();
    host.EndInput();
    EXPECT_EQ(0, host.Status());
    EXPECT_LT(ElapsedMs(start), Within(5000));
    EXPECT_EQ("", host.Output());
    EXPECT_EQ("", host.Errors());
}

TEST_F(DaemonProcess, LogsTheLoadingAndTheEndOfItsHandlers)
{
    setenv("dbgd_DEBUGLEVEL", "1", 1);
    setenv("dbgd_LOGURI", "cout", 1);
    setenv("DBGD_DISABLE", "1", 1);
    tcProgram host({VX_DEBUG_HOST, "exit"});
    std::string texts;
    std::istringstream lines(host.Output());
    for (std::string line; std::getline(lines, line);)
        texts += line.substr(line.find("dbgd:") + 5) + "\n";
    EXPECT_EQ("DBG1:_init() loading for tcDbgdWB_echo module\n"
              "DBG1:tcDbgd::RegisterWB registered ECHO token handler\n"
              "DBG1:_init() loading for tcDbgdWB_help module\n"
              "DBG1:tcDbgd::RegisterWB registered HELP token handler\n"
              "DBG1:_init() loading for tcDbgdWB_list module\n"
              "DBG1:tcDbgd::RegisterWB registered LIST token handler\n"
              "DBG1:_init() loading for tcDbgdWB_log module\n"
              "DBG1:tcDbgd::RegisterWB registered LOG token handler\n"
              "DBG1:tcDbgd::RemoveWB removing ECHO token handler\n"
              "DBG1:tcDbgd::RemoveWB removing HELP token handler\n"
              "DBG1:tcDbgd::RemoveWB removing LIST token handler\n"
              "DBG1:tcDbgd::RemoveWB removing LOG token handler\n",
              texts);
    EXPECT_EQ(0, host.Status());
}

TEST_F(DaemonProcess, LoadsModulesAtItsStart)
{
    const std::string folder = std::filesystem::path(VX_MODULE).parent_path();
    setenv("DBGD_MODULE_PATH", folder.c_str(), 1);
    tcProgram host({VX_DEBUG_HOST, "serve"});
    const auto port = static_cast<unsigned short>(std::stoi(host.Line()));
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n\tPROC\n", Ask(port, "LIST"));
    EXPECT_THAT(Ask(port, "PROC"), StartsWith("pid "));
    EXPECT_EQ("PROC\n   Tells process id, CPU time and memory\n", Ask(port, "HELP:PROC"));
    host.EndInput();
    EXPECT_EQ(0, host.Status());
    EXPECT_EQ("", host.Errors());
}

TEST_F(DaemonProcess, LoadsNoModulesIntoSetUserIdPrograms)
{
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    setenv("DBGD_MODULE_PATH", std::filesystem::path(VX_MODULE).parent_path().c_str(), 1);
    setenv("DBGD_DISABLE", "1", 1);
    tcProgram usual({VX_DEBUG_HOST, "list"});
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n\tPROC\n", usual.Output());
    const tcSetUserId program(VX_DEBUG_HOST);
    tcProgram privileged({program.Path(), "list"});
    const std::string list = privileged.Output();
    if (list.empty()) GTEST_SKIP() << "set-user-id programs cannot load the library here";
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", list);
}

TEST_F(DaemonProcess, LetsModulesBeUnloadedWhileClientsAskForThem)
{
    tcProgram host({VX_DEBUG_HOST, "module", VX_MODULE});
    EXPECT_EQ(0, host.Status());
    EXPECT_EQ("", host.Errors());
}

TEST_F(DaemonProcess, OnlyOneOfManyGetsThePort)
{
    setenv("DBGD_PORTNUM", std::to_string(FreePort()).c_str(), 1);
    tcProgram first({VX_DEBUG_HOST, "serve"});
    const std::string port = first.Line();
    setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
    setenv("dbgd_LOGURI", "cout", 1);
    tcProgram second({VX_DEBUG_HOST, "serve"}), third({VX_DEBUG_HOST, "exit"});
    EXPECT_THAT(second.Line(),
                HasSubstr(":   Debug: ERR:tcDbgd::Server, Error creating socket on port " + port +
                          " - retry in 2 s:Error 98:No Installed error decoder"));
    EXPECT_EQ(0, third.Status(5000)); // nothing keeps it
    first.EndInput();
    EXPECT_EQ(0, first.Status());
    std::string line;
    do { // it may try again in vain while the first one ends
        line = second.Line();
    } while (line.find("retry in") != std::string::npos);
    EXPECT_EQ(port, line);
    EXPECT_EQ("next\n", Ask(static_cast<unsigned short>(std::stoi(port)), "ECHO:next"));
    second.EndInput();
    EXPECT_EQ(0, second.Status());
}

// On a host of their own, where the usual port is free.
TEST_F(DaemonProcess, TellsOfATakenPortThatNobodyAskedForInItsRecordsOnly)
{
    std::string reason;
    tcNetworkNamespace host(reason);
    if (!host.Enter()) GTEST_SKIP() << reason;
    unsetenv("DBGD_PORTNUM");
    tcProgram first({VX_DEBUG_HOST, "serve"});
    EXPECT_EQ("17020", first.Line());
    setenv("dbgd_LOGURI", "cout", 1);
    tcProgram second({VX_DEBUG_HOST, "serve"});
    EXPECT_THAT(second.Line(), HasSubstr("Error creating socket on port 17020 - retry in 2 s"));
    first.EndInput();
    EXPECT_EQ(0, first.Status());
    std::string line;
    do {
        line = second.Line();
    } while (line.find("retry in") != std::string::npos);
    EXPECT_EQ("17020", line);
    second.EndInput();
    EXPECT_EQ(0, second.Status());
    EXPECT_EQ("", second.Errors());
}

TEST_F(DaemonProcess, TakesNothingFromTheEnvironmentWithRaisedPrivileges)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the search for leaks fails with raised privileges";
#endif
    std::string reason;
    tcNetworkNamespace host(reason);
    if (getuid() != 0 || !host.Enter()) GTEST_SKIP() << "needs root " << reason;
    const tcSetUserId program(VX_DEBUG_HOST);
    setenv("DBGD_ALLOW", "10.1.2.3", 1);
    tcProgram privileged({program.Path(), "serve"});
    const std::string line = privileged.Line();
    if (line.empty()) GTEST_SKIP() << "set-user-id programs cannot load the library here";
    EXPECT_EQ("17020", line); // not any one
    // Not on loopback alone, and for everybody.
    EXPECT_EQ("x\n", ::Ask(17020, "ECHO:x", "127.0.0.1", "127.0.0.9"));
    EXPECT_FALSE(mAnnouncements.HasReceived());
    // Nor do clients on this host name files.
    EXPECT_EQ("ERROR: LOG:SET with a file is refused in a program with raised privileges\n",
              ::Ask(17020, "LOG:SET dbgd 1 file"));
    EXPECT_EQ("ERROR: LOG:URI is refused in a program with raised privileges\n",
              ::Ask(17020, "LOG:URI dbgd file:name"));
    privileged.EndInput();
    EXPECT_EQ(0, privileged.Status());

    setenv("DBGD_DISABLE", "1", 1); // names nothing
    tcProgram disabled({program.Path(), "list"});
    EXPECT_EQ("Available Tokens:\n\tECHO\n\tHELP\n\tLIST\n\tLOG\n", disabled.Output());
    EXPECT_EQ(0, disabled.Status());
}

TEST_F(DaemonProcess, EndsAtOnceWhileItWaitsForThePort)
{
    tcBound taken(SOCK_STREAM, FreePort());
    taken.Listen();
    setenv("DBGD_PORTNUM", std::to_string(taken.Port()).c_str(), 1);
    setenv("TCLOG_SUPPRESS_ERR_CONSOLE", "1", 1);
    const auto start = tcClock::now();
    Run("exit", 3);
    EXPECT_LT(ElapsedMs(start), Within(5000));
}

TEST_F(DaemonProcess, EndsRightAfterItsStart)
{
    Run("exit", 4 * Rounds());
}

TEST_F(DaemonProcess, EndsWithEverythingRunning)
{
    Run("exit-busy", Rounds());
}

TEST_F(DaemonProcess, StartsOtherProgramsWithEverythingRunning)
{
    // In a child what only the parent's threads refer to looks like a leak.
    const char* options = getenv("ASAN_OPTIONS");
    const std::string more = options ? std::string(options) + ":" : "";
    setenv("ASAN_OPTIONS", (more + "detect_leaks=0").c_str(), 1);
    Run("fork", 1);
}

TEST_F(DaemonProcess, CostsNothingWhileIdle)
{
    tcProgram host({VX_DEBUG_HOST, "idle"});
    EXPECT_LT(std::stoi(host.Line()), Within(50)) << "milliseconds of CPU time in a second";
    EXPECT_EQ(0, host.Status());
}
