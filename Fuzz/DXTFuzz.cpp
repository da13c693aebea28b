// Drives the DXT codec with arbitrary blocks and pixels; the decoder is
// checked against the plain one.
//
// Input layout:
//   0      width - 1 (mod 16)
//   1      height - 1 (mod 16)
//   2      selector (mod 6: 0 is outside the family)
//   3-     block data, then pixels, repeated to the size each call needs

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Codecs/DXTCodec.h"
#include "Codecs/DXTDecode.h"

using namespace orbtexture;

namespace
{

std::vector<uint8_t> Fill(const uint8_t* data, size_t size, size_t n)
{
    std::vector<uint8_t> out(n, 0);
    if (size == 0)
        return out;
    for (size_t i = 0; i < n; ++i)
        out[i] = data[i % size];
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 3)
        return 0;
    const unsigned int width = data[0] % 16 + 1, height = data[1] % 16 + 1, format = data[2] % 6;
    const uint8_t* payload = data + 3;
    const size_t length = size - 3;
    const unsigned int blocksX = (width + 3) / 4, blocksY = (height + 3) / 4;
    const size_t blockBytes = format == 1 ? 8 : 16;
    const size_t compressed = blocksX * blocksY * blockBytes;

    const std::vector<uint8_t> blocks = Fill(payload, length, compressed);
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    if (DXTDecompress(blocks.data(), pixels.data(), width, height, format) != pixels.size())
        abort();
    // The fast decoder must give the plain one's bytes.
    std::vector<uint8_t> plain(pixels.size());
    DXTDecodePlain(blocks.data(), plain.data(), width, height, format);
    if (plain != pixels)
        abort();

    const std::vector<uint8_t> source = Fill(payload, length, pixels.size());
    std::vector<uint8_t> out(compressed);
    if (DXTCompress(source.data(), out.data(), width, height, format) != blocksX * blocksY * 16 / (format == 1 ? 2 : 1))
        abort();
    // A decoded image compresses and decodes again within the block bounds.
    if (DXTDecompress(out.data(), pixels.data(), width, height, format) != pixels.size())
        abort();
    if (DXTCompress(nullptr, out.data(), width, height, format) != width * height / (format == 1 ? 2 : 1))
        abort();
    return 0;
}
