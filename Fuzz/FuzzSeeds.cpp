// Writes the seed corpora of the fuzz targets: fuzzseeds DIR creates
// DIR/<target>/ for each target and fills it with a few small inputs.
// Native images are assembled byte by byte here, not by the library's writer.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "FuzzSeeds.h"
#include "FuzzSupport.h"
#include "ORBTextureFormat.h"
#include "ORBTextureInfo.h"

using namespace orbtexture;

namespace
{

typedef std::vector<uint8_t> Bytes;

void Append(Bytes& out, const void* data, size_t size)
{
    const uint8_t* p = static_cast<const uint8_t*>(data);
    out.insert(out.end(), p, p + size);
}

void AppendWord(Bytes& out, uint32_t word) { Append(out, &word, 4); }

struct Item
{
    uint32_t fourCC;
    uint32_t key;
    Bytes data;
};

// A native image: header, items, then a data block of a recognisable pattern.
Bytes Image(ORBTextureHeaderV3 header, const std::vector<Item>& items)
{
    header.metaDataSize = 0;
    for (const Item& item : items)
        header.metaDataSize += ORBTEX_METADATA_BLOCK_HEADER_SIZE + uint32_t(item.data.size());
    Bytes out;
    Append(out, &header, ORBTEX_V3_HEADER_SIZE);
    for (const Item& item : items)
    {
        AppendWord(out, item.fourCC);
        AppendWord(out, item.key);
        AppendWord(out, uint32_t(item.data.size()));
        Append(out, item.data.data(), item.data.size());
    }
    const uint32_t size = ORBTGetTextureDataSize(header);
    for (uint32_t i = 0; i < size; ++i)
        out.push_back(uint8_t(i * 37 + 11));
    return out;
}

ORBTextureHeaderV3 Header(uint64_t format, uint32_t width, uint32_t height, uint32_t depth = 1, uint32_t mips = 1,
                          uint32_t members = 1, uint32_t faces = 1, uint32_t channelType = eVarUnsignedByteNorm)
{
    ORBTextureHeaderV3 header;
    header.pixelFormat = format;
    header.width = width;
    header.height = height;
    header.depth = depth;
    header.numMIPMaps = mips;
    header.numSurfaces = members;
    header.numFaces = faces;
    header.channelType = channelType;
    return header;
}

Bytes Floats(std::initializer_list<float> values)
{
    Bytes out;
    for (float v : values)
        Append(out, &v, sizeof v);
    return out;
}

std::vector<Bytes> NativeImages()
{
    std::vector<Bytes> images;
    images.push_back(Image(Header(ORBStandard8PixelType, 4, 4), {}));
    images.push_back(Image(Header(ORBStandard8PixelType, 8, 8, 1, 3),
                           {{ORBTEX_METADATA_FOURCC, eMetaOrientation, {0, 2, 0}},
                            {0x54534554, 7, {'h', 'e', 'l', 'l', 'o'}}}));
    images.push_back(Image(Header(ePF_ETC1, 4, 4, 1, 1, 1, 6), {{ORBTEX_METADATA_FOURCC, eMetaCubeMapOrder,
                                                                 {'X', 'x', 'Y', 'y', 'Z', 'z'}}}));
    images.push_back(Image(Header(ePF_ORBTC_4bpp_RGBA, 8, 8, 1, 2, 2),
                           {{ORBTEX_METADATA_FOURCC, eMetaTextureAtlas, Floats({0, 0, 0.5f, 0.5f})},
                            {ORBTEX_METADATA_FOURCC, eMetaBorder, Bytes(12, 1)},
                            {ORBTEX_METADATA_FOURCC, eMetaBumpData, Floats({2.0f, 0})}}));
    images.push_back(Image(Header(PixelType('r', 'g', 0, 0, 16, 16, 0, 0).PixelTypeID, 3, 2, 2, 1, 1, 1,
                                  eVarSignedShortNorm),
                           {}));
    images.push_back(Image(Header(ePF_ASTC_5x5, 6, 5), {{0x41414141, 1, Bytes(3, 0xAA)}}));
    return images;
}

// Codec inputs: width - 1, height - 1, format, quality, flags, channel type,
// four layout names, four layout widths, then block data.
std::vector<Bytes> CodecInputs()
{
    struct Seed
    {
        uint8_t width, height, format, quality, flags, channelType;
    };
    const Seed seeds[] = {
        {7, 7, ePF_ORBTC_2bpp_RGB, 0, 0x00, 0},   {15, 7, ePF_ORBTC_2bpp_RGBA, 1, 0x11, 0},
        {7, 7, ePF_ORBTC_4bpp_RGB, 1, 0x00, 0},   {3, 11, ePF_ORBTC_4bpp_RGBA, 0, 0x41, 0},
        {7, 3, ePF_ETC1, 0, 0x08, 0},             {5, 6, ePF_ETC2_RGB, 1, 0x04, 0},
        {7, 7, ePF_ETC2_RGBA, 1, 0x10, 0},        {4, 2, ePF_ETC2_RGB_A1, 0, 0x00, 0},
        {3, 3, ePF_EAC_R11, 0, 0x02, eVarSignedShortNorm},
        {7, 3, ePF_EAC_RG11, 1, 0x00, eVarUnsignedShortNorm},
        {9, 9, ePF_DXT1, 0, 0x20, 0},             {4, 4, ePF_ASTC_4x4x4, 0, 0x00, 0},
        {15, 15, ePF_ORBTC_4bpp_RGB, 0x8F, 0x00, 0}, {11, 7, ePF_ORBTCII_4bpp, 0x8F, 0x41, 0}, // the refinement
    };
    const uint8_t payload[16] = {0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0,
                                 0x0f, 0x1e, 0x2d, 0x3c, 0x4b, 0x5a, 0x69, 0x78};
    std::vector<Bytes> inputs;
    for (const Seed& s : seeds)
    {
        Bytes in = {s.width, s.height, s.format, s.quality, s.flags, s.channelType, 0, 0, 0, 0, 0, 0, 0, 0};
        Append(in, payload, sizeof payload);
        inputs.push_back(in);
    }
    // Channel layouts: format bytes of 52 and above; names index "rgbalix", none, 'z'.
    inputs.push_back({60, 60, 52, 0, 0x04, eVarUnsignedByteNorm, 0, 1, 2, 3, 8, 8, 8, 8, 1, 2, 3, 4});
    inputs.push_back({5, 4, 53, 0, 0x08, eVarUnsignedByteNorm, 4, 3, 7, 7, 8, 8, 0, 0, 9, 8, 7});
    inputs.push_back({2, 2, 54, 0, 0x00, eVarUnsignedFloat, 0, 1, 2, 7, 11, 11, 10, 0, 0xff, 0x7f});
    return inputs;
}

bool Write(const std::string& path, const Bytes& bytes)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return false;
    const bool ok = bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && ok;
}

bool WriteCorpus(const std::string& dir, const std::vector<Bytes>& inputs)
{
    mkdir(dir.c_str(), 0755);
    for (size_t i = 0; i < inputs.size(); ++i)
        if (!Write(dir + "/seed-" + std::to_string(i), inputs[i]))
            return false;
    return true;
}

struct Registered
{
    std::string target;
    FuzzSeedFunction seeds;
};

std::vector<Registered>& Registry()
{
    static std::vector<Registered> registry;
    return registry;
}

} // namespace

FuzzSeedRegistration::FuzzSeedRegistration(const char* target, FuzzSeedFunction seeds)
{
    Registry().push_back({target, seeds});
}

FuzzBytes ReadFuzzSeedFile(const std::string& path) { return FuzzReadFile(path); }

int main(int argc, char** argv)
{
    if (argc < 2)
    {
        std::fprintf(stderr, "usage: fuzzseeds DIR [TARGET...]\n");
        return 2;
    }
    const std::string root = argv[1];
    mkdir(root.c_str(), 0755);
    const std::vector<Bytes> images = NativeImages();
    std::vector<std::string> seeded = {"nativeimagefuzz", "fileroundtripfuzz", "codecfuzz"};
    bool ok = WriteCorpus(root + "/nativeimagefuzz", images) &&
              WriteCorpus(root + "/fileroundtripfuzz", images) && WriteCorpus(root + "/codecfuzz", CodecInputs());
    for (const Registered& registered : Registry())
    {
        ok = ok && WriteCorpus(root + "/" + registered.target, registered.seeds());
        seeded.push_back(registered.target);
    }
    if (!ok)
    {
        std::fprintf(stderr, "fuzzseeds: cannot write under %s\n", root.c_str());
        return 1;
    }
    // Every target named must have seeds of this run: libFuzzer refuses a
    // missing corpus directory.
    for (int i = 2; i < argc; ++i)
        if (std::find(seeded.begin(), seeded.end(), argv[i]) == seeded.end())
        {
            std::fprintf(stderr, "fuzzseeds: no seeds registered for %s\n", argv[i]);
            return 1;
        }
    return 0;
}
