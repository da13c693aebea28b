#ifndef ORBTEXTUREDIFFTOOLS_H
#define ORBTEXTUREDIFFTOOLS_H

// Comparison of two textures of equal size and standard pixel types (their
// channel types may differ). Channels are compared as the numbers they hold,
// without scaling; the difference pictures normalise each channel type to 0..1.

#include "ORBTexture.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// A measure per channel (red, green, blue, alpha) and for the whole pixel;
// -1.0 in every field when the textures cannot be compared.
struct ChannelDiffResult
{
    float channels[4];
    float overall;
};

// True when both textures are of standard pixel types, level 0 has equal
// sizes, and both hold the MIP level, array member and face.
ORBT_API bool TexturesAreValidForDiff(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                                      const unsigned int& arrayMember, const unsigned int& face);

// Measures of a - b over one surface.
ORBT_API ChannelDiffResult GetMaxDifference(const CORBTexture& a, const CORBTexture& b,
                                            const unsigned int& mipLevel, const unsigned int& arrayMember,
                                            const unsigned int& face);
ORBT_API ChannelDiffResult GetMeanErrorValue(const CORBTexture& a, const CORBTexture& b,
                                             const unsigned int& mipLevel, const unsigned int& arrayMember,
                                             const unsigned int& face);
ORBT_API ChannelDiffResult GetRMSErrorValue(const CORBTexture& a, const CORBTexture& b,
                                            const unsigned int& mipLevel, const unsigned int& arrayMember,
                                            const unsigned int& face);
ORBT_API ChannelDiffResult GetStandardDeviation(const CORBTexture& a, const CORBTexture& b,
                                                const unsigned int& mipLevel, const unsigned int& arrayMember,
                                                const unsigned int& face);
ORBT_API ChannelDiffResult GetPSNRValue(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                                        const unsigned int& arrayMember, const unsigned int& face);

// Difference pictures in rgba8; an empty texture when the pair is invalid.
// |a - b| x multiplier per channel, alpha inverted: no difference is opaque black.
ORBT_API CORBTexture ColourDiff(const CORBTexture& a, const CORBTexture& b, float multiplier);
// Black where equal, blue within 'tolerance', red beyond it.
ORBT_API CORBTexture ToleranceDiff(const CORBTexture& a, const CORBTexture& b, float tolerance);
// a x blend + b x (1 - blend), blend clamped to 0..1.
ORBT_API CORBTexture BlendDiff(const CORBTexture& a, const CORBTexture& b, float blend);

} // namespace orbtexture

#endif
