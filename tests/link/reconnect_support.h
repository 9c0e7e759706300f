// What the tests of connections that break share.
#ifndef RECONNECT_SUPPORT_H
#define RECONNECT_SUPPORT_H

#include "link_support.h"

inline std::string UserMessage(const std::string& payload)
{
    return MessageBytes(gnUserId, payload);
}

class Reconnect : public Link
{
protected:
    std::vector<tcTimedLog::tsRecord> Attempts() const
    {
        return log.Debug(1, "tcVXCamera_Ethernet::MonitorThread reconnecting");
    }
};

#endif
