// The least-squares fit of a representative pair to modulation weights:
// windows whose answer is a mean of residuals, worked out by hand, and the
// lanes' fit against the per-pixel walk.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "Codecs/ORBTC/fnzj/fnzj_localised.h"
#include "Codecs/ORBTC/fnzj/fnzj_window_lanes.h"

using namespace orbtexture;

namespace
{

// A 4bpp window (81 pixels) at full weight and gain, every pixel at
// modulation 'm' with residual 'e'.
struct Fit
{
    PackedFittingParams params;
    explicit Fit(uint32_t count = 81, int kind = 0, void* shared = nullptr)
    {
        EXPECT_EQ(InitialisePackedFittingParams(count, 0, kind, shared, params), 1);
        for (uint32_t i = 0; i < count; ++i)
        {
            params.centralWeights[i] = 64;
            params.gains[i] = 128.0f;
        }
    }
    ~Fit() { ReleasePackedFittingParams(params); }
    void pixel(uint32_t i, int m, const std::array<float, 4>& e)
    {
        params.modulations[i] = m;
        for (int c = 0; c < 4; ++c)
            params.floatResiduals[4 * i + c] = e[c];
    }
    int run(float (&out)[8]) { return FitOnlyCentralRepPairsToWeights(params.count, params, out); }
};

// The status of a window whose pixel i is at modulation m(i) with residual e(i).
template <class M, class E>
int FitWindow(M m, E e, float (&out)[8])
{
    Fit fit;
    for (uint32_t i = 0; i < 81; ++i)
        fit.pixel(i, m(i), e(i));
    return fit.run(out);
}

using Residual = std::array<float, 4>;

void ExpectDisplacements(const float (&out)[8], const std::vector<float>& expected)
{
    for (int i = 0; i < 8; ++i)
        EXPECT_NEAR(out[i], expected[i], 1e-4f) << i;
}

} // namespace

TEST(PairFitting, EachStatusOnConstructedWindows)
{
    float out[8];
    // All at 0: A owns every pixel and moves by the mean residual; B has no
    // data. Of the 61 reachable pixels (10 to 70) the 30 odd ones have blue 2.
    auto blueOnOdd = [](uint32_t i) { return Residual{3, -2, i % 2 * 2.0f, 0}; };
    EXPECT_EQ(FitWindow([](uint32_t) { return 0; }, blueOnOdd, out), 1);
    ExpectDisplacements(out, {3, -2, 60.0f / 61, 0, 0, 0, 0, 0});
    EXPECT_EQ(FitWindow([](uint32_t) { return 8; }, [](uint32_t) { return Residual{1, 1, -4, 7}; }, out), 2);
    ExpectDisplacements(out, {0, 0, 0, 0, 1, 1, -4, 7});
    // Every pixel half and half: the matrix is singular with data on both,
    // and a proportional pair does not move.
    EXPECT_EQ(FitWindow([](uint32_t) { return 4; }, [](uint32_t) { return Residual{5, 5, 5, 5}; }, out), 3);
    ExpectDisplacements(out, {0, 0, 0, 0, 0, 0, 0, 0});
    // Even pixels at 0 with residual 2, odd ones at 8 with residual -6:
    // independent means, status 0.
    EXPECT_EQ(FitWindow([](uint32_t i) { return i % 2 ? 8 : 0; },
                        [](uint32_t i) { return Residual{i % 2 ? -6.0f : 2.0f, 0, 0, 1}; }, out),
              0);
    ExpectDisplacements(out, {2, 0, 0, 1, -6, 0, 0, 1});

    // One pixel at 1 among 60 at 0: R (16^2) is under a hundredth of P, so B
    // is dropped though the determinant is positive. A alone over all 61:
    // pixel 40 has a = 7 x 16, so it adds 112^2 to P and 128 x 112 to U.
    EXPECT_EQ(FitWindow([](uint32_t i) { return i == 40 ? 1 : 0; }, [](uint32_t) { return Residual{1, 0, 0, 0}; }, out),
              1);
    EXPECT_NEAR(out[0], (60 * 16384.0f + 128 * 112) / (60 * 16384.0f + 112 * 112), 1e-5f);
    EXPECT_EQ(out[4], 0.0f);
    // 40 pixels at 1 and 21 at 0: P is 83 times R, under 100, and both move.
    EXPECT_EQ(FitWindow([](uint32_t i) { return i < 50 ? 1 : 0; }, [](uint32_t) { return Residual{1, 0, 0, 0}; }, out),
              0);
    ExpectDisplacements(out, {1, 0, 0, 0, 1, 0, 0, 0});
}

TEST(PairFitting, OnlyReachablePixelsCountAndGainWeighs)
{
    float out[8];
    Fit fit;
    for (uint32_t i = 0; i < 81; ++i)
        fit.pixel(i, 0, {4.0f, 0, 0, 0});
    // Pixels 9 and 71 lie outside rows 1 to 7 of the block's reach.
    fit.pixel(9, 0, {1000.0f, 0, 0, 0});
    fit.pixel(71, 0, {1000.0f, 0, 0, 0});
    EXPECT_EQ(fit.run(out), 1);
    EXPECT_NEAR(out[0], 4.0f, 1e-4f);
    // A gain of 1 (a punch-through choice): a = 1 against 128, so the
    // pixel's residual weighs 1 / 16384 of a full one.
    fit.params.gains[40] = 1.0f;
    fit.pixel(40, 0, {16388.0f, 0, 0, 0});
    fit.run(out);
    EXPECT_NEAR(out[0], (60 * 16384.0f * 4.0f + 16388.0f) / (60 * 16384.0f + 1.0f), 1e-3f);

    // No residual: no displacement.
    Fit still;
    for (uint32_t i = 0; i < 81; ++i)
        still.pixel(i, i % 3 ? 2 : 6, {0, 0, 0, 0});
    EXPECT_EQ(still.run(out), 0);
    ExpectDisplacements(out, {0, 0, 0, 0, 0, 0, 0, 0});
}

TEST(PairFitting, TwoBppWindowsByteResidualsAndTheRecord)
{
    // 2bpp: pixels 18 to 134 of 153 count. The caller's byte residuals.
    std::vector<uint8_t> residuals(153 * 4, 0);
    for (uint32_t i = 0; i < 153; ++i)
        residuals[4 * i + 1] = i >= 18 && i <= 134 ? 10 : 200;
    float out[8];
    {
        Fit fit(153, 3, residuals.data());
        EXPECT_EQ(fit.params.floatResiduals, nullptr);
        for (uint32_t i = 0; i < 153; ++i)
            fit.params.modulations[i] = 8;
        EXPECT_EQ(fit.run(out), 2);
        EXPECT_NEAR(out[5], 10.0f, 1e-4f);
    } // releasing must not free the caller's residuals
    EXPECT_EQ(residuals[4 * 20 + 1], 10);

    PackedFittingParams params;
    ASSERT_EQ(InitialisePackedFittingParams(81, 1, 1, nullptr, params), 1);
    EXPECT_NE(params.centralWeightsNine, nullptr);
    EXPECT_NE(params.byteResiduals, nullptr);
    EXPECT_EQ(params.a, params.workArrays[0]);
    EXPECT_EQ(params.workArrays[1] - params.workArrays[0], 84); // 81 rounded up to 4
    EXPECT_EQ(InitialisePackedFittingParams(81, 0, 7, nullptr, params), 0); // no such kind
    EXPECT_EQ(params.workArea, nullptr);
    EXPECT_EQ(params.count, 0u);
}

TEST(PairFitting, LanesWithPalettePixelsFitInPixelOrder)
{
    // The window's reached pixels split between blended and palette lanes;
    // gains of 1 leave the sums inexact, so only the walk's pixel order
    // gives its floats.
    std::mt19937 random(5);
    const int modulations[4] = {0, 3, 5, 8};
    for (int trial = 0; trial < 200; ++trial)
    {
        Fit walk;
        auto lanes = std::make_unique<WindowLanes[]>(2);
        auto layouts = std::make_unique<LaneLayout[]>(2);
        for (int list = 0; list < 2; ++list)
        {
            lanes[list].layout = &layouts[list];
            lanes[list].integerFit = false;
        }
        for (uint32_t i = 0; i < 81; ++i)
        {
            walk.params.centralWeights[i] = 0;
            walk.pixel(i, 0, {0, 0, 0, 0});
            if (i < 10 || i > 70 || random() % 4 == 0)
                continue;
            const unsigned list = random() % 2;
            WindowLanes& l = lanes[list];
            LaneLayout& L = layouts[list];
            const int j = L.count++, choice = int(random() % 4), m = modulations[random() % 4];
            const int w = int(random() % 65), gain = random() % 3 == 0 ? 1 : 128;
            L.index[j] = uint8_t(i);
            l.chosen[j] = uint8_t(choice);
            L.weightA[choice][j] = int16_t((8 - m) * w);
            L.weightB[choice][j] = int16_t(m * w);
            L.gain[choice][j] = int16_t(gain);
            Residual e;
            for (int c = 0; c < 4; ++c)
            {
                l.residual[c][j] = int16_t(int(random() % 511) - 255);
                e[c] = float(l.residual[c][j]);
            }
            walk.params.centralWeights[i] = w;
            walk.params.gains[i] = float(gain);
            walk.pixel(i, m, e);
        }
        float expected[8], fitted[8];
        const int status = walk.run(expected);
        ASSERT_EQ(FitWindowLanes(lanes[0], &lanes[1], fitted), status) << "trial " << trial;
        ASSERT_EQ(std::memcmp(fitted, expected, sizeof fitted), 0) << "trial " << trial;
    }
}
