// A third party's program that finds stars.
#ifndef USUAL_PROGRAM_H
#define USUAL_PROGRAM_H

#include "files_support.h"

#include <vxcamkit/fits.h>

#include <sstream>
#include <string>
#include <vector>

namespace vxcam {

// A star as the program lists it; the first pixel has the coordinates 1, 1.
struct ListedStar {
    double x = 0, y = 0, radius = 0, peak = 0; // the radius holds half of the light
    bool isSaturated = false;
};

inline std::vector<ListedStar> starsOfTheUsualProgram(const std::string& program,
                                                      const Frame& frame)
{
    constexpr int saturated = 4; // flag
    const Folder folder;
    makeTextFile(folder.path("a.fits"), makeFits(frame));
    makeTextFile(folder.path("what"), "X_IMAGE\nY_IMAGE\nFLUX_RADIUS\nFLUX_MAX\nFLAGS\n");
    makeTextFile(folder.path("how"),
                 "CATALOG_NAME " + folder.path("list") + "\nCATALOG_TYPE ASCII\nPARAMETERS_NAME " +
                     folder.path("what") +
                     "\nFILTER N\nDETECT_THRESH 5\nANALYSIS_THRESH 5\nDETECT_MINAREA 4\n"
                     "SATUR_LEVEL 65000\nPHOT_FLUXFRAC 0.5\nVERBOSE_TYPE QUIET\n");
    Output(program + " " + folder.path("a.fits") + " -c " + folder.path("how") + " 2>&1");
    std::vector<ListedStar> stars;
    for (const std::string& line : Split(ReadFile(folder.path("list")), '\n')) {
        std::istringstream numbers(line);
        ListedStar star;
        int flags = 0;
        if (!(numbers >> star.x >> star.y >> star.radius >> star.peak >> flags)) continue;
        star.isSaturated = (flags & saturated) != 0;
        stars.push_back(star);
    }
    return stars;
}

} // namespace vxcam

#endif
