// What the tests of the vxcam program share: a folder, a run of the program.
#ifndef TOOL_SUPPORT_H
#define TOOL_SUPPORT_H

#include "listening.h"
#include "tcActor.h"
#include "tcScriptedCamera.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <pty.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

inline constexpr std::chrono::seconds gnRunPatience = Within(std::chrono::seconds(100));

// Owns: a folder of its own, with all that is put into it.
class tcFolder
{
public:
    tcFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "vxcamXXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
        msPath = name;
    }
    ~tcFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(msPath, ignored);
    }
    tcFolder(const tcFolder&) = delete;
    tcFolder& operator=(const tcFolder&) = delete;

    std::string Path(const std::string& name = "") const
    {
        return name.empty() ? msPath : msPath + "/" + name;
    }
    // The names of all files, hidden ones too, in order.
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(msPath)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string msPath;
};

inline std::string FileText(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline long Lines(const std::string& text)
{
    return std::count(text.begin(), text.end(), '\n');
}

inline void MakeFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

// One run of a program. What it prints goes to files, so that it never waits for its reader.
class tcRun
{
public:
    struct tsHow {
        std::string folder = ".";
        std::string program = VXCAM_PROGRAM;
        bool terminal = false;   // standard error is a terminal
        rlim_t fileLimit = 0;    // bytes, 0 none
        std::string output = {}; // a file for standard output, instead of Output()
        std::map<std::string, std::string> environment = {};
    };

    explicit tcRun(std::vector<std::string> arguments) : tcRun(std::move(arguments), tsHow()) {}
    tcRun(std::vector<std::string> arguments, const tsHow& how)
    {
        tsStart start;
        start.limit = {how.fileLimit, how.fileLimit};
        start.folder = how.folder;
        start.output = how.output.empty() ? mFolder.Path("output") : how.output;
        start.errors = mFolder.Path("errors");
        start.words = std::move(arguments);
        start.words.insert(start.words.begin(), how.program);
        start.environment = Environment(how.environment);
        start.Point();
        if (how.terminal &&
            ::openpty(&mhTerminal, &start.terminal, nullptr, nullptr, nullptr) != 0) {
            throw std::runtime_error("openpty");
        }
        mnProcess = ::fork();
        if (mnProcess == 0) Become(start);
        if (start.terminal >= 0) ::close(start.terminal);
    }
    ~tcRun()
    {
        if (mnProcess > 0) {
            ::kill(mnProcess, SIGKILL);
            ::waitpid(mnProcess, nullptr, 0);
        }
        if (mhTerminal >= 0) ::close(mhTerminal);
    }
    tcRun(const tcRun&) = delete;
    tcRun& operator=(const tcRun&) = delete;

    std::set<int> Ports() const { return ListeningPorts(mnProcess); }
    void Signal(int number) { ::kill(mnProcess, number); }

    // Waits for the end: the exit code, 1000 + the signal that ended it, or -1 when it goes on.
    int Exit()
    {
        if (mnProcess <= 0) return mnExit;
        int status = 0;
        const bool isOver = WaitUntil(
            [&] {
                DrainTerminal();
                return ::waitpid(mnProcess, &status, WNOHANG) == mnProcess;
            },
            gnRunPatience);
        if (!isOver) return -1;
        DrainTerminal();
        mnProcess = 0;
        mnExit = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
        return mnExit;
    }
    std::string Output() const { return FileText(mFolder.Path("output")); }
    std::string Errors() const { return FileText(mFolder.Path("errors")); }
    nlohmann::json Document() const { return nlohmann::json::parse(Output(), nullptr, false); }
    const std::string& Terminal()
    {
        DrainTerminal();
        return msTerminal;
    }

private:
    // All that the program starts with. Laid out before the fork: other threads of the test may
    // hold the allocator's locks then, which in the child nobody gives back.
    struct tsStart {
        std::string folder, output, errors;
        int terminal = -1;
        rlimit limit{};
        std::vector<std::string> words, environment;
        std::vector<char*> wordPointers, environmentPointers;

        void Point()
        {
            for (std::string& word : words) {
                wordPointers.push_back(word.data());
            }
            for (std::string& variable : environment) {
                environmentPointers.push_back(variable.data());
            }
            wordPointers.push_back(nullptr);
            environmentPointers.push_back(nullptr);
        }
    };

    // The test's own, changed; without DBGD_DISABLE, since the program opts out.
    static std::vector<std::string> Environment(const std::map<std::string, std::string>& changes)
    {
        std::vector<std::string> environment;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string variable = *entry;
            const std::string name = variable.substr(0, variable.find('='));
            if (name != "DBGD_DISABLE" && changes.count(name) == 0) environment.push_back(variable);
        }
        for (const auto& [name, value] : changes) {
            environment.push_back(name + "=" + value);
        }
        return environment;
    }

    [[noreturn]] static void Become(const tsStart& start)
    {
        const auto openAs = [](const std::string& path, int descriptor) {
            ::dup2(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600),
                   descriptor);
        };
        openAs(start.output, 1);
        if (start.terminal >= 0) {
            ::dup2(start.terminal, 2);
        } else {
            openAs(start.errors, 2);
        }
        if (start.limit.rlim_cur > 0) ::setrlimit(RLIMIT_FSIZE, &start.limit);
        if (::chdir(start.folder.c_str()) != 0) ::_exit(126);
        ::execvpe(start.words[0].c_str(), start.wordPointers.data(),
                  start.environmentPointers.data());
        ::_exit(127);
    }
    void DrainTerminal()
    {
        char bytes[4096];
        pollfd state{mhTerminal, POLLIN, 0};
        while (mhTerminal >= 0 && ::poll(&state, 1, 0) == 1 && (state.revents & POLLIN) != 0) {
            const ssize_t count = ::read(mhTerminal, bytes, sizeof bytes);
            if (count <= 0) return;
            msTerminal.append(bytes, static_cast<size_t>(count));
        }
    }

    tcFolder mFolder;
    pid_t mnProcess = 0;
    int mnExit = -1;
    int mhTerminal = -1;
    std::string msTerminal;
};

// The program runs in the folder.
inline tcRun::tsHow In(const tcFolder& folder)
{
    tcRun::tsHow how;
    how.folder = folder.Path();
    return how;
}

// A file system of so many MiB, which is there for one command of a shell: a mount namespace that
// ends with it has it. Nothing where there are none.
class tcDisk
{
public:
    explicit tcDisk(int size)
        : msMount("mount -t tmpfs -o size=" + std::to_string(size) + "M none disk")
    {
        mHow.program = "unshare";
        mHow.folder = mFolder.Path();
        std::filesystem::create_directory(mFolder.Path("disk"));
        tcRun probe({"-m", "sh", "-c", msMount}, mHow);
        mIsThere = probe.Exit() == 0;
    }
    explicit operator bool() const { return mIsThere; }

    // Of the command, in whose folder "disk" is the disk, and to which "$0" is the program.
    const tcRun::tsHow& How() const { return mHow; }
    std::vector<std::string> Words(const std::string& command) const
    {
        return {"-m", "sh", "-c", msMount + " && " + command, VXCAM_PROGRAM};
    }

private:
    tcFolder mFolder;
    tcRun::tsHow mHow;
    const std::string msMount;
    bool mIsThere = false;
};

// What a camera answers that knows every setting that goes with a frame, all of them 0, and this.
inline std::map<uint32_t, std::string>
AnswersWithSettings(const std::map<uint32_t, std::string>& others = {})
{
    std::map<uint32_t, std::string> answers = others;
    for (const auto& [question, answer] : std::map<uint32_t, uint32_t>{{0x11, 0x60},
                                                                       {0x16, 0x8C},
                                                                       {0x18, 0x8B},
                                                                       {0x19, 0x8A},
                                                                       {0x29, 0x83},
                                                                       {0x2B, 0x84},
                                                                       {0x2D, 0x85},
                                                                       {0x2F, 0x86},
                                                                       {0x31, 0x61},
                                                                       {0x3E, 0x73},
                                                                       {0x41, 0x76},
                                                                       {0x47, 0x79},
                                                                       {0x4B, 0x7A},
                                                                       {0x4E, 0x7B},
                                                                       {0x52, 0x7C},
                                                                       {0x57, 0x7E},
                                                                       {0x59, 0x7F},
                                                                       {0x5F, 0x87}}) {
        answers.emplace(question, MessageBytes(answer, std::string(24, '\0')));
    }
    return answers;
}

#endif
