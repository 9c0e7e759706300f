// A disk that takes nothing, and says no word.
#include "files_support.h"

#include "files/direct_writer.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<int> gAsked{0};
std::atomic<bool> gTakesNothing{false};

} // namespace

// In front of the system's own.
extern "C" ssize_t pwrite(int descriptor, const void* bytes, size_t count, off_t at)
{
    constexpr int most = 1000; // a writer that goes on for ever ends there
    using Function = ssize_t(int, const void*, size_t, off_t);
    static auto* const next = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, "pwrite"));
    if (!gTakesNothing) return next(descriptor, bytes, count, at);
    if (++gAsked < most) return 0;
    errno = ENOSPC;
    return -1;
}

namespace vxcam {

TEST(DirectWriter, FailsWhenNothingIsTaken)
{
    const Folder folder;
    const std::string path = folder.path("a");
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(descriptor, 0);
    DirectWriter writer(path, descriptor);
    const FileBytes bytes(4 * DirectWriter::kBlock);
    writer.write(0, bytes.data(), bytes.size());
    for (const bool isDirect : {true, false}) {
        gAsked = 0;
        gTakesNothing = true;
        try {
            if (isDirect)
                writer.write(0, bytes.data(), bytes.size());
            else
                writer.writePlainly(0, bytes.data(), bytes.size());
            ADD_FAILURE() << "nothing was told";
        } catch (const Error& error) {
            EXPECT_EQ(error.code(), EIO);
        }
        gTakesNothing = false;
        EXPECT_EQ(gAsked, 1);
    }
    ::close(descriptor);
}

} // namespace vxcam
