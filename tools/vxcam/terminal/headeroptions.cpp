#include "headeroptions.h"

#include "program.h"

void tcHeaderOptions::Declare(tcCommandLine& line)
{
    line.Flag("--force", &mbForce, "replace files that exist");
    line.Option("--instrument", &msInstrument, "NAME", "the camera's name in the file");
    line.Option("--header", &maCards, "CARD",
                "KEY=VALUE or KEY=VALUE/COMMENT for the file's header; may be repeated");
}

vxcam::HeaderOptions tcHeaderOptions::Header() const
{
    vxcam::HeaderOptions header;
    header.software = "vxcam " VXCAM_VERSION;
    for (const std::string& card : maCards) {
        header.cards.push_back(vxcam::parseCard(card));
    }
    return header;
}

std::string tcHeaderOptions::InstrumentOf(const vxcam::Camera& camera) const
{
    const bool isNamed = !msInstrument.empty() || NameOf(camera) == camera.target();
    return isNamed ? msInstrument : NameOf(camera);
}
