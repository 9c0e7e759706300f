#include "sequence/sequence_hook.h"

#include <vxcamkit/duration.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <future>
#include <optional>
#include <system_error>

namespace vxcam {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPoll(50);

// What a child starts with, laid out for posix_spawn.
class Spawning
{
public:
    Spawning()
    {
        posix_spawn_file_actions_init(&files_);
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&files_, STDERR_FILENO, STDOUT_FILENO);
        sigset_t usual, none;
        sigfillset(&usual);
        sigemptyset(&none);
        posix_spawnattr_setsigdefault(&attributes_, &usual);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF |
                                                   POSIX_SPAWN_SETSIGMASK);
    }
    ~Spawning()
    {
        posix_spawn_file_actions_destroy(&files_);
        posix_spawnattr_destroy(&attributes_);
    }
    Spawning(const Spawning&) = delete;
    Spawning& operator=(const Spawning&) = delete;

    pid_t start(const std::string& command, const std::vector<std::string>& variables)
    {
        std::vector<std::string> words = {"/bin/sh", "-c", command}, environment = variables;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            if (!isAmong(variables, *entry)) environment.emplace_back(*entry);
        }
        pid_t process = 0;
        const int error = ::posix_spawn(&process, "/bin/sh", &files_, &attributes_,
                                        pointers(words).data(), pointers(environment).data());
        if (error != 0) throw HookError("'" + command + "': " + std::strerror(error));
        return process;
    }

private:
    static bool isAmong(const std::vector<std::string>& variables, const std::string& entry)
    {
        const std::string name = entry.substr(0, entry.find('=')) + "=";
        return std::any_of(variables.begin(), variables.end(), [&](const std::string& variable) {
            return variable.compare(0, name.size(), name) == 0;
        });
    }
    static std::vector<char*> pointers(std::vector<std::string>& texts)
    {
        std::vector<char*> list;
        for (std::string& text : texts) {
            list.push_back(text.data());
        }
        list.push_back(nullptr);
        return list;
    }

    posix_spawn_file_actions_t files_{};
    posix_spawnattr_t attributes_{};
};

// Nothing where the system does not tell how it ended, as with SIGCHLD ignored.
std::optional<int> awaitEnd(pid_t process)
{
    int status = 0;
    while (::waitpid(process, &status, 0) < 0) {
        if (errno != EINTR) return std::nullopt;
    }
    return status;
}

// It does not run on where nobody can wait for it.
std::future<std::optional<int>> endOf(pid_t process)
{
    try {
        return std::async(std::launch::async, awaitEnd, process);
    } catch (const std::system_error& error) {
        ::kill(-process, SIGKILL);
        awaitEnd(process);
        throw std::system_error(error.code(), "a thread could not be started, see ulimit -u");
    }
}

} // namespace

HookError::HookError(const std::string& text) : Error(ErrorKind::Aborted, text) {}
HookError::~HookError() = default;

void runHook(const SequenceHook& hook, const std::vector<std::string>& variables,
             const std::function<void()>& tell)
{
    const auto deadline = Clock::now() + hook.patience;
    const pid_t process = Spawning().start(hook.command, variables);
    std::future<std::optional<int>> end = endOf(process);
    bool isLate = false;
    try {
        while (end.wait_for(kPoll) != std::future_status::ready && !isLate) {
            tell();
            isLate = Clock::now() >= deadline;
        }
    } catch (...) {
        ::kill(-process, SIGKILL);
        throw;
    }
    if (isLate && end.wait_for(Clock::duration(0)) != std::future_status::ready) {
        ::kill(-process, SIGKILL);
        end.wait();
        throw HookError("'" + hook.command + "' did not end within " + exactText(hook.patience));
    }
    const std::optional<int> status = end.get();
    if (!status) throw HookError("'" + hook.command + "': how it ended is not known");
    if (WIFEXITED(*status) && WEXITSTATUS(*status) == 0) return;
    throw HookError("'" + hook.command + "' ended with " +
                    (WIFEXITED(*status) ? "code " + std::to_string(WEXITSTATUS(*status))
                                        : "signal " + std::to_string(WTERMSIG(*status))));
}

} // namespace vxcam
