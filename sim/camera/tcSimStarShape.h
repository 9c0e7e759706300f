// What becomes of a point of light on its way to the pixels.
#ifndef TCSIMSTARSHAPE_H
#define TCSIMSTARSHAPE_H

#include <cstddef>
#include <vector>

// What can be asked for. Pixels, and pixels a second.
inline constexpr float gnSimMostDefocus = 50, gnSimMostSeeing = 50, gnSimFastestDrift = 100;

// What the light of the stars passes, and how their images stand and move. Lengths in pixels.
struct tsSimOptics {
    double defocus = 0;                     // radius of the disc that a point becomes
    double seeing = 0;                      // full width at half maximum of the air's blur
    double rows = 0, columns = 0;           // how far the field is off as the exposure begins
    double trailRows = 0, trailColumns = 0; // how far it moves meanwhile

    bool AsBuilt() const; // nothing of all this
};
bool operator==(const tsSimOptics& first, const tsSimOptics& second);

// The round image of a star of flux 1: a Gaussian core with a wide faint skirt, both spread by the
// seeing and the defocus. Its flux is 1, whatever they are.
//
// Threads: any; nothing changes after construction.
class tcSimStarShape
{
public:
    // `width` is the deviation of the core.
    tcSimStarShape(double width, double defocus, double seeing);

    // Flux per square pixel; 0 beyond the table.
    float At(double distance) const;

    // How far out a star of that flux is worth drawing.
    double Reach(double flux) const;

    // How far apart images may stand that are to look like a stroke.
    double Pace() const { return mnPace; }

private:
    double mnPace;
    size_t mnEnough; // steps within which nearly all of the flux is
    std::vector<float> maValues;
};

#endif
