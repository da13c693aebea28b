#include "ORBTextureInfo.h"

#include <cstring>

#include "Model/ORBTextureFormatFacts.h"
#include "Model/ORBTextureSizeRules.h"

// ---------------------------------------------------------------------------
// MetaDataBlock

MetaDataBlock::MetaDataBlock(uint32_t fourCCIn, uint32_t keyIn, uint32_t dataSizeIn, const uint8_t* dataIn)
    : fourCC(fourCCIn), key(keyIn), dataSize(dataSizeIn)
{
    if (dataIn && dataSize)
    {
        data = new uint8_t[dataSize];
        std::memcpy(data, dataIn, dataSize);
    }
}

MetaDataBlock::MetaDataBlock(const MetaDataBlock& other)
    : fourCC(other.fourCC), key(other.key), dataSize(other.dataSize)
{
    if (other.data)
    {
        data = new uint8_t[dataSize];
        std::memcpy(data, other.data, dataSize);
    }
}

MetaDataBlock& MetaDataBlock::operator=(const MetaDataBlock& other)
{
    if (this == &other)
        return *this;
    uint8_t* copy = nullptr;
    if (other.data)
    {
        copy = new uint8_t[other.dataSize];
        std::memcpy(copy, other.data, other.dataSize);
    }
    delete[] data;
    data = copy;
    fourCC = other.fourCC;
    key = other.key;
    dataSize = other.dataSize;
    return *this;
}

MetaDataBlock::MetaDataBlock(MetaDataBlock&& other) noexcept
    : fourCC(other.fourCC), key(other.key), dataSize(other.dataSize), data(other.data)
{
    other.dataSize = 0;
    other.data = nullptr;
}

MetaDataBlock& MetaDataBlock::operator=(MetaDataBlock&& other) noexcept
{
    if (this != &other)
    {
        delete[] data;
        fourCC = other.fourCC;
        key = other.key;
        dataSize = other.dataSize;
        data = other.data;
        other.dataSize = 0;
        other.data = nullptr;
    }
    return *this;
}

MetaDataBlock::~MetaDataBlock() { delete[] data; }

bool MetaDataBlock::ReadFromPtr(const unsigned char** cursor)
{
    const unsigned char* p = *cursor;
    std::memcpy(&fourCC, p, 4);
    std::memcpy(&key, p + 4, 4);
    std::memcpy(&dataSize, p + 8, 4);
    p += ORBTEX_METADATA_BLOCK_HEADER_SIZE;
    delete[] data;
    data = nullptr;
    if (dataSize)
    {
        data = new uint8_t[dataSize];
        std::memcpy(data, p, dataSize);
        p += dataSize;
    }
    *cursor = p;
    return true;
}

// ---------------------------------------------------------------------------
// Sizes

namespace
{

// ASTC: one 128-bit block a block position.
bool SizedByBlocks(uint64_t pixelFormat)
{
    const orbtexture::PixelType type(pixelFormat);
    return type.isNamedFormat() && orbtexture::DescribeFormat(type.lowWord()).sizedByBlocks;
}

uint64_t RoundUp(uint64_t value, uint64_t multiple) { return (value + multiple - 1) / multiple * multiple; }

// Surface size at one level. With 'checked' set, returns false on 64-bit
// overflow instead of wrapping.
bool SurfaceBitsImpl(const ORBTextureHeaderV3& header, uint32_t mip, bool checked, uint64_t& bits)
{
    unsigned int mx, my, mz;
    ORBTGetFormatMinDims(header.pixelFormat, mx, my, mz);
    const uint64_t w = RoundUp(orbtexture::LevelDimension(header.width, mip), mx);
    const uint64_t h = RoundUp(orbtexture::LevelDimension(header.height, mip), my);
    const uint64_t d = RoundUp(orbtexture::LevelDimension(header.depth, mip), mz);

    uint64_t factors[4];
    if (SizedByBlocks(header.pixelFormat))
    {
        factors[0] = w / mx;
        factors[1] = h / my;
        factors[2] = d / mz;
        factors[3] = 128;
    }
    else
    {
        factors[0] = w;
        factors[1] = h;
        factors[2] = d;
        factors[3] = ORBTGetBitsPerPixel(header.pixelFormat);
    }

    bits = 1;
    for (uint64_t f : factors)
    {
        if (!checked)
            bits *= f;
        else if (__builtin_mul_overflow(bits, f, &bits))
            return false;
    }
    return true;
}

bool CheckedMul(uint64_t a, uint64_t b, uint64_t& out) { return !__builtin_mul_overflow(a, b, &out); }
bool CheckedAdd(uint64_t a, uint64_t b, uint64_t& out) { return !__builtin_add_overflow(a, b, &out); }

// Levels 32 and beyond are all 1 x 1 x 1 before rounding.
constexpr uint32_t kDistinctLevels = 32;

} // namespace

namespace orbtexture
{

uint64_t SurfaceBits(const ORBTextureHeaderV3& header, uint32_t mip)
{
    uint64_t bits;
    SurfaceBitsImpl(header, mip, false, bits);
    return bits;
}

uint64_t SumSurfaceBits(const ORBTextureHeaderV3& header, uint32_t count)
{
    uint64_t sum = 0;
    for (uint32_t mip = 0; mip < count && mip < kDistinctLevels; ++mip)
        sum += SurfaceBits(header, mip);
    if (count > kDistinctLevels)
        sum += uint64_t(count - kDistinctLevels) * SurfaceBits(header, kDistinctLevels);
    return sum;
}

bool CheckedTotalDataSize(const ORBTextureHeaderV3& header, uint64_t& totalBytes)
{
    const uint64_t limit = 0xFFFFFFFFull;
    uint64_t layers;
    if (!CheckedMul(header.numSurfaces, header.numFaces, layers))
        return false;

    // Sum of bits over the levels, and the sum of per-level byte counts that
    // surface offsets are built from; both without wrapping.
    uint64_t sumBits = 0, sumLevelBytes = 0;
    const uint32_t count = header.numMIPMaps;
    for (uint32_t mip = 0; mip < count && mip <= kDistinctLevels; ++mip)
    {
        uint64_t bits, repeat = 1, levelBits, levelBytes;
        if (!SurfaceBitsImpl(header, mip, true, bits))
            return false;
        if (mip == kDistinctLevels)
            repeat = count - kDistinctLevels;
        if (!CheckedMul(bits, repeat, levelBits) || !CheckedAdd(sumBits, levelBits, sumBits))
            return false;
        if (!CheckedMul(bits >> 3, repeat, levelBytes) || !CheckedMul(levelBytes, layers, levelBytes) ||
            !CheckedAdd(sumLevelBytes, levelBytes, sumLevelBytes))
            return false;
    }

    if (!CheckedMul(sumBits >> 3, layers, totalBytes))
        return false;
    return totalBytes <= limit && sumLevelBytes <= totalBytes;
}

} // namespace orbtexture

uint32_t ORBTGetTextureDataSize(ORBTextureHeaderV3 header, int mipLevel, bool allSurfaces, bool allFaces)
{
    uint32_t bytes;
    if (mipLevel == -1)
    {
        if (header.numMIPMaps == 0)
            return 0;
        bytes = uint32_t(orbtexture::SumSurfaceBits(header, header.numMIPMaps) >> 3);
    }
    else
    {
        bytes = uint32_t(orbtexture::SurfaceBits(header, uint32_t(mipLevel)) >> 3);
    }
    if (allSurfaces)
        bytes *= header.numSurfaces;
    if (allFaces)
        bytes *= header.numFaces;
    return bytes;
}
