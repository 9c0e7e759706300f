// Another program that a row measures.
#ifndef BENCH_SPAWNED_PROGRAM_H
#define BENCH_SPAWNED_PROGRAM_H

#include "sender.h"

#include <sys/types.h>

#include <string>
#include <vector>

// Runs until it ends by itself. Owns: the child process, waited for by the destructor.
class tcSpawnedProgram
{
public:
    // The words begin with the program's path. Descriptors become its standard input and output,
    // and stay the caller's; -1 leaves the present ones. Throws when it cannot be started.
    explicit tcSpawnedProgram(std::vector<std::string> words, int input = -1, int output = -1);
    ~tcSpawnedProgram();
    tcSpawnedProgram(const tcSpawnedProgram&) = delete;
    tcSpawnedProgram& operator=(const tcSpawnedProgram&) = delete;

    // Its exit code, or -1 when a signal has ended it.
    int Wait();

private:
    pid_t mnChild = -1;
};

// The sender as programs are told of it: HOST:PORT.
std::string TargetOf(const tcSender& sender);

#endif
