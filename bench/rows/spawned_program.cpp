#include "spawned_program.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

tcSpawnedProgram::tcSpawnedProgram(std::vector<std::string> words, int input, int output)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (input >= 0) posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    if (output >= 0) posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int failure =
        posix_spawn(&mnChild, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error(words[0] + ": cannot be started");
}

tcSpawnedProgram::~tcSpawnedProgram()
{
    Wait();
}

int tcSpawnedProgram::Wait()
{
    int status = -1;
    if (mnChild <= 0) return -1;
    while (waitpid(mnChild, &status, 0) < 0 && errno == EINTR) {
    }
    mnChild = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string TargetOf(const tcSender& sender)
{
    return std::string(sender.Stream().address) + ":" + std::to_string(sender.Port());
}
