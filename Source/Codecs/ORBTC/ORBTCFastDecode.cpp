#include "Codecs/ORBTC/ORBTCFastDecode.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <new>

#include "Codecs/ORBTC/ORBTCFastDecodeKernels.h"
#include "Codecs/ORBTC/ORBTCLocalPalette.h"
#include "Codecs/ORBTC/ORBTCWordLayout.h"
#include "Tools/ORBTParallel.h"

namespace orbtexture
{

namespace
{

constexpr uint32_t kHardFlag = 0x8000u, kOpaqueForms = 0x80000000u;
constexpr uint8_t kHard = 4; // in a block's info byte
constexpr uint32_t kNoRow = 0xFFFFFFFFu;

struct Tables
{
    // 4bpp: the weights of a block row's four pixels from its byte of codes,
    // by the word's modulation flag.
    uint8_t fourBpp[2][256][4];
    // 2bpp: the weights at the coded pixels of a block row from its byte: [0]
    // flag 0 (a bit a pixel), [1] even rows (pixels 0, 2, 4, 6), [2] odd rows.
    uint8_t twoBpp[3][256][8];
};

const Tables& GetTables()
{
    static const Tables tables = [] {
        Tables t{};
        for (uint32_t byte = 0; byte < 256; ++byte)
        {
            for (uint32_t p = 0; p < 4; ++p)
            {
                const uint32_t code = (byte >> (2 * p)) & 3u;
                t.fourBpp[0][byte][p] = uint8_t(ORBTCStandardWeights[code]);
                const int punch = ORBTCPunchthroughWeights[code];
                t.fourBpp[1][byte][p] =
                    uint8_t(ORBTCBlendWeight(punch) | (punch > ORBTCAlphaZeroOffset ? kORBTCPunchThrough : 0));
            }
            for (uint32_t p = 0; p < 8; ++p)
            {
                t.twoBpp[0][byte][p] = uint8_t((byte >> p) & 1u ? ORBTCStandardWeights[3] : 0);
                const int weight = ORBTCStandardWeights[(byte >> (p & ~1u)) & 3u];
                t.twoBpp[1 + (p & 1u)][byte][p] = uint8_t(weight);
            }
        }
        return t;
    }();
    return tables;
}

inline uint32_t ReadLE32(const unsigned char* p)
{
    return uint32_t(p[0]) | (uint32_t(p[1]) << 8) | (uint32_t(p[2]) << 16) | (uint32_t(p[3]) << 24);
}

inline int16_t Expand4(uint32_t v) { return int16_t((v << 1) | (v >> 3)); }
inline int16_t Expand3(uint32_t v) { return int16_t((v << 2) | (v >> 1)); }

// Colours A and B of a colour word in working precision, alpha times 4.
// Both forms are worked out and one taken, without branches: the words of an
// image mix them.
inline void ExpandColours(uint32_t colour, bool generation2, int16_t* out)
{
    const bool opaqueA = (colour & (generation2 ? kOpaqueForms : kHardFlag)) != 0;
    out[0] = opaqueA ? int16_t((colour >> 10) & 31u) : Expand4((colour >> 8) & 15u);
    out[1] = opaqueA ? int16_t((colour >> 5) & 31u) : Expand4((colour >> 4) & 15u);
    out[2] = opaqueA ? Expand4((colour >> 1) & 15u) : Expand3((colour >> 1) & 7u);
    out[3] = opaqueA ? int16_t(60) : int16_t(((colour >> 12) & 7u) << 3);
    const bool opaqueB = (colour & kOpaqueForms) != 0;
    out[4] = opaqueB ? int16_t((colour >> 26) & 31u) : Expand4((colour >> 24) & 15u);
    out[5] = opaqueB ? int16_t((colour >> 21) & 31u) : Expand4((colour >> 20) & 15u);
    out[6] = opaqueB ? int16_t((colour >> 16) & 31u) : Expand4((colour >> 16) & 15u);
    out[7] = opaqueB ? int16_t(60) : int16_t((((colour >> 28) & 7u) << 3) + (generation2 ? 4 : 0));
}

// A lane of mixed colours, of weights 4 x bw in all (alpha lanes 4 x more),
// to 8 bits.
inline int Widen(int v, int lane, bool twoBpp)
{
    const int shift = twoBpp ? 7 : 6;
    return (v >> shift) + (v >> (lane == 3 ? shift - 4 : shift - 5));
}

// A lane of working precision (alpha 4 x) to 8 bits.
inline uint8_t Expand8(int16_t v, int lane) { return uint8_t(lane == 3 ? (v >> 2) * 17 : (v << 3) | (v >> 2)); }

// One block row of words, expanded.
struct BlockRow
{
    uint32_t y;
    int16_t* colours; // 8 lanes a block
    uint32_t* bits;   // modulation; 2bpp sub-mode words with their uncoded bits filled
    uint8_t* info;    // bits 0-1: 4bpp flag or 2bpp sub-mode; kHard
};

// The block rows of an output row's tiles and of its own blocks, its sub-row
// s and its row r in the tiles.
struct RowState
{
    const BlockRow* upper;
    const BlockRow* lower;
    const BlockRow* own;
    uint32_t s, r;
};

class RowDecoder
{
public:
    RowDecoder(const ORBTCFastSurface& surface, ESimdPath path);
    bool Ready() const { return m_memory != nullptr; }
    void DecodeBlockRow(uint32_t j);

private:
    const BlockRow& Fetch(uint32_t y, const uint32_t (&wanted)[3], bool (&taken)[3]);
    void Expand(BlockRow& row, uint32_t y);
    void CodedWeights(const BlockRow& row, uint32_t t, uint8_t* out) const;
    void HardTiles(const BlockRow& above, const BlockRow& current, int k);
    void PaletteBlock(const RowState& state, uint32_t x, uint32_t hard, uint8_t* out) const;

    const ORBTCFastSurface& m_surface;
    const ESimdPath m_path;
    const Tables& m_tables;
    const uint32_t m_numX, m_bw, m_rowPixels;
    std::unique_ptr<unsigned char[]> m_memory;
    BlockRow m_rows[3];
    uint32_t* m_columnIndex = nullptr;
    int16_t* m_colours = nullptr; // numX + 2 columns, from column -1
    int16_t* m_own = nullptr;     // ORBTCII: the colours of hard tiles
    // ORBTCII, by the tiles' block row (above, below the block row): the
    // hard halves of each block (ORBTCRowJob::hard), and the flagged 4bpp
    // blocks in hard tiles.
    uint8_t* m_hard[2] = {};
    uint32_t* m_palettes[2] = {};
    uint32_t m_paletteCount[2] = {};
    uint8_t* m_weights[4] = {};   // by sub-row at 4bpp; 2bpp: [0], the row's
    uint8_t* m_coded[6] = {};     // 2bpp, with a wrapped pixel before and after
    uint8_t* m_rowOut = nullptr;  // for rows wider than the output
};

size_t Align(size_t bytes) { return (bytes + 63) & ~size_t(63); }

RowDecoder::RowDecoder(const ORBTCFastSurface& surface, ESimdPath path)
    : m_surface(surface), m_path(path), m_tables(GetTables()), m_numX(surface.numX),
      m_bw(surface.twoBpp ? 8 : 4), m_rowPixels(surface.numX * m_bw)
{
    const size_t n = m_numX;
    const size_t rowBytes = Align(n * 16) + Align(n * 4) + Align(n + 16);
    const size_t codedBytes = Align(m_rowPixels + 64);
    const size_t total = 3 * rowBytes + Align(n * 4) + Align((n + 2) * 16 + 32) + Align(n * 16) +
                         2 * (Align(n + 16) + Align(n * 4)) + 4 * Align(m_rowPixels + 32) +
                         (surface.twoBpp ? 6 * codedBytes : 0) +
                         (surface.width < m_rowPixels ? Align(size_t(m_rowPixels) * 4 + 32) : 0);
    m_memory.reset(new (std::nothrow) unsigned char[total + 64]);
    if (!m_memory)
        return;
    std::memset(m_memory.get(), 0, total + 64);
    unsigned char* next = m_memory.get() + (64 - reinterpret_cast<uintptr_t>(m_memory.get()) % 64) % 64;
    auto take = [&](size_t bytes) {
        unsigned char* p = next;
        next += Align(bytes);
        return p;
    };
    for (BlockRow& row : m_rows)
    {
        row.y = kNoRow;
        row.colours = reinterpret_cast<int16_t*>(take(n * 16));
        row.bits = reinterpret_cast<uint32_t*>(take(n * 4));
        row.info = take(n + 16);
    }
    m_columnIndex = reinterpret_cast<uint32_t*>(take(n * 4));
    m_colours = reinterpret_cast<int16_t*>(take((n + 2) * 16 + 32));
    m_own = reinterpret_cast<int16_t*>(take(n * 16));
    for (int k = 0; k < 2; ++k)
    {
        m_hard[k] = take(n + 16);
        m_palettes[k] = reinterpret_cast<uint32_t*>(take(n * 4));
    }
    for (uint8_t*& weights : m_weights)
        weights = take(m_rowPixels + 32);
    if (surface.twoBpp)
        for (uint8_t*& coded : m_coded)
            coded = take(m_rowPixels + 64) + 32;
    if (surface.width < m_rowPixels)
        m_rowOut = take(size_t(m_rowPixels) * 4 + 32);

    for (uint32_t x = 0; x < m_numX; ++x)
        m_columnIndex[x] = surface.rowOrder ? x : ORBTCWordIndex(m_numX, surface.numY, x, 0);
}

void RowDecoder::Expand(BlockRow& row, uint32_t y)
{
    row.y = y;
    // Twiddled indices are the sum of a column part and a row part.
    const size_t rowIndex = m_surface.rowOrder ? size_t(y) * m_numX : ORBTCWordIndex(m_numX, m_surface.numY, 0, y);
    const bool generation2 = m_surface.generation2;
    for (uint32_t x = 0; x < m_numX; ++x)
    {
        const unsigned char* word = m_surface.words + (rowIndex + m_columnIndex[x]) * 8;
        uint32_t bits = ReadLE32(word);
        const uint32_t colour = ReadLE32(word + 4);
        ExpandColours(colour, generation2, row.colours + 8 * x);
        uint8_t info = uint8_t(colour & 1u);
        if (m_surface.twoBpp && (colour & 1u))
        {
            if (bits & 1u)
            {
                info = (bits & (1u << 20)) ? 3 : 2;
                bits = (bits & ~(1u << 20)) | ((bits >> 1) & (1u << 20));
            }
            bits = (bits & ~1u) | ((bits >> 1) & 1u);
        }
        if (generation2 && (colour & kHardFlag))
            info |= kHard;
        row.bits[x] = bits;
        row.info[x] = info;
    }
}

const BlockRow& RowDecoder::Fetch(uint32_t y, const uint32_t (&wanted)[3], bool (&taken)[3])
{
    for (int k = 0; k < 3; ++k)
        if (m_rows[k].y == y)
        {
            taken[k] = true;
            return m_rows[k];
        }
    // A slot holding none of the rows wanted now.
    int free = 0;
    while (taken[free] || m_rows[free].y == wanted[0] || m_rows[free].y == wanted[1] || m_rows[free].y == wanted[2])
        ++free;
    taken[free] = true;
    Expand(m_rows[free], y);
    return m_rows[free];
}

void RowDecoder::CodedWeights(const BlockRow& row, uint32_t t, uint8_t* out) const
{
    const uint32_t odd = 1 + (t & 1u);
    for (uint32_t x = 0; x < m_numX; ++x)
    {
        const uint32_t mode = row.info[x] & 3u;
        std::memcpy(out + 8 * x, m_tables.twoBpp[mode ? odd : 0][(row.bits[x] >> (8 * t)) & 255u], 8);
    }
    out[-1] = out[m_rowPixels - 1];
    out[m_rowPixels] = out[0];
}

void RowDecoder::PaletteBlock(const RowState& state, uint32_t x, uint32_t hard, uint8_t* out) const
{
    const BlockRow& own = *state.own;
    for (uint32_t p = 0; p < 4; ++p)
    {
        const bool left = p < 2;
        if (!((hard >> (left ? 0 : 1)) & 1u))
            continue; // a soft tile: as the row kernel wrote it
        const uint32_t c = left ? p + 2 : p - 2, place = state.r * 4 + c;
        const uint32_t code = (own.bits[x] >> (2 * (state.s * 4 + p))) & 3u;
        uint8_t* o = out + 4 * p;
        if (place == 0)
        {
            const int w = ORBTCStandardWeights[code];
            const int16_t* colours = own.colours + 8 * x;
            for (int k = 0; k < 4; ++k)
                o[k] = uint8_t((Expand8(colours[k], k) * (8 - w) + Expand8(colours[4 + k], k) * w) >> 3);
            continue;
        }
        const uint32_t x0 = left ? (x ? x - 1 : m_numX - 1) : x;
        const uint32_t x1 = left ? x : (x + 1 == m_numX ? 0 : x + 1);
        const uint32_t index = LocalPaletteMap[place * 4 + code] & 7u;
        const int block = LocalPaletteBlock(index);
        const BlockRow& row = block < 2 ? *state.upper : *state.lower;
        const int16_t* colour =
            row.colours + 8 * ((block == 0 || block == 2) ? x0 : x1) + 4 * LocalPaletteColour(index);
        for (int k = 0; k < 4; ++k)
            o[k] = Expand8(colour[k], k);
    }
}

void RowDecoder::HardTiles(const BlockRow& above, const BlockRow& current, int k)
{
    // P of the tile of a block's left half is the block on its left, of its
    // right half's the block itself.
    m_paletteCount[k] = 0;
    for (uint32_t x = 0; x < m_numX; ++x)
    {
        const uint32_t left = above.info[x ? x - 1 : m_numX - 1] & kHard, right = above.info[x] & kHard;
        const uint8_t hard = uint8_t((left ? 1 : 0) | (right ? 2 : 0));
        m_hard[k][x] = hard;
        if (hard && (current.info[x] & 1u) && !m_surface.twoBpp)
            m_palettes[k][m_paletteCount[k]++] = x;
    }
}

void RowDecoder::DecodeBlockRow(uint32_t j)
{
    const uint32_t numY = m_surface.numY;
    const uint32_t wanted[3] = {(j + numY - 1) % numY, j, (j + 1) % numY};
    bool taken[3] = {};
    const BlockRow& previous = Fetch(wanted[0], wanted, taken);
    const BlockRow& current = Fetch(wanted[1], wanted, taken);
    const BlockRow& following = Fetch(wanted[2], wanted, taken);

    if (m_surface.twoBpp)
    {
        CodedWeights(previous, 3, m_coded[0]);
        for (uint32_t t = 0; t < 4; ++t)
            CodedWeights(current, t, m_coded[1 + t]);
        CodedWeights(following, 0, m_coded[5]);
    }
    else
        for (uint32_t x = 0; x < m_numX; ++x)
        {
            const auto& rows = m_tables.fourBpp[current.info[x] & 1u];
            for (uint32_t s = 0; s < 4; ++s)
                std::memcpy(m_weights[s] + 4 * x, rows[(current.bits[x] >> (8 * s)) & 255u], 4);
        }

    const size_t lanes = size_t(m_numX) * 8;
    const bool generation2 = m_surface.generation2;
    if (generation2)
    {
        for (size_t k = 0; k < lanes; ++k)
            m_own[k] = int16_t(current.colours[k] * 4);
        HardTiles(previous, current, 0);
        HardTiles(current, current, 1);
    }
    for (uint32_t s = 0; s < 4; ++s)
    {
        const uint32_t y = 4 * j + s;
        if (y >= m_surface.height)
            break;
        // Rows 0 and 1 lie in tiles from the block row above, 2 and 3 in
        // tiles to the one below.
        const BlockRow& upper = s < 2 ? previous : current;
        const BlockRow& lower = s < 2 ? current : following;
        const uint32_t r = (s + 2) & 3u;
        int16_t* colours = m_colours + 8;
        for (size_t k = 0; k < lanes; ++k)
            colours[k] = int16_t((4 - int(r)) * upper.colours[k] + int(r) * lower.colours[k]);
        std::memcpy(m_colours, colours + lanes - 8, 16);
        std::memcpy(colours + lanes, colours, 16);

        uint8_t* const weights = m_weights[m_surface.twoBpp ? 0 : s];
        if (m_surface.twoBpp)
        {
#if ORBT_X86_SIMD
            if (m_path != eSimdPortable)
                ORBTCSubModeWeightsSSE2(m_coded[s], m_coded[s + 1], m_coded[s + 2], current.info, m_numX, s,
                                        weights);
            else
#endif
                ORBTCSubModeWeightsPortable(m_coded[s], m_coded[s + 1], m_coded[s + 2], current.info, m_numX, s,
                                            weights);
        }

        uint8_t* const target = m_surface.output + size_t(y) * m_surface.stride;
        uint8_t* const out = m_rowOut ? m_rowOut : target;
        const ORBTCRowJob job{m_colours, weights, m_own, generation2 ? m_hard[s / 2] : nullptr,
                              out,       m_numX,  m_surface.twoBpp, generation2};
        switch (m_path)
        {
#if ORBT_X86_SIMD
        case eSimdAVX2: ORBTCDecodeRowAVX2(job); break;
        case eSimdSSE2: ORBTCDecodeRowSSE2(job); break;
#endif
        default: ORBTCDecodeRowPortable(job); break;
        }

        if (generation2)
        {
            const RowState state{&upper, &lower, &current, s, r};
            for (uint32_t k = 0; k < m_paletteCount[s / 2]; ++k)
            {
                const uint32_t x = m_palettes[s / 2][k];
                PaletteBlock(state, x, m_hard[s / 2][x], out + size_t(x) * 16);
            }
        }
        if (m_rowOut)
            std::memcpy(target, m_rowOut, size_t(m_surface.width) * 4);
    }
}

bool DecodeRows(const ORBTCFastSurface& surface, uint32_t first, uint32_t end, ESimdPath path)
{
    const uint32_t rows = uint32_t((uint64_t(surface.height) + 3) / 4);
    if (end > rows)
        end = rows;
    if (end > surface.numY)
        end = surface.numY;
    if (first >= end || surface.width == 0)
        return true;
    RowDecoder decoder(surface, path);
    if (!decoder.Ready())
        return false;
    for (uint32_t j = first; j < end; ++j)
        decoder.DecodeBlockRow(j);
    return true;
}

} // namespace

namespace
{

// Each half of a block mixes two columns with weights (bw - c, c) that step
// by one a pixel.
template <bool TwoBpp>
void DecodeRowPortable(const ORBTCRowJob& job)
{
    constexpr uint32_t bw = TwoBpp ? 8 : 4, half = bw / 2;
    for (uint32_t x = 0; x < job.numX; ++x)
        for (uint32_t h = 0; h < 2; ++h)
        {
            const ORBTCColumns columns = job.hard ? ORBTCBlockColumns<true>(job, x) : ORBTCBlockColumns<false>(job, x);
            const int16_t* from = h ? columns.rx : columns.lx;
            const int16_t* to = h ? columns.ry : columns.ly;
            const int c = h ? 0 : int(half);
            int v[8], step[8];
            for (int k = 0; k < 8; ++k)
            {
                v[k] = (int(bw) - c) * from[k] + c * to[k];
                step[k] = to[k] - from[k];
            }
            const size_t first = size_t(x) * bw + h * half;
            for (uint32_t q = 0; q < half; ++q)
            {
                uint8_t* o = job.out + (first + q) * 4;
                const uint8_t weight = job.weights[first + q];
                const int w = weight & 15;
                for (int k = 0; k < 4; ++k)
                {
                    const int a = Widen(v[k], k, TwoBpp), b = Widen(v[4 + k], k, TwoBpp);
                    o[k] = uint8_t((a * (8 - w) + b * w) >> 3);
                }
                if (weight & kORBTCPunchThrough)
                {
                    o[3] = 0;
                    if (job.generation2)
                        o[0] = o[1] = o[2] = 0;
                }
                for (int k = 0; k < 8; ++k)
                    v[k] += step[k];
            }
        }
}

} // namespace

void ORBTCDecodeRowPortable(const ORBTCRowJob& job)
{
    if (job.twoBpp)
        DecodeRowPortable<true>(job);
    else
        DecodeRowPortable<false>(job);
}

void ORBTCSubModeWeightsPortable(const uint8_t* upper, const uint8_t* centre, const uint8_t* lower,
                                 const uint8_t* modes, uint32_t numX, uint32_t s, uint8_t* weights)
{
    for (uint32_t i = 0; i < numX * 8; ++i)
    {
        const int u = upper[i], d = lower[i], l = centre[int64_t(i) - 1], r = centre[i + 1];
        switch (kORBTCSelectors.bytes[modes[i / 8] & 3u][s & 1u][i % 8])
        {
        case 0: weights[i] = centre[i]; break;
        case 1: weights[i] = uint8_t((u + d + l + r + 2) >> 2); break;
        case 2: weights[i] = uint8_t((l + r + 1) >> 1); break;
        default: weights[i] = uint8_t((u + d + 1) >> 1); break;
        }
    }
}

bool ORBTCDecodeBlockRows(const ORBTCFastSurface& surface, uint32_t first, uint32_t end)
{
    return DecodeRows(surface, first, end, ActiveSimdPath());
}

bool ORBTCDecodeSurface(const ORBTCFastSurface& surface)
{
    const ESimdPath path = ActiveSimdPath();
    std::atomic<bool> done{true};
    const uint64_t rows = (uint64_t(surface.height) + 3) / 4;
    const uint32_t count = rows < surface.numY ? uint32_t(rows) : surface.numY;
    ParallelRanges(count, uint64_t(surface.width) * surface.height, [&](uint32_t first, uint32_t end) {
        if (!DecodeRows(surface, first, end, path))
            done = false;
    });
    return done;
}

} // namespace orbtexture
