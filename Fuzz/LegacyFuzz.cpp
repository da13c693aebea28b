// Loads the input as a memory image named .orb and, through a scratch file,
// by path; legacy headers are what it is seeded with. A legacy file that
// loads must load as an image too, with the same member 0. A texture that loads is
// touched and saved as a legacy file for the first API group that has a
// number for its format. When the legacy file can describe the texture, it
// must reload by path with the same counts and pixel block, and as a memory
// image with array member 0 equal and the other members zero.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "ORBTexture.h"
#include "ORBTextureLegacy.h"

using namespace orbtexture;

namespace
{

[[noreturn]] void Fail(const char* what) { FuzzFail("legacyfuzz", what); }

std::string ScratchPath(const char* role) { return FuzzScratchPath("legacyfuzz", role, ".orb"); }

bool SameCounts(const CORBTexture& a, const CORBTexture& b)
{
    return a.getWidth() == b.getWidth() && a.getHeight() == b.getHeight() && a.getDepth() == b.getDepth() &&
           a.getNumMIPLevels() == b.getNumMIPLevels() && a.getNumArrayMembers() == b.getNumArrayMembers() &&
           a.getNumFaces() == b.getNumFaces();
}

// The bytes of one array member, level by level: those of 'a', or zeros.
bool SameMember(const CORBTexture& a, const CORBTexture& b, uint32_t member, bool bZero)
{
    for (uint32_t mip = 0; mip < a.getNumMIPLevels(); ++mip)
    {
        const uint32_t size = a.getDataSize(int(mip), false, true);
        const uint8_t* pb = b.getDataPtr(mip, member, 0);
        if (!bZero && std::memcmp(a.getDataPtr(mip, member, 0), pb, size) != 0)
            return false;
        if (bZero && size && (pb[0] != 0 || std::memcmp(pb, pb + 1, size - 1) != 0))
            return false;
    }
    return true;
}

// True when a legacy header can hold what the texture's header says.
bool Describable(const CORBTexture& texture, ORBTPixelType legacy)
{
    uint64_t format;
    EORBTColourSpace space;
    EORBTVariableType type;
    bool premultiplied;
    if (!ORBTMapLegacyTextureEnumToNewFormat(legacy, format, space, type, premultiplied))
        return false;
    const uint32_t largest = texture.getWidth() > texture.getHeight() ? texture.getWidth() : texture.getHeight();
    uint32_t allowed = 1;
    while (allowed < 32 && (largest >> allowed) != 0)
        ++allowed;
    const uint32_t faces = texture.getNumFaces();
    return texture.getDepth() == 1 && (faces == 1 || faces == 6) && texture.getNumMIPLevels() <= allowed &&
           uint64_t(faces) * texture.getNumArrayMembers() <= 0xFFFFFFFFu;
}

void SaveAndReload(const CORBTexture& texture)
{
    ELegacyApi api = eLegacyApiNone;
    ORBTPixelType legacy = eLegacyFormatNone;
    for (ELegacyApi candidate : {eLegacyApi1, eLegacyApi3, eLegacyApi6, eLegacyApi7})
    {
        legacy = MapNewFormatToLegacyEnum(texture.getPixelType(), texture.getColourSpace(), texture.getChannelType(),
                                          texture.isPreMultiplied(), candidate);
        if (legacy != eLegacyFormatNone)
        {
            api = candidate;
            break;
        }
    }
    std::vector<uint8_t> bytes;
    const bool saved = texture.saveToMemoryLegacyORB(bytes, api == eLegacyApiNone ? eLegacyApi1 : api);
    if (saved != (api != eLegacyApiNone))
        Fail(saved ? "saved a format without a legacy number" : "legacy save failed");
    if (!saved || !Describable(texture, legacy))
        return;
    if (bytes.size() != size_t(52) + texture.getDataSize())
        Fail("legacy file size");

    CORBTexture fromImage;
    if (!fromImage.loadFromMemory(bytes.data(), bytes.size(), "x.orb"))
        Fail("a legacy image does not reload");
    if (!SameCounts(texture, fromImage) || !SameMember(texture, fromImage, 0, false))
        Fail("memory reload differs in member 0");
    for (uint32_t member = 1; member < texture.getNumArrayMembers(); ++member)
        if (!SameMember(texture, fromImage, member, true))
            Fail("memory reload filled a member beyond 0");
}

bool WriteFile(const std::string& path, const uint8_t* data, size_t size)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return false;
    const bool ok = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && ok;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // A native file loads short data zero-filled, and a legacy image fills
    // only member 0: keep what a few header bytes can claim small.
    static const bool limited = (ORBTSetLoadLimit(1u << 20), true);
    (void)limited;
    CORBTexture memory;
    const bool fromMemory = memory.loadFromMemory(data, size, "x.orb");
    if (!fromMemory && (memory.getDataPtr() || memory.getDataSize()))
        Fail("a refused image left data behind");

    const std::string input = ScratchPath("in");
    if (!WriteFile(input, data, size))
        Fail("cannot write the scratch input");
    const CORBTexture file(input.c_str());
    std::remove(input.c_str());

    uint32_t first = 0;
    if (size >= 4)
        std::memcpy(&first, data, 4);
    // A legacy image needs only member 0 of what the file holds.
    if ((first == 44 || first == 52) && file.getDataPtr())
    {
        if (!fromMemory)
            Fail("a legacy file loads but its image does not");
        if (!SameCounts(memory, file) || !SameMember(file, memory, 0, false))
            Fail("legacy file and image loads differ in member 0");
    }

    const CORBTexture* const loaded[] = {&memory, &file};
    for (const CORBTexture* texture : loaded)
        if (texture->getDataPtr())
        {
            volatile uint8_t sink = FuzzTouchSurfaces(*texture);
            (void)sink;
            SaveAndReload(*texture);
        }
    return 0;
}
