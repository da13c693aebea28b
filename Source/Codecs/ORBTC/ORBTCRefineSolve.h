#ifndef ORBTCREFINESOLVE_H
#define ORBTCREFINESOLVE_H

// Internal: joint least squares of the colours A and B of every block of a
// word grid, the modulation held fixed.

#include <cstdint>
#include <vector>

#include "Codecs/ORBTC/ORBTCRefineGrid.h"

namespace orbtexture
{

// The colours of the grid's words on the 8-bit scale, laid out as below.
void PresentColours(const CRefineGrid& grid, std::vector<float>& colours);

// The normal equations J^T J x = J^T t of the squared RGB error of a grid's
// counted pixels, J being the linear model of TileCoefficients for the
// modulation the grid holds when it is made. Unknowns are the colours on the
// 8-bit scale, x[(block * 2 + colour) * 3 + channel], colour 0 for A.
class CColourSystem
{
  public:
    explicit CColourSystem(const CRefineGrid& grid);

    // Solves from 'colours' (the words' present colours, or partly solved
    // ones) with a weak pull towards them, which also fixes colours that no
    // pixel sees; blocks marked in 'fixed' (if not empty) keep theirs.
    // Preconditioned conjugate gradients per channel, 'iterations' steps;
    // sums are taken in a fixed order, so the result does not depend on the
    // thread count. The result is clamped to 0 to 255.
    void Solve(unsigned iterations, std::vector<float>& colours, const std::vector<uint8_t>& fixed);

    // Per block, the 2 x 2 matrix of its colours A and B: aa, ab, bb.
    void Diagonal(std::vector<double>& diagonal) const;

  private:
    // out = J^T J v, or J^T t when 'target', t being the source pixels less
    // the difference of the decoder to the model at the words' colours.
    void Normal(const std::vector<double>& v, bool target, std::vector<double>& out);
    // The tile in which 'block' is P (role 0), Q, R or S (3).
    size_t RoleTile(unsigned block, unsigned role) const;
    // out[block, colour, channel] = the sum over its pixels of coefficient
    // times value.
    void Gather(const std::vector<double>& values, std::vector<double>& out) const;

    const CRefineGrid& m_grid;
    const unsigned m_pixels, m_tiles;
    std::vector<float> m_coefficients; // 8 a pixel
    std::vector<uint8_t> m_counted;
    std::vector<double> m_residual;
    std::vector<float> m_target;
};

} // namespace orbtexture

#endif
