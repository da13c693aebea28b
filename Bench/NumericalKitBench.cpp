// The optimiser's numerical kit in calls per second: sorted eigenvectors of a
// 4 x 4 covariance (called per block and pass), the general Jacobi at 18,
// the SVD and the Cholesky solve of the 18 x 18 normal matrix.

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "Codecs/ORBTC/fnzj/fnzj_localised.h"

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

} // namespace

BENCHMARK_MAIN();
