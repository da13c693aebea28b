#include "Codecs/ORBTC/fnzj/fnzj_localised.h"

#include "Codecs/ORBTC/fnzj/optimiser_path.h"
#include "Tools/ORBTSimd.h"

#if ORBT_X86_SIMD
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace orbtexture
{

namespace
{

constexpr float kEpsilon = 1.1920929e-7f; // single-precision epsilon

// Position of (i, j), i <= j, in the upper triangle of an n x n matrix stored
// in row order.
inline int TriangleIndex(int i, int j, int n)
{
    return i * n - i * (i - 1) / 2 + (j - i);
}

// Symmetric n x n covariance from a triangle of sums and a mean.
void Covariance(const double* sums, const double* mean, int n, float* matrix)
{
    for (int i = 0; i < n; ++i)
        for (int j = i; j < n; ++j)
            matrix[i * n + j] = matrix[j * n + i] = float(sums[TriangleIndex(i, j, n)] - mean[i] * mean[j]);
}

// Largest absolute entry of an n x n matrix.
float LargestEntry(const float* matrix, int n)
{
    float largest = 0.0f;
    for (int i = 0; i < n * n; ++i)
        largest = std::max(largest, std::fabs(matrix[i]));
    return largest;
}

} // namespace

// ---- Covariance sums ----

void UpdateCovarSumF(double* sum, float weight, const float* colour)
{
#if ORBT_X86_SIMD
    const __m128d c01 = _mm_cvtps_pd(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(colour)));
    const __m128d c23 = _mm_cvtps_pd(_mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(colour + 2)));
    __m128d sums[5];
    for (int k = 0; k < 5; ++k)
        sums[k] = _mm_loadu_pd(sum + 2 * k);
    AddCovarProducts(sums, c01, c23, double(weight));
    for (int k = 0; k < 5; ++k)
        _mm_storeu_pd(sum + 2 * k, sums[k]);
#else
    for (int i = 0, k = 0; i < 4; ++i)
        for (int j = i; j < 4; ++j, ++k)
            sum[k] += double(weight) * colour[i] * colour[j];
#endif
}

void UpdateCovarSumI(double* sum, float weight, int recentre, const unsigned char* colour)
{
    float values[4];
    for (int i = 0; i < 4; ++i)
        values[i] = float(colour[i]) - (recentre ? 128.0f : 0.0f);
    UpdateCovarSumF(sum, weight, values);
}

void CovarSumToSortedEigenVecs(const double* sum, const float* mean, float* eigenvalues, float (*eigenvectors)[4])
{
    const double centre[4] = {mean[0], mean[1], mean[2], mean[3]};
    float matrix[16], columns[16];
    Covariance(sum, centre, 4, matrix);
    ComputeSortedEigenVecs(matrix, 4, eigenvalues, columns);
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            eigenvectors[i][j] = columns[j * 4 + i];
}

void CovarSumToPrincipalVector(const double* sum, const float* mean, float* vector)
{
    const double centre[4] = {mean[0], mean[1], mean[2], mean[3]};
    float matrix[4][4];
    Covariance(sum, centre, 4, &matrix[0][0]);
    FindPrincipalEigenvect(matrix, vector);
}

void InitLargeCovarSum(LargeCovarSum& sum, int dimension)
{
    sum.dimension = std::max(dimension, 0);
    sum.sums.assign(size_t(sum.dimension) * (sum.dimension + 1) / 2, 0.0);
    sum.mean.assign(size_t(sum.dimension), 0.0);
}

void UpdateLargeCovarSumF(LargeCovarSum& sum, float weight, const float* values)
{
    const int n = sum.dimension;
    for (int i = 0; i < n; ++i)
    {
        sum.mean[i] += double(weight) * values[i];
        for (int j = i; j < n; ++j)
            sum.sums[TriangleIndex(i, j, n)] += double(weight) * values[i] * values[j];
    }
}

void UpdateLargeCovarSumI(LargeCovarSum& sum, float weight, int recentre, const unsigned char* values)
{
    std::vector<float> centred(size_t(sum.dimension));
    for (int i = 0; i < sum.dimension; ++i)
        centred[i] = float(values[i]) - (recentre ? 128.0f : 0.0f);
    UpdateLargeCovarSumF(sum, weight, centred.data());
}

void LargeCovarSumToSortedEigenVecs(const LargeCovarSum& sum, float* eigenvalues, float* eigenvectors)
{
    const int n = sum.dimension;
    std::vector<float> matrix(size_t(n) * n), columns(size_t(n) * n);
    Covariance(sum.sums.data(), sum.mean.data(), n, matrix.data());
    ComputeSortedEigenVecs(matrix.data(), n, eigenvalues, columns.data());
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            eigenvectors[i * n + j] = columns[j * n + i];
}

// ---- Eigenvectors ----

void ComputeSortedEigenVecs(float* a, int n, float* eigenvalues, float* v)
{
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            v[i * n + j] = i == j ? 1.0f : 0.0f;

    float scale = 0.0f;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            if (i != j)
                scale += a[i * n + j] * a[i * n + j];
    float threshold = kEpsilon * scale;
    const float stop = kEpsilon * threshold;

    // Each sweep divides the threshold by 16, so about six sweeps reach the
    // stopping value; the cap only stops infinities from looping.
    for (int sweep = 0; sweep < 64; ++sweep)
    {
        for (int p = 0; p < n; ++p)
            for (int q = p + 1; q < n; ++q)
            {
                const float apq = a[p * n + q];
                const float size = std::fabs(apq);
                if (size <= kEpsilon * std::fabs(a[p * n + p]) && size <= kEpsilon * std::fabs(a[q * n + q]))
                {
                    // Negligible against both diagonal entries.
                    a[p * n + q] = a[q * n + p] = 0.0f;
                    continue;
                }
                if (size < threshold || apq == 0.0f)
                    continue;
                // The rotation zeroing (p, q): the smaller root of
                // t^2 + 2 theta t - 1 = 0.
                const float theta = (a[q * n + q] - a[p * n + p]) / (2.0f * apq);
                float t = 1.0f / (std::fabs(theta) + std::sqrt(theta * theta + 1.0f));
                if (theta < 0.0f)
                    t = -t;
                const float c = 1.0f / std::sqrt(t * t + 1.0f), s = t * c;
                a[p * n + p] -= t * apq;
                a[q * n + q] += t * apq;
                a[p * n + q] = a[q * n + p] = 0.0f;
                for (int r = 0; r < n; ++r)
                {
                    if (r != p && r != q)
                    {
                        const float arp = a[r * n + p], arq = a[r * n + q];
                        a[r * n + p] = a[p * n + r] = c * arp - s * arq;
                        a[r * n + q] = a[q * n + r] = s * arp + c * arq;
                    }
                    const float vrp = v[r * n + p], vrq = v[r * n + q];
                    v[r * n + p] = c * vrp - s * vrq;
                    v[r * n + q] = s * vrp + c * vrq;
                }
            }
        threshold *= 0.0625f;
        bool above = false;
        for (int p = 0; p < n && !above; ++p)
            for (int q = p + 1; q < n && !above; ++q)
                above = std::fabs(a[p * n + q]) >= threshold && a[p * n + q] != 0.0f;
        if (threshold < stop || !above)
            break;
    }

    for (int i = 0; i < n; ++i)
        eigenvalues[i] = a[i * n + i];
    // Descending, by selection, the columns following.
    for (int i = 0; i < n; ++i)
    {
        int largest = i;
        for (int j = i + 1; j < n; ++j)
            if (eigenvalues[j] > eigenvalues[largest])
                largest = j;
        if (largest == i)
            continue;
        std::swap(eigenvalues[i], eigenvalues[largest]);
        for (int r = 0; r < n; ++r)
            std::swap(v[r * n + i], v[r * n + largest]);
    }
}

void FindPrincipalEigenvect(const float (*matrix)[4], float* vector)
{
    constexpr int kSquarings = 4;
    constexpr int kSteps = 32;
    constexpr float kTolerance = 1e-6f;

    float power[16];
    for (int i = 0; i < 16; ++i)
        power[i] = matrix[i / 4][i % 4];
    for (int i = 0; i < 4; ++i)
        vector[i] = i == 0 ? 1.0f : 0.0f;
    // Squaring raises the largest eigenvalue's share; rescaling keeps the
    // entries in range.
    for (int k = 0; k < kSquarings; ++k)
    {
        const float largest = LargestEntry(power, 4);
        if (!(largest > 0.0f))
            return;
        float scaled[16], squared[16] = {};
        for (int i = 0; i < 16; ++i)
            scaled[i] = power[i] / largest;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                for (int l = 0; l < 4; ++l)
                    squared[i * 4 + j] += scaled[i * 4 + l] * scaled[l * 4 + j];
        std::copy(squared, squared + 16, power);
    }
    // Start from the longest column of the squared matrix.
    int column = 0;
    float longest = -1.0f;
    for (int j = 0; j < 4; ++j)
    {
        float length = 0.0f;
        for (int i = 0; i < 4; ++i)
            length += power[i * 4 + j] * power[i * 4 + j];
        if (length > longest)
            longest = length, column = j;
    }
    if (!(longest > 0.0f))
        return;
    float current[4];
    for (int i = 0; i < 4; ++i)
        current[i] = power[i * 4 + column] / std::sqrt(longest);

    auto multiplyAndNormalise = [](const float* m, const float* in, float* out) {
        float length = 0.0f;
        for (int i = 0; i < 4; ++i)
        {
            out[i] = m[i * 4] * in[0] + m[i * 4 + 1] * in[1] + m[i * 4 + 2] * in[2] + m[i * 4 + 3] * in[3];
            length += out[i] * out[i];
        }
        if (!(length > 0.0f))
            return false;
        length = std::sqrt(length);
        for (int i = 0; i < 4; ++i)
            out[i] /= length;
        return true;
    };
    for (int step = 0; step < kSteps; ++step)
    {
        float next[4];
        if (!multiplyAndNormalise(power, current, next))
            break;
        float change = 0.0f;
        for (int i = 0; i < 4; ++i)
            change += std::fabs(next[i] - current[i]);
        std::copy(next, next + 4, current);
        if (change < kTolerance)
            break;
    }
    float given[16];
    for (int i = 0; i < 16; ++i)
        given[i] = matrix[i / 4][i % 4];
    float result[4];
    if (multiplyAndNormalise(given, current, result))
        std::copy(result, result + 4, vector);
    else
        std::copy(current, current + 4, vector);
}

// ---- Singular value decomposition ----

int SingValDecomp(int m, int n, float* a, float* w, float* v)
{
    auto A = [a, n](int i, int j) -> float& { return a[i * n + j]; };
    auto V = [v, n](int i, int j) -> float& { return v[i * n + j]; };
    std::vector<float> e(size_t(std::max(n, 1)), 0.0f); // the superdiagonal
    float g = 0.0f, scale = 0.0f, norm = 0.0f;

    // Householder reflections from the left and the right bring A to upper
    // bidiagonal form: w on the diagonal, e above it.
    for (int i = 0; i < n; ++i)
    {
        const int next = i + 1;
        e[i] = scale * g;
        g = scale = 0.0f;
        float s = 0.0f;
        if (i < m)
        {
            for (int k = i; k < m; ++k)
                scale += std::fabs(A(k, i));
            if (scale != 0.0f)
            {
                for (int k = i; k < m; ++k)
                {
                    A(k, i) /= scale;
                    s += A(k, i) * A(k, i);
                }
                const float f = A(i, i);
                g = -std::copysign(std::sqrt(s), f);
                const float h = f * g - s;
                A(i, i) = f - g;
                for (int j = next; j < n; ++j)
                {
                    float dot = 0.0f;
                    for (int k = i; k < m; ++k)
                        dot += A(k, i) * A(k, j);
                    const float factor = dot / h;
                    for (int k = i; k < m; ++k)
                        A(k, j) += factor * A(k, i);
                }
                for (int k = i; k < m; ++k)
                    A(k, i) *= scale;
            }
        }
        w[i] = scale * g;
        g = scale = s = 0.0f;
        if (i < m && i != n - 1)
        {
            for (int k = next; k < n; ++k)
                scale += std::fabs(A(i, k));
            if (scale != 0.0f)
            {
                for (int k = next; k < n; ++k)
                {
                    A(i, k) /= scale;
                    s += A(i, k) * A(i, k);
                }
                const float f = A(i, next);
                g = -std::copysign(std::sqrt(s), f);
                const float h = f * g - s;
                A(i, next) = f - g;
                for (int k = next; k < n; ++k)
                    e[k] = A(i, k) / h;
                for (int j = next; j < m; ++j)
                {
                    float dot = 0.0f;
                    for (int k = next; k < n; ++k)
                        dot += A(j, k) * A(i, k);
                    for (int k = next; k < n; ++k)
                        A(j, k) += dot * e[k];
                }
                for (int k = next; k < n; ++k)
                    A(i, k) *= scale;
            }
        }
        norm = std::max(norm, std::fabs(w[i]) + std::fabs(e[i]));
    }

    // V: the right-hand reflections, accumulated from the last.
    for (int i = n - 1, next = n; i >= 0; next = i--)
    {
        if (i < n - 1)
        {
            if (g != 0.0f)
            {
                for (int j = next; j < n; ++j)
                    V(j, i) = (A(i, j) / A(i, next)) / g; // two divisions keep small values from underflowing
                for (int j = next; j < n; ++j)
                {
                    float dot = 0.0f;
                    for (int k = next; k < n; ++k)
                        dot += A(i, k) * V(k, j);
                    for (int k = next; k < n; ++k)
                        V(k, j) += dot * V(k, i);
                }
            }
            for (int j = next; j < n; ++j)
                V(i, j) = V(j, i) = 0.0f;
        }
        V(i, i) = 1.0f;
        g = e[i];
    }

    // U, in place of A: the left-hand reflections.
    for (int i = std::min(m, n) - 1; i >= 0; --i)
    {
        const int next = i + 1;
        g = w[i];
        for (int j = next; j < n; ++j)
            A(i, j) = 0.0f;
        if (g != 0.0f)
        {
            g = 1.0f / g;
            for (int j = next; j < n; ++j)
            {
                float dot = 0.0f;
                for (int k = next; k < m; ++k)
                    dot += A(k, i) * A(k, j);
                const float factor = (dot / A(i, i)) * g;
                for (int k = i; k < m; ++k)
                    A(k, j) += factor * A(k, i);
            }
            for (int j = i; j < m; ++j)
                A(j, i) *= g;
        }
        else
            for (int j = i; j < m; ++j)
                A(j, i) = 0.0f;
        A(i, i) += 1.0f;
    }

    // Implicit shifted QR on the bidiagonal, one singular value at a time from
    // the last; an entry is negligible when adding it to the norm changes
    // nothing in single precision.
    auto negligible = [norm](float x) { return float(std::fabs(x) + norm) == norm; };
    for (int k = n - 1; k >= 0; --k)
    {
        for (int iteration = 1;; ++iteration)
        {
            // Find the block that splits off: e[l] negligible, or w[l - 1]
            // negligible (then e[l] is chased away first).
            int l = k;
            bool chase = true;
            for (; l >= 0; --l)
            {
                if (l == 0 || negligible(e[l]))
                {
                    chase = false;
                    break;
                }
                if (negligible(w[l - 1]))
                    break;
            }
            if (chase)
            {
                float c = 0.0f, s = 1.0f;
                for (int i = l; i <= k; ++i)
                {
                    const float f = s * e[i];
                    e[i] = c * e[i];
                    if (negligible(f))
                        break;
                    const float h = std::hypot(f, w[i]);
                    c = w[i] / h;
                    s = -f / h;
                    w[i] = h;
                    for (int j = 0; j < m; ++j)
                    {
                        const float y = A(j, l - 1), z = A(j, i);
                        A(j, l - 1) = y * c + z * s;
                        A(j, i) = z * c - y * s;
                    }
                }
            }
            const float z = w[k];
            if (l == k)
            {
                // Converged: singular values are made non-negative.
                if (z < 0.0f)
                {
                    w[k] = -z;
                    for (int j = 0; j < n; ++j)
                        V(j, k) = -V(j, k);
                }
                break;
            }
            if (iteration == 30)
            {
                std::fprintf(stderr, "SVD: Failed after %d iterations \n", 30);
                return 0;
            }
            // The shift from the trailing 2 x 2 block, then a sweep of
            // Givens rotations chasing the bulge down.
            float x = w[l];
            float y = w[k - 1];
            float gg = e[k - 1], h = e[k];
            float f = ((y - z) * (y + z) + (gg - h) * (gg + h)) / (2.0f * h * y);
            gg = std::hypot(f, 1.0f);
            f = ((x - z) * (x + z) + h * ((y / (f + std::copysign(gg, f))) - h)) / x;
            float c = 1.0f, s = 1.0f;
            for (int j = l; j < k; ++j)
            {
                const int i = j + 1;
                gg = e[i];
                y = w[i];
                h = s * gg;
                gg = c * gg;
                float r = std::hypot(f, h);
                e[j] = r;
                c = f / r;
                s = h / r;
                f = x * c + gg * s;
                gg = gg * c - x * s;
                h = y * s;
                y *= c;
                for (int row = 0; row < n; ++row)
                {
                    const float vx = V(row, j), vz = V(row, i);
                    V(row, j) = vx * c + vz * s;
                    V(row, i) = vz * c - vx * s;
                }
                r = std::hypot(f, h);
                w[j] = r;
                if (r != 0.0f)
                {
                    c = f / r;
                    s = h / r;
                }
                f = c * gg + s * y;
                x = c * y - s * gg;
                for (int row = 0; row < m; ++row)
                {
                    const float uy = A(row, j), uz = A(row, i);
                    A(row, j) = uy * c + uz * s;
                    A(row, i) = uz * c - uy * s;
                }
            }
            e[l] = 0.0f;
            e[k] = f;
            w[k] = x;
        }
    }
    return 1;
}

int SingValDecompFixedWidth_4(int m, float* matrix, float* singular, float* v)
{
    return SingValDecomp(m, 4, matrix, singular, v);
}

int SingValDecompFixedWidth_8(int m, float* matrix, float* singular, float* v)
{
    return SingValDecomp(m, 8, matrix, singular, v);
}

int SingValDecompFixedWidth_18(int m, float* matrix, float* singular, float* v)
{
    return SingValDecomp(m, 18, matrix, singular, v);
}

void SolveUsingSingValDecomp(int m, int n, const float* u, const float* singular, const float* v, const float* b,
                             float* x)
{
    float largest = 0.0f;
    for (int j = 0; j < n; ++j)
        largest = std::max(largest, singular[j]);
    const float cutoff = 1e-6f * largest;
    std::vector<float> projected(size_t(std::max(n, 1)), 0.0f);
    for (int j = 0; j < n; ++j)
    {
        if (!(singular[j] > cutoff))
            continue; // a reciprocal of 0
        float dot = 0.0f;
        for (int i = 0; i < m; ++i)
            dot += u[i * n + j] * b[i];
        projected[j] = dot / singular[j];
    }
    for (int i = 0; i < n; ++i)
    {
        float sum = 0.0f;
        for (int j = 0; j < n; ++j)
            sum += v[i * n + j] * projected[j];
        x[i] = sum;
    }
}

void SolveUsingSingValDecompFixedWidth_4(int m, const float* u, const float* singular, const float* v,
                                         const float* b, float* x)
{
    SolveUsingSingValDecomp(m, 4, u, singular, v, b, x);
}

void SolveUsingSingValDecompFixedWidth_8(int m, const float* u, const float* singular, const float* v,
                                         const float* b, float* x)
{
    SolveUsingSingValDecomp(m, 8, u, singular, v, b, x);
}

void SolveUsingSingValDecompFixedWidth_18(int m, const float* u, const float* singular, const float* v,
                                          const float* b, float* x)
{
    SolveUsingSingValDecomp(m, 18, u, singular, v, b, x);
}

// ---- Cholesky ----

void CholeskyDecomp_18(float (*a)[18], int& status)
{
    status = 1;
    for (int i = 0; i < 18; ++i)
        for (int j = 0; j <= i; ++j)
        {
            float sum = a[i][j];
            for (int k = 0; k < j; ++k)
                sum -= a[i][k] * a[j][k];
            if (i == j)
            {
                if (!(sum > 0.0f))
                {
                    status = 0;
                    return;
                }
                a[i][i] = std::sqrt(sum);
            }
            else
                a[i][j] = sum / a[j][j];
        }
}

void SolveUsingCholeskyDecomp_18x4(const float (*l)[18], float (*rhs)[4])
{
    for (int c = 0; c < 4; ++c)
    {
        // L y = b, then L^T x = y.
        for (int i = 0; i < 18; ++i)
        {
            float sum = rhs[i][c];
            for (int k = 0; k < i; ++k)
                sum -= l[i][k] * rhs[k][c];
            rhs[i][c] = sum / l[i][i];
        }
        for (int i = 17; i >= 0; --i)
        {
            float sum = rhs[i][c];
            for (int k = i + 1; k < 18; ++k)
                sum -= l[k][i] * rhs[k][c];
            rhs[i][c] = sum / l[i][i];
        }
    }
}

// ---- Fitting a representative pair to the modulation weights ----

int InitialisePackedFittingParams(uint32_t count, int perPixelNine, int residualKind, void* shared,
                                  PackedFittingParams& params)
{
    ReleasePackedFittingParams(params);
    params.count = count;
    const size_t rounded = (size_t(count) + 3) / 4 * 4;
    // Cleared allocations; any failure releases what was made.
    bool ok = (params.centralWeights = static_cast<int32_t*>(std::calloc(rounded, sizeof(int32_t)))) &&
              (params.modulations = static_cast<int32_t*>(std::calloc(rounded, sizeof(int32_t)))) &&
              (params.gains = static_cast<float*>(std::calloc(rounded, sizeof(float)))) &&
              (params.workArea = static_cast<float*>(std::calloc(18 * rounded, sizeof(float)))) &&
              (params.matrix = static_cast<float(*)[18]>(std::calloc(18, sizeof(float[18])))) &&
              (params.rightSides = static_cast<float(*)[4]>(std::calloc(18, sizeof(float[4])))) &&
              (params.flags = static_cast<uint8_t*>(std::calloc(rounded, 1)));
    if (ok && perPixelNine)
        ok = (params.centralWeightsNine = static_cast<int32_t*>(std::calloc(9 * rounded, sizeof(int32_t))));
    if (ok)
    {
        params.sharedResiduals = residualKind >= 2;
        switch (residualKind)
        {
        case 0: ok = (params.floatResiduals = static_cast<float*>(std::calloc(4 * rounded, sizeof(float)))); break;
        case 1: ok = (params.byteResiduals = static_cast<uint8_t*>(std::calloc(4 * rounded, 1))); break;
        case 2: params.floatResiduals = static_cast<float*>(shared); break;
        case 3: params.byteResiduals = static_cast<uint8_t*>(shared); break;
        default: ok = false; break;
        }
    }
    if (!ok)
    {
        ReleasePackedFittingParams(params);
        return 0;
    }
    for (int k = 0; k < 18; ++k)
        params.workArrays[k] = params.workArea + k * rounded;
    params.a = params.workArrays[0];
    params.b = params.workArrays[1];
    return 1;
}

void ReleasePackedFittingParams(PackedFittingParams& params)
{
    std::free(params.centralWeights);
    std::free(params.centralWeightsNine);
    std::free(params.modulations);
    std::free(params.gains);
    std::free(params.workArea);
    std::free(params.matrix);
    std::free(params.rightSides);
    std::free(params.flags);
    if (!params.sharedResiduals)
    {
        std::free(params.floatResiduals);
        std::free(params.byteResiduals);
    }
    params = PackedFittingParams();
}

namespace
{

// A pixel's weights on A and B.
inline void PairWeights(const PackedFittingParams& params, uint32_t i)
{
    const float c = float(params.centralWeights[i]) * params.gains[i] * 0.001953125f;
    const float m = float(params.modulations[i]);
    params.a[i] = (8.0f - m) * c;
    params.b[i] = m * c;
}

// The fast path's single walk over [first, end) with float residuals: the
// weights' sums (p, q, r) and the residuals weighted onto A (u) and B (v),
// every sum in pixel order as in the two walks of the plain path.
// The same sums when every pixel the block reaches has full gain (128). A
// pixel's weights are then (8 - m) w / 4 and m w / 4 for central weight w and
// modulation m, and its residual a whole number. Scaled by 4 (p, q, r by 16,
// u, v by 1/32) every term is a whole number and every partial sum, in any
// order, stays below 2^24 in magnitude (the central weights of a window sum
// to at most 2048, their squares to 2^17), so each is exact in a float: the
// float walk in pixel order adds without rounding, and sums in lanes give its
// values bit for bit. False, touching nothing, when a reached pixel has
// another gain.
bool WholeFitSums(const PackedFittingParams& params, uint32_t first, uint32_t end, float* pqr, float* u, float* v)
{
    uint32_t i = first;
#if ORBT_X86_SIMD
    const __m128 full = _mm_set1_ps(128.0f), eight = _mm_set1_ps(8.0f);
    __m128 other = _mm_setzero_ps();
    for (; i + 4 <= end; i += 4)
    {
        const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(params.centralWeights + i));
        const __m128 reached = _mm_castsi128_ps(_mm_xor_si128(_mm_cmpeq_epi32(w, _mm_setzero_si128()),
                                                              _mm_set1_epi32(-1)));
        other = _mm_or_ps(other, _mm_and_ps(reached, _mm_cmpneq_ps(_mm_loadu_ps(params.gains + i), full)));
    }
    if (_mm_movemask_ps(other) != 0)
        return false;
#endif
    for (; i < end; ++i)
        if (params.centralWeights[i] != 0 && params.gains[i] != 128.0f)
            return false;
    i = first;
    float p = 0.0f, q = 0.0f, r = 0.0f, su[4] = {0.0f, 0.0f, 0.0f, 0.0f}, sv[4] = {0.0f, 0.0f, 0.0f, 0.0f};
#if ORBT_X86_SIMD
    __m128 p4 = _mm_setzero_ps(), q4 = p4, r4 = p4, u0 = p4, v0 = p4, u1 = p4, v1 = p4;
    for (; i + 4 <= end; i += 4)
    {
        const __m128 w = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(params.centralWeights + i)));
        const __m128 m = _mm_cvtepi32_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(params.modulations + i)));
        const __m128 a = _mm_mul_ps(_mm_sub_ps(eight, m), w), b = _mm_mul_ps(m, w);
        p4 = _mm_add_ps(p4, _mm_mul_ps(a, a));
        q4 = _mm_add_ps(q4, _mm_mul_ps(a, b));
        r4 = _mm_add_ps(r4, _mm_mul_ps(b, b));
        const float* e = params.floatResiduals + 4 * i;
        u0 = _mm_add_ps(u0, _mm_mul_ps(_mm_shuffle_ps(a, a, 0x00), _mm_loadu_ps(e)));
        v0 = _mm_add_ps(v0, _mm_mul_ps(_mm_shuffle_ps(b, b, 0x00), _mm_loadu_ps(e)));
        u1 = _mm_add_ps(u1, _mm_mul_ps(_mm_shuffle_ps(a, a, 0x55), _mm_loadu_ps(e + 4)));
        v1 = _mm_add_ps(v1, _mm_mul_ps(_mm_shuffle_ps(b, b, 0x55), _mm_loadu_ps(e + 4)));
        u0 = _mm_add_ps(u0, _mm_mul_ps(_mm_shuffle_ps(a, a, 0xAA), _mm_loadu_ps(e + 8)));
        v0 = _mm_add_ps(v0, _mm_mul_ps(_mm_shuffle_ps(b, b, 0xAA), _mm_loadu_ps(e + 8)));
        u1 = _mm_add_ps(u1, _mm_mul_ps(_mm_shuffle_ps(a, a, 0xFF), _mm_loadu_ps(e + 12)));
        v1 = _mm_add_ps(v1, _mm_mul_ps(_mm_shuffle_ps(b, b, 0xFF), _mm_loadu_ps(e + 12)));
    }
    alignas(16) float lanes[4][4];
    _mm_store_ps(lanes[0], p4);
    _mm_store_ps(lanes[1], q4);
    _mm_store_ps(lanes[2], r4);
    p = (lanes[0][0] + lanes[0][1]) + (lanes[0][2] + lanes[0][3]);
    q = (lanes[1][0] + lanes[1][1]) + (lanes[1][2] + lanes[1][3]);
    r = (lanes[2][0] + lanes[2][1]) + (lanes[2][2] + lanes[2][3]);
    _mm_storeu_ps(su, _mm_add_ps(u0, u1));
    _mm_storeu_ps(sv, _mm_add_ps(v0, v1));
#endif
    for (; i < end; ++i)
    {
        const float w = float(params.centralWeights[i]), m = float(params.modulations[i]);
        const float a = (8.0f - m) * w, b = m * w;
        p += a * a;
        q += a * b;
        r += b * b;
        for (int c = 0; c < 4; ++c)
        {
            su[c] += a * params.floatResiduals[4 * i + c];
            sv[c] += b * params.floatResiduals[4 * i + c];
        }
    }
    pqr[0] = p * 0.0625f, pqr[1] = q * 0.0625f, pqr[2] = r * 0.0625f;
    for (int c = 0; c < 4; ++c)
    {
        u[c] = su[c] * 32.0f;
        v[c] = sv[c] * 32.0f;
    }
    return true;
}

void FitSums(const PackedFittingParams& params, uint32_t first, uint32_t end, float* pqr, float* u, float* v)
{
    if (WholeFitSums(params, first, end, pqr, u, v))
        return;
    float p = 0.0f, q = 0.0f, r = 0.0f;
#if ORBT_X86_SIMD
    if (ActiveSimdPath() != eSimdPortable)
    {
        __m128 su = _mm_setzero_ps(), sv = _mm_setzero_ps();
        for (uint32_t i = first; i < end; ++i)
        {
            PairWeights(params, i);
            const float a = params.a[i], b = params.b[i];
            p += a * a;
            q += a * b;
            r += b * b;
            const __m128 e = _mm_loadu_ps(params.floatResiduals + 4 * i);
            su = _mm_add_ps(su, _mm_mul_ps(_mm_set1_ps(params.gains[i] * a), e));
            sv = _mm_add_ps(sv, _mm_mul_ps(_mm_set1_ps(params.gains[i] * b), e));
        }
        _mm_storeu_ps(u, su);
        _mm_storeu_ps(v, sv);
        pqr[0] = p, pqr[1] = q, pqr[2] = r;
        return;
    }
#endif
    for (int channel = 0; channel < 4; ++channel)
        u[channel] = v[channel] = 0.0f;
    for (uint32_t i = first; i < end; ++i)
    {
        PairWeights(params, i);
        const float a = params.a[i], b = params.b[i];
        p += a * a;
        q += a * b;
        r += b * b;
        const float ga = params.gains[i] * a, gb = params.gains[i] * b;
        for (int channel = 0; channel < 4; ++channel)
        {
            u[channel] += ga * params.floatResiduals[4 * i + channel];
            v[channel] += gb * params.floatResiduals[4 * i + channel];
        }
    }
    pqr[0] = p, pqr[1] = q, pqr[2] = r;
}

// The inverse of the weights' matrix (P', Q', R'), applied crosswise: A =
// R' U + Q' V, B = Q' U + P' V; the status as FitOnlyCentralRepPairsToWeights.
int FitInverse(float p, float q, float r, float& ip, float& iq, float& ir)
{
    ip = iq = ir = 0.0f;
    // One representative far outweighing the other stands alone.
    if (std::fabs(p) > 100.0f * std::fabs(r))
        q = r = 0.0f;
    else if (std::fabs(r) > 100.0f * std::fabs(p))
        p = q = 0.0f;

    int status;
    const float determinant = p * r - q * q;
    if (determinant > 0.0f)
    {
        ip = p / determinant;
        iq = -q / determinant;
        ir = r / determinant;
        status = 0;
    }
    else if (p == 0.0f && r == 0.0f)
        status = 1;
    else if (r == 0.0f)
    {
        ir = 1.0f / p; // A alone
        status = 1;
    }
    else if (p == 0.0f)
    {
        ip = 1.0f / r; // B alone
        status = 2;
    }
    else
    {
        // Rank one, scaled by 1 / P: an exactly proportional pair moves by 0
        // and the caller draws it in.
        const float scale = 1.0f / p;
        ip = p * scale;
        iq = -q * scale;
        ir = r * scale;
        status = 3;
    }
    return status;
}

void FitDisplacements(float ip, float iq, float ir, const float* u, const float* v, float* displacements)
{
    for (int channel = 0; channel < 4; ++channel)
    {
        displacements[channel] = ir * u[channel] + iq * v[channel];
        displacements[4 + channel] = iq * u[channel] + ip * v[channel];
    }
}

} // namespace

int FitRepPairFromSums(float p, float q, float r, const float* u, const float* v, float* displacements)
{
    float ip, iq, ir;
    const int status = FitInverse(p, q, r, ip, iq, ir);
    FitDisplacements(ip, iq, ir, u, v, displacements);
    return status;
}

int FitOnlyCentralRepPairsToWeights(uint32_t pixelCount, PackedFittingParams& params, float* displacements)
{
    // The pixels the block can reach: rows 1 to the last but one, from the
    // second pixel of row 1 to the last but one of that row.
    const bool fourBpp = pixelCount == 81;
    const uint32_t first = fourBpp ? 10 : 18;
    const uint32_t last = std::min<uint32_t>(fourBpp ? 70 : 134, params.count ? params.count - 1 : 0);
    float p = 0.0f, q = 0.0f, r = 0.0f;
    float u[4] = {0.0f, 0.0f, 0.0f, 0.0f}, v[4] = {0.0f, 0.0f, 0.0f, 0.0f};
    const bool oneWalk = params.floatResiduals && !OptimiserReference();
    if (oneWalk)
    {
        float pqr[3];
        FitSums(params, first, std::max(first, std::min(last + 1, params.count)), pqr, u, v);
        p = pqr[0], q = pqr[1], r = pqr[2];
    }
    else
        for (uint32_t i = first; i <= last && i < params.count; ++i)
        {
            PairWeights(params, i);
            p += params.a[i] * params.a[i];
            q += params.a[i] * params.b[i];
            r += params.b[i] * params.b[i];
        }
    if (oneWalk)
        return FitRepPairFromSums(p, q, r, u, v, displacements);
    float ip, iq, ir;
    const int status = FitInverse(p, q, r, ip, iq, ir);
    // The four channels in one walk; each sum still runs in pixel order.
    for (uint32_t i = first; i <= last && i < params.count; ++i)
    {
        const float ga = params.gains[i] * params.a[i], gb = params.gains[i] * params.b[i];
        for (int channel = 0; channel < 4; ++channel)
        {
            const float e = params.floatResiduals ? params.floatResiduals[4 * i + channel]
                            : params.byteResiduals ? float(params.byteResiduals[4 * i + channel])
                                                   : 0.0f;
            u[channel] += ga * e;
            v[channel] += gb * e;
        }
    }
    FitDisplacements(ip, iq, ir, u, v, displacements);
    return status;
}

} // namespace orbtexture
