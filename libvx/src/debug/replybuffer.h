// What a handler prints to its client, private to the library.
#ifndef VX_REPLYBUFFER_H
#define VX_REPLYBUFFER_H

#include "background.h"

#include <streambuf>
#include <string>

namespace vx {

// A stream that goes to a client, in pieces; once the client is gone it fails.
class tcReplyBuffer : public std::streambuf
{
public:
    explicit tcReplyBuffer(HSocket* client) : mpClient(client) { msText.reserve(nPiece + nMore); }

    void Flush()
    {
        mbGone = mbGone || !vx::Reply(mpClient, msText);
        msText.clear();
    }

protected:
    std::streamsize xsputn(char const* text, std::streamsize length) override
    {
        msText.append(text, static_cast<size_t>(length));
        if (msText.size() >= nPiece) Flush();
        return mbGone ? 0 : length;
    }
    int overflow(int character) override
    {
        const char text = traits_type::to_char_type(character);
        return xsputn(&text, 1) == 1 ? traits_type::not_eof(character) : traits_type::eof();
    }

private:
    static constexpr size_t nPiece = 65536, nMore = 1024; // lines are not longer

    HSocket* const mpClient;
    std::string msText;
    bool mbGone = false;
};

} // namespace vx

#endif
