#ifndef ORBTEX_CLI_IMAGE_OPERATIONS_H
#define ORBTEX_CLI_IMAGE_OPERATIONS_H

// The image operations of 'orbtex convert': options of its table, run in one
// fixed order on a texture brought to a standard pixel type.

#include <string>
#include <vector>

#include "OptionParser.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"

namespace cli
{

struct ImageOperations
{
    bool canvas = false;
    unsigned canvasSize[3] = {1, 1, 1};
    int canvasOffset[3] = {0, 0, 0};
    bool border = false;
    unsigned borderSize[3] = {0, 0, 0};
    bool rotate = false;
    orbtexture::EORBTAxis rotateAxis = orbtexture::eAxisZ;
    bool clockwise = true;
    bool flip = false;
    orbtexture::EORBTAxis flipAxis = orbtexture::eAxisX;
    bool bleed = false;
    bool resize = false;
    unsigned resizeSize[3] = {1, 1, 1};
    orbtexture::EResizeMode filter = orbtexture::eResizeLinear;
    bool normalMap = false;
    float normalScale = 1.0f;
    std::string normalOrder = "xyz";
    bool premultiply = false;
    bool mipmaps = false;
    unsigned mipLevels = 0xFFFFFFFFu; // a full chain
    bool linearMips = false;          // filter sRGB levels in linear light
    bool colourMips = false;

    bool any() const
    {
        return canvas || border || rotate || flip || bleed || resize || normalMap || premultiply || mipmaps ||
               colourMips;
    }
};

// The options' lines for --help.
#define ORBTEX_IMAGE_OPERATIONS_HELP \
    "Image operations (run after loading, before the format conversion, in\n" \
    "this order: canvas, border, rotate, flip, bleed, resize, normal map,\n" \
    "premultiply, MIP maps, MIP tinting; a texture that is not r8g8b8a8 ubn,\n" \
    "r16g16b16a16 usn or r32g32b32a32 uin/sf is converted to one first, and\n" \
    "the result goes to --format, by default the input's own format):\n" \
    "  --canvas WxH[xD][+X+Y[+Z]]\n" \
    "                         new frame of level 0; the old origin lands at\n" \
    "                         X,Y,Z (signed, e.g. 64x64-8+8), the rest is\n" \
    "                         transparent black\n" \
    "  --border X[,Y[,Z]]     mirrored margin of X, Y, Z pixels on each side of\n" \
    "                         level 0 (Y defaults to X, Z to 0)\n" \
    "  --rotate x|y|z[,ccw]   quarter turn about an axis, clockwise unless ccw;\n" \
    "                         about x and y only the sizes turn and the pixels\n" \
    "                         come out black (the library's behaviour)\n" \
    "  --flip x|y|z           mirror every surface along an axis\n" \
    "  --bleed                give transparent pixels (alpha below 8) the mean\n" \
    "                         colour of the opaque ones within 8 pixels\n" \
    "  --resize WxH[xD]       resample level 0 (other levels are dropped)\n" \
    "  --filter nearest|linear|cubic\n" \
    "                         filter of --resize and --mipmaps (default linear)\n" \
    "  --normal-map SCALE[,ORDER]\n" \
    "                         replace a height map (red) by a normal map; ORDER\n" \
    "                         names the output channels with x, y, z and h\n" \
    "                         (height), default xyz\n" \
    "  --premultiply          multiply colour by alpha\n" \
    "  --mipmaps [N]          rebuild the MIP chain from level 0: N levels, by\n" \
    "                         default the full chain\n" \
    "  --linear-mips          with --mipmaps (implied), filter an sRGB texture\n" \
    "                         in linear light: decoded to linear float, filtered\n" \
    "                         and encoded back (level 0 keeps its values)\n" \
    "  --colour-mips          tint the levels below the top by level number\n" \
    "                         (also --color-mips)\n"

// Adds the operations' options to a command's option table; each stores into
// 'operations', which must outlive the parse.
void AddImageOperationOptions(std::vector<Option>& options, ImageOperations& operations);

// Runs the operations in their fixed order: canvas, border, rotate, flip,
// bleed, resize, normal map, premultiply, MIP maps, MIP tinting. A texture not
// of a standard pixel type is converted to one first (the caller converts the
// result to its target). False with a reason naming the operation that failed.
bool ApplyImageOperations(orbtexture::CORBTexture& texture, const ImageOperations& operations,
                          std::string& reason);

} // namespace cli

#endif
