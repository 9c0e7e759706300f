#include "tcLog.h"

#include "errortaker.h"
#include "lifetime.h"
#include "offconsole.h"
#include "record.h"
#include "ring.h"
#include "tcLogConsumer.h"
#include "vxguarded.h"
#include "vxhoststreams.h"

#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <optional>

namespace {

constexpr size_t nFormatSize = 1024;

thread_local int snOffConsole = 0;

template <size_t nSize>
void CopyText(char (&to)[nSize], char const* from)
{
    const size_t length = strnlen(from, nSize - 1);
    std::memcpy(to, from, length);
    to[length] = '\0';
}

void FormatMessage(tcLogEvent& event, char const* fmt, va_list args, bool isVisible)
    __attribute__((format(printf, 2, 0)));

void FormatMessage(tcLogEvent& event, char const* fmt, va_list args, bool isVisible)
{
    if (event.errNum == 0) {
        // The record's own field cuts the text where the larger buffer would be cut afterwards.
        if (fmt) vx::FormatText(event.message, sizeof event.message, fmt, args, isVisible);
        return;
    }
    char text[nFormatSize];
    text[0] = '\0';
    if (fmt) vx::FormatText(text, sizeof text, fmt, args, isVisible);
    const size_t length = std::strlen(text);
    const std::string decoded = tcLog::DecodeSysErrCode(event.errNum);
    std::snprintf(text + length, sizeof text - length, ":%s", decoded.c_str());
    CopyText(event.message, text);
}

void FillClock(tcLogEvent& event)
{
    // Kept: two clock reads, so around the change of a second the two need not belong together.
    timeval now;
    gettimeofday(&now, nullptr);
    event.seconds = static_cast<int32_t>(time(nullptr));
    event.millis = vx::MillisOf(now.tv_usec);
}

} // namespace

vx::tcOffConsole::tcOffConsole()
{
    ++snOffConsole;
}

vx::tcOffConsole::~tcOffConsole()
{
    --snOffConsole;
}

bool vx::tcOffConsole::IsInForce()
{
    return snOffConsole > 0;
}

void tcLog::log(tcLogEvent::teEventLogType type, int level, int errNum, char const* fmt,
                va_list args)
{
    if (type != tcLogEvent::eError && mpConsumer == NullConsumer()) return;
    const vx::tcNoCancel noCancel;
    tcLogEvent event{};
    FillClock(event);
    event.type = type;
    event.level = level;
    event.errNum = errNum;
    CopyText(event.tag, type == tcLogEvent::eError ? maErrorTag : maTag);
    try {
        FormatMessage(event, fmt, args, mbShowsControls);
        if (type == tcLogEvent::eError) vx::KeepError(event);
        Deliver(event);
    } catch (...) {
        vx::PrintFormatted(std::cerr, "tcLog::log(...) Error formatting message. unformatted: %s\n",
                           fmt ? fmt : "");
    }
}

unsigned long tcLog::UnprintedTexts()
{
    return vx::UnprintedTexts();
}

void tcLog::Deliver(tcLogEvent const& event)
{
    const vx::tcOneWait wait;
    std::optional<tcLogGuard> guard;
    if (mbSynchronizeLogs) guard.emplace();
    {
        const vx::tcDelivery delivery(mpConsumer);
        if (delivery.Consumer()) delivery.Consumer()->Output(event);
    }
    if (event.type != tcLogEvent::eError || vx::tcOffConsole::IsInForce()) return;
    if (vx::IsTaken(msName, event)) return;
    tcLogConsumer* const console = __atomic_load_n(&mpErrorConsole, __ATOMIC_ACQUIRE);
    if (console) console->Output(event);
}

void tcLog::Emit(tcLogEvent::teEventLogType type, int level, int errNum, char const* fmt,
                 va_list args, char const* failure)
{
    if (type != tcLogEvent::eError && mpConsumer == NullConsumer()) return;
    const vx::tcNoCancel noCancel;
    const int error = errno;
    try {
        log(type, level, errNum, fmt, args);
    } catch (...) {
        vx::PrintFormatted(stderr, "%s\n              no messages logged\n", failure);
    }
    errno = error;
}

void tcLog::logError(char const* fmt, ...)
{
    if (!sbErrorEnabled) return;
    va_list args;
    va_start(args, fmt);
    Emit(tcLogEvent::eError, 0, 0, fmt, args, "tcLog::LogError(const char *fmt, ...) fatal error");
    va_end(args);
}

void tcLog::logError(int errNum, char const* fmt, ...)
{
    if (!sbErrorEnabled) return;
    va_list args;
    va_start(args, fmt);
    Emit(tcLogEvent::eError, 0, errNum, fmt, args,
         "tcLog::logError(int errNum, const char *fmt, ...)  fatal error");
    va_end(args);
}

void tcLog::logSystemError(char const* fmt, ...)
{
    const int error = errno;
    if (!sbErrorEnabled) return;
    va_list args;
    va_start(args, fmt);
    Emit(tcLogEvent::eError, 0, error, fmt, args,
         "tcLog::logSystemError(const char *fmt, ...)  fatal error");
    va_end(args);
}

void tcLog::logJournal(char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    Emit(tcLogEvent::eJournal, 0, 0, fmt, args,
         "tcLog::logJournal(const char *fmt, ...)  fatal error");
    va_end(args);
}

void tcLog::logEvent(char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    Emit(tcLogEvent::eEvent, 0, 0, fmt, args, "tcLog::logEvent(const char *fmt, ...)  fatal error");
    va_end(args);
}

void tcLog::EmitDebug(char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    Emit(tcLogEvent::eDebug, 0, 0, fmt, args, "tcLog::logDebug(const char *fmt, ...)  fatal error");
    va_end(args);
}

void tcLog::EmitDebug(int level, char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    Emit(tcLogEvent::eDebug, level, 0, fmt, args,
         "tcLog::logDebug(int dbgLevel, const char *fmt, ...)   fatal error");
    va_end(args);
}

void tcLog::EmitText(char const* fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    const vx::tcNoCancel noCancel;
    try {
        log(tcLogEvent::eDebug, mnStreamLevel, 0, fmt, args);
    } catch (...) {
        // The emitter has tried to report it.
    }
    va_end(args);
}

tcLog& tcLog::operator<<(char const* text)
{
    // Kept: the text is the format. Should it hold conversions, they find zeros.
    if (text && !vx::TakesZeros(text))
        EmitText("%s", text);
    else
        EmitText(text, 0L, 0L, 0L, 0L, 0L, 0L, 0L, 0L);
    return *this;
}

tcLog& tcLog::operator<<(std::string const& text)
{
    return *this << text.c_str();
}
