#include "tcLog.h"

#include "record.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

char const* Text(char const* text)
{
    return text ? text : "";
}

// Kept: the text is the format. Should it hold conversions, they find zeros.
void LogText(tcLog& log, int level, char const* text)
{
    if (!log.isDebug(level)) return;
    if (text && !vx::TakesZeros(text))
        log.logDebug(level, "%s", text);
    else
        log.logDebug(level, text, 0L, 0L, 0L, 0L, 0L, 0L, 0L, 0L);
}

} // namespace

tcFuncLog::tcFuncLog(tcLog& log, int level, char const* function)
    : mLog(log), mnLevel(level), msFunction(Text(function))
{
    if (mLog.isDebug(mnLevel)) LogText(mLog, mnLevel, ("Entering " + msFunction).c_str());
}

tcFuncLog::tcFuncLog(tcLog& log, int level, char const* file, int line, char const* function)
    : mLog(log), mnLevel(level), msFunction(Text(function))
{
    if (!mLog.isDebug(mnLevel)) return;
    char text[280];
    std::snprintf(text, sizeof text, "%s:%d Entering %s", Text(file), line, Text(function));
    LogText(mLog, mnLevel, text);
}

tcFuncLog::~tcFuncLog()
{
    if (mLog.isDebug(mnLevel)) LogText(mLog, mnLevel, ("Leaving " + msFunction).c_str());
}

tcFuncLog& tcFuncLog::operator<<(char const* text)
{
    LogText(mLog, mnLevel, text);
    return *this;
}

tcFuncLog& tcFuncLog::operator<<(std::string const& text)
{
    return *this << text.c_str();
}

tcOSError::tcOSError(char const* where)
{
    const int error = errno;
    char buffer[256];
    char const* text = strerror_r(error, buffer, sizeof buffer);
    msText = std::string(Text(where)) + ":" + (text ? text : "Unknown");
    errno = error;
}
