// The optimiser's pieces in calls per second: sorted eigenvectors of a 4 x 4
// covariance (called per block and pass), the general Jacobi at 18, the SVD
// and the Cholesky solve of the 18 x 18 normal matrix; the pair fit, the
// representatives from an axis, the island analysis and the local palette of
// a 4bpp window.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "Codecs/ORBTC/fnzj/analygrapprop.h"
#include "Codecs/ORBTC/fnzj/fnzj_localised.h"
#include "Codecs/ORBTC/fnzj/initialreps.h"
#include "Codecs/ORBTC/fnzj/threadsupport.h"

using namespace orbtexture;

namespace
{

// B^T B of a random 'rows' x n matrix, plus the identity.
std::vector<float> Normal(int rows, int n, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<float> b(size_t(rows) * n), gram(size_t(n) * n, 0.0f);
    for (float& value : b)
        value = uniform(random);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
        {
            for (int k = 0; k < rows; ++k)
                gram[i * n + j] += b[k * n + i] * b[k * n + j];
            gram[i * n + j] += i == j ? 1.0f : 0.0f;
        }
    return gram;
}

void BM_CovarSumToSortedEigenVecs(benchmark::State& state)
{
    double sum[kCovarSumSize] = {};
    std::mt19937 random(1);
    for (int k = 0; k < 64; ++k)
    {
        const unsigned char colour[4] = {uint8_t(random()), uint8_t(random()), uint8_t(random()), uint8_t(random())};
        UpdateCovarSumI(sum, 1.0f / 64, 1, colour);
    }
    const float mean[4] = {2.0f, -3.0f, 1.0f, 0.5f};
    float values[4], vectors[4][4];
    for (auto _ : state)
    {
        CovarSumToSortedEigenVecs(sum, mean, values, vectors);
        benchmark::DoNotOptimize(vectors);
    }
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CovarSumToSortedEigenVecs);

void BM_Jacobi18(benchmark::State& state)
{
    const std::vector<float> matrix = Normal(24, 18, 2);
    std::vector<float> work(matrix.size()), values(18), vectors(matrix.size());
    for (auto _ : state)
    {
        work = matrix;
        ComputeSortedEigenVecs(work.data(), 18, values.data(), vectors.data());
        benchmark::DoNotOptimize(vectors.data());
    }
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Jacobi18);

void BM_SVD18(benchmark::State& state)
{
    const std::vector<float> matrix = Normal(24, 18, 3);
    std::vector<float> work(matrix.size()), singular(18), v(matrix.size());
    for (auto _ : state)
    {
        work = matrix;
        benchmark::DoNotOptimize(SingValDecompFixedWidth_18(18, work.data(), singular.data(), v.data()));
    }
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SVD18);

void BM_Cholesky18x4(benchmark::State& state)
{
    const std::vector<float> matrix = Normal(24, 18, 4);
    float work[18][18], rhs[18][4];
    for (auto _ : state)
    {
        for (int i = 0; i < 18 * 18; ++i)
            work[i / 18][i % 18] = matrix[i];
        for (int i = 0; i < 18 * 4; ++i)
            rhs[i / 4][i % 4] = float(i % 7);
        int status;
        CholeskyDecomp_18(work, status);
        SolveUsingCholeskyDecomp_18x4(work, rhs);
        benchmark::DoNotOptimize(rhs);
    }
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Cholesky18x4);

// A 9 x 9 window of a soft gradient with a few hard edges.
std::vector<unsigned char> Window()
{
    std::vector<unsigned char> window(81 * 4);
    for (int i = 0; i < 81; ++i)
    {
        const int x = i % 9, y = i / 9;
        window[4 * i] = uint8_t(40 + 12 * x + (y > 5 ? 90 : 0));
        window[4 * i + 1] = uint8_t(200 - 9 * y);
        window[4 * i + 2] = uint8_t((x + y) % 4 == 0 ? 30 : 120);
        window[4 * i + 3] = 255;
    }
    return window;
}

void BM_FitPair(benchmark::State& state)
{
    PackedFittingParams params;
    InitialisePackedFittingParams(81, 0, 0, nullptr, params);
    for (uint32_t i = 0; i < 81; ++i)
    {
        params.centralWeights[i] = 16 + int(i % 49);
        params.gains[i] = 128.0f;
        params.modulations[i] = int(i * 7 % 9);
        for (int c = 0; c < 4; ++c)
            params.floatResiduals[4 * i + c] = float(int(i * 13 + c * 5) % 17 - 8);
    }
    float out[8];
    for (auto _ : state)
        benchmark::DoNotOptimize(FitOnlyCentralRepPairsToWeights(81, params, out));
    ReleasePackedFittingParams(params);
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_FitPair);

void BM_PickReps(benchmark::State& state)
{
    const std::vector<unsigned char> window = Window();
    const std::vector<float> weights(81, 1.0f / 81);
    const float axis[4] = {0.8f, -0.5f, 0.33f, 0.0f};
    CompressParams params;
    unsigned char a[4], b[4];
    for (auto _ : state)
    {
        PickRepsByProjectingPixelsOntoAxis(params, true, state.range(0) != 0, false, window.data(), weights.data(), 81,
                                           axis, -1, nullptr, a, b);
        benchmark::DoNotOptimize(a);
    }
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PickReps)->ArgName("multiStart")->Arg(0)->Arg(1);

void BM_Islands(benchmark::State& state)
{
    const std::vector<unsigned char> window = Window();
    CompressParams params;
    unsigned char labels[81], order[81];
    for (auto _ : state)
        benchmark::DoNotOptimize(AnalyseGraphicsProperties(window.data(), params, labels, order));
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Islands);

void BM_Palette(benchmark::State& state)
{
    const std::vector<unsigned char> window = Window();
    RegionStats region{};
    region.AllBox.box.axes[0][0] = 0.8f;
    region.AllBox.box.axes[0][1] = -0.6f;
    unsigned char out[5][4];
    for (auto _ : state)
        benchmark::DoNotOptimize(GeneratePaletteEntries(region, window.data(), PalettePixels4bpp, 81, 5, 36, out));
    state.counters["calls/s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Palette);

} // namespace

BENCHMARK_MAIN();
