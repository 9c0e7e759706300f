// Runs a fuzz target over files, as an ordinary test: replay FILE-OR-FOLDER...
// Fails when there is none, and when one takes longer than nLongest seconds.
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count);

namespace {

constexpr unsigned nLongest = 50; // seconds, under a sanitizer on a busy machine

std::filesystem::path sCurrent;

extern "C" void OnAlarm(int)
{
    constexpr char text[] = "replay: hangs on ";
    (void)!write(STDERR_FILENO, text, sizeof text - 1);
    (void)!write(STDERR_FILENO, sCurrent.c_str(), sCurrent.native().size());
    (void)!write(STDERR_FILENO, "\n", 1);
    _exit(2);
}

std::vector<std::filesystem::path> FilesIn(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            files.emplace_back(argv[i]);
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            if (entry.is_regular_file()) files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

void Run(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(stream)), {});
    sCurrent = file;
    alarm(nLongest);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    alarm(0);
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGALRM, OnAlarm);
    const std::vector<std::filesystem::path> files = FilesIn(argc, argv);
    for (const auto& file : files)
        Run(file);
    std::printf("%zu inputs\n", files.size());
    return files.empty() ? 1 : 0;
}
