// Seeds of astctooloutputfuzz: KTX files as astcenc writes them when it
// decodes (packed rows of one to four channels) and as the library writes
// them (padded rows), each behind the three size bytes.

#include <cstring>
#include <vector>

#include "FuzzSeeds.h"
#include "ORBTexture.h"

using namespace orbtexture;

namespace
{

// A one-level KTX file of 8-bit rows without row padding.
FuzzBytes Packed(unsigned width, unsigned height, unsigned channels, uint32_t glFormat, uint32_t glInternal)
{
    const uint32_t imageSize = width * height * channels;
    const uint32_t words[13] = {0x04030201, 0x1401, 1, glFormat, glInternal, glFormat, width, height, 0, 0, 1, 1, 0};
    FuzzBytes file = {0xAB, 'K', 'T', 'X', ' ', '1', '1', 0xBB, '\r', '\n', 0x1A, '\n'};
    file.resize(12 + sizeof words + 4 + imageSize);
    std::memcpy(file.data() + 12, words, sizeof words);
    std::memcpy(file.data() + 12 + sizeof words, &imageSize, 4);
    for (uint32_t i = 0; i < imageSize; ++i)
        file[12 + sizeof words + 4 + i] = uint8_t(i * 13 + 5);
    file.resize(file.size() + (4 - file.size() % 4) % 4, 0);
    return file;
}

FuzzBytes Sized(unsigned width, unsigned height, unsigned depth, FuzzBytes file)
{
    file.insert(file.begin(), {uint8_t(width - 1), uint8_t(height - 1), uint8_t(depth - 1)});
    return file;
}

std::vector<FuzzBytes> ToolOutputSeeds()
{
    CORBTexture padded(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 8, 8, 8, 0).PixelTypeID, 3, 5));
    for (uint32_t i = 0; i < padded.getDataSize(); ++i)
        padded.getDataPtr()[i] = uint8_t(i);
    return {
        Sized(5, 3, 1, Packed(5, 3, 1, 0x1903, 0x8229)),
        Sized(3, 3, 1, Packed(3, 3, 2, 0x8227, 0x822B)),
        Sized(5, 2, 1, Packed(5, 2, 3, 0x1907, 0x8051)),
        Sized(4, 4, 1, Packed(4, 4, 4, 0x1908, 0x8058)),
        Sized(5, 3, 1, SavedSeed(".ktx", [&](const std::string& path) { return padded.saveFile(path.c_str()); })),
    };
}

const FuzzSeedRegistration registration("astctooloutputfuzz", ToolOutputSeeds);

} // namespace
