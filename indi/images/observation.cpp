#include "observation.h"

#include <libastro.h>

#include <cstdio>
#include <utility>

namespace vxcam {

namespace {

constexpr double kPi = 3.14159265358979323846, kDegree = kPi / 180, kHour = 15 * kDegree;
constexpr double kUnixEpoch = 2440587.5, kDay = 86400; // as a Julian date; seconds
constexpr double kArcsecondsPerMicron = 206.264806247; // at 1 mm of focal length
constexpr int kDegreeDecimals = 6;

// "12 34 56.78", with a sign where there is one to be told.
std::string sexagesimal(double value, bool hasSign)
{
    constexpr int kHundredths = 360000; // in a whole
    const auto total = static_cast<long>(std::lround(std::abs(value) * kHundredths));
    const long whole = total / kHundredths, minutes = total / 6000 % 60;
    char text[40];
    std::snprintf(text, sizeof text, "%s%02ld %02ld %05.2f", hasSign ? (value < 0 ? "-" : "+") : "",
                  whole, minutes, static_cast<double>(total % 6000) / 100);
    return text;
}

// A paragraph for each subject; what is not known has no card.
class CardMaker
{
public:
    CardMaker(const Observation& facts, double unixTime) : facts_(facts), unixTime_(unixTime) {}

    std::vector<HeaderCard> make()
    {
        text("FRAME", facts_.frame, "frame type");
        text("OBSERVER", facts_.observer, "observer");
        text("OBJECT", facts_.object, "object");
        text("TELESCOP", facts_.telescope, "telescope");
        text("FILTER", facts_.filter, "filter");
        addOptics();
        number("MPSAS", facts_.skyQuality, "[mag/arcsec2] sky quality");
        number("ROTATANG", facts_.rotator, "[deg] rotator angle", 3);
        number("FOCUSPOS", facts_.focusPosition, "[steps] focus position", 0);
        number("FOCUSTEM", facts_.focusTemperature, "[deg C] focuser temperature", 2);
        if (facts_.isSky) addSky();
        return std::move(cards_);
    }

private:
    void text(const char* keyword, const std::string& value, const char* comment)
    {
        if (!value.empty()) cards_.push_back({keyword, value, comment});
    }
    void number(const char* keyword, double value, const char* comment,
                int decimals = kDegreeDecimals)
    {
        if (!std::isnan(value)) cards_.push_back({keyword, value, comment, decimals});
    }
    void addOptics();
    void addSky();

    const Observation& facts_;
    const double unixTime_;
    std::vector<HeaderCard> cards_;
};

void CardMaker::addOptics()
{
    number("FOCALLEN", facts_.focalLength, "[mm] focal length", 3);
    number("APTDIA", facts_.aperture, "[mm] aperture", 3);
    if (facts_.pixelX <= 0 || facts_.pixelY <= 0) return;
    number("PIXSIZE1", facts_.pixelX, "[um] width of a sensor pixel");
    number("PIXSIZE2", facts_.pixelY, "[um] height of a sensor pixel");
    number("XPIXSZ", facts_.pixelX * facts_.binningX, "[um] width of a pixel of the frame");
    number("YPIXSZ", facts_.pixelY * facts_.binningY, "[um] height of a pixel of the frame");
    number("SCALE", facts_.pixelX * facts_.binningX * kArcsecondsPerMicron / facts_.focalLength,
           "[arcsec] a pixel of the frame on the sky");
}

void CardMaker::addSky()
{
    number("SITELAT", facts_.latitude, "[deg] latitude of the site");
    number("SITELONG", facts_.longitude, "[deg] longitude of the site");
    if (std::isnan(facts_.rightAscension) || std::isnan(facts_.declination)) return;
    text("OBJCTRA", sexagesimal(facts_.rightAscension, false), "J2000, hours");
    text("OBJCTDEC", sexagesimal(facts_.declination, true), "J2000, degrees");
    number("RA", facts_.rightAscension * 15, "[deg] J2000");
    number("DEC", facts_.declination, "[deg] J2000");
    cards_.push_back({"EQUINOX", 2000.0, "", 1});
    if (facts_.pierSide == 0) text("PIERSIDE", "WEST", "west, looking east");
    if (facts_.pierSide == 1) text("PIERSIDE", "EAST", "east, looking west");
    if (std::isnan(facts_.latitude) || std::isnan(facts_.longitude)) return;
    INDI::IEquatorialCoordinates old{facts_.rightAscension, facts_.declination}, date{0, 0};
    INDI::J2000toObserved(&old, kUnixEpoch + unixTime_ / kDay, &date);
    const Horizontal place = horizontalOf(date.rightascension, date.declination, facts_.latitude,
                                          facts_.longitude, unixTime_);
    number("OBJCTAZ", place.azimuth, "[deg] azimuth, from north to east");
    number("OBJCTALT", place.altitude, "[deg] altitude");
    number("AIRMASS", airmassOf(place.altitude), "air on the way");
}

} // namespace

Horizontal horizontalOf(double rightAscension, double declination, double latitude,
                        double longitude, double unixTime)
{
    const double days = kUnixEpoch + unixTime / kDay - 2451545.0; // from J2000
    const double siderealDegrees = 280.46061837 + 360.98564736629 * days;
    const double hourAngle =
        (std::fmod(siderealDegrees + longitude, 360.0)) * kDegree - rightAscension * kHour;
    const double dec = declination * kDegree, lat = latitude * kDegree;
    const double altitude = std::asin(std::sin(lat) * std::sin(dec) +
                                      std::cos(lat) * std::cos(dec) * std::cos(hourAngle));
    const double azimuth = std::atan2(-std::cos(dec) * std::sin(hourAngle),
                                      std::sin(dec) * std::cos(lat) -
                                          std::cos(dec) * std::sin(lat) * std::cos(hourAngle));
    return {std::fmod(azimuth / kDegree + 360, 360.0), altitude / kDegree};
}

double airmassOf(double altitude)
{
    if (!(altitude > 0)) return Observation::kUnknown;
    // Good to 0.1 at the horizon, to 0.001 above 30 degrees.
    return 1 / std::sin((altitude + 244 / (165 + 47 * std::pow(altitude, 1.1))) * kDegree);
}

std::vector<HeaderCard> cardsOf(const Observation& observation, double unixTime)
{
    return CardMaker(observation, unixTime).make();
}

} // namespace vxcam
