#include "tcProgress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int gnUsualWidth = 80;
constexpr int gnLongestBar = 40;
constexpr int gnShortestBar = 5;
constexpr std::chrono::milliseconds gnBetween(50);

} // namespace

int TerminalWidth()
{
    struct winsize size {};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return gnUsualWidth;
    return size.ws_col;
}

bool TerminalTakesEscapes()
{
    const char* const terminal = std::getenv("TERM");
    return ::isatty(STDERR_FILENO) == 1 && (terminal == nullptr || terminal != std::string("dumb"));
}

std::string ProgressLine(const std::string& label, double fraction, const std::string& text,
                         int width)
{
    fraction = std::clamp(std::isfinite(fraction) ? fraction : 0.0, 0.0, 1.0);
    const int room = width - static_cast<int>(label.size() + text.size()) - 4;
    std::string line = label;
    if (room >= gnShortestBar) {
        const int length = std::min(room, gnLongestBar);
        const auto filled = static_cast<int>(std::lround(fraction * length));
        line += " [" + std::string(filled, '#') + std::string(length - filled, '-') + "]";
    }
    line += " " + text;
    return line.substr(0, static_cast<size_t>(std::max(width, 0)));
}

tcProgress::tcProgress(bool wanted) : mbDrawn(wanted && TerminalTakesEscapes()) {}

bool tcProgress::IsDue() const
{
    return mbDrawn && (!mbShown || std::chrono::steady_clock::now() - mLast >= gnBetween);
}

void tcProgress::Show(const std::string& label, double fraction, const std::string& text)
{
    if (!IsDue()) return;
    mLast = std::chrono::steady_clock::now();
    mbShown = true;
    // One column stays free: a cursor behind the last one would break the line on some terminals.
    const std::string line = ProgressLine(label, fraction, text, TerminalWidth() - 1);
    std::fprintf(stderr, "\r\x1b[K%s", line.c_str());
    std::fflush(stderr);
}

void tcProgress::Clear()
{
    if (!mbShown) return;
    mbShown = false;
    std::fputs("\r\x1b[K", stderr);
    std::fflush(stderr);
}
