#include "files_support.h"

#include <vxcamkit/photon_transfer.h>

#include <gmock/gmock.h>

#include <cmath>
#include <random>

namespace vxcam {

namespace {

// A camera as text books have it.
struct Model {
    double gain = 2.5;     // electrons in an ADU
    double readNoise = 10; // electrons
    double offset = 300;   // ADU
    double well = 1e9;     // electrons that a pixel holds
    int side = 256;
    double slope = 0.3; // how much darker the last column is
    unsigned seed = 1;
};

Frame taken(const Model& model, double light, std::mt19937* random)
{
    std::normal_distribution<double> normal(0, 1);
    std::vector<uint16_t> pixels;
    for (int i = 0; i < model.side * model.side; ++i) {
        const double column = i % model.side;
        const double mean = light * (1 - model.slope * column / model.side);
        const double charge = std::min(mean + std::sqrt(mean) * normal(*random), model.well);
        const double counts =
            model.offset + (charge + model.readNoise * normal(*random)) / model.gain;
        pixels.push_back(static_cast<uint16_t>(std::clamp(std::round(counts), 0.0, 65535.0)));
    }
    return frameOf<uint16_t>(model.side, model.side, pixels);
}

FramePair pairAt(const Model& model, double light, std::mt19937* random)
{
    const Frame first = taken(model, light, random);
    return pairOf(first, taken(model, light, random));
}

PhotonTransfer measured(const Model& model, double most)
{
    std::mt19937 random(model.seed);
    std::vector<FramePair> flats;
    const FramePair dark = pairAt(model, 0, &random);
    for (double light = most / 64; light <= most; light *= 1.41) {
        flats.push_back(pairAt(model, light, &random));
    }
    return photonTransferOf(dark, flats);
}

} // namespace

TEST(PhotonTransfer, FindsWhatTheCameraIs)
{
    for (const double gain : {0.4, 1.0, 2.5, 8.0}) {
        Model model;
        model.gain = gain;
        const PhotonTransfer result = measured(model, 30000 * gain);
        EXPECT_NEAR(result.gain, gain, 0.02 * gain);
        EXPECT_NEAR(result.readNoise, 10, 0.3);
        EXPECT_NEAR(result.offset, 300, 0.5);
        EXPECT_FALSE(result.fullWell);
    }
}

// Variances that are 1 % too high and too low in turn, of signals 1, 2, 3, 4: with the weights that
// each point has, the slope is off by 1 % of itself, divided by the root of one less than four, and
// of the four points' equal weights.
TEST(PhotonTransfer, TellsHowUnsureItsGainIs)
{
    PhotonTransfer result;
    result.gain = 1;
    FramePair dark;
    std::vector<FramePair> flats(4);
    for (size_t i = 0; i < flats.size(); ++i) {
        flats[i].mean = 1000.0 * static_cast<double>(i + 1);
        flats[i].variance = flats[i].mean * (i % 2 == 0 ? 1.01 : 0.99);
    }
    result.isFitted = {true, true, true, true};
    const std::optional<double> error = gainUncertainty(result, dark, flats);
    ASSERT_TRUE(error);
    EXPECT_NEAR(*error, 0.01 / std::sqrt(3.0), 1e-4);
    result.isFitted = {true, true, false, false};
    EXPECT_FALSE(gainUncertainty(result, dark, flats));
}

TEST(PhotonTransfer, RoundingIsNoReadNoise)
{
    Model model;
    model.gain = 20;
    EXPECT_NEAR(measured(model, 400000).readNoise, 10, 0.3); // half an ADU
}

TEST(PhotonTransfer, SeesWherePixelsAreFull)
{
    Model model;
    model.well = 50000;
    model.readNoise = 5;
    const PhotonTransfer result = measured(model, 150000);
    EXPECT_NEAR(result.gain, 2.5, 0.05);
    ASSERT_TRUE(result.fullWell);
    EXPECT_NEAR(*result.fullWell, 50000, 1000);
    EXPECT_FALSE(result.endsAtFullScale);
}

TEST(PhotonTransfer, SeesWhereTheConverterEnds)
{
    const Model model;
    const PhotonTransfer result = measured(model, 400000);
    EXPECT_NEAR(result.gain, 2.5, 0.05);
    ASSERT_TRUE(result.fullWell);
    EXPECT_NEAR(*result.fullWell, (65535 - 300) * 2.5, 0.03 * 163000);
    EXPECT_TRUE(result.endsAtFullScale);
    EXPECT_TRUE(result.isFitted.front());
    EXPECT_FALSE(result.isFitted.back());
}

// What is in both frames is the scene, and what is in one is no noise of light.
TEST(PhotonTransfer, TilesThatStandOutDoNotCount)
{
    const Model model;
    std::mt19937 random(3);
    Frame first = taken(model, 20000, &random);
    const Frame second = taken(model, 20000, &random);
    const FramePair clean = pairOf(first, second);
    EXPECT_EQ(clean.used, 1);
    static_cast<uint16_t*>(first.mutableData())[1000] = 60000; // a cosmic ray
    static_cast<uint16_t*>(first.mutableData())[40000] = 65535;
    const FramePair hit = pairOf(first, second);
    EXPECT_EQ(hit.used, 254.0 / 256);
    EXPECT_NEAR(hit.variance, clean.variance, 0.02 * clean.variance);
    EXPECT_GT(hit.saturated, 0);
}

TEST(PhotonTransfer, NeedsPairsThatFitAndNoiseThatGrows)
{
    const Frame small(factsOf(4, 4)), large(factsOf(4, 5)), deep(factsOf(4, 4, 32));
    EXPECT_NE(refusalOf([&] { pairOf(small, large); }, ErrorKind::Usage), "");
    EXPECT_NE(refusalOf([&] { pairOf(deep, deep); }, ErrorKind::Usage), "");
    const FramePair dark = pairOf(small, small);
    EXPECT_NE(refusalOf([&] { photonTransferOf(dark, {dark, dark}); }, ErrorKind::Usage), "");
    EXPECT_NE(refusalOf([&] { photonTransferOf(dark, {}); }, ErrorKind::Usage), "");
    const Model model;
    std::mt19937 random(5);
    const std::vector<FramePair> flats{pairAt(model, 20000, &random),
                                       pairAt(model, 40000, &random)};
    const Frame full = frameOf<uint16_t>(64, 64, std::vector<uint16_t>(64 * 64, 65535));
    EXPECT_THAT(refusalOf([&] { photonTransferOf(pairOf(full, full), flats); }, ErrorKind::Usage),
                testing::HasSubstr("the dark pair"));
}

} // namespace vxcam
