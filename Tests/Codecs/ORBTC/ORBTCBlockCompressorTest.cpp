#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Codecs/ORBTC/ORBTC2bppCompressor.h"
#include "Codecs/ORBTC/ORBTC4bppCompressor.h"

using namespace orbtexture;

namespace
{

typedef Pixel<unsigned char> Px;

Px grey(unsigned char v, unsigned char a = 255) { return Px{v, v, v, a}; }

::testing::AssertionResult pixelIs(const Px& actual, int r, int g, int b, int a)
{
    if (actual.red == r && actual.green == g && actual.blue == b && actual.alpha == a)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got (" << int(actual.red) << "," << int(actual.green) << ","
                                         << int(actual.blue) << "," << int(actual.alpha) << ")";
}

// Flat colours A and B over the whole image, upscaled.
template <class C>
void setFlatColours(C& c, const Px& a, const Px& b)
{
    std::fill(c.coloursA.begin(), c.coloursA.end(), a);
    std::fill(c.coloursB.begin(), c.coloursB.end(), b);
    c.interpolateColoursAB();
}

// Records the order of the phases compress() runs.
template <class Base>
class PhaseLog : public Base
{
public:
    PhaseLog(const Px* source, unsigned int w, unsigned int h) : Base(source, w, h) {}
    void calculateModulations(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override
    {
        log += 'M';
        Base::calculateModulations(x0, x1, y0, y1);
    }
    void optimizeColoursAB(unsigned int x0, unsigned int x1, unsigned int y0, unsigned int y1) override
    {
        log += 'O';
        Base::optimizeColoursAB(x0, x1, y0, y1);
    }
    void interpolateColoursAB() override
    {
        log += 'I';
        Base::interpolateColoursAB();
    }
    using Base::calculateModulations;
    using Base::optimizeColoursAB;
    using Base::interpolateColoursAB;
    std::string log;
};

template <class C>
std::string phasesOf(unsigned int iterations, unsigned int interval)
{
    std::vector<Px> image(16 * 8, grey(90));
    PhaseLog<C> c(image.data(), 16, 8);
    c.preprocess(false);
    c.log.clear();
    c.iterations = iterations;
    c.modulationInterval = interval;
    EXPECT_TRUE(c.compress());
    return c.log;
}

} // namespace

TEST(ORBTCBlockCompressorTest, CompressRecalculatesModulationsEveryIntervalPasses)
{
    const std::string everySecond = "OIMOIOIMOIOIMOIOIMOI";
    EXPECT_EQ(phasesOf<ORBTC4bppCompressor>(8, 2), everySecond);
    EXPECT_EQ(phasesOf<ORBTC2bppCompressor>(8, 2), everySecond);
    EXPECT_EQ(phasesOf<ORBTC4bppCompressor>(3, 1), "OIMOIMOIM");
    EXPECT_EQ(phasesOf<ORBTC2bppCompressor>(3, 0), "OIOIOI");
    EXPECT_EQ(phasesOf<ORBTC4bppCompressor>(0, 1), "");
}

TEST(ORBTCBlockCompressorTest, FlatImageGivesEqualColoursAndLowestCodes)
{
    std::vector<Px> image(8 * 8, Px{90, 120, 30, 254});
    ORBTC4bppCompressor c(image.data(), 8, 8);
    c.preprocess(true);
    std::vector<ORBTCBlockData> words(4);
    c.getCompressedData(words.data(), false);
    for (const ORBTCBlockData& w : words)
    {
        EXPECT_EQ(w.modulationData, 0u);
        // Translucent A and B of the same colour, standard mode.
        EXPECT_EQ(w.colourData, 0x75717570u);
    }
}

TEST(ORBTCBlockCompressorTest, FourBppModeDecisionAndPunchthroughPreview)
{
    std::vector<Px> image(16, grey(0));
    image[5] = grey(255);
    ORBTC4bppCompressor c(image.data(), 4, 4);
    EXPECT_EQ(c.blockInfo[0].modeWeights[0], 1);
    EXPECT_EQ(c.blockInfo[0].modeWeights[1], 1);
    setFlatColours(c, grey(0), grey(255));

    // Both modes reproduce 0 and 255 exactly: the tie keeps standard.
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModeStandard);
    EXPECT_EQ(c.blockInfo[0].codes[0][5], 3);

    // 128 is 33 or 31 away from the standard levels 95 and 159, and 1 from
    // the punch-through half-way 127.
    c.pixels[6] = grey(128);
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModePunchthrough);
    EXPECT_EQ(c.blockInfo[0].codes[0][6], 2);
    EXPECT_EQ(c.blockInfo[0].codes[1][6], 1);

    // A transparent pixel picks the alpha-0 code, yet the preview keeps alpha.
    c.pixels[7] = Px{128, 128, 128, 0};
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].codes[1][7], 2);
    Px preview[16];
    c.decompressORBTCBlock(0, 0, preview, eORBTCModePunchthrough);
    EXPECT_TRUE(pixelIs(preview[7], 127, 127, 127, 255));
    c.decompressORBTCBlock(0, 0, preview, eORBTCMode(2));
    EXPECT_TRUE(pixelIs(preview[0], 255, 0, 0, 255));

    std::vector<ORBTCBlockData> word(1);
    c.getCompressedData(word.data(), false);
    EXPECT_EQ(word[0].colourData & 1u, 1u);
    EXPECT_EQ(word[0].modulationData, (3u << 10) | (1u << 12) | (2u << 14));
}

TEST(ORBTCBlockCompressorTest, NearestCodeChangesHalfWayBetweenTheWeights)
{
    // With A 0 and B 240 the codes blend to 0, 90, 150 and 240; a pixel takes
    // the nearest, and the lower code on the ties at 45, 120 and 195.
    const unsigned char level[10] = {0, 45, 46, 90, 120, 121, 150, 195, 196, 240};
    const unsigned char code[10] = {0, 0, 1, 1, 1, 2, 2, 2, 3, 3};

    std::vector<Px> image(32, grey(0));
    ORBTC4bppCompressor c4(image.data(), 4, 4);
    ORBTC2bppCompressor c2(image.data(), 8, 4);
    setFlatColours(c4, grey(0), grey(240));
    setFlatColours(c2, grey(0), grey(240));
    // The 2bpp codes sit on every other pixel, shifted by one on odd rows.
    auto place = [](int i) { return (i / 4) * 8 + 2 * (i % 4) + (i / 4) % 2; };
    for (int i = 0; i < 10; ++i)
    {
        c4.pixels[i] = grey(level[i]);
        c2.pixels[place(i)] = grey(level[i]);
    }
    c4.calculateModulations_Standard(0, 0);
    c2.calculate2BPPInterpolatedModulation(0, 0);
    for (int i = 0; i < 10; ++i)
    {
        EXPECT_EQ(c4.blockInfo[0].codes[eORBTCModeStandard][i], code[i]) << "4bpp level " << int(level[i]);
        EXPECT_EQ(c2.blockInfo[0].twoBitCodes[place(i)], code[i]) << "2bpp level " << int(level[i]);
    }
}

TEST(ORBTCBlockCompressorTest, TwoBppModeWeightsFavourInterpolation)
{
    // Stored places 20, the others 40: one-bit and full interpolation make
    // the same error, the preview's "+2" makes number 2 better than both.
    std::vector<Px> image(32);
    for (unsigned int y = 0; y < 4; ++y)
        for (unsigned int x = 0; x < 8; ++x)
            image[y * 8 + x] = grey(((x ^ y) & 1) ? 40 : 20);
    ORBTC2bppCompressor c(image.data(), 8, 4);
    setFlatColours(c, grey(0), grey(255));

    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModeInterpolated);

    std::fill(c.blockInfo[0].modeWeights, c.blockInfo[0].modeWeights + 4, 1);
    c.calculateModulations(0, 1, 0, 1);
    EXPECT_EQ(c.blockInfo[0].mode, eORBTCModeHorizontalOnly);

    // Number 2 fills from above and below, number 3 from left and right.
    unsigned char values[32];
    c.blockInfo[0].twoBitCodes[1 * 8 + 1] = 3;
    c.getModulationValues(0, 0, eORBTCModeHorizontalOnly, values);
    EXPECT_EQ(values[0 * 8 + 1], 10); // one neighbour, still + 2
    EXPECT_EQ(values[2 * 8 + 1], 5);
    EXPECT_EQ(values[1 * 8 + 0], 1);  // (0 + 0 + 2) / 2
    c.getModulationValues(0, 0, eORBTCModeVerticalOnly, values);
    EXPECT_EQ(values[1 * 8 + 0], 9);
    EXPECT_EQ(values[1 * 8 + 2], 4);
    c.getModulationValues(0, 0, eORBTCModeInterpolated, values);
    EXPECT_EQ(values[0 * 8 + 1], 3); // (8 + 0 + 0 + 1) / 3
    EXPECT_EQ(values[2 * 8 + 1], 2); // (8 + 0 + 0 + 0 + 2) / 4
}

TEST(ORBTCBlockCompressorTest, TwoBppWordCarriesSubModeBits)
{
    std::vector<Px> image(32, grey(0));
    ORBTC2bppCompressor c(image.data(), 8, 4);
    ORBTC2bppCompressor::BlockInfo& info = c.blockInfo[0];
    std::vector<ORBTCBlockData> word(1);
    auto encode = [&](unsigned char mode) {
        info.mode = mode;
        c.getCompressedData(word.data(), false);
        return word[0].modulationData;
    };

    info.oneBitCodes[0] = 3;
    info.oneBitCodes[31] = 3;
    info.oneBitCodes[12] = 0;
    EXPECT_EQ(encode(0), 0x80000001u);
    EXPECT_EQ(word[0].colourData & 1u, 0u);

    for (unsigned int y = 0; y < 4; ++y)
        for (unsigned int x = y & 1; x < 8; x += 2)
            info.twoBitCodes[y * 8 + x] = 3;
    EXPECT_EQ(encode(1), 0xfffffffeu);
    EXPECT_EQ(word[0].colourData & 1u, 1u);
    EXPECT_EQ(encode(2), 0xffefffffu);
    EXPECT_EQ(encode(3), 0xffffffffu);

    std::fill(info.twoBitCodes, info.twoBitCodes + 32, 0);
    info.twoBitCodes[1 * 8 + 5] = 2; // stored place 2 of row 1: bit 12
    EXPECT_EQ(encode(1), 0x00002000u);
    EXPECT_EQ(encode(2), 0x00002001u);
    EXPECT_EQ(encode(3), 0x00102001u);
    EXPECT_EQ(encode(7), 0u);
    EXPECT_EQ(word[0].colourData & 1u, 0u);
}

TEST(ORBTCBlockCompressorTest, LeastSquaresLineStep)
{
    std::vector<Px> image(16);
    ORBTC4bppCompressor c(image.data(), 4, 4);
    ORBTC4bppCompressor::BlockInfo& info = c.blockInfo[0];
    info.mode = eORBTCModeStandard;
    for (int i = 0; i < 16; ++i)
        info.codes[0][i] = (i & 1) ? 3 : 0;

    // Residuals 10 at weight 0 and 30 at weight 1: W 0.5, V 0.25.
    setFlatColours(c, grey(100, 100), grey(200, 200));
    for (int i = 0; i < 16; ++i)
        c.pixels[i] = (i & 1) ? grey(230, 230) : grey(110, 110);
    c.optimizeColoursAB();
    EXPECT_TRUE(pixelIs(c.coloursA[0], 110, 110, 110, 110));
    EXPECT_TRUE(pixelIs(c.coloursB[0], 230, 230, 230, 230));

    // A slope of 200 at weight 1 is held to a change of 100.
    setFlatColours(c, grey(0, 0), grey(50, 50));
    for (int i = 0; i < 16; ++i)
        c.pixels[i] = (i & 1) ? grey(250, 250) : grey(0, 0);
    c.optimizeColoursAB();
    EXPECT_TRUE(pixelIs(c.coloursA[0], 0, 0, 0, 0));
    EXPECT_TRUE(pixelIs(c.coloursB[0], 150, 150, 150, 150));
}

TEST(ORBTCBlockCompressorTest, LeastSquaresJointStepWhenWeightsAreEqual)
{
    std::vector<Px> image(16);
    ORBTC4bppCompressor c(image.data(), 4, 4);
    ORBTC4bppCompressor::BlockInfo& info = c.blockInfo[0];
    auto run = [&](unsigned char code, unsigned char pixel, unsigned char a, unsigned char b) {
        for (int i = 0; i < 16; ++i)
            info.codes[info.mode][i] = code;
        setFlatColours(c, grey(a, a), grey(b, b));
        std::fill(c.pixels.begin(), c.pixels.end(), grey(pixel, pixel));
        c.optimizeColoursAB();
    };

    info.mode = eORBTCModeStandard;
    // W 0: A takes the mean residual 20, B closes half the gap of 80.
    run(0, 120, 100, 200);
    EXPECT_TRUE(pixelIs(c.coloursA[0], 120, 120, 120, 120));
    EXPECT_TRUE(pixelIs(c.coloursB[0], 160, 160, 160, 160));
    // W 1: B takes the mean residual -20, A closes half the gap of 80.
    run(3, 180, 100, 200);
    EXPECT_TRUE(pixelIs(c.coloursA[0], 140, 140, 140, 140));
    EXPECT_TRUE(pixelIs(c.coloursB[0], 180, 180, 180, 180));
    // Mean residual 2 in four channels: 16 is under the threshold 32.
    run(0, 102, 100, 200);
    EXPECT_TRUE(pixelIs(c.coloursA[0], 100, 100, 100, 100));
    EXPECT_TRUE(pixelIs(c.coloursB[0], 200, 200, 200, 200));

    // Punch-through code 1 weighs 0.375: A 12.5 + 29.0625, B 167.5 - 48.4375.
    info.mode = eORBTCModePunchthrough;
    run(1, 80, 0, 160);
    EXPECT_TRUE(pixelIs(c.coloursA[0], 41, 41, 41, 41));
    EXPECT_TRUE(pixelIs(c.coloursB[0], 119, 119, 119, 119));
}

TEST(ORBTCBlockCompressorTest, TwoBppStepUsesItsOwnScaleAndThreshold)
{
    std::vector<Px> image(32);
    ORBTC2bppCompressor c(image.data(), 8, 4);
    c.blockInfo[0].mode = eORBTCMode1BPP;
    setFlatColours(c, grey(100, 100), grey(200, 200));

    // Mean residual 5 in four channels: 100 is under 128.
    std::fill(c.pixels.begin(), c.pixels.end(), grey(105, 105));
    c.optimizeColoursAB();
    EXPECT_TRUE(pixelIs(c.coloursA[0], 100, 100, 100, 100));

    std::fill(c.pixels.begin(), c.pixels.end(), grey(120, 120));
    c.optimizeColoursAB();
    EXPECT_TRUE(pixelIs(c.coloursA[0], 120, 120, 120, 120));
    EXPECT_TRUE(pixelIs(c.coloursB[0], 160, 160, 160, 160));
}
