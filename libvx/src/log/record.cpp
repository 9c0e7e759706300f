#include "record.h"

#include "vxhoststreams.h"
#include "vxtimezone.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>

namespace {

constexpr size_t nTimeSize = 79;

// The text of one second in one time zone.
struct tsTimeText {
    int32_t mnSeconds;
    char maZone[128]; // the variable TZ; what does not fit is never taken for equal
    char maText[nTimeSize];
};

bool IsSameZone(const tsTimeText& text, const char* zone)
{
    return text.maZone[sizeof text.maZone - 1] == '\0' && std::strcmp(text.maZone, zone) == 0;
}

// The C library reads the zone again only when it is told to. Without the variable the zone is that
// of the system, which is looked at every second.
const char* TimeText(int32_t seconds)
{
    static thread_local tsTimeText cache;
    const char* zone = vx::Variable("TZ");
    if (zone == nullptr) zone = "none"; // an empty one is UTC
    if (cache.maText[0] != '\0' && cache.mnSeconds == seconds && IsSameZone(cache, zone))
        return cache.maText;

    const time_t clock = seconds;
    tm local;
    vx::TakeTimeZone();
    if (localtime_r(&clock, &local) == nullptr ||
        std::strftime(cache.maText, nTimeSize, "%Y%m%d-%H:%M:%S", &local) == 0) {
        cache.maText[0] = '\0';
        vx::Print(std::cerr, "Time buffer error\n");
        return cache.maText;
    }
    cache.mnSeconds = seconds;
    std::strncpy(cache.maZone, zone, sizeof cache.maZone);
    return cache.maText;
}

const char* LabelOf(tcLogEvent const& event)
{
    static constexpr char aDebug[][5] = {"DBG0", "DBG1", "DBG2", "DBG3", "DBG4",
                                         "DBG5", "DBG6", "DBG7", "DBG8", "DBG9"};
    switch (event.type) {
    case tcLogEvent::eDebug:
        return event.level >= 0 && event.level <= 9 ? aDebug[event.level] : "DBG+";
    case tcLogEvent::eJournal:
        return " JNL";
    case tcLogEvent::eError:
        return " ERR";
    case tcLogEvent::eEvent:
        return " EVT";
    }
    return " UNK";
}

char* Append(char* to, const char* text, size_t length)
{
    std::memcpy(to, text, length);
    return to + length;
}

// At least three digits.
char* AppendMillis(char* to, int32_t millis)
{
    if (millis < 0 || millis > 999) return to + std::sprintf(to, "%03d", millis);
    *to++ = static_cast<char>('0' + millis / 100);
    *to++ = static_cast<char>('0' + millis / 10 % 10);
    *to++ = static_cast<char>('0' + millis % 10);
    return to;
}

} // namespace

// By hand, since every record of a text consumer comes through here. Lengths are bounded, so that
// records that come unterminated are, too.
size_t vx::FormatRecord(tcLogEvent const& event, char (&line)[nLineSize])
{
    constexpr size_t tagColumns = 8;
    const char* clock = TimeText(event.seconds);
    char* to = Append(line, clock, std::strlen(clock));
    *to++ = '.';
    to = AppendMillis(to, event.millis);
    *to++ = ':';
    const size_t tagLength = strnlen(event.tag, sizeof event.tag);
    for (size_t column = tagLength; column < tagColumns; ++column) {
        *to++ = ' ';
    }
    to = Append(to, event.tag, tagLength);
    *to++ = ':';
    to = Append(to, LabelOf(event), 4);
    *to++ = ':';
    to = Append(to, event.message, strnlen(event.message, sizeof event.message));
    *to++ = '\n';
    *to = '\0';
    return static_cast<size_t>(to - line);
}
