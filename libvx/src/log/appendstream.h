// The file behind tcLogFile, private to the library.
#ifndef VX_APPENDSTREAM_H
#define VX_APPENDSTREAM_H

#include "tcLogConsumer.h"

#include <ostream>
#include <streambuf>

namespace vx {

// Appends to a file without buffering: each insertion is one write, so that lines of several
// processes do not mix. What cannot be written is lost, as is what a pipe does not take at once;
// later lines are tried again. No signal is raised.
// Owns: the descriptor, which is close-on-exec.
class tcAppendBuffer : public std::streambuf
{
public:
    explicit tcAppendBuffer(char const* path);
    ~tcAppendBuffer() override;

    bool IsOpen() const { return mhFile >= 0; }

protected:
    std::streamsize xsputn(char const* text, std::streamsize length) override;
    int overflow(int character) override;

private:
    int mhFile;
    bool mbPlain; // no signal can come of writing
};

} // namespace vx

class tcLogFile::tcStream : public std::ostream
{
public:
    explicit tcStream(char const* path) : std::ostream(nullptr), mBuffer(path) { rdbuf(&mBuffer); }

    bool IsOpen() const { return mBuffer.IsOpen(); }

private:
    vx::tcAppendBuffer mBuffer;
};

#endif
