#include "headeroptions.h"

#include "failure.h"
#include "program.h"

#include <vxcamkit/measures.h>

namespace {

void RequireNoMeasure(const vxcam::HeaderCard& card)
{
    vxcam::Measures some;
    some.hfd = some.fwhm = 1;
    for (const vxcam::HeaderCard& own : vxcam::cardsOf(some)) {
        if (card.keyword != own.keyword) continue;
        throw tcFailure(eExitUsage,
                        "--header " + card.keyword + ": --measure writes this word itself");
    }
}

} // namespace

void tcHeaderOptions::Declare(tcCommandLine& line)
{
    line.Flag("--force", &mbForce, "replace files that exist");
    line.Option("--instrument", &msInstrument, "NAME", "the camera's name in the file");
    line.Option("--header", &maCards, "CARD",
                "KEY=VALUE or KEY=VALUE/COMMENT for the file's header; may be repeated");
}

vxcam::HeaderOptions tcHeaderOptions::Header(bool isMeasured) const
{
    vxcam::HeaderOptions header;
    header.software = "vxcam " VXCAM_VERSION;
    for (const std::string& card : maCards) {
        header.cards.push_back(vxcam::parseCard(card));
        if (isMeasured) RequireNoMeasure(header.cards.back());
    }
    return header;
}

std::string tcHeaderOptions::InstrumentOf(const vxcam::Camera& camera) const
{
    const bool isNamed = !msInstrument.empty() || NameOf(camera) == camera.target();
    return isNamed ? msInstrument : NameOf(camera);
}
