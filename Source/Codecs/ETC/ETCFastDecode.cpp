// Surface decoders of the ETC family. Each block builds its paint colours (or
// EAC values) once, clamped and packed, and then looks its 16 pixels up by
// index; rows go straight to the output. Blocks that cross the surface's
// right or bottom edge decode into a tile first. The library runs on
// little-endian machines only, which the packed stores rely on.

#include "Codecs/ETC/ETCFastDecode.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "Codecs/ETC/ETCBlockCodec.h"

namespace orbtexture
{

namespace
{

using Byte = unsigned char;

// For the small steps of the common paths, which the compiler may otherwise
// leave as calls with run-time flags.
#if defined(__GNUC__) || defined(__clang__)
#define ETC_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define ETC_ALWAYS_INLINE inline
#endif

// Values -512..767 limited to 0..255, at index value + 512.
struct ClampTable
{
    Byte at[1280];
};

constexpr ClampTable makeClampTable()
{
    ClampTable table{};
    for (int i = 0; i < 1280; ++i)
        table.at[i] = Byte(i < 512 ? 0 : i > 767 ? 255 : i - 512);
    return table;
}

constexpr ClampTable kClamp = makeClampTable();

ETC_ALWAYS_INLINE uint32_t clampByte(int value)
{
    return kClamp.at[value + 512];
}

// R | G << 8 | B << 16, each limited to 0..255.
ETC_ALWAYS_INLINE uint32_t pack(int r, int g, int b)
{
    return clampByte(r) | clampByte(g) << 8 | clampByte(b) << 16;
}

inline uint32_t readBig32(const Byte* p)
{
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// The 48 index bits of an EAC block, pixel k (column order) at bit 45 - 3k.
inline uint64_t eacIndexBits(const Byte* block)
{
    return uint64_t(readBig32(block + 2)) << 16 | uint64_t(block[6]) << 8 | block[7];
}

inline unsigned eacIndex(uint64_t bits, int x, int y)
{
    return unsigned(bits >> (45 - 3 * (4 * x + y))) & 7;
}

// Bit b of a byte moved to bit 4 * b.
struct NibbleTable
{
    uint32_t at[256];
};

constexpr NibbleTable makeNibbleTable()
{
    NibbleTable table{};
    for (uint32_t i = 0; i < 256; ++i)
        for (uint32_t b = 0; b < 8; ++b)
            table.at[i] |= ((i >> b) & 1) << (4 * b);
    return table;
}

constexpr NibbleTable kNibbles = makeNibbleTable();

// Bit b of the low 16 bits moved to bit 4 * b.
ETC_ALWAYS_INLINE uint64_t spreadToNibbles(uint32_t bits)
{
    return kNibbles.at[bits & 0xff] | uint64_t(kNibbles.at[(bits >> 8) & 0xff]) << 32;
}

// Paint entry of each pixel (x, y) at nibble 4 * x + y: the stored index
// bits (MSB * 2 + LSB), plus 4 in the second sub-block.
ETC_ALWAYS_INLINE uint64_t pixelNibbles(uint32_t word2)
{
    return spreadToNibbles(word2) | spreadToNibbles(word2 >> 16) << 1;
}

// The sub-block bit of the nibbles: columns 2 and 3, or rows 2 and 3 when
// the block is flipped.
constexpr uint64_t kSecondColumns = 0x4444444400000000ull;
constexpr uint64_t kSecondRows = 0x4400440044004400ull;

inline int signed3(uint32_t field)
{
    return int(field ^ 4) - 4;
}

// True when the 5-bit base at 'shift' plus the 3-bit delta below it leaves
// 0..31.
inline bool overflows(uint32_t word1, int shift)
{
    return uint32_t(int((word1 >> shift) & 31) + signed3((word1 >> (shift - 3)) & 7)) > 31;
}

// Paint colours of an individual or differential block at entries
// sub-block * 4 + index; returns the sub-block bits of the nibbles. A
// differential second colour out of range wraps in 5 bits. 'transparent'
// (punch-through blocks) gives index 0 no modifier.
ETC_ALWAYS_INLINE uint64_t paintIndividualOrDifferential(uint32_t word1, bool differential, bool transparent,
                                                         uint32_t* paint)
{
    int base[2][3];
    for (int c = 0; c < 3; ++c)
    {
        if (differential)
        {
            const int shift = 27 - 8 * c;
            const int first = int((word1 >> shift) & 31);
            const int second = (first + signed3((word1 >> (shift - 3)) & 7)) & 31;
            base[0][c] = first << 3 | first >> 2;
            base[1][c] = second << 3 | second >> 2;
        }
        else
        {
            base[0][c] = int((word1 >> (28 - 8 * c)) & 15) * 17;
            base[1][c] = int((word1 >> (24 - 8 * c)) & 15) * 17;
        }
    }
    const int* modifiers[2] = {mod[(word1 >> 5) & 7], mod[(word1 >> 2) & 7]};
    for (int s = 0; s < 2; ++s)
    {
        const int* b = base[s];
        // Rows of 'mod' run +small, +large, -small, -large.
        const int large = modifiers[s][1];
        if (std::min({b[0], b[1], b[2]}) >= large && std::max({b[0], b[1], b[2]}) + large <= 255)
        {
            // No channel leaves 0..255: one add moves all three.
            const uint32_t packed = uint32_t(b[0] | b[1] << 8 | b[2] << 16);
            for (int k = 0; k < 4; ++k)
                paint[s * 4 + k] = packed + uint32_t(transparent && k == 0 ? 0 : modifiers[s][k] * 0x010101);
            continue;
        }
        for (int k = 0; k < 4; ++k)
        {
            const int m = transparent && k == 0 ? 0 : modifiers[s][k];
            paint[s * 4 + k] = pack(b[0] + m, b[1] + m, b[2] + m);
        }
    }
    return (word1 & 1) ? kSecondRows : kSecondColumns;
}

inline void paintT(uint32_t word1, uint32_t* paint)
{
    const int r0 = int(((word1 >> 27) & 3) << 2 | ((word1 >> 24) & 3)) * 17;
    const int g0 = int((word1 >> 20) & 15) * 17, b0 = int((word1 >> 16) & 15) * 17;
    const int r1 = int((word1 >> 12) & 15) * 17, g1 = int((word1 >> 8) & 15) * 17, b1 = int((word1 >> 4) & 15) * 17;
    const int d = table59T[((word1 >> 2) & 3) << 1 | (word1 & 1)];
    paint[0] = pack(r0, g0, b0);
    paint[1] = pack(r1 + d, g1 + d, b1 + d);
    paint[2] = pack(r1, g1, b1);
    paint[3] = pack(r1 - d, g1 - d, b1 - d);
}

inline void paintH(uint32_t word1, uint32_t* paint)
{
    const uint32_t r0 = (word1 >> 27) & 15, g0 = ((word1 >> 24) & 7) << 1 | ((word1 >> 20) & 1);
    const uint32_t b0 = ((word1 >> 19) & 1) << 3 | ((word1 >> 15) & 7);
    const uint32_t r1 = (word1 >> 11) & 15, g1 = (word1 >> 7) & 15, b1 = (word1 >> 3) & 15;
    // The lowest bit of the distance index is the order of the two colours.
    const uint32_t order = (r0 << 8 | g0 << 4 | b0) >= (r1 << 8 | g1 << 4 | b1) ? 1u : 0u;
    const int d = table58H[((word1 >> 2) & 1) << 2 | (word1 & 1) << 1 | order];
    const int R0 = int(r0) * 17, G0 = int(g0) * 17, B0 = int(b0) * 17;
    const int R1 = int(r1) * 17, G1 = int(g1) * 17, B1 = int(b1) * 17;
    paint[0] = pack(R0 + d, G0 + d, B0 + d);
    paint[1] = pack(R0 - d, G0 - d, B0 - d);
    paint[2] = pack(R1 + d, G1 + d, B1 + d);
    paint[3] = pack(R1 - d, G1 - d, B1 - d);
}

// Rows of a block of paint entries; row(y, p0, p1, p2, p3) takes the four
// pixels of row y.
template <class Row>
ETC_ALWAYS_INLINE void paintRows(const uint32_t* paint, uint64_t nibbles, const Row& row)
{
    for (int y = 0; y < 4; ++y)
    {
        const uint64_t n = nibbles >> (4 * y);
        row(y, paint[n & 7], paint[(n >> 16) & 7], paint[(n >> 32) & 7], paint[(n >> 48) & 7]);
    }
}

inline uint64_t expand6(uint32_t field)
{
    return field << 2 | field >> 4;
}

inline uint64_t expand7(uint32_t field)
{
    return field << 1 | field >> 6;
}

// Red, green and blue side by side, at bits 0, 40 and 16, so that one add
// moves all three.
constexpr uint64_t planarFields(uint64_t r, uint64_t g, uint64_t b)
{
    return r | b << 16 | g << 40;
}

// A planar block; 'alpha' is or-ed into every pixel.
template <class Row>
inline void planarRows(uint32_t word1, uint32_t word2, uint32_t alpha, const Row& row)
{
    constexpr uint64_t ones = planarFields(1, 1, 1);
    const uint64_t o =
        planarFields(expand6((word1 >> 25) & 63), expand7(((word1 >> 24) & 1) << 6 | ((word1 >> 17) & 63)),
                     expand6(((word1 >> 16) & 1) << 5 | ((word1 >> 11) & 3) << 3 | ((word1 >> 7) & 7)));
    const uint64_t h = planarFields(expand6(((word1 >> 2) & 31) << 1 | (word1 & 1)), expand7((word2 >> 25) & 127),
                                    expand6((word2 >> 19) & 63));
    const uint64_t v = planarFields(expand6((word2 >> 13) & 63), expand7((word2 >> 6) & 127), expand6(word2 & 63));
    // Each channel of pixel (x, y) is its field of start + x * right + y *
    // down, divided by 4, less 512: the field holds 4 * value + 2 + 2048,
    // which stays in 1540..3580 and so never reaches the next field.
    const uint64_t start = 4 * o + 2050 * ones, right = h - o, down = v - o;
    // The sums are linear: with every field in 2048..3071 (values 0..255) at
    // the four corners, no pixel needs clamping.
    constexpr uint64_t high = 7 * 1024 * ones, inside = 2 * 1024 * ones;
    const uint64_t corners = (start ^ inside) | ((start + 3 * right) ^ inside) | ((start + 3 * down) ^ inside) |
                             ((start + 3 * right + 3 * down) ^ inside);
    if ((corners & high) == 0)
    {
        // Fields below 1024: shifted by 2, red and blue sit in their bytes,
        // green 32 bits above its byte.
        const uint64_t base = start - inside;
        for (int y = 0; y < 4; ++y)
        {
            uint32_t p[4];
            for (int x = 0; x < 4; ++x)
            {
                const uint64_t values = (base + uint64_t(x) * right + uint64_t(y) * down) >> 2;
                p[x] = alpha | (uint32_t(values) & 0xff00ffu) | (uint32_t(values >> 32) & 0xff00u);
            }
            row(y, p[0], p[1], p[2], p[3]);
        }
        return;
    }
    for (int y = 0; y < 4; ++y)
    {
        uint32_t p[4];
        for (int x = 0; x < 4; ++x)
        {
            const uint64_t values = (start + uint64_t(x) * right + uint64_t(y) * down) >> 2;
            p[x] = alpha | kClamp.at[values & 0x7ff] | uint32_t(kClamp.at[(values >> 40) & 0x7ff]) << 8 |
                   uint32_t(kClamp.at[(values >> 16) & 0x7ff]) << 16;
        }
        row(y, p[0], p[1], p[2], p[3]);
    }
}

// An ETC2 colour block (ETC1 blocks are a part of it).
template <class Row>
inline void colourBlock(uint32_t word1, uint32_t word2, const Row& row)
{
    uint32_t paint[8];
    uint64_t sub = 0;
    if (!(word1 & 2))
        sub = paintIndividualOrDifferential(word1, false, false, paint);
    else if (overflows(word1, 27))
        paintT(word1, paint);
    else if (overflows(word1, 19))
        paintH(word1, paint);
    else if (overflows(word1, 11))
        return planarRows(word1, word2, 0, row);
    else
        sub = paintIndividualOrDifferential(word1, true, false, paint);
    paintRows(paint, pixelNibbles(word2) | sub, row);
}

// An RGB block with 1-bit alpha: without the opaque bit, index 2 of the
// differential, T and H modes is transparent black.
template <class Row>
inline void punchThroughBlock(uint32_t word1, uint32_t word2, const Row& row)
{
    const bool opaque = (word1 & 2) != 0;
    uint32_t paint[8];
    uint64_t sub = 0;
    if (overflows(word1, 27))
        paintT(word1, paint);
    else if (overflows(word1, 19))
        paintH(word1, paint);
    else if (overflows(word1, 11))
        return planarRows(word1, word2, 0xff000000u, row);
    else
        sub = paintIndividualOrDifferential(word1, true, !opaque, paint);
    for (int k = 0; k < (sub ? 8 : 4); ++k)
        paint[k] |= 0xff000000u;
    if (!opaque)
        paint[2] = paint[6] = 0;
    paintRows(paint, pixelNibbles(word2) | sub, row);
}

inline void storeRGB(Byte* out, uint32_t p0, uint32_t p1, uint32_t p2, uint32_t p3)
{
    const uint64_t low = p0 | uint64_t(p1) << 24 | uint64_t(p2) << 48;
    const uint32_t high = p2 >> 16 | p3 << 8;
    memcpy(out, &low, 8);
    memcpy(out + 8, &high, 4);
}

inline void store4x32(Byte* out, uint32_t p0, uint32_t p1, uint32_t p2, uint32_t p3)
{
    const uint64_t low = p0 | uint64_t(p1) << 32, high = p2 | uint64_t(p3) << 32;
    memcpy(out, &low, 8);
    memcpy(out + 8, &high, 8);
}

// Row writers: R, G, B, or 32-bit pixels with 'alpha' or-ed in.
struct RGBRows
{
    Byte* out;
    size_t stride;
    void operator()(int y, uint32_t p0, uint32_t p1, uint32_t p2, uint32_t p3) const
    {
        storeRGB(out + size_t(y) * stride, p0, p1, p2, p3);
    }
};

struct RGBARows
{
    Byte* out;
    size_t stride;
    uint32_t alpha;
    void operator()(int y, uint32_t p0, uint32_t p1, uint32_t p2, uint32_t p3) const
    {
        store4x32(out + size_t(y) * stride, p0 | alpha, p1 | alpha, p2 | alpha, p3 | alpha);
    }
};

// Pixels with the alpha of an 8-bit EAC block.
struct EACAlphaRows
{
    Byte* out;
    size_t stride;
    uint64_t bits;
    uint32_t values[8];
    void operator()(int y, uint32_t p0, uint32_t p1, uint32_t p2, uint32_t p3) const
    {
        store4x32(out + size_t(y) * stride, p0 | values[eacIndex(bits, 0, y)], p1 | values[eacIndex(bits, 1, y)],
                  p2 | values[eacIndex(bits, 2, y)], p3 | values[eacIndex(bits, 3, y)]);
    }
};

// The 11-bit EAC sum widened to 16 bits, as in eacValueOfSum.
inline uint32_t widen11(int sum, bool isSigned)
{
    if (!isSigned)
    {
        const int c = std::min(2047, std::max(0, sum));
        return uint32_t((c << 5) + (c >> 6));
    }
    // Past +-1023 the value stays +-32767, the widening of +-1023.
    const int c = std::min(1023, std::max(-1023, sum));
    const int a = c < 0 ? -c : c;
    const int magnitude = (a << 5) + (a >> 5);
    return uint16_t(c < 0 ? -magnitude : magnitude);
}

// The eight 16-bit values of an 11-bit EAC block.
inline void eac11Values(const Byte* block, bool isSigned, uint32_t* values)
{
    // A signed base is a two's complement byte, its -128 taken as -127.
    const int base = isSigned ? (block[0] ^ 0x80) : block[0];
    const int term = isSigned ? (base == 0 ? -1016 : (base - 128) * 8) : base * 8 + 4;
    const int multiplier = block[1] >> 4;
    // Row 16 + t of alphaTable is table t unscaled.
    const int* modifiers = alphaTable[16 + (block[1] & 15)];
    for (int k = 0; k < 8; ++k)
        values[k] = widen11(term + (multiplier != 0 ? modifiers[k] * multiplier * 8 : modifiers[k]), isSigned);
}

// ---- Blocks of each format: block(words, out, stride) ----

struct ETC2RGBBlock
{
    void operator()(const Byte* in, Byte* out, size_t stride) const
    {
        colourBlock(readBig32(in), readBig32(in + 4), RGBRows{out, stride});
    }
};

struct ETC2RGBABlock
{
    void operator()(const Byte* in, Byte* out, size_t stride) const
    {
        EACAlphaRows rows{out, stride, eacIndexBits(in), {}};
        const int* modifiers = alphaTable[in[1]];
        for (int k = 0; k < 8; ++k)
            rows.values[k] = clampByte(in[0] + modifiers[k]) << 24;
        colourBlock(readBig32(in + 8), readBig32(in + 12), rows);
    }
};

struct ETC2PunchThroughBlock
{
    void operator()(const Byte* in, Byte* out, size_t stride) const
    {
        punchThroughBlock(readBig32(in), readBig32(in + 4), RGBARows{out, stride, 0});
    }
};

struct EACR11Block
{
    bool isSigned;
    void operator()(const Byte* in, Byte* out, size_t stride) const
    {
        uint32_t values[8];
        eac11Values(in, isSigned, values);
        const uint64_t bits = eacIndexBits(in);
        for (int y = 0; y < 4; ++y)
        {
            const uint64_t row = values[eacIndex(bits, 0, y)] | uint64_t(values[eacIndex(bits, 1, y)]) << 16 |
                                 uint64_t(values[eacIndex(bits, 2, y)]) << 32 |
                                 uint64_t(values[eacIndex(bits, 3, y)]) << 48;
            memcpy(out + size_t(y) * stride, &row, 8);
        }
    }
};

struct EACRG11Block
{
    bool isSigned;
    void operator()(const Byte* in, Byte* out, size_t stride) const
    {
        uint32_t red[8], green[8];
        eac11Values(in, isSigned, red);
        eac11Values(in + 8, isSigned, green);
        for (int k = 0; k < 8; ++k)
            green[k] <<= 16;
        const uint64_t r = eacIndexBits(in), g = eacIndexBits(in + 8);
        for (int y = 0; y < 4; ++y)
            store4x32(out + size_t(y) * stride, red[eacIndex(r, 0, y)] | green[eacIndex(g, 0, y)],
                      red[eacIndex(r, 1, y)] | green[eacIndex(g, 1, y)],
                      red[eacIndex(r, 2, y)] | green[eacIndex(g, 2, y)],
                      red[eacIndex(r, 3, y)] | green[eacIndex(g, 3, y)]);
    }
};

// ETC1 alone: no ETC2 modes, opaque 32-bit pixels.
struct ETC1RGBABlock
{
    void operator()(const Byte* in, Byte* out, size_t stride) const
    {
        const uint32_t word1 = readBig32(in);
        uint32_t paint[8];
        const uint64_t sub = paintIndividualOrDifferential(word1, (word1 & 2) != 0, false, paint);
        paintRows(paint, pixelNibbles(readBig32(in + 4)) | sub, RGBARows{out, stride, 0xff000000u});
    }
};

// Block rows [firstRow, endRow); blocks across the right or bottom edge go
// through a tile.
template <unsigned PixelBytes, unsigned BlockBytes, class Block>
void decodeRows(const Byte* input, Byte* output, unsigned width, unsigned height, uint32_t firstRow, uint32_t endRow,
                const Block& block)
{
    const size_t blocksWide = (size_t(width) + 3) / 4;
    const size_t stride = size_t(width) * PixelBytes;
    for (uint32_t by = firstRow; by < endRow; ++by)
    {
        const Byte* in = input + size_t(by) * blocksWide * BlockBytes;
        Byte* out = output + size_t(by) * 4 * stride;
        const unsigned rows = std::min(4u, height - 4 * by);
        const size_t inside = rows == 4 ? width / 4 : 0;
        size_t bx = 0;
        for (; bx < inside; ++bx, in += BlockBytes)
            block(in, out + bx * 4 * PixelBytes, stride);
        for (; bx < blocksWide; ++bx, in += BlockBytes)
        {
            Byte tile[16 * PixelBytes];
            block(in, tile, 4 * PixelBytes);
            const size_t columns = std::min<size_t>(4, width - 4 * bx);
            for (unsigned j = 0; j < rows; ++j)
                memcpy(out + j * stride + bx * 4 * PixelBytes, tile + j * 4 * PixelBytes, columns * PixelBytes);
        }
    }
}

} // namespace

unsigned ETCFormatBlockBytes(unsigned format)
{
    switch (format)
    {
    case ePF_ETC1:
    case ePF_ETC2_RGB:
    case ePF_ETC2_RGB_A1:
    case ePF_EAC_R11:
        return 8;
    case ePF_ETC2_RGBA:
    case ePF_EAC_RG11:
        return 16;
    default:
        return 0;
    }
}

void ETCDecodeBlockRows(const unsigned char* input, unsigned char* output, unsigned width, unsigned height,
                        unsigned format, bool isSigned, uint32_t firstRow, uint32_t endRow)
{
    switch (format)
    {
    case ePF_ETC1:
    case ePF_ETC2_RGB:
        return decodeRows<3, 8>(input, output, width, height, firstRow, endRow, ETC2RGBBlock{});
    case ePF_ETC2_RGBA:
        return decodeRows<4, 16>(input, output, width, height, firstRow, endRow, ETC2RGBABlock{});
    case ePF_ETC2_RGB_A1:
        return decodeRows<4, 8>(input, output, width, height, firstRow, endRow, ETC2PunchThroughBlock{});
    case ePF_EAC_R11:
        return decodeRows<2, 8>(input, output, width, height, firstRow, endRow, EACR11Block{isSigned});
    case ePF_EAC_RG11:
        return decodeRows<4, 16>(input, output, width, height, firstRow, endRow, EACRG11Block{isSigned});
    default:
        return;
    }
}

void ETC1DecodeBlockRowsRGBA(const unsigned char* input, unsigned char* output, unsigned width, unsigned height,
                             uint32_t firstRow, uint32_t endRow)
{
    decodeRows<4, 8>(input, output, width, height, firstRow, endRow, ETC1RGBABlock{});
}

#undef ETC_ALWAYS_INLINE

} // namespace orbtexture
