#include "ring.h"

#include "record.h"
#include "vxdescriptors.h"
#include "vxguarded.h"
#include "vxhoststreams.h"

#include <cstdio>
#include <cstring>

void vx::KeepError(tcLogEvent const& event)
{
    char line[nLineSize];
    FormatRecord(event, line);
    const tcLogGuard guard;
    if (!tcLog::saErrorMsgs) return;
    char* slot = tcLog::saErrorMsgs[tcLog::snErrorLogIndex];
    const size_t length = strnlen(line, tcLog::nErrorMessageSize - 1);
    std::memcpy(slot, line, length);
    slot[length] = '\0';
    if (++tcLog::snErrorLogIndex >= tcLog::nErrorMessages) tcLog::snErrorLogIndex = 0;
}

char const* tcLog::LastErrorMessage()
{
    static thread_local char text[nErrorMessageSize];
    const tcLogGuard guard;
    // Kept: right after the ring has gone round this is slot 0, not the last one.
    const int slot = snErrorLogIndex > 0 ? snErrorLogIndex - 1 : 0;
    std::snprintf(text, sizeof text, "%s", saErrorMsgs ? saErrorMsgs[slot] : "");
    return text;
}

std::string tcLog::ErrorBuffer()
{
    return vx::Guarded(std::string(), [] {
        const tcLogGuard guard;
        std::string lines;
        for (int i = 0; saErrorMsgs && i < nErrorMessages && saErrorMsgs[i][0] != '\0'; ++i) {
            char number[16];
            std::snprintf(number, sizeof number, "%5d\t", i);
            // Kept: texts end with a newline of their own, so an empty line follows each.
            lines.append(number).append(saErrorMsgs[i]).append("\n");
        }
        return lines;
    });
}

std::string tcLog::DecodeSysErrCode(int code)
{
    return "Error " + std::to_string(code) + ":No Installed error decoder";
}

extern "C" int DumpErrorMsgs(char const* path)
{
    const vx::tcNoCancel noCancel;
    const std::string lines = tcLog::ErrorBuffer();
    FILE* file = path ? vx::OpenFile(path, "we") : nullptr;
    if (!file) {
        vx::Print(stdout, lines);
        return 0;
    }
    std::fwrite(lines.data(), 1, lines.size(), file);
    std::fclose(file);
    return 0;
}
