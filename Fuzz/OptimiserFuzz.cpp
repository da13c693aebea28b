// Drives the ORBTC optimiser's entry with arbitrary small images and options:
// sizes from 1 to 32 (refused unless whole blocks), both block sizes, every
// generation value, MIP chains made or read from the source, punch-through,
// byte order, stride and the first quality levels.
//
// Input layout:
//   0      width - 1 (mod 32)
//   1      height - 1 (mod 32)
//   2      flags: 1 2bpp, 2 generation 1, 4 punch-through, 8 BGRA, 0x30 mipMode,
//          0x40 no twiddle, 0x80 debug MIP colours
//   3      quality (mod 3)
//   4      extra bytes a row (mod 8)
//   5-     pixels, repeated to the size the call reads

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Codecs/ORBTC/fnzj/wrapper.h"
#include "FuzzSupport.h"

using namespace orbtexture;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 6)
        return 0;
    const int width = 1 + data[0] % 32, height = 1 + data[1] % 32;
    const uint8_t flags = data[2];
    const bool twoBpp = flags & 1;
    const unsigned generation = flags & 2 ? 1 : 0;
    const unsigned mipMode = (flags >> 4) & 3;
    const int stride = data[4] % 8 == 0 ? 0 : width * 4 + data[4] % 8;

    // A source chain of tightly packed levels is read after the top level: at
    // most six levels, none above 32 x 32 pixels (the smallest sides are
    // doubled before halving).
    const size_t rowBytes = stride ? size_t(stride) : size_t(width) * 4;
    std::vector<uint8_t> source(rowBytes * height + 6 * 32 * 32 * 4);
    for (size_t i = 0; i < source.size(); ++i)
        source[i] = data[5 + i % (size - 5)];

    // Levels down to the smallest, with the smallest sides doubled: the
    // words take at most twice the top level's.
    const int bitsPerPixel = twoBpp ? 2 : 4;
    const size_t words = (size_t(width + 16) * (height + 16)) * bitsPerPixel / 8 * 2;
    std::vector<uint8_t> output(words + 64, 0xA5);
    const int result = ORBTCCompressTexture(source.data(), flags & 8 ? 0 : 1, width, height, stride, output.data(),
                                            uint8_t(data[3] % 3), mipMode, 0, flags & 4 ? 1 : 0, 4, bitsPerPixel,
                                            generation, 0, flags & 0x40 ? 1 : 0, flags & 0x80 ? 1 : 0, nullptr);
    const int blockWidth = twoBpp ? 8 : 4;
    if (result == 0 && (width % blockWidth != 0 || height % 4 != 0))
        FuzzFail("optimiserfuzz", "a size of partial blocks compressed");
    if (result != 0 && mipMode == 0 && width % blockWidth == 0 && height % 4 == 0)
        FuzzFail("optimiserfuzz", "whole blocks refused");
    return 0;
}
