// What the tests of settings share.
#ifndef SETTINGS_SUPPORT_H
#define SETTINGS_SUPPORT_H

#include "SimClient.h"
#include "tcSimServer.h"

class SimSettings : public testing::Test
{
protected:
    static tsSimOptions Options()
    {
        tsSimOptions options;
        options.columns = 60;
        options.rows = 40;
        options.serial = 4711;
        options.heartbeatSeconds = 0;
        options.timeScale = 1000;
        return options;
    }

    // The codes of the camera errors since the last call.
    std::vector<int> Errors()
    {
        std::vector<int> codes;
        for (const tsReceived& message : mtClient.Settle()) {
            if (message.id == ansCameraError.id) {
                codes.push_back(message.payload[0] << 8 | message.payload[1]);
            }
        }
        return codes;
    }
    static std::vector<int> Refused(uint32_t id) { return {static_cast<int>(3 << 8 | id)}; }

    tcSimServer mtServer{Options()};
    tcSimTestClient mtClient{mtServer.Start()};
};

#endif
