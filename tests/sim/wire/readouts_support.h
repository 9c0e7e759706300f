// A simulated camera and a client of it.
#ifndef READOUTS_SUPPORT_H
#define READOUTS_SUPPORT_H

#include "SimClient.h"
#include "tcSimServer.h"

inline constexpr uint16_t gnColumns = 96, gnRows = 64;

inline tsSimOptions Options()
{
    tsSimOptions options;
    options.columns = gnColumns;
    options.rows = gnRows;
    options.heartbeatSeconds = 0;
    return options;
}

struct tsRig {
    explicit tsRig(tsSimOptions options = Options())
        : server(std::move(options)), client(server.Start())
    {
        client.SendCommand(cmdSetExposure, {0});
    }
    void Read(uint16_t frames = 1, uint16_t flags = 0)
    {
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, frames, flags});
    }
    tsArrivedFrame Take()
    {
        Read();
        return client.ReceiveFrame();
    }
    // A pattern whose pixels are row + column.
    void Diagonal() { client.SendCommand(cmdSetTestPattern, {4, {}}); }

    tcSimServer server;
    tcSimTestClient client;
};

#endif
