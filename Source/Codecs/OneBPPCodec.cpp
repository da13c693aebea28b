#include "Codecs/OneBPPCodec.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Model/ORBTextureErrors.h"

namespace orbtexture
{

namespace
{

// Sets why 'operation' answers 0 bytes for a width x height image, which
// needs 'fewest' pixels for a byte of output.
void SetNoBytesError(const char* operation, unsigned width, unsigned height, uint64_t fewest)
{
    const uint64_t pixels = uint64_t(width) * height;
    SetError(eORBTErrorSize, "%s: the image is %ux%u, %s", operation, width, height,
             pixels >= fewest ? "too large for 32-bit counts"
             : pixels > 0     ? "fewer pixels than the 8 of one byte"
                              : "it has no pixels");
}

} // namespace

unsigned int OneBPPCompress(const void* source, void* destination, const unsigned int& width,
                            const unsigned int& height)
{
    const unsigned bytes = (width * height) >> 3;
    if (bytes == 0)
        SetNoBytesError("OneBPPCompress", width, height, 8);
    if (!source || !destination)
        return bytes;
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    for (unsigned i = 0; i < bytes; ++i)
    {
        unsigned char packed = 0;
        for (unsigned bit = 0; bit < 8; ++bit, in += 4)
            if ((unsigned(in[0]) + in[1] + in[2]) / 3 >= 128)
                packed |= static_cast<unsigned char>(1u << bit);
        out[i] = packed;
    }
    return bytes;
}

unsigned int OneBPPDecompress(const void* source, void* destination, const unsigned int& width,
                              const unsigned int& height)
{
    const size_t pixels = size_t(width) * height;
    if (unsigned(pixels * 4) == 0)
        SetNoBytesError("OneBPPDecompress", width, height, 1);
    if (!source || !destination)
        return unsigned(pixels * 4);
    const unsigned char* in = static_cast<const unsigned char*>(source);
    unsigned char* out = static_cast<unsigned char*>(destination);
    for (size_t i = 0; i < pixels; ++i, out += 4)
    {
        const unsigned char value = (in[i >> 3] >> (i & 7)) & 1 ? 255 : 0;
        std::memset(out, value, 3);
        out[3] = 255;
    }
    return unsigned(pixels * 4);
}

} // namespace orbtexture
