#include "ChannelTypeDefault.h"

#include <algorithm>

namespace cli
{

using namespace orbtexture;

EORBTVariableType DefaultChannelType(PixelType target, EORBTVariableType source)
{
    if (target.isNamedFormat())
        return source;
    unsigned widest = 0;
    bool smallFloats = true;
    for (unsigned i = 0; i < 4; ++i)
    {
        const unsigned bits = target.channelBits(i);
        widest = std::max(widest, bits);
        smallFloats = smallFloats && (bits == 0 || bits == 10 || bits == 11);
    }
    if (smallFloats)
        return orbtexture::eVarUnsignedFloat;
    if (source >= orbtexture::eVarSignedFloat && (widest == 16 || widest == 32))
        return source;
    const unsigned element = widest <= 8 ? 8 : widest <= 16 ? 16 : 32;
    const unsigned sourceElement = source < 4 ? 8 : source < 8 ? 16 : 32;
    if (source < orbtexture::eVarSignedFloat && sourceElement == element)
        return source;
    return element == 8    ? orbtexture::eVarUnsignedByteNorm
           : element == 16 ? orbtexture::eVarUnsignedShortNorm
                           : orbtexture::eVarUnsignedIntegerNorm;
}

} // namespace cli
