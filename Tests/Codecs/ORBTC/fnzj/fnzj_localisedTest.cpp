// The numerical kit against mathematics: eigenvectors of covariance sums,
// solves that satisfy their equations, and the degenerate inputs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "Codecs/ORBTC/fnzj/fnzj_localised.h"

using namespace orbtexture;

namespace
{

std::vector<float> RandomMatrix(int rows, int columns, std::mt19937& random, float range = 1.0f)
{
    std::uniform_real_distribution<float> uniform(-range, range);
    std::vector<float> matrix(size_t(rows) * columns);
    for (float& value : matrix)
        value = uniform(random);
    return matrix;
}

// B^T B for a rows x n matrix B: symmetric positive semi-definite.
std::vector<float> Gram(const std::vector<float>& b, int rows, int n)
{
    std::vector<float> gram(size_t(n) * n, 0.0f);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            for (int k = 0; k < rows; ++k)
                gram[i * n + j] += b[k * n + i] * b[k * n + j];
    return gram;
}

} // namespace

TEST(NumericalKitEigen, ZeroAndLargeSums)
{
    // A zero covariance keeps the identity in order.
    const float zeroMean[4] = {0, 0, 0, 0};
    float values[4], vectors[4][4];
    const double zero[kCovarSumSize] = {};
    CovarSumToSortedEigenVecs(zero, zeroMean, values, vectors);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(vectors[i][j], i == j ? 1.0f : 0.0f);
    // A zero matrix gives the first axis.
    float zeroMatrix[4][4] = {}, axis[4];
    FindPrincipalEigenvect(zeroMatrix, axis);
    EXPECT_EQ(std::vector<float>(axis, axis + 4), (std::vector<float>{1, 0, 0, 0}));

    // The n-dimensional sums at n = 4 match the 4 x 4 path, which takes the
    // mean from outside.
    std::mt19937 random(9);
    LargeCovarSum large;
    InitLargeCovarSum(large, 4);
    double small[kCovarSumSize] = {};
    float mean[4] = {};
    for (int k = 0; k < 8; ++k)
    {
        const unsigned char colour[4] = {uint8_t(random()), uint8_t(random()), uint8_t(random()), uint8_t(random())};
        UpdateLargeCovarSumI(large, 0.125f, 1, colour);
        UpdateCovarSumI(small, 0.125f, 1, colour);
        for (int c = 0; c < 4; ++c)
            mean[c] += 0.125f * (colour[c] - 128.0f);
    }
    float largeValues[4], largeVectors[16], smallValues[4], smallVectors[4][4];
    LargeCovarSumToSortedEigenVecs(large, largeValues, largeVectors);
    CovarSumToSortedEigenVecs(small, mean, smallValues, smallVectors);
    for (int i = 0; i < 4; ++i)
    {
        EXPECT_NEAR(largeValues[i], smallValues[i], 1e-2f);
        float dot = 0.0f;
        for (int j = 0; j < 4; ++j)
            dot += largeVectors[i * 4 + j] * smallVectors[i][j];
        EXPECT_NEAR(std::fabs(dot), 1.0f, 1e-3f) << i;
    }
}

TEST(NumericalKitSVD, SolvesAndTheFailurePath)
{
    // Overdetermined consistent systems of each fixed width: x_j = j - 2.5.
    std::mt19937 random(4);
    struct Width
    {
        int n;
        int (*decompose)(int, float*, float*, float*);
        void (*solve)(int, const float*, const float*, const float*, const float*, float*);
    };
    for (const Width& c : {Width{4, SingValDecompFixedWidth_4, SolveUsingSingValDecompFixedWidth_4},
                           Width{8, SingValDecompFixedWidth_8, SolveUsingSingValDecompFixedWidth_8},
                           Width{18, SingValDecompFixedWidth_18, SolveUsingSingValDecompFixedWidth_18}})
    {
        const int m = 2 * c.n + 3;
        std::vector<float> u = RandomMatrix(m, c.n, random), b(m, 0.0f), w(c.n), v(size_t(c.n) * c.n), x(c.n);
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < c.n; ++j)
                b[i] += u[i * c.n + j] * (j - 2.5f);
        ASSERT_EQ(c.decompose(m, u.data(), w.data(), v.data()), 1);
        c.solve(m, u.data(), w.data(), v.data(), b.data(), x.data());
        for (int j = 0; j < c.n; ++j)
            EXPECT_NEAR(x[j], j - 2.5f, 2e-3f) << c.n << " " << j;
    }

    // Two equal columns: the least-squares solution of least norm shares the
    // weight equally, (1.5, 1.5) for b = 3 x column.
    std::vector<float> twin(2 * 5), twinB(5), tw(2), tv(4);
    for (int i = 0; i < 5; ++i)
        twinB[i] = 3.0f * (twin[2 * i] = twin[2 * i + 1] = float(i + 1));
    ASSERT_EQ(SingValDecomp(5, 2, twin.data(), tw.data(), tv.data()), 1);
    float pair[2];
    SolveUsingSingValDecomp(5, 2, twin.data(), tw.data(), tv.data(), twinB.data(), pair);
    EXPECT_NEAR(pair[0], 1.5f, 1e-4f);
    EXPECT_NEAR(pair[1], 1.5f, 1e-4f);

    // A NaN never lets an entry count as negligible: 30 iterations, then the
    // message and 0.
    std::vector<float> bad = RandomMatrix(6, 4, random);
    bad[5] = std::nanf("");
    std::vector<float> bw(4), bv(16);
    testing::internal::CaptureStderr();
    EXPECT_EQ(SingValDecomp(6, 4, bad.data(), bw.data(), bv.data()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "SVD: Failed after 30 iterations \n");
}

TEST(NumericalKitCholesky, SolvesThe18x18NormalMatrix)
{
    std::mt19937 random(8);
    // B^T B + I is symmetric positive definite.
    std::vector<float> gram = Gram(RandomMatrix(24, 18, random), 24, 18);
    float a[18][18], l[18][18], rhs[18][4], x[18][4];
    for (int i = 0; i < 18; ++i)
        for (int j = 0; j < 18; ++j)
            a[i][j] = l[i][j] = gram[i * 18 + j] + (i == j ? 1.0f : 0.0f);
    for (int i = 0; i < 18; ++i)
        for (int c = 0; c < 4; ++c)
            x[i][c] = float(int(random() % 21) - 10);
    for (int i = 0; i < 18; ++i) // rhs = A x
        for (int c = 0; c < 4; ++c)
        {
            rhs[i][c] = 0.0f;
            for (int k = 0; k < 18; ++k)
                rhs[i][c] += a[i][k] * x[k][c];
        }
    int status = -1;
    CholeskyDecomp_18(l, status);
    ASSERT_EQ(status, 1);
    SolveUsingCholeskyDecomp_18x4(l, rhs);
    for (int i = 0; i < 18; ++i)
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(rhs[i][c], x[i][c], 2e-3f) << i << ", " << c;

    // A matrix with a non-positive pivot: the second pivot is 1 - 2^2 < 0.
    float indefinite[18][18] = {};
    for (int i = 0; i < 18; ++i)
        indefinite[i][i] = 1.0f;
    indefinite[0][1] = indefinite[1][0] = 2.0f;
    CholeskyDecomp_18(indefinite, status);
    EXPECT_EQ(status, 0);
}
