#include "ORBTextureDiffTools.h"

#include <algorithm>
#include <cmath>

#include "Model/ORBTextureStandardTypes.h"
#include "Model/ORBTextureSurfaceWalk.h"
#include "Operations/ORBTextureOperationErrors.h"

namespace orbtexture
{

namespace
{

constexpr ChannelDiffResult kFailed = {{-1.0f, -1.0f, -1.0f, -1.0f}, -1.0f};

// Sets why 'operation' refuses a surface index that one of the textures lacks.
bool RefuseIndex(const char* operation, const char* what, unsigned index, unsigned inA, unsigned inB)
{
    return SetError(eORBTErrorArgument, "%s: %s %u is out of range (the textures have %u and %u)", operation, what,
                    index, inA, inB);
}

// TexturesAreValidForDiff, the reason for false given under 'operation'.
bool ValidPair(const char* operation, const CORBTexture& a, const CORBTexture& b, unsigned mipLevel,
               unsigned arrayMember, unsigned face)
{
    if (!isStandardPixelType(a.getPixelType(), a.getChannelType()))
        return RefuseTexture(operation, a, "the first texture");
    if (!isStandardPixelType(b.getPixelType(), b.getChannelType()))
        return RefuseTexture(operation, b, "the second texture");
    if (a.getWidth() != b.getWidth() || a.getHeight() != b.getHeight() || a.getDepth() != b.getDepth())
        return SetError(eORBTErrorSize, "%s: sizes differ (%ux%ux%u and %ux%ux%u)", operation, a.getWidth(),
                        a.getHeight(), a.getDepth(), b.getWidth(), b.getHeight(), b.getDepth());
    if (mipLevel >= a.getNumMIPLevels() || mipLevel >= b.getNumMIPLevels())
        return RefuseIndex(operation, "MIP level", mipLevel, a.getNumMIPLevels(), b.getNumMIPLevels());
    if (arrayMember >= a.getNumArrayMembers() || arrayMember >= b.getNumArrayMembers())
        return RefuseIndex(operation, "array member", arrayMember, a.getNumArrayMembers(), b.getNumArrayMembers());
    if (face >= a.getNumFaces() || face >= b.getNumFaces())
        return RefuseIndex(operation, "face", face, a.getNumFaces(), b.getNumFaces());
    return true;
}

// Calls visit(Pixel<A>*, Pixel<B>*) with both textures' surfaces at (mip,
// member, face) read in their own channel types.
template <typename Visit>
void VisitSurfaces(const CORBTexture& a, const CORBTexture& b, uint32_t mip, uint32_t member, uint32_t face,
                   Visit&& visit)
{
    DispatchChannelType(a, [&](auto tagA) {
        using A = typename decltype(tagA)::type;
        return DispatchChannelType(b, [&](auto tagB) {
            using B = typename decltype(tagB)::type;
            visit(SurfacePixels<A>(a, mip, member, face), SurfacePixels<B>(b, mip, member, face));
            return true;
        });
    });
}

// Calls add(channel, d) for every channel of every pixel of the surface, with
// d = a - b in the channels' own numbers. Returns the pixel count.
template <typename Add>
size_t ForEachDifference(const CORBTexture& a, const CORBTexture& b, uint32_t mip, uint32_t member, uint32_t face,
                         Add&& add)
{
    const size_t count = size_t(a.getWidth(mip)) * a.getHeight(mip) * a.getDepth(mip);
    VisitSurfaces(a, b, mip, member, face, [&](const auto* pa, const auto* pb) {
        if (!pa || !pb)
            return;
        for (size_t i = 0; i < count; ++i)
            for (unsigned c = 0; c < 4; ++c)
                add(c, double((&pa[i].red)[c]) - double((&pb[i].red)[c]));
    });
    return count;
}

// Shared set-up of the difference pictures: an rgba8 copy of b's header with
// the smaller counts of both.
CORBTextureHeader PictureHeader(const CORBTexture& a, const CORBTexture& b)
{
    CORBTextureHeader header(b.getHeader());
    header.setChannelType(eVarUnsignedByteNorm);
    header.setPixelFormat(PixelType(ORBStandard8PixelType));
    header.setNumMIPLevels(std::min(a.getNumMIPLevels(), b.getNumMIPLevels()));
    header.setNumArrayMembers(std::min(a.getNumArrayMembers(), b.getNumArrayMembers()));
    header.setNumFaces(std::min(a.getNumFaces(), b.getNumFaces()));
    return header;
}

// A channel as a fraction of full scale. Double precision keeps a difference
// of one step at least 1/255 of the range, as the 8-bit thresholds expect.
template <typename T>
double Normalised(T value)
{
    return double(value) * double(kNormalisedFactor<T>);
}

uint8_t ToByte(double value) { return value >= 255.0 ? 255 : value > 0.0 ? uint8_t(value) : 0; }

// Calls pixel(na, nb, out) over 'count' pixels from the starts of a, b and
// 'out', with na and nb the normalised channels.
template <typename Pixel8>
void LinearPass(const CORBTexture& a, const CORBTexture& b, CORBTexture& out, Pixel8&& pixel)
{
    const size_t count = std::min({size_t(out.getTextureSize(-1, true, true)), size_t(a.getTextureSize(-1, true, true)),
                                   size_t(b.getTextureSize(-1, true, true))});
    VisitSurfaces(a, b, 0, 0, 0, [&](const auto* pa, const auto* pb) {
        using A = std::remove_cv_t<std::remove_reference_t<decltype(pa->red)>>;
        using B = std::remove_cv_t<std::remove_reference_t<decltype(pb->red)>>;
        if (!pa || !pb)
            return;
        uint8_t* o = out.getDataPtr();
        for (size_t i = 0; i < count; ++i, o += 4)
        {
            double na[4], nb[4];
            for (unsigned c = 0; c < 4; ++c)
            {
                na[c] = Normalised<A>((&pa[i].red)[c]);
                nb[c] = Normalised<B>((&pb[i].red)[c]);
            }
            pixel(na, nb, o);
        }
    });
}

// The empty output of a difference picture: false, with the reason under
// 'operation', when the pair is invalid or the picture would not fit in memory.
bool MakePicture(const char* operation, const CORBTexture& a, const CORBTexture& b, CORBTexture& out)
{
    if (!ValidPair(operation, a, b, 0, 0, 0))
        return false;
    if (!a.getDataPtr())
        return RefuseTexture(operation, a, "the first texture");
    if (!b.getDataPtr())
        return RefuseTexture(operation, b, "the second texture");
    const CORBTextureHeader header = PictureHeader(a, b);
    if (!FitsInMemory(header))
        return RefuseTooLarge(operation, header);
    out = CORBTexture(header);
    return true;
}

// The measures under the name of the public function that asks for them.
ChannelDiffResult MeanError(const char* operation, const CORBTexture& a, const CORBTexture& b, unsigned mipLevel,
                            unsigned arrayMember, unsigned face)
{
    if (!ValidPair(operation, a, b, mipLevel, arrayMember, face))
        return kFailed;
    double sums[4] = {0.0, 0.0, 0.0, 0.0};
    const size_t n =
        ForEachDifference(a, b, mipLevel, arrayMember, face, [&](unsigned c, double d) { sums[c] += std::fabs(d); });
    ChannelDiffResult result;
    for (unsigned c = 0; c < 4; ++c)
        result.channels[c] = float(sums[c] * (1.0 / double(n)));
    result.overall = (result.channels[0] + result.channels[1] + result.channels[2] + result.channels[3]) * 0.25f;
    return result;
}

ChannelDiffResult RMSError(const char* operation, const CORBTexture& a, const CORBTexture& b, unsigned mipLevel,
                           unsigned arrayMember, unsigned face)
{
    if (!ValidPair(operation, a, b, mipLevel, arrayMember, face))
        return kFailed;
    double sums[4] = {0.0, 0.0, 0.0, 0.0};
    const size_t n =
        ForEachDifference(a, b, mipLevel, arrayMember, face, [&](unsigned c, double d) { sums[c] += d * d; });
    ChannelDiffResult result;
    for (unsigned c = 0; c < 4; ++c)
        result.channels[c] = float(std::sqrt(sums[c] * (1.0 / double(n))));
    // The root of a sum of roots: the overall figure has always been defined this way.
    result.overall =
        std::sqrt(result.channels[0] + result.channels[1] + result.channels[2] + result.channels[3]);
    return result;
}

} // namespace

bool TexturesAreValidForDiff(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                             const unsigned int& arrayMember, const unsigned int& face)
{
    return ValidPair("TexturesAreValidForDiff", a, b, mipLevel, arrayMember, face);
}

ChannelDiffResult GetMaxDifference(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                                   const unsigned int& arrayMember, const unsigned int& face)
{
    if (!ValidPair("GetMaxDifference", a, b, mipLevel, arrayMember, face))
        return kFailed;
    double largest[4] = {-1.0, -1.0, -1.0, -1.0};
    if (ForEachDifference(a, b, mipLevel, arrayMember, face,
                          [&](unsigned c, double d) { largest[c] = std::max(largest[c], std::fabs(d)); }) == 0)
    {
        SetError(eORBTErrorArgument, "GetMaxDifference: MIP level %u is %ux%ux%u, no pixels to compare", mipLevel,
                 a.getWidth(mipLevel), a.getHeight(mipLevel), a.getDepth(mipLevel));
        return kFailed;
    }
    ChannelDiffResult result;
    for (unsigned c = 0; c < 4; ++c)
        result.channels[c] = float(largest[c]);
    result.overall = std::max({result.channels[0], result.channels[1], result.channels[2], result.channels[3]});
    // Without pixel data nothing is read, and the measure is the failed one.
    if (!a.getDataPtr())
        RefuseTexture("GetMaxDifference", a, "the first texture");
    else if (!b.getDataPtr())
        RefuseTexture("GetMaxDifference", b, "the second texture");
    return result;
}

ChannelDiffResult GetMeanErrorValue(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                                    const unsigned int& arrayMember, const unsigned int& face)
{
    return MeanError("GetMeanErrorValue", a, b, mipLevel, arrayMember, face);
}

ChannelDiffResult GetRMSErrorValue(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                                   const unsigned int& arrayMember, const unsigned int& face)
{
    return RMSError("GetRMSErrorValue", a, b, mipLevel, arrayMember, face);
}

ChannelDiffResult GetStandardDeviation(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                                       const unsigned int& arrayMember, const unsigned int& face)
{
    const ChannelDiffResult mean = MeanError("GetStandardDeviation", a, b, mipLevel, arrayMember, face);
    if (mean.channels[0] < 0.0f)
        return kFailed;
    // Signed differences about the mean of absolute differences, as the measure is defined.
    double sums[4] = {0.0, 0.0, 0.0, 0.0};
    const size_t n = ForEachDifference(a, b, mipLevel, arrayMember, face, [&](unsigned c, double d) {
        const double deviation = d - double(mean.channels[c]);
        sums[c] += deviation * deviation;
    });
    ChannelDiffResult result;
    for (unsigned c = 0; c < 4; ++c)
        result.channels[c] = float(std::sqrt(sums[c] * (1.0 / double(n))));
    result.overall = (result.channels[0] + result.channels[1] + result.channels[2] + result.channels[3]) * 0.25f;
    return result;
}

ChannelDiffResult GetPSNRValue(const CORBTexture& a, const CORBTexture& b, const unsigned int& mipLevel,
                               const unsigned int& arrayMember, const unsigned int& face)
{
    ChannelDiffResult result = RMSError("GetPSNRValue", a, b, mipLevel, arrayMember, face);
    if (result.channels[0] < 0.0f)
        return result;
    const EORBTVariableType type = a.getChannelType();
    // 32-bit integer channels shift by 32 mod 32: their peak is 0 and the measure minus infinity.
    const double peak = type == eVarSignedFloat || type == eVarUnsignedFloat
                            ? 1.0
                            : double((1ull << ((a.getBitsPerPixel() / 4) % 32)) - 1);
    const auto psnr = [peak](float v) {
        return v == 0.0f ? -1.0f : float(20.0 * std::log10(peak / std::sqrt(double(v))));
    };
    for (float& channel : result.channels)
        channel = psnr(channel);
    result.overall = psnr(result.overall);
    return result;
}

CORBTexture ColourDiff(const CORBTexture& a, const CORBTexture& b, float multiplier)
{
    CORBTexture out;
    if (!MakePicture("ColourDiff", a, b, out))
        return CORBTexture();
    const CORBTextureHeader& header = out.getHeader();
    const uint32_t pixels = header.getTextureSize(-1, true, true);
    if (a.getTextureSize(-1, true, true) < pixels || b.getTextureSize(-1, true, true) < pixels)
    {
        SetError(eORBTErrorSize, "ColourDiff: the textures hold %u and %u pixels, fewer than the picture's %u",
                 a.getTextureSize(-1, true, true), b.getTextureSize(-1, true, true), pixels);
        return CORBTexture();
    }

    ForEachSurface(header, [&](uint32_t mip, uint32_t member, uint32_t face) {
        const size_t count = size_t(header.getWidth(mip)) * header.getHeight(mip) * header.getDepth(mip);
        uint8_t* o = out.getDataPtr(mip, member, face);
        VisitSurfaces(a, b, mip, member, face, [&](const auto* pa, const auto* pb) {
            using A = std::remove_cv_t<std::remove_reference_t<decltype(pa->red)>>;
            using B = std::remove_cv_t<std::remove_reference_t<decltype(pb->red)>>;
            for (size_t i = 0; i < count; ++i, o += 4)
                for (unsigned c = 0; c < 4; ++c)
                {
                    const double d =
                        std::fabs((Normalised<A>((&pa[i].red)[c]) - Normalised<B>((&pb[i].red)[c])) * multiplier);
                    const bool alpha = c == 3;
                    // Alpha is inverted: no difference is opaque.
                    o[c] = d > 1.0   ? (alpha ? 0 : 255)
                           : d > 0.0 ? uint8_t((alpha ? 1.0 - d : d) * 255.0 + 0.5)
                                     : (alpha ? 255 : 0);
                }
        });
    });
    return out;
}

CORBTexture ToleranceDiff(const CORBTexture& a, const CORBTexture& b, float tolerance)
{
    CORBTexture out;
    if (!MakePicture("ToleranceDiff", a, b, out))
        return CORBTexture();
    LinearPass(a, b, out, [tolerance](const double* na, const double* nb, uint8_t* o) {
        double c[4];
        bool equal = true, within = true;
        for (unsigned k = 0; k < 4; ++k)
        {
            c[k] = std::min(std::fabs(na[k] - nb[k]), 1.0);
            equal = equal && ToByte(255.0 * c[k]) == 0;
            within = within && tolerance > c[k];
        }
        const uint8_t black[4] = {0, 0, 0, 255}, blue[4] = {0, 0, 255, 255}, red[4] = {255, 0, 0, 255};
        std::copy_n(equal ? black : within ? blue : red, 4, o);
    });
    return out;
}

CORBTexture BlendDiff(const CORBTexture& a, const CORBTexture& b, float blend)
{
    CORBTexture out;
    if (!MakePicture("BlendDiff", a, b, out))
        return CORBTexture();
    blend = std::min(std::max(blend, 0.0f), 1.0f);
    LinearPass(a, b, out, [blend](const double* na, const double* nb, uint8_t* o) {
        for (unsigned k = 0; k < 4; ++k)
            o[k] = ToByte(255.0 * (na[k] * blend + nb[k] * (1.0 - blend)));
    });
    return out;
}

} // namespace orbtexture
