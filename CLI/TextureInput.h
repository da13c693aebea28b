#ifndef ORBTEX_CLI_TEXTURE_INPUT_H
#define ORBTEX_CLI_TEXTURE_INPUT_H

// Reading the commands' inputs, and bringing them to a pixel type the image
// operations take.

#include <cstdint>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "ORBTexture.h"

namespace cli
{

// Loads a texture file (.orb, legacy .orb, .dds, .ktx, .ktx2, .astc) or an image file
// (as LoadImageFile, in 'imageColourSpace'). A .orb whose pixel data end early
// is refused unless 'allowShort'. False with a one-line reason.
bool LoadTextureOrImage(const std::string& path, orbtexture::EORBTColourSpace imageColourSpace, bool allowShort,
                        orbtexture::CORBTexture& texture, std::string& reason);

// Removes, when it goes out of scope, what a failed run of astcenc left in the
// calling thread's temporary names (the library keeps those files for its
// caller to look at); the names are the thread's own.
class ASTCLeftoversRemoved
{
public:
    ASTCLeftoversRemoved() = default;
    ~ASTCLeftoversRemoved();
    ASTCLeftoversRemoved(const ASTCLeftoversRemoved&) = delete;
    ASTCLeftoversRemoved& operator=(const ASTCLeftoversRemoved&) = delete;
};

// Lifts the library's load limit, which is process-wide, for the read-back of
// a written file, and restores it. Inputs (LoadTextureOrImage) wait while one
// is held, and it waits for the inputs being loaded, so that no thread's input
// escapes the limit.
class UnlimitedLoads
{
public:
    UnlimitedLoads();
    ~UnlimitedLoads();
    UnlimitedLoads(const UnlimitedLoads&) = delete;
    UnlimitedLoads& operator=(const UnlimitedLoads&) = delete;

private:
    std::unique_lock<std::shared_mutex> m_lock;
    uint64_t m_limit;
};

// The standard pixel type (r8g8b8a8 ubn, r16g16b16a16 usn, r32g32b32a32 uin or
// sf) that holds a texture's values: 8 and 16-bit unsigned normalised layouts
// and 8-bit codecs keep their width, 32-bit unsigned normalised ones stay
// integers, anything signed, unnormalised or floating becomes float.
void StandardTypeFor(const orbtexture::CORBTexture& texture, orbtexture::PixelType& format,
                     orbtexture::EORBTVariableType& channelType);

// Converts a texture to StandardTypeFor's type (DXT through the block codec);
// nothing happens to a texture of a standard type. False with a reason.
bool MakeStandard(orbtexture::CORBTexture& texture, std::string& reason);

// Converts a texture to r8g8b8a8 ubn of its colour space, for image files
// (DXT through the block codec). False with a reason.
bool ToRGBA8(orbtexture::CORBTexture& texture, std::string& reason);

// Brings two textures to one standard type for comparison: each to its own
// (MakeStandard), then both to r32g32b32a32 sf if those differ. Returns 0, or
// 1 or 2 for the texture that failed, with the reason.
int ToCommonType(orbtexture::CORBTexture& a, orbtexture::CORBTexture& b, std::string& reason);

// A PSNR as printed: two decimals, "inf" for identical data (-1).
std::string DecibelsText(float psnr);

} // namespace cli

#endif
