#ifndef FNZJ_LOCALISED_H
#define FNZJ_LOCALISED_H

// The optimiser's numerical kit, in 32-bit floats: covariance sums and their
// sorted eigenvectors, a principal eigenvector by power iteration, singular
// value decomposition with least-squares solves, and a Cholesky solver for
// the 18 by 18 normal matrix. Matrices are row-major.

#include <cstdint>
#include <vector>

#include "Tools/ORBTSimd.h"

#if ORBT_X86_SIMD
#include <emmintrin.h>
#endif

namespace orbtexture
{

// The upper triangle of the 4 x 4 matrix of weighted outer products, in row
// order: rr, rg, rb, ra, gg, gb, ga, bb, ba, aa.
constexpr int kCovarSumSize = 10;

// Adds weight x colour x colour^T.
void UpdateCovarSumF(double* sum, float weight, const float* colour);

#if ORBT_X86_SIMD
// UpdateCovarSumF's products added to its sums held as five pairs: (w c_i) c_j
// for (0,0) (0,1), (0,2) (0,3), (1,1) (1,2), (1,3) (2,2), (2,3) (3,3), with
// c01 and c23 the colour's channels as doubles.
inline void AddCovarProducts(__m128d* sums, __m128d c01, __m128d c23, double weight)
{
    const __m128d w = _mm_set1_pd(weight);
    const __m128d wc01 = _mm_mul_pd(w, c01), wc23 = _mm_mul_pd(w, c23);
    const __m128d wc0 = _mm_unpacklo_pd(wc01, wc01), wc1 = _mm_unpackhi_pd(wc01, wc01);
    const __m128d c12 = _mm_shuffle_pd(c01, c23, 1), c32 = _mm_shuffle_pd(c23, c23, 1);
    const __m128d c33 = _mm_unpackhi_pd(c23, c23);
    sums[0] = _mm_add_pd(sums[0], _mm_mul_pd(wc0, c01));
    sums[1] = _mm_add_pd(sums[1], _mm_mul_pd(wc0, c23));
    sums[2] = _mm_add_pd(sums[2], _mm_mul_pd(wc1, c12));
    sums[3] = _mm_add_pd(sums[3], _mm_mul_pd(_mm_shuffle_pd(wc01, wc23, 1), c32));
    sums[4] = _mm_add_pd(sums[4], _mm_mul_pd(wc23, c33));
}
#endif
// The same for an 8-bit colour; a non-zero 'recentre' subtracts 128 from each
// channel first.
void UpdateCovarSumI(double* sum, float weight, int recentre, const unsigned char* colour);

// Eigenvalues (descending) and eigenvectors (as rows) of the covariance
// sum - mean x mean^T; the sum is expected to be normalised (weights adding
// to 1).
void CovarSumToSortedEigenVecs(const double* sum, const float* mean, float* eigenvalues, float (*eigenvectors)[4]);
// The principal eigenvector of the same covariance (unit length).
void CovarSumToPrincipalVector(const double* sum, const float* mean, float* vector);

// Cyclic Jacobi on the symmetric n x n 'matrix' (destroyed): eigenvalues in
// descending order, eigenvectors as the columns of the n x n 'eigenvectors'.
void ComputeSortedEigenVecs(float* matrix, int n, float* eigenvalues, float* eigenvectors);

// The unit principal eigenvector of a symmetric 4 x 4 matrix by repeated
// squaring and power iteration; a zero matrix gives the first axis.
void FindPrincipalEigenvect(const float (*matrix)[4], float* vector);

// The covariance sum of n-dimensional vectors: the upper triangle of the
// weighted outer products in row order, and the weighted sum of the vectors
// (their mean once the weights add to 1).
struct LargeCovarSum
{
    int dimension = 0;
    std::vector<double> sums;
    std::vector<double> mean;
};

void InitLargeCovarSum(LargeCovarSum& sum, int dimension);
void UpdateLargeCovarSumF(LargeCovarSum& sum, float weight, const float* values);
void UpdateLargeCovarSumI(LargeCovarSum& sum, float weight, int recentre, const unsigned char* values);
// Eigenvalues (descending) and eigenvectors (as rows, dimension x dimension)
// of sums - mean x mean^T.
void LargeCovarSumToSortedEigenVecs(const LargeCovarSum& sum, float* eigenvalues, float* eigenvectors);

// Singular value decomposition A = U W V^T of the m x n 'matrix', which is
// replaced by U (m x n); 'singular' gets the n values of W and 'v' the n x n
// V. Returns 1, or 0 when a value has not converged after 30 iterations
// (with a message on standard error).
int SingValDecomp(int m, int n, float* matrix, float* singular, float* v);
int SingValDecompFixedWidth_4(int m, float* matrix, float* singular, float* v);
int SingValDecompFixedWidth_8(int m, float* matrix, float* singular, float* v);
int SingValDecompFixedWidth_18(int m, float* matrix, float* singular, float* v);

// x (n) minimising |A x - b| from the decomposition (U m x n, W, V): the
// reciprocals of singular values below 1e-6 of the largest count as 0.
void SolveUsingSingValDecomp(int m, int n, const float* u, const float* singular, const float* v, const float* b,
                             float* x);
void SolveUsingSingValDecompFixedWidth_4(int m, const float* u, const float* singular, const float* v,
                                         const float* b, float* x);
void SolveUsingSingValDecompFixedWidth_8(int m, const float* u, const float* singular, const float* v,
                                         const float* b, float* x);
void SolveUsingSingValDecompFixedWidth_18(int m, const float* u, const float* singular, const float* v,
                                          const float* b, float* x);

// In place, the lower triangular L with L L^T = the symmetric 18 x 18
// 'matrix' (the upper triangle keeps the input). 'status' is 1 when every
// pivot is positive, else 0 (the decomposition stops there).
void CholeskyDecomp_18(float (*matrix)[18], int& status);
// Solves L L^T X = B for four right-hand sides: 'rhs' (18 x 4) is replaced by
// X.
void SolveUsingCholeskyDecomp_18x4(const float (*matrix)[18], float (*rhs)[4]);

// ---- Fitting a representative pair to the modulation weights ----

// The per-pixel data of a block's window for the least-squares fit of its two
// representatives. Arrays are owned here unless 'sharedResiduals' says the
// residuals belong to the caller.
struct PackedFittingParams
{
    uint32_t count = 0;                  // window pixels
    int32_t* centralWeights = nullptr;   // 0 to 64 a pixel
    int32_t* centralWeightsNine = nullptr; // nine a pixel, when asked for
    int32_t* modulations = nullptr;      // weight on B, 0 to 8
    float* gains = nullptr;              // 128 is full gain
    uint32_t sharedResiduals = 0;
    float* floatResiduals = nullptr;     // pixel less decoded colour, four a pixel
    uint8_t* byteResiduals = nullptr;    // the same as unsigned bytes
    float* workArea = nullptr;           // eighteen cleared arrays of count rounded up to 4
    float* workArrays[18] = {};
    float* a = nullptr;                  // weights on A and B of the fit
    float* b = nullptr;
    float (*matrix)[18] = nullptr;       // 18 x 18 work matrix
    float (*rightSides)[4] = nullptr;    // 18 x 4
    uint8_t* flags = nullptr;            // a byte a pixel
};

// Residual kinds: 0 float residuals made here, 1 byte residuals made here, 2
// float residuals of the caller's ('shared'), 3 byte residuals of the caller's.
// Returns 1, or 0 after releasing everything when an allocation fails.
int InitialisePackedFittingParams(uint32_t count, int perPixelNine, int residualKind, void* shared,
                                  PackedFittingParams& params);
// Frees what the record owns and zeroes it.
void ReleasePackedFittingParams(PackedFittingParams& params);

// The displacements of A and of B (RGBA each, in 'displacements' [8]) that
// best cancel the residuals of the pixels the block reaches, given each
// pixel's modulation: 0 both solved, 1 A only (B's is 0), 2 B only (A's is
// 0), 3 a singular matrix with data on both, given a rank-one answer.
// 'pixelCount' 81 is a 4bpp window, any other a 2bpp one.
int FitOnlyCentralRepPairsToWeights(uint32_t pixelCount, PackedFittingParams& params, float* displacements);
// The same from the walk's sums: p, q, r of the weights on A and B (A A, A B,
// B B) and the residuals weighted onto A (u) and B (v).
int FitRepPairFromSums(float p, float q, float r, const float* u, const float* v, float* displacements);

} // namespace orbtexture

#endif
