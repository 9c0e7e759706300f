// What of a frame really leaves the camera on a line that damages messages.
#ifndef TCSIMSENTFRAME_H
#define TCSIMSENTFRAME_H

#include "damage.h"
#include "tcSimPicture.h"
#include "tcSimServer.h"

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

// Does what a client does that believes each packet: puts its pixels where it says.
//
// Threads: one.
// Owns: the pixels that left, of the whole frame.
class tcSimSentFrame
{
public:
    // The first `gone` packets left as they are.
    tcSimSentFrame(std::shared_ptr<tcSimPicture> picture, uint32_t gone);

    // One message, as it leaves. What is no whole pixel packet any more counts for nothing.
    void Leaves(const tpSimBytes& message);

    // The frame is over; some of it may still leave.
    void End() { mbEnded = true; }
    bool Ended() const { return mbEnded; }

    // Goes through all pixels.
    tsSimSent Tell() const;

private:
    struct tsPlace {
        uint32_t packet, first, last; // columns
    };

    void Follow(const tpSimBytes& message);
    void Put(uint16_t row, uint32_t first, const uint8_t* pixels, uint32_t count);

    std::shared_ptr<tcSimPicture> mpPicture;
    size_t mnPixelBytes; // of one
    std::unordered_map<uint16_t, std::vector<tsPlace>> mmRows;
    std::vector<uint8_t> maPixels;
    std::vector<bool> maFilled; // by packet
    uint32_t mnPackets, mnNext; // left; and the one that is to come next
    bool mbIntact = true, mbEnded = false;
};

#endif
