#include "tcLog.h"

#include "StringTokenizer.h"
#include "tcLogConsumer.h"

#include <cstdlib>
#include <iostream>
#include <new>

namespace {

tcLogConsumer* BuildUdp(StringTokenizer& tokens)
{
    const std::string address = tokens.nextToken();
    const auto port =
        static_cast<unsigned short>(std::strtol(tokens.nextToken().c_str(), nullptr, 10));
    const bool binary = tokens.nextToken() == "bin";
    const std::string interface = tokens.nextToken();
    return new tcLogUdp(address.empty() ? nullptr : address.c_str(), port, binary,
                        interface.empty() ? nullptr : interface.c_str());
}

tcLogConsumer* BuildFile(StringTokenizer& tokens)
{
    if (!tokens.hasMoreTokens()) return tcLog::mpDefaultConsumer;
    // Kept: the separators behind the second token are gone, so no path has its first "/".
    const std::string first = tokens.nextToken();
    return new tcLogFile((first + tokens.remainingString()).c_str());
}

tcLogConsumer* BuildBuffer(StringTokenizer& tokens)
{
    const long lines = std::strtol(tokens.nextToken().c_str(), nullptr, 10);
    if (lines < 1 || lines > tcLogBuffer::nMaximumLines) return tcLog::mpDefaultConsumer;
    return new tcLogBuffer(static_cast<int>(lines));
}

tcLogConsumer* Build(char const* uri)
{
    StringTokenizer tokens(uri, ":/");
    const std::string scheme = tokens.nextToken();
    if (scheme == "cout") return new tcLogStream(std::cout);
    if (scheme == "udp") return BuildUdp(tokens);
    if (scheme == "file") return BuildFile(tokens);
    if (scheme == "buff") return BuildBuffer(tokens);
    if (scheme == "null") return tcLog::NullConsumer();
    return tcLog::mpDefaultConsumer;
}

} // namespace

tcLogConsumer* tcLog::BuildConsumer(char const* uri)
{
    if (!uri) return mpDefaultConsumer;
    try {
        return Build(uri);
    } catch (std::bad_alloc const&) {
        return mpDefaultConsumer;
    }
}
