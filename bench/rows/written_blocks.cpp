#include "written_blocks.h"

#include "folder.h"
#include "receiver.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

constexpr size_t gnBlockBytes = size_t(8) << 20;
constexpr size_t gnAlignment = 4096;

} // namespace

double WriteBlocks(int count)
{
    const tsFolder folder;
    const std::unique_ptr<void, void (*)(void*)> block(
        std::aligned_alloc(gnAlignment, gnBlockBytes), std::free);
    std::fill_n(static_cast<char*>(block.get()), gnBlockBytes, 'x');
    const std::string path = (folder.path / "blocks").string();
    const double start = WallSeconds();
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_DIRECT, 0600);
    if (file < 0) file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600); // it has no disk
    if (file < 0) throw std::runtime_error(path + ": cannot be made");
    for (int number = 0; number < count; ++number) {
        if (write(file, block.get(), gnBlockBytes) != static_cast<ssize_t>(gnBlockBytes)) {
            close(file);
            throw std::runtime_error(path + ": cannot be written");
        }
    }
    close(file);
    return count * static_cast<double>(gnBlockBytes) / 1e6 / (WallSeconds() - start);
}
