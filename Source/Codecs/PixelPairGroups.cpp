#include "Codecs/PixelPairGroups.h"

#include "Model/ORBTextureErrors.h"
#include "Model/ORBTextureFormatFacts.h"

namespace orbtexture
{

bool PairGroupOrder(const char* operation, EORBTPixelFormat format, EORBTPixelFormat first, EORBTPixelFormat second,
                    EORBTPixelFormat swapped, unsigned width, unsigned height, unsigned (&offsets)[4])
{
    if (format != first && format != second)
        return SetError(eORBTErrorUnsupported, "%s: format %u is not %s (%u) or %s (%u)", operation, unsigned(format),
                        DescribeFormat(first).name, unsigned(first), DescribeFormat(second).name, unsigned(second));
    if (width == 0 || height == 0)
        return SetError(eORBTErrorSize, "%s: the image is %ux%u, it has no pixels", operation, width, height);
    const bool swap = format == swapped;
    for (unsigned i = 0; i < 4; ++i)
        offsets[i] = swap ? i ^ 1 : i;
    return true;
}

} // namespace orbtexture
