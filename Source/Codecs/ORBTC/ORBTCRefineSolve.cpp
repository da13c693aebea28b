#include "Codecs/ORBTC/ORBTCRefineSolve.h"

#include <algorithm>

namespace orbtexture
{

void PresentColours(const CRefineGrid& grid, std::vector<float>& colours)
{
    colours.resize(size_t(grid.blockCount()) * 6);
    for (unsigned block = 0; block < grid.blockCount(); ++block)
        for (int which = 0; which < 2; ++which)
        {
            int values[3], bits[3];
            ReadColourFields(grid.word(block).colourData, grid.generation2(), which, values, bits);
            for (int ch = 0; ch < 3; ++ch)
                colours[(size_t(block) * 2 + which) * 3 + ch] = FieldToScale(values[ch], bits[ch]);
        }
}

CColourSystem::CColourSystem(const CRefineGrid& grid)
    : m_grid(grid), m_pixels(4 * grid.blockWidth()), m_tiles(grid.blockCount()),
      m_coefficients(size_t(m_tiles) * m_pixels * 8), m_counted(size_t(m_tiles) * m_pixels),
      m_residual(size_t(m_tiles) * m_pixels * 3), m_target(size_t(m_tiles) * m_pixels * 3)
{
    std::vector<float> present;
    PresentColours(grid, present);
    RunRefineParts(m_tiles, [&](unsigned first, unsigned end) {
        uint8_t decoded[32][4];
        for (unsigned tile = first; tile < end; ++tile)
        {
            float* coefficients = &m_coefficients[size_t(tile) * m_pixels * 8];
            m_grid.TileCoefficients(tile, reinterpret_cast<float(*)[8]>(coefficients));
            m_grid.DecodeTile(tile, decoded);
            unsigned blocks[4];
            m_grid.TileBlocks(tile, blocks);
            for (unsigned k = 0; k < m_pixels; ++k)
            {
                const size_t p = size_t(tile) * m_pixels + k;
                unsigned x, y;
                m_grid.TilePixel(tile, k % m_grid.blockWidth(), k / m_grid.blockWidth(), x, y);
                m_counted[p] = m_grid.Counted(x, y);
                // The target less what the decoder's rounding adds to the
                // model at the present colours.
                for (int ch = 0; ch < 3; ++ch)
                {
                    float model = 0.f;
                    for (int q = 0; q < 8; ++q)
                        model += coefficients[k * 8 + q] * present[(size_t(blocks[q >> 1]) * 2 + (q & 1)) * 3 + ch];
                    m_target[p * 3 + ch] = float(m_grid.SourcePixel(x, y)[ch]) - (float(decoded[k][ch]) - model);
                }
            }
        }
    });
}

void CColourSystem::Normal(const std::vector<double>& v, bool target, std::vector<double>& out)
{
    RunRefineParts(m_tiles, [&](unsigned first, unsigned end) {
        for (unsigned tile = first; tile < end; ++tile)
        {
            unsigned blocks[4];
            m_grid.TileBlocks(tile, blocks);
            for (unsigned k = 0; k < m_pixels; ++k)
            {
                const size_t p = size_t(tile) * m_pixels + k;
                double* r = &m_residual[p * 3];
                if (!m_counted[p])
                {
                    r[0] = r[1] = r[2] = 0.0;
                    continue;
                }
                const float* c = &m_coefficients[p * 8];
                for (int ch = 0; ch < 3; ++ch)
                {
                    double sum = 0.0;
                    if (target)
                        sum = m_target[p * 3 + ch];
                    else
                        for (int q = 0; q < 8; ++q)
                            sum += double(c[q]) * v[(size_t(blocks[q >> 1]) * 2 + (q & 1)) * 3 + ch];
                    r[ch] = sum;
                }
            }
        }
    });
    Gather(m_residual, out);
}

void CColourSystem::Diagonal(std::vector<double>& diagonal) const
{
    diagonal.assign(size_t(m_tiles) * 3, 0.0);
    RunRefineParts(m_tiles, [&](unsigned first, unsigned end) {
        for (unsigned block = first; block < end; ++block)
            for (unsigned role = 0; role < 4; ++role)
            {
                const size_t tile = RoleTile(block, role);
                for (unsigned k = 0; k < m_pixels; ++k)
                {
                    const size_t p = tile * m_pixels + k;
                    if (!m_counted[p])
                        continue;
                    const double a = m_coefficients[p * 8 + 2 * role], b = m_coefficients[p * 8 + 2 * role + 1];
                    diagonal[size_t(block) * 3] += a * a;
                    diagonal[size_t(block) * 3 + 1] += a * b;
                    diagonal[size_t(block) * 3 + 2] += b * b;
                }
            }
    });
}

size_t CColourSystem::RoleTile(unsigned block, unsigned role) const
{
    const unsigned numX = m_grid.numX(), numY = m_grid.numY();
    const unsigned bx = block % numX, by = block / numX;
    const unsigned i = (role & 1) ? bx : (bx + 1) % numX, j = (role & 2) ? by : (by + 1) % numY;
    return size_t(j) * numX + i;
}

void CColourSystem::Gather(const std::vector<double>& values, std::vector<double>& out) const
{
    out.assign(size_t(m_tiles) * 6, 0.0);
    RunRefineParts(m_tiles, [&](unsigned first, unsigned end) {
        for (unsigned block = first; block < end; ++block)
        {
            double* o = &out[size_t(block) * 6];
            for (unsigned role = 0; role < 4; ++role)
            {
                const size_t tile = RoleTile(block, role);
                for (unsigned k = 0; k < m_pixels; ++k)
                {
                    const size_t p = tile * m_pixels + k;
                    const double a = m_coefficients[p * 8 + 2 * role], b = m_coefficients[p * 8 + 2 * role + 1];
                    for (int ch = 0; ch < 3; ++ch)
                    {
                        o[ch] += a * values[p * 3 + ch];
                        o[3 + ch] += b * values[p * 3 + ch];
                    }
                }
            }
        }
    });
}

void CColourSystem::Solve(unsigned iterations, std::vector<float>& colours, const std::vector<uint8_t>& fixed)
{
    CColourSystem& system = *this;
    const unsigned blocks = m_grid.blockCount();
    const size_t n = size_t(blocks) * 6;

    std::vector<double> diagonal;
    system.Diagonal(diagonal);
    double trace = 0.0;
    for (unsigned block = 0; block < blocks; ++block)
        trace += diagonal[size_t(block) * 3] + diagonal[size_t(block) * 3 + 2];
    const double pull = 0.01 * trace / (2.0 * blocks) + 1e-6;

    // Right side J^T t + pull x0, with x0 the present colours.
    std::vector<double> x(colours.begin(), colours.end()), right, product, r(n), z(n), p(n);
    system.Normal(x, true, right);
    for (size_t k = 0; k < n; ++k)
        right[k] += pull * x[k];

    const auto apply = [&](const std::vector<double>& v, std::vector<double>& out) {
        system.Normal(v, false, out);
        for (size_t k = 0; k < n; ++k)
            out[k] += pull * v[k];
    };
    // Block Jacobi: the inverse of each block's 2 x 2 matrix, per channel.
    const auto precondition = [&](const std::vector<double>& in, std::vector<double>& out) {
        for (unsigned block = 0; block < blocks; ++block)
        {
            if (!fixed.empty() && fixed[block])
            {
                std::fill(&out[size_t(block) * 6], &out[size_t(block) * 6] + 6, 0.0);
                continue;
            }
            const double aa = diagonal[size_t(block) * 3] + pull, ab = diagonal[size_t(block) * 3 + 1],
                         bb = diagonal[size_t(block) * 3 + 2] + pull;
            const double det = aa * bb - ab * ab;
            for (int ch = 0; ch < 3; ++ch)
            {
                const double u = in[size_t(block) * 6 + ch], w = in[size_t(block) * 6 + 3 + ch];
                out[size_t(block) * 6 + ch] = (bb * u - ab * w) / det;
                out[size_t(block) * 6 + 3 + ch] = (aa * w - ab * u) / det;
            }
        }
    };
    const auto dot = [&](const std::vector<double>& a, const std::vector<double>& b, double* sums) {
        sums[0] = sums[1] = sums[2] = 0.0;
        for (size_t k = 0; k < n; ++k)
            sums[k % 3] += a[k] * b[k];
    };

    // Unknowns are laid out [block][colour][channel]; x follows the same.
    apply(x, product);
    for (size_t k = 0; k < n; ++k)
        r[k] = right[k] - product[k];
    precondition(r, z);
    p = z;
    double rz[3], pAp[3], rzNext[3];
    dot(r, z, rz);
    for (unsigned it = 0; it < iterations; ++it)
    {
        apply(p, product);
        dot(p, product, pAp);
        double alpha[3], beta[3];
        for (int ch = 0; ch < 3; ++ch)
            alpha[ch] = pAp[ch] > 0.0 ? rz[ch] / pAp[ch] : 0.0;
        for (size_t k = 0; k < n; ++k)
        {
            x[k] += alpha[k % 3] * p[k];
            r[k] -= alpha[k % 3] * product[k];
        }
        precondition(r, z);
        dot(r, z, rzNext);
        for (int ch = 0; ch < 3; ++ch)
        {
            beta[ch] = rz[ch] > 0.0 ? rzNext[ch] / rz[ch] : 0.0;
            rz[ch] = rzNext[ch];
        }
        for (size_t k = 0; k < n; ++k)
            p[k] = z[k] + beta[k % 3] * p[k];
    }
    for (size_t k = 0; k < n; ++k)
        colours[k] = float(std::min(255.0, std::max(0.0, x[k])));
}

} // namespace orbtexture
