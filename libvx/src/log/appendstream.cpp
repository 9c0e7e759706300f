#include "appendstream.h"

#include "quietwrite.h"
#include "vxdescriptors.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

// Without a wait, so that a pipe without a reader cannot be opened, and one whose reader is slow
// takes a line whole or not at all.
static int OpenToAppend(char const* path)
{
    const vx::tcAboveStandard above;
    return open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666);
}

// A file on a disk that no limit keeps from growing: writing raises no signal.
static bool IsPlainFile(int file)
{
    struct stat status;
    rlimit limit;
    return fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
           getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur == RLIM_INFINITY;
}

vx::tcAppendBuffer::tcAppendBuffer(char const* path)
    : mhFile(path ? OpenToAppend(path) : -1), mbPlain(mhFile >= 0 && IsPlainFile(mhFile))
{}

vx::tcAppendBuffer::~tcAppendBuffer()
{
    if (mhFile >= 0) close(mhFile);
}

std::streamsize vx::tcAppendBuffer::xsputn(char const* text, std::streamsize length)
{
    std::streamsize done = 0;
    while (mhFile >= 0 && done < length) {
        const auto left = static_cast<size_t>(length - done);
        const auto written = mbPlain ? write(mhFile, text + done, left)
                                     : vx::WriteQuietly(mhFile, text + done, left);
        if (written > 0)
            done += written;
        else if (errno != EINTR)
            break;
    }
    return length;
}

int vx::tcAppendBuffer::overflow(int character)
{
    const char text = traits_type::to_char_type(character);
    xsputn(&text, 1);
    return traits_type::not_eof(character);
}
