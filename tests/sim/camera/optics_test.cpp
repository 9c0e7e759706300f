// Stars out of focus, behind air, and moving.
#include "SimClient.h"
#include "tcSimSensor.h"
#include "tcSimServer.h"

#include <cmath>
#include <mutex>

namespace {

constexpr uint32_t gnSide = 400;
constexpr double gnExposure = 0.02; // so short that the star is not saturated
constexpr uint64_t gnSeed = 142;    // its brightest star is well inside

// Flux, place and size of the only star, from what lies above the sky.
struct tsMoments {
    double flux = 0, row = 0, column = 0;
    double rowVariance = 0, columnVariance = 0;
    double peak = 0;
};

tsMoments MomentsOf(const std::vector<double>& image)
{
    tsMoments moments;
    double row2 = 0, column2 = 0;
    for (uint32_t row = 0; row < gnSide; ++row) {
        for (uint32_t column = 0; column < gnSide; ++column) {
            const double value = image[row * gnSide + column];
            moments.flux += value;
            moments.row += value * row;
            moments.column += value * column;
            row2 += value * row * row;
            column2 += value * column * column;
            moments.peak = std::max(moments.peak, value);
        }
    }
    moments.row /= moments.flux;
    moments.column /= moments.flux;
    moments.rowVariance = row2 / moments.flux - moments.row * moments.row;
    moments.columnVariance = column2 / moments.flux - moments.column * moments.column;
    return moments;
}

// The star alone: the same frame, with the same noise, without it is taken off.
class OneStar : public testing::Test
{
protected:
    OneStar() : mtSensor(gnSide, gnSide, gnSeed, 1), mtEmpty(gnSide, gnSide, gnSeed, 0)
    {
        mtConditions.exposure = gnExposure;
        mtConditions.temperature = -60;
        mtConditions.readNoise = 0;
        mtConditions.hotPixels = false;
        mtConditions.gain = 4;
    }

    tsMoments See(const tsSimOptics& optics = {})
    {
        mtSensor.Look(optics);
        std::vector<uint16_t> with(gnSide), without(gnSide);
        std::vector<double> image;
        for (uint32_t row = 0; row < gnSide; ++row) {
            mtSensor.ReadRow(mtConditions, row, 0, gnSide, with.data());
            mtEmpty.ReadRow(mtConditions, row, 0, gnSide, without.data());
            for (uint32_t column = 0; column < gnSide; ++column) {
                image.push_back((double(with[column]) - without[column]) / 4);
            }
        }
        return MomentsOf(image);
    }

    tcSimSensor mtSensor, mtEmpty;
    tsSimConditions mtConditions;
};

constexpr double gnFlux = 4e6 * gnExposure;

} // namespace

TEST_F(OneStar, IsWhereTheTestsBelieveItToBe)
{
    const tsMoments star = See();
    EXPECT_NEAR(star.flux, gnFlux, gnFlux * 0.01);
    EXPECT_GT(star.row, 120);
    EXPECT_LT(star.row, 280);
    EXPECT_GT(star.column, 120);
    EXPECT_LT(star.column, 280);
    EXPECT_LT(star.peak, 16000) << "not saturated";
}

// A disc of radius r has a variance of r * r / 4 each way, and variances add.
TEST_F(OneStar, OutOfFocusIsADiscOfTheSameFlux)
{
    const tsMoments sharp = See();
    for (double radius : {2.0, 8.0, 30.0, -8.0}) {
        SCOPED_TRACE(radius);
        tsSimOptics optics;
        optics.defocus = radius;
        const tsMoments star = See(optics);
        EXPECT_NEAR(star.flux, gnFlux, gnFlux * 0.01);
        EXPECT_NEAR(star.row, sharp.row, 0.2);
        EXPECT_NEAR(star.column, sharp.column, 0.2);
        const double more = radius * radius / 4;
        EXPECT_NEAR(star.rowVariance - sharp.rowVariance, more, 0.5 + more * 0.06);
        EXPECT_NEAR(star.columnVariance - sharp.columnVariance, more, 0.5 + more * 0.06);
    }
    tsSimOptics far;
    far.defocus = 30;
    // The middle of a disc is flat: its flux over its area.
    EXPECT_NEAR(See(far).peak, gnFlux * 0.94 / (3.14159 * 900), gnFlux / (3.14159 * 900) * 0.7);
}

TEST_F(OneStar, BehindAirIsWiderAndOfTheSameFlux)
{
    const tsMoments sharp = See();
    for (double seeing : {1.0, 4.0, 15.0}) {
        SCOPED_TRACE(seeing);
        tsSimOptics optics;
        optics.seeing = seeing;
        const tsMoments star = See(optics);
        EXPECT_NEAR(star.flux, gnFlux, gnFlux * 0.01);
        const double more = seeing * seeing / (8 * std::log(2.0));
        EXPECT_NEAR(star.rowVariance - sharp.rowVariance, more, 0.5 + more * 0.06);
        EXPECT_NEAR(star.columnVariance - sharp.columnVariance, more, 0.5 + more * 0.06);
    }
}

TEST_F(OneStar, DriftingIsElsewhereAndAStroke)
{
    const tsMoments sharp = See();
    tsSimOptics optics;
    optics.rows = 10;
    optics.columns = -20;
    optics.trailRows = 24;
    const tsMoments star = See(optics);
    EXPECT_NEAR(star.flux, gnFlux, gnFlux * 0.01);
    EXPECT_NEAR(star.row - sharp.row, 10 + 12, 0.3);
    EXPECT_NEAR(star.column - sharp.column, -20, 0.3);
    EXPECT_NEAR(star.rowVariance - sharp.rowVariance, 24.0 * 24.0 / 12, 4);
    EXPECT_NEAR(star.columnVariance, sharp.columnVariance, 1);
}

TEST_F(OneStar, ComesInOnTheOtherSide)
{
    const tsMoments sharp = See();
    tsSimOptics optics;
    optics.rows = 3 * gnSide + 5;
    optics.columns = -2.0 * gnSide;
    const tsMoments star = See(optics);
    EXPECT_NEAR(star.row - sharp.row, 5, 0.3);
    EXPECT_NEAR(star.column - sharp.column, 0, 0.3);
}

TEST_F(OneStar, IsToThePixelAsItWasWhenAllThatHasPassed)
{
    std::vector<uint16_t> before(gnSide), after(gnSide);
    const tsMoments sharp = See();
    const auto row = static_cast<uint32_t>(sharp.row);
    mtSensor.ReadRow(mtConditions, row, 0, gnSide, before.data());
    tsSimOptics optics;
    optics.defocus = 5;
    See(optics);
    mtSensor.Look({});
    mtSensor.ReadRow(mtConditions, row, 0, gnSide, after.data());
    EXPECT_EQ(after, before);
}

TEST_F(OneStar, HardlyOutOfFocusIsHardlyAnotherOne)
{
    const tsMoments sharp = See();
    tsSimOptics optics;
    optics.defocus = 0.01;
    const tsMoments star = See(optics);
    EXPECT_NEAR(star.peak, sharp.peak, sharp.peak * 0.05);
    EXPECT_NEAR(star.rowVariance, sharp.rowVariance, 0.6);
}

// ---- Through the camera -------------------------------------------------------------------------

namespace {

// A camera with one star, whose optics the test holds.
class Optics : public testing::Test
{
protected:
    Optics()
    {
        mtOptions.columns = mtOptions.rows = gnSide;
        mtOptions.seed = gnSeed;
        mtOptions.heartbeatSeconds = 0;
        mtValues.heartbeatSeconds = 0;
        mtValues.hotPixels = false;
        mtValues.readNoise = 0;
        mtValues.sky = 0;
        mtValues.stars = 1;
        mtValues.ambient = mtOptions.ambient = -60;
        mtOptions.tunables = [this] {
            const std::lock_guard<std::mutex> guard(mtMutex);
            return mtValues;
        };
    }
    template <class Value>
    void Set(Value tsSimTunables::*member, Value value)
    {
        const std::lock_guard<std::mutex> guard(mtMutex);
        mtValues.*member = value;
    }
    static tsMoments Take(tcSimTestClient& client)
    {
        const tsArrivedFrame frame = client.ReceiveFrame();
        EXPECT_EQ(frame.pixels.size(), size_t{gnSide} * gnSide);
        std::vector<double> image;
        for (uint32_t pixel : frame.pixels) {
            image.push_back(std::max(0.0, double(pixel) - 1040)); // above offset and nebula
        }
        return MomentsOf(image);
    }

    tsSimOptions mtOptions;
    std::mutex mtMutex;
    tsSimTunables mtValues;
};

} // namespace

TEST_F(Optics, OfTheOptionsAreThoseOfTheFirstFrame)
{
    tsSimOptions options = mtOptions;
    options.tunables = nullptr;
    options.defocus = 10;
    tcSimServer server(options);
    tcSimTestClient client(server.Start());
    client.SendCommand(cmdSetExposure, {20});
    client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    const tsMoments wide = Take(client);
    tsSimOptions usual = options;
    usual.defocus = 0;
    tcSimServer other(usual);
    tcSimTestClient second(other.Start());
    second.SendCommand(cmdSetExposure, {20});
    second.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
    EXPECT_LT(wide.peak, Take(second).peak / 5);
}

TEST_F(Optics, ChangeFromFrameToFrame)
{
    tcSimServer server(mtOptions);
    tcSimTestClient client(server.Start());
    client.SendCommand(cmdSetExposure, {20});
    std::vector<double> variances;
    for (double defocus : {0.0, 10.0, 20.0, 10.0, 0.0}) {
        Set(&tsSimTunables::defocus, defocus);
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 1, 0});
        variances.push_back(Take(client).rowVariance);
    }
    EXPECT_GT(variances[1], variances[0] + 15);
    EXPECT_GT(variances[2], variances[1] + 45);
    EXPECT_NEAR(variances[3], variances[1], 5);
    EXPECT_NEAR(variances[4], variances[0], 1);
}

// The air changes by about a tenth, the same way in the same frame of the same camera.
TEST_F(Optics, OfTheAirAreNeverQuiteTheSame)
{
    Set(&tsSimTunables::seeing, 8.0);
    std::vector<double> peaks[2];
    for (std::vector<double>& seen : peaks) {
        tcSimServer server(mtOptions);
        tcSimTestClient client(server.Start());
        client.SendCommand(cmdSetExposure, {20});
        client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 8, 0});
        for (int i = 0; i < 8; ++i) {
            seen.push_back(Take(client).peak);
        }
    }
    EXPECT_EQ(peaks[0], peaks[1]);
    const auto [least, most] = std::minmax_element(peaks[0].begin(), peaks[0].end());
    EXPECT_GT(*most, *least * 1.05);
    EXPECT_LT(*most, *least * 4);
}

TEST_F(Optics, MoveTheStarByTheTimeBetweenTheBeginsOfTheExposures)
{
    Set(&tsSimTunables::driftRows, 4.0);
    Set(&tsSimTunables::driftColumns, -8.0);
    tcSimServer server(mtOptions);
    tcSimTestClient client(server.Start());
    client.SendCommand(cmdSetExposure, {20});
    client.SendCommand(cmdSetImageInterval, {700});
    client.SendCommand(cmdReadCCDArea, {0, 0, 0, 0, 3, 0});
    std::vector<tsMoments> stars;
    for (int i = 0; i < 3; ++i) {
        stars.push_back(Take(client));
    }
    const auto frames = server.Frames();
    for (size_t i = 1; i < 3; ++i) {
        const double passed =
            double(frames[i].begin.monotonic - frames[i - 1].begin.monotonic) / 1e9;
        EXPECT_NEAR(stars[i].row - stars[i - 1].row, 4 * passed, 0.3);
        EXPECT_NEAR(stars[i].column - stars[i - 1].column, -8 * passed, 0.3);
    }
}

TEST_F(Optics, ThatCannotBeAreRefused)
{
    for (auto member : {&tsSimOptions::defocus, &tsSimOptions::seeing, &tsSimOptions::driftRows,
                        &tsSimOptions::driftColumns}) {
        tsSimOptions options = mtOptions;
        options.*member = -101;
        EXPECT_THROW(tcSimServer{options}, std::runtime_error);
    }
}
