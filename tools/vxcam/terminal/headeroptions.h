// How files with frames are written, as it stands on the command line.
#ifndef HEADEROPTIONS_H
#define HEADEROPTIONS_H

#include "tcCommandLine.h"

#include <vxcamkit/camera.h>
#include <vxcamkit/header.h>

#include <string>
#include <vector>

// Whether files are replaced, the name of the camera in them, and cards of the user.
class tcHeaderOptions
{
public:
    void Declare(tcCommandLine& line);

    bool Force() const { return mbForce; }
    // The program and the cards. Throws vxcam::Error for what is no card, tcFailure for one that
    // the measures write.
    vxcam::HeaderOptions Header(bool isMeasured = false) const;
    // The camera's name: what is given, or what people call it; none where the kit knows better.
    std::string InstrumentOf(const vxcam::Camera& camera) const;

private:
    std::string msInstrument;
    std::vector<std::string> maCards;
    bool mbForce = false;
};

#endif
