#include "TextureInput.h"

#include <algorithm>
#include <cstdio>

#include "CliSupport.h"
#include "Codecs/ASTCCodec.h"
#include "DXTSurfaces.h"
#include "FormatNames.h"
#include "ImageFiles.h"
#include "ORBTextureInfo.h"
#include "ORBTextureUtilities.h"

namespace cli
{

using namespace orbtexture;

namespace
{

std::shared_mutex gLoadLimitLock;

} // namespace

UnlimitedLoads::UnlimitedLoads() : m_lock(gLoadLimitLock), m_limit(ORBTGetLoadLimit())
{
    ORBTSetLoadLimit(UINT64_MAX);
}

UnlimitedLoads::~UnlimitedLoads() { ORBTSetLoadLimit(m_limit); }

bool LoadTextureOrImage(const std::string& path, EORBTColourSpace imageColourSpace, bool allowShort,
                        CORBTexture& texture, std::string& reason)
{
    const std::shared_lock<std::shared_mutex> limited(gLoadLimitLock);
    if (IsReadableImageExtension(FileExtension(path)))
        return LoadImageFile(path, imageColourSpace, texture, reason);
    // Short data are refused before the pixel block is allocated.
    if (!texture.loadFile(path.c_str(), allowShort))
    {
        reason = ORBTGetLastError();
        return false;
    }
    return true;
}

ASTCLeftoversRemoved::~ASTCLeftoversRemoved()
{
    char path[4096];
    for (const char* extension : {"ktx", "astc"})
        if (getTempFile(path, extension) > 0)
            std::remove(path);
}

void StandardTypeFor(const CORBTexture& texture, PixelType& format, EORBTVariableType& channelType)
{
    PixelType layout = texture.getPixelType();
    EORBTVariableType type = texture.getChannelType();
    if (layout.isNamedFormat())
    {
        if (DXTSelector(layout))
            layout = PixelType(ORBStandard8PixelType), type = eVarUnsignedByteNorm;
        else
            IntermediateTranscodeFormat(texture.getPixelType(), texture.getChannelType(), layout, type);
    }
    unsigned widest = 0;
    for (unsigned i = 0; i < 4; ++i)
        widest = std::max<unsigned>(widest, layout.channelBits(i));

    if (type == eVarUnsignedByteNorm && widest <= 8)
        format = PixelType(ORBStandard8PixelType), channelType = eVarUnsignedByteNorm;
    else if ((type == eVarUnsignedByteNorm || type == eVarUnsignedShortNorm) && widest <= 16)
        format = PixelType(ORBStandard16PixelType), channelType = eVarUnsignedShortNorm;
    else if (type == eVarUnsignedIntegerNorm)
        format = PixelType(ORBStandard32PixelType), channelType = eVarUnsignedIntegerNorm;
    else
        format = PixelType(ORBStandard32PixelType), channelType = eVarSignedFloat;
}

bool MakeStandard(CORBTexture& texture, std::string& reason)
{
    if (isStandardPixelType(texture.getPixelType(), texture.getChannelType()))
        return true;
    PixelType format;
    EORBTVariableType channelType;
    StandardTypeFor(texture, format, channelType);
    const std::string from = FormatAndTypeName(texture.getPixelType().PixelTypeID, texture.getChannelType());
    if (DXTSelector(texture.getPixelType()) && !DecompressDXTSurfaces(texture, reason))
        return false;
    if (!ConvertReads(texture.getPixelType()) ||
        !Transcode(texture, format, channelType, texture.getColourSpace(), ECompressorQuality(0)))
    {
        reason = "cannot convert " + from + " to " + PixelFormatName(format.PixelTypeID) + " " +
                 ChannelTypeShortName(channelType) + LibraryReason();
        return false;
    }
    return true;
}

bool ToRGBA8(CORBTexture& texture, std::string& reason)
{
    const std::string from = FormatAndTypeName(texture.getPixelType().PixelTypeID, texture.getChannelType());
    if (DXTSelector(texture.getPixelType()) && !DecompressDXTSurfaces(texture, reason))
        return false;
    if (!Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, texture.getColourSpace()))
    {
        reason = "cannot convert " + from + " to r8g8b8a8" + LibraryReason();
        return false;
    }
    return true;
}

int ToCommonType(CORBTexture& a, CORBTexture& b, std::string& reason)
{
    if (!MakeStandard(a, reason))
        return 1;
    if (!MakeStandard(b, reason))
        return 2;
    if (a.getPixelType() == b.getPixelType() && a.getChannelType() == b.getChannelType())
        return 0;
    for (CORBTexture* t : {&a, &b})
        if (!Transcode(*t, PixelType(ORBStandard32PixelType), eVarSignedFloat, t->getColourSpace()))
        {
            reason = "cannot convert to r32g32b32a32 sf" + LibraryReason();
            return t == &a ? 1 : 2;
        }
    return 0;
}

std::string DecibelsText(float psnr)
{
    if (psnr == -1.0f)
        return "inf";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", double(psnr));
    return text;
}

} // namespace cli
