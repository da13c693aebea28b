// The numerical kit against mathematics: orthonormal eigenvectors that
// rebuild their matrix, singular values that rebuild theirs, solves that
// satisfy their equations.

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

// Columns of the m x n 'q' are orthonormal.
void ExpectOrthonormalColumns(const std::vector<float>& q, int m, int n, float tolerance)
{
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
        {
            float dot = 0.0f;
            for (int k = 0; k < m; ++k)
                dot += q[k * n + i] * q[k * n + j];
            EXPECT_NEAR(dot, i == j ? 1.0f : 0.0f, tolerance) << "columns " << i << ", " << j;
        }
}

float LargestAbs(const std::vector<float>& values)
{
    float largest = 0.0f;
    for (float v : values)
        largest = std::max(largest, std::fabs(v));
    return largest;
}

} // namespace

TEST(NumericalKitEigen, JacobiGivesOrthonormalSortedVectorsThatRebuildTheMatrix)
{
    std::mt19937 random(5);
    for (int n : {4, 18})
        for (int trial = 0; trial < 6; ++trial)
        {
            // Symmetric, indefinite for odd trials.
            std::vector<float> matrix = RandomMatrix(n, n, random);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < i; ++j)
                    matrix[i * n + j] = matrix[j * n + i];
            if (trial % 2 == 0)
                matrix = Gram(matrix, n, n);
            const std::vector<float> original = matrix;
            std::vector<float> values(n), vectors(size_t(n) * n);
            ComputeSortedEigenVecs(matrix.data(), n, values.data(), vectors.data());

            EXPECT_TRUE(std::is_sorted(values.rbegin(), values.rend())) << "n " << n << " trial " << trial;
            ExpectOrthonormalColumns(vectors, n, n, 2e-5f * n);
            const float tolerance = 1e-5f * n * LargestAbs(original);
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                {
                    float rebuilt = 0.0f;
                    for (int k = 0; k < n; ++k)
                        rebuilt += vectors[i * n + k] * values[k] * vectors[j * n + k];
                    ASSERT_NEAR(rebuilt, original[i * n + j], tolerance) << "n " << n << " (" << i << ", " << j << ")";
                }
        }
}

TEST(NumericalKitEigen, CovarianceSums)
{
    // Recentred: (130, 128, 0, 255) - 128 = (2, 0, -128, 127), weight 0.5.
    double sum[kCovarSumSize] = {};
    const unsigned char colour[4] = {130, 128, 0, 255};
    UpdateCovarSumI(sum, 0.5f, 1, colour);
    const double expected[kCovarSumSize] = {2, 0, -128, 127, 0, 0, 0, 8192, -8128, 8064.5};
    for (int i = 0; i < kCovarSumSize; ++i)
        EXPECT_DOUBLE_EQ(sum[i], expected[i]) << i;
    // Without recentring the same colour adds its raw products.
    double raw[kCovarSumSize] = {};
    UpdateCovarSumI(raw, 1.0f, 0, colour);
    EXPECT_DOUBLE_EQ(raw[0], 130.0 * 130.0);
    EXPECT_DOUBLE_EQ(raw[3], 130.0 * 255.0);

    // One non-zero variance (blue) comes first; the other three axes are unit
    // and span the rest. A zero covariance keeps the identity in order.
    double blue[kCovarSumSize] = {};
    blue[7] = 9.0;
    const float zeroMean[4] = {0, 0, 0, 0};
    float values[4], vectors[4][4];
    CovarSumToSortedEigenVecs(blue, zeroMean, values, vectors);
    EXPECT_FLOAT_EQ(values[0], 9.0f);
    EXPECT_FLOAT_EQ(std::fabs(vectors[0][2]), 1.0f);
    for (int i = 1; i < 4; ++i)
    {
        EXPECT_FLOAT_EQ(values[i], 0.0f);
        EXPECT_FLOAT_EQ(vectors[i][2], 0.0f);
        EXPECT_FLOAT_EQ(vectors[i][0] * vectors[i][0] + vectors[i][1] * vectors[i][1] + vectors[i][3] * vectors[i][3], 1.0f);
    }
    const double zero[kCovarSumSize] = {};
    CovarSumToSortedEigenVecs(zero, zeroMean, values, vectors);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(vectors[i][j], i == j ? 1.0f : 0.0f);

    // Points along (1, 2, 2, 0) / 3 about a mean: the sum less mean x mean^T
    // has that direction first.
    double line[kCovarSumSize] = {};
    const float mean[4] = {10, 20, 30, 40};
    for (int t = -2; t <= 2; ++t)
    {
        const float point[4] = {10 + t * 1.0f, 20 + t * 2.0f, 30 + t * 2.0f, 40};
        UpdateCovarSumF(line, 0.2f, point);
    }
    CovarSumToSortedEigenVecs(line, mean, values, vectors);
    const float dot = (vectors[0][0] + 2 * vectors[0][1] + 2 * vectors[0][2]) / 3.0f;
    EXPECT_NEAR(std::fabs(dot), 1.0f, 1e-4f);
    EXPECT_NEAR(values[0], 2.0f * 9.0f, 1e-2f); // mean of t^2 (2) times |(1, 2, 2)|^2
    float principal[4];
    CovarSumToPrincipalVector(line, mean, principal);
    EXPECT_NEAR(std::fabs(principal[0] * vectors[0][0] + principal[1] * vectors[0][1] + principal[2] * vectors[0][2] +
                          principal[3] * vectors[0][3]),
                1.0f, 1e-4f);
}

TEST(NumericalKitEigen, PrincipalVectorAndLargeSumsAgreeWithJacobi)
{
    std::mt19937 random(9);
    for (int trial = 0; trial < 20; ++trial)
    {
        const std::vector<float> gram = Gram(RandomMatrix(6, 4, random, 10.0f), 6, 4);
        float matrix[4][4], copy[16], values[4], vectors[16], principal[4];
        for (int i = 0; i < 16; ++i)
            matrix[i / 4][i % 4] = copy[i] = gram[i];
        ComputeSortedEigenVecs(copy, 4, values, vectors);
        if (values[0] < 1.01f * values[1])
            continue; // too close to tell the first axis
        FindPrincipalEigenvect(matrix, principal);
        float dot = 0.0f, length = 0.0f;
        for (int i = 0; i < 4; ++i)
        {
            dot += principal[i] * vectors[i * 4];
            length += principal[i] * principal[i];
        }
        EXPECT_NEAR(length, 1.0f, 1e-5f);
        EXPECT_NEAR(std::fabs(dot), 1.0f, 1e-4f) << trial;
    }
    float zero[4][4] = {}, axis[4];
    FindPrincipalEigenvect(zero, axis);
    EXPECT_EQ(std::vector<float>(axis, axis + 4), (std::vector<float>{1, 0, 0, 0}));

    // The n-dimensional sums at n = 4 match the 4 x 4 path, which takes the
    // mean from outside.
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

TEST(NumericalKitSVD, DecompositionsRebuildTheirMatrices)
{
    std::mt19937 random(3);
    struct Case
    {
        int m, n;
        int (*fixed)(int, float*, float*, float*);
    };
    const Case cases[] = {{10, 4, SingValDecompFixedWidth_4}, {30, 8, SingValDecompFixedWidth_8},
                          {40, 18, SingValDecompFixedWidth_18}, {7, 5, nullptr}, {3, 3, nullptr}};
    for (const Case& c : cases)
        for (int shape = 0; shape < 3; ++shape)
        {
            std::vector<float> a = RandomMatrix(c.m, c.n, random);
            if (shape == 1) // rank-deficient: the last column repeats the first
                for (int i = 0; i < c.m; ++i)
                    a[i * c.n + c.n - 1] = a[i * c.n];
            if (shape == 2) // ill-conditioned: columns scaled over six decades
                for (int i = 0; i < c.m; ++i)
                    for (int j = 0; j < c.n; ++j)
                        a[i * c.n + j] *= std::pow(10.0f, -6.0f * j / (c.n - 1));
            std::vector<float> u = a, w(c.n), v(size_t(c.n) * c.n);
            const int ok = c.fixed && shape == 0 ? c.fixed(c.m, u.data(), w.data(), v.data())
                                                 : SingValDecomp(c.m, c.n, u.data(), w.data(), v.data());
            ASSERT_EQ(ok, 1);
            ExpectOrthonormalColumns(u, c.m, c.n, 1e-4f);
            ExpectOrthonormalColumns(v, c.n, c.n, 1e-4f);
            EXPECT_GE(*std::min_element(w.begin(), w.end()), 0.0f);
            const float tolerance = 2e-5f * c.n * (*std::max_element(w.begin(), w.end()));
            for (int i = 0; i < c.m; ++i)
                for (int j = 0; j < c.n; ++j)
                {
                    float rebuilt = 0.0f;
                    for (int k = 0; k < c.n; ++k)
                        rebuilt += u[i * c.n + k] * w[k] * v[j * c.n + k];
                    ASSERT_NEAR(rebuilt, a[i * c.n + j], tolerance) << c.m << "x" << c.n << " shape " << shape;
                }
            if (shape == 1)
            {
                EXPECT_LT(*std::min_element(w.begin(), w.end()), 1e-5f * w[0] + 1e-6f);
            }
        }
}

TEST(NumericalKitSVD, SolvesAndTheFailurePath)
{
    // An overdetermined consistent system: x = (1, -2, 3, 0.5).
    std::mt19937 random(4);
    const int m = 12;
    const std::vector<float> a = RandomMatrix(m, 4, random);
    const float x[4] = {1.0f, -2.0f, 3.0f, 0.5f};
    std::vector<float> b(m, 0.0f);
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < 4; ++j)
            b[i] += a[i * 4 + j] * x[j];
    std::vector<float> u = a, w(4), v(16);
    ASSERT_EQ(SingValDecompFixedWidth_4(m, u.data(), w.data(), v.data()), 1);
    float solved[4];
    SolveUsingSingValDecompFixedWidth_4(m, u.data(), w.data(), v.data(), b.data(), solved);
    for (int j = 0; j < 4; ++j)
        EXPECT_NEAR(solved[j], x[j], 1e-4f) << j;

    // Two equal columns: the least-squares solution of least norm shares the
    // weight equally, (1.5, 1.5) for b = 3 x column.
    std::vector<float> twin(2 * 5);
    for (int i = 0; i < 5; ++i)
        twin[2 * i] = twin[2 * i + 1] = float(i + 1);
    std::vector<float> twinB(5), tw(2), tv(4);
    for (int i = 0; i < 5; ++i)
        twinB[i] = 3.0f * (i + 1);
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
            x[i][c] = rhs[i][c] = float(int(random() % 21) - 10);
    // rhs = A x.
    for (int i = 0; i < 18; ++i)
        for (int c = 0; c < 4; ++c)
        {
            float sum = 0.0f;
            for (int k = 0; k < 18; ++k)
                sum += a[i][k] * x[k][c];
            rhs[i][c] = sum;
        }
    int status = -1;
    CholeskyDecomp_18(l, status);
    ASSERT_EQ(status, 1);
    // L L^T gives A back.
    for (int i = 0; i < 18; ++i)
        for (int j = 0; j <= i; ++j)
        {
            float sum = 0.0f;
            for (int k = 0; k <= j; ++k)
                sum += l[i][k] * l[j][k];
            EXPECT_NEAR(sum, a[i][j], 1e-4f * std::fabs(a[i][i]));
        }
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
