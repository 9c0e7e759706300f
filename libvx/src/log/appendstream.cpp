#include "appendstream.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

vx::tcAppendBuffer::tcAppendBuffer(char const* path)
    : mhFile(path ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666) : -1)
{}

vx::tcAppendBuffer::~tcAppendBuffer()
{
    if (mhFile >= 0) close(mhFile);
}

std::streamsize vx::tcAppendBuffer::xsputn(char const* text, std::streamsize length)
{
    std::streamsize done = 0;
    while (mhFile >= 0 && done < length) {
        const auto written = write(mhFile, text + done, length - done);
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
