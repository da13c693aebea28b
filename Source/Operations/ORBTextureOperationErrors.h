#ifndef ORBTEXTUREOPERATIONERRORS_H
#define ORBTEXTUREOPERATIONERRORS_H

// Internal: the reasons the image operations give when they refuse a texture
// or cannot build their result.

#include "Model/ORBTextureErrors.h"
#include "ORBTexture.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

// Sets why 'operation' refuses 'texture' (named 'which': "the texture", "the
// source") and returns false. In this order: it has no pixel data, it is not
// of a standard pixel type, or it has no pixels (a zero side or count).
inline bool RefuseTexture(const char* operation, const CORBTexture& texture, const char* which = "the texture")
{
    if (!texture.getDataPtr())
        return SetError(eORBTErrorArgument, "%s: %s is empty", operation, which);
    if (!isStandardPixelType(texture.getPixelType(), texture.getChannelType()))
    {
        const CORBTString format = ORBTGetPixelFormatName(texture.getPixelType().PixelTypeID);
        const char* channelType = ORBTGetChannelTypeName(texture.getChannelType());
        return SetError(eORBTErrorUnsupported, "%s: %s is %s (%s), not a standard pixel type; transcode it first",
                        operation, which, format.empty() ? "an unknown format" : format.c_str(),
                        channelType ? channelType : "unknown channel type");
    }
    return SetError(eORBTErrorArgument, "%s: %s has no pixels (%ux%ux%u, MIP levels %u, array members %u, faces %u)",
                    operation, which, texture.getWidth(), texture.getHeight(), texture.getDepth(),
                    texture.getNumMIPLevels(), texture.getNumArrayMembers(), texture.getNumFaces());
}

// Sets why 'operation' cannot build a texture of 'result', whose data would
// not fit in 32 bits, and returns false.
inline bool RefuseTooLarge(const char* operation, const CORBTextureHeader& result)
{
    return SetError(eORBTErrorSize,
                    "%s: the result (%ux%ux%u, MIP levels %u, array members %u, faces %u) would need 4 GiB or more",
                    operation, result.getWidth(), result.getHeight(), result.getDepth(), result.getNumMIPLevels(),
                    result.getNumArrayMembers(), result.getNumFaces());
}

} // namespace orbtexture

#endif
