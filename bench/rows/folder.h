// Where rows write their files.
#ifndef BENCH_FOLDER_H
#define BENCH_FOLDER_H

#include <unistd.h>

#include <filesystem>
#include <string>

// In the present folder; gone afterwards.
struct tsFolder {
    const std::filesystem::path path =
        std::filesystem::absolute("vxbench-" + std::to_string(getpid()));
    tsFolder() { std::filesystem::create_directory(path); }
    ~tsFolder() { std::filesystem::remove_all(path); }
    tsFolder(const tsFolder&) = delete;
    tsFolder& operator=(const tsFolder&) = delete;
};

#endif
