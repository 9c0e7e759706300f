#include "report.h"

#include "failure.h"
#include "interrupt.h"
#include "vxvisible.h"

#include <nlohmann/json.hpp>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr int gnPoll = 50; // ms

// In lines, whatever words of a camera there are in it.
std::string VisibleLines(const std::string& text)
{
    std::string lines;
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines += vx::Visible(std::string_view(text).substr(at, end - at)) + "\n";
        at = end + 1;
    }
    return lines;
}

// JSON itself escapes those of ASCII but one, and none beyond.
std::string WithoutControls(const std::string& json)
{
    std::string text;
    for (std::string_view rest = json; !rest.empty();) {
        const std::string_view character = vx::FirstCharacter(rest);
        rest.remove_prefix(character.size());
        char code[8];
        std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned char>(character.back()));
        if (vx::IsControl(character) && character != "\n") {
            text += code;
        } else {
            text += character;
        }
    }
    return text;
}

// A file name may be any bytes; what is no UTF-8 in it is replaced.
std::string Dumped(const nlohmann::ordered_json& document, int indent)
{
    return WithoutControls(
        document.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace));
}

[[noreturn]] void ThrowOutputFailure()
{
    const int error = errno;
    const std::string text = std::string("standard output: ") + std::strerror(error);
    if (error == EPIPE) throw tcOutputClosed(eExitFile, text);
    throw tcFailure(eExitFile, text);
}

} // namespace

void PrintLine(const std::string& text)
{
    if (std::fputs(VisibleLines(text).c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
        ThrowOutputFailure();
    }
}

void PrintBytes(const char* bytes, size_t count)
{
    while (count > 0) {
        ThrowIfInterrupted();
        pollfd output{STDOUT_FILENO, POLLOUT, 0};
        if (::poll(&output, 1, gnPoll) <= 0) continue;
        // A pipe that is ready takes as much at once.
        const ssize_t written = ::write(STDOUT_FILENO, bytes, std::min<size_t>(count, PIPE_BUF));
        if (written < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (written < 0) ThrowOutputFailure();
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

void PrintError(const std::string& text)
{
    std::fprintf(stderr, "vxcam: %s\n", vx::Visible(text).c_str());
}

void PrintWarning(const std::string& text)
{
    PrintError("warning: " + text);
}

std::string LineText(const nlohmann::ordered_json& document)
{
    return Dumped(document, -1);
}

void PrintDocument(const nlohmann::ordered_json& document)
{
    PrintLine(Dumped(document, 2));
}
