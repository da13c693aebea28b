#ifndef FUZZSUPPORT_H
#define FUZZSUPPORT_H

// What the fuzz targets share: a failure that stops the run, a scratch file
// per process, reading a file back, and touching every surface of a texture.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

#include "ORBTexture.h"

[[noreturn]] inline void FuzzFail(const char* target, const char* what)
{
    std::fprintf(stderr, "%s: %s\n", target, what);
    std::abort();
}

// One file per process and role, so parallel jobs do not share it; the
// extension chooses the container.
inline std::string FuzzScratchPath(const char* target, const char* role, const char* extension)
{
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/orbt-" + target + "-" + std::to_string(getpid()) + "-" +
           role + extension;
}

// The bytes of a file; empty if it cannot be read.
inline std::vector<uint8_t> FuzzReadFile(const std::string& path)
{
    std::vector<uint8_t> bytes;
    if (FILE* file = std::fopen(path.c_str(), "rb"))
    {
        uint8_t chunk[4096];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0)
            bytes.insert(bytes.end(), chunk, chunk + n);
        std::fclose(file);
    }
    return bytes;
}

// Reads the last byte of every surface (of the first 40 levels, 64 members and
// 64 faces) and the typed metadata, so that a block shorter than its header
// says shows under the address sanitizer.
inline uint8_t FuzzTouchSurfaces(const orbtexture::CORBTexture& texture)
{
    using namespace orbtexture;
    uint8_t sink = 0;
    const uint32_t levels = texture.getNumMIPLevels() < 40 ? texture.getNumMIPLevels() : 40;
    for (uint32_t mip = 0; mip < levels; ++mip)
        for (uint32_t member = 0; member < texture.getNumArrayMembers() && member < 64; ++member)
            for (uint32_t face = 0; face < texture.getNumFaces() && face < 64; ++face)
            {
                const uint8_t* surface = texture.getDataPtr(mip, member, face);
                const uint32_t size = texture.getDataSize(int(mip), false, false);
                if (size)
                    sink ^= surface[size - 1];
            }
    sink ^= uint8_t(texture.getOrientation(eAxisX) + texture.getOrientation(eAxisY) + texture.getOrientation(eAxisZ));
    sink ^= uint8_t(texture.isBumpMap() + texture.getBitsPerPixel() + texture.getCubeMapOrder().length());
    return sink;
}

#endif
