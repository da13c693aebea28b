// orbtex demo: the library's main job on a built-in test card.

#include <chrono>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <system_error>

#include "CliSupport.h"
#include "Codecs/ASTCCodec.h"
#include "Commands.h"
#include "DemoPhoto.h"
#include "DXTSurfaces.h"
#include "FormatNames.h"
#include "HtmlReport.h"
#include "ImageFiles.h"
#include "OptionParser.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"
#include "Scores.h"
#include "TestCard.h"

namespace cli
{

const char* const kDemoHelp =
    "usage: orbtex demo [--out DIR]\n"
    "\n"
    "Builds a 256x256 rgba8 test card in memory (gradients, hard edges, a\n"
    "transparent region, fine detail), saves it as DIR/testcard.orb with a few\n"
    "metadata items, reloads it from the file and from a memory image, checks\n"
    "that both round trips are byte-identical, then converts the card to\n"
    "several pixel formats and back, saving each as DIR/testcard-FORMAT.orb and\n"
    "its decoded pixels as DIR/testcard-FORMAT.png, and prints the error of\n"
    "each against the original. Then does the same with a built-in 64x64\n"
    "photograph crop (DIR/photo-FORMAT), to show the ORBTC optimiser's\n"
    "qualities and the exhaustive ETC searches on natural detail.\n"
    "\n"
    "  --out DIR   output directory (default ./orbtex-demo), created if missing\n";

namespace
{

using orbtexture::CORBTexture;

constexpr uint32_t kDemoFourCC = 0x4F4D4544; // "DEMO"

double MillisecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// One conversion the demo shows: the card to 'format' and back to rgba8.
struct DemoConversion
{
    orbtexture::PixelType format;
    orbtexture::EORBTVariableType type;
    int quality;
};

const DemoConversion kConversions[] = {
    {orbtexture::PixelType('r', 'g', 'b', 0, 5, 6, 5, 0), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType('r', 'g', 'b', 'a', 4, 4, 4, 4), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType('l', 0, 0, 0, 8, 0, 0, 0), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ORBStandard16PixelType), orbtexture::eVarUnsignedShortNorm, 0},
    {orbtexture::PixelType(orbtexture::ORBStandard32PixelType), orbtexture::eVarSignedFloat, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 4},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 8},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 9},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGBA), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGBA), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_2bpp_RGB), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_2bpp_RGB), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_2bpp_RGBA), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_2bpp_RGBA), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_2bpp), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_2bpp), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_2bpp), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ETC1), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ETC1), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ETC2_RGB), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ETC2_RGBA), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ETC2_RGB_A1), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_EAC_R11), orbtexture::eVarUnsignedShortNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_EAC_RG11), orbtexture::eVarUnsignedShortNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_DXT1), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_DXT5), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_UYVY), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_RGBG8888), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_BW1bpp), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_RGB9E5), orbtexture::eVarUnsignedFloat, 0},
    // ASTC runs the external astcenc, and is left out without it.
    {orbtexture::PixelType(orbtexture::ePF_ASTC_4x4), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ASTC_8x8), orbtexture::eVarUnsignedByteNorm, 2},
};

// The photograph crop: the optimiser's qualities (and quality 9's refinement)
// beside the block compressor's best, both generations of ORBTC at the same qualities, and the
// exhaustive ETC searches beside the fast ones.
const DemoConversion kPhotoConversions[] = {
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 4},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 8},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_4bpp_RGB), orbtexture::eVarUnsignedByteNorm, 9},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 4},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_4bpp), orbtexture::eVarUnsignedByteNorm, 8},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_2bpp_RGB), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_2bpp_RGB), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTC_2bpp_RGB), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_2bpp), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_2bpp), orbtexture::eVarUnsignedByteNorm, 1},
    {orbtexture::PixelType(orbtexture::ePF_ORBTCII_2bpp), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ETC1), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ETC1), orbtexture::eVarUnsignedByteNorm, 2},
    {orbtexture::PixelType(orbtexture::ePF_ETC2_RGB), orbtexture::eVarUnsignedByteNorm, 0},
    {orbtexture::PixelType(orbtexture::ePF_ETC2_RGB), orbtexture::eVarUnsignedByteNorm, 2},
};

bool IsASTC(orbtexture::PixelType format)
{
    return ORBTIsASTCFormat(format.PixelTypeID);
}

// The card to the conversion's format, DXT by the block codec as convert does.
bool Encode(CORBTexture& texture, const DemoConversion& conversion)
{
    std::string reason;
    if (DXTSelector(conversion.format))
        return orbtexture::Transcode(texture, orbtexture::PixelType(orbtexture::ORBStandard8PixelType),
                                     orbtexture::eVarUnsignedByteNorm, orbtexture::eColourSpaceLinear) &&
               CompressDXTSurfaces(texture, conversion.format, conversion.type, false, reason);
    return orbtexture::Transcode(texture, conversion.format, conversion.type, orbtexture::eColourSpaceLinear,
                                 orbtexture::ECompressorQuality(conversion.quality));
}

// Back to the card's own layout.
bool Decode(CORBTexture& texture, const CORBTexture& card)
{
    std::string reason;
    if (DXTSelector(texture.getPixelType()) && !DecompressDXTSurfaces(texture, reason))
        return false;
    return orbtexture::Transcode(texture, card.getPixelType(), card.getChannelType(), card.getColourSpace());
}

// The errors of a conversion over the channels its format holds: the
// largest difference and the PSNR of those channels (of colour only where the
// original is visible in a format with alpha), and the largest alpha
// difference where alpha is held (thresholded for 1-bit alpha).
struct ImageError
{
    std::string compared;
    int maxDifference = 0;
    double psnr = 0.0;
    std::string alpha;
};

ImageError CompareHeld(const CORBTexture& source, const CORBTexture& decoded, Holds holds)
{
    const uint8_t* pa = source.getDataPtr();
    const uint8_t* pb = decoded.getDataPtr();
    const uint32_t count = source.getDataSize(0);
    const unsigned channels = holds == Holds::Red ? 1 : holds == Holds::RedGreen ? 2 : 3;
    ImageError error;
    error.compared = holds == Holds::Red            ? "R"
                     : holds == Holds::RedGreen     ? "RG"
                     : holds == Holds::ColourAlpha  ? "RGB(a>0)"
                     : holds == Holds::ColourAlpha1 ? "RGB(a>=128)"
                                                    : "RGB";
    double squares = 0.0;
    size_t compared = 0;
    int maxAlpha = 0;
    for (uint32_t i = 0; i < count; i += 4)
    {
        const int alpha = holds == Holds::ColourAlpha1 ? (pa[i + 3] >= 128 ? 255 : 0) : pa[i + 3];
        maxAlpha = std::max(maxAlpha, std::abs(alpha - int(pb[i + 3])));
        if (MasksColour(holds) && !Visible(pa[i + 3] / 255.0, holds))
            continue;
        ++compared;
        for (unsigned c = 0; c < channels; ++c)
        {
            const int difference = std::abs(int(pa[i + c]) - int(pb[i + c]));
            error.maxDifference = std::max(error.maxDifference, difference);
            squares += double(difference) * difference;
        }
    }
    const double mse = compared ? squares / (double(compared) * channels) : 0.0;
    error.psnr = mse > 0.0 ? 10.0 * std::log10(255.0 * 255.0 / mse) : INFINITY;
    error.alpha = holds == Holds::ColourAlpha    ? std::to_string(maxAlpha)
                  : holds == Holds::ColourAlpha1 ? std::to_string(maxAlpha) + "(1-bit)"
                  : holds == Holds::Colour       ? "opaque"
                                                 : "none";
    return error;
}

// The difference of the held channels where they are compared, 8 times
// magnified, on opaque black.
std::vector<uint8_t> DifferencePicture(const CORBTexture& source, const CORBTexture& decoded, Holds holds)
{
    const uint8_t* pa = source.getDataPtr();
    const uint8_t* pb = decoded.getDataPtr();
    const uint32_t count = source.getDataSize(0);
    const unsigned channels = holds == Holds::Red ? 1 : holds == Holds::RedGreen ? 2 : 3;
    std::vector<uint8_t> out(count, 0);
    for (uint32_t i = 0; i < count; i += 4)
    {
        const bool compared = !MasksColour(holds) || Visible(pa[i + 3] / 255.0, holds);
        for (unsigned c = 0; c < channels && compared; ++c)
            out[i + c] = uint8_t(std::min(255, 8 * std::abs(int(pa[i + c]) - int(pb[i + c]))));
        out[i + 3] = 255;
    }
    return out;
}

std::string Fixed(double value, int decimals)
{
    if (std::isinf(value))
        return "exact";
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

// Converts 'card' by each conversion, saves it as DIR/PREFIX-FORMAT-qQUALITY
// with its decoded pixels and their magnified difference beside it, prints a
// table and adds the same table and the pictures to 'page'; false if a
// conversion or a file failed.
template <size_t count>
bool RunConversions(const CORBTexture& card, const std::string& directory, const std::string& prefix,
                    const std::string& title, const DemoConversion (&conversions)[count], HtmlReport& page)
{
    const std::filesystem::path folder(directory);
    std::string reason;
    bool ok = WriteImageFile((folder / (prefix + ".png")).string(), ".png", card.getDataPtr(), card.getWidth(),
                             card.getHeight(), reason);
    if (!ok)
        PrintError((folder / (prefix + ".png")).string(), reason);

    ReportTable table{{"format", "type", "quality", "bpp", "bytes", "compared", "max", "PSNR_dB", "alpha", "ms"}, {}};
    std::vector<std::pair<std::string, std::vector<ReportPicture>>> pictures;
    std::vector<std::string> leftOut;
    const bool astcenc = orbtexture::isASTCEncAvailable();
    for (const DemoConversion& conversion : conversions)
    {
        const std::string name = PixelFormatName(conversion.format.PixelTypeID);
        if (IsASTC(conversion.format) && !astcenc)
        {
            leftOut.push_back(name);
            continue;
        }
        // Compressed formats appear at several qualities.
        const std::string fileName = prefix + "-" +
                                     (conversion.format.isNamedFormat()
                                          ? name + "-q" + std::to_string(conversion.quality)
                                          : name);
        CORBTexture converted(card);
        const auto start = std::chrono::steady_clock::now();
        const bool converts = Encode(converted, conversion);
        const double ms = MillisecondsSince(start);
        CORBTexture decoded(converted);
        const bool decodes = converts && Decode(decoded, card);
        const std::string base = (folder / fileName).string();
        const Holds holds = WhatItHolds(conversion.format);
        const bool saved =
            decodes && converted.saveFile((base + ".orb").c_str()) &&
            WriteImageFile(base + ".png", ".png", decoded.getDataPtr(), decoded.getWidth(), decoded.getHeight(),
                           reason) &&
            WriteImageFile(base + "-difference.png", ".png", DifferencePicture(card, decoded, holds).data(),
                           decoded.getWidth(), decoded.getHeight(), reason);
        if (!saved)
        {
            PrintError(base, converts ? "cannot save the conversion" : "conversion failed");
            ok = false;
            continue;
        }
        const ImageError error = CompareHeld(card, decoded, holds);
        table.rows.push_back({name, ChannelTypeShortName(conversion.type), std::to_string(conversion.quality),
                              StoredBitsPerPixel(converted),
                              std::to_string(converted.getDataSize()), error.compared,
                              std::to_string(error.maxDifference), Fixed(error.psnr, 2), error.alpha, Fixed(ms, 1)});
        const unsigned width = card.getWidth(), height = card.getHeight();
        pictures.push_back({name + ", quality " + std::to_string(conversion.quality),
                            {{prefix + ".png", "original", width, height},
                             {fileName + ".png", "decoded", width, height},
                             {fileName + "-difference.png", "difference of " + error.compared + ", x8", width,
                              height}}});
    }

    std::ostringstream printedTable;
    table.Print(printedTable);
    std::istringstream printed(printedTable.str());
    std::cout << "  " << title << " (to the format and back to r8g8b8a8; each compared on the channels it holds):\n";
    for (std::string line; std::getline(printed, line);)
        std::cout << "    " << line << "\n";
    for (const std::string& name : leftOut)
        std::cout << "    " << name << ": left out, astcenc is not on PATH\n";

    page.AddParagraph(title + ": " + std::to_string(card.getWidth()) + " x " + std::to_string(card.getHeight()) +
                      ". 'compared' names the channels each format holds (R for R11, RG for RG11); 'max' and "
                      "PSNR_dB are over those, and for a format that holds alpha only where the original is "
                      "visible in it (RGB(a>0): alpha above 0; RGB(a>=128): at least 128 for 1-bit alpha), "
                      "since colour under alpha 0 is never seen; 'alpha' is the largest alpha error over every pixel, against "
                      "the alpha thresholded at 128 for 1-bit alpha, or says that the format stores none.");
    page.AddTable(table);
    for (const std::string& name : leftOut)
        page.AddParagraph(name + ": left out, astcenc is not on PATH.");
    for (const auto& row : pictures)
        page.AddPictures(row.first, row.second);
    return ok;
}

} // namespace

int RunDemo(const std::vector<std::string>& arguments)
{
    std::string directory = "orbtex-demo";
    Option out = TextOption("--out", directory);
    out.missing = "a directory";
    const int parsed = ParseOptions(arguments, {"demo", kDemoHelp, {out}});
    if (parsed >= 0)
        return parsed;

    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
    {
        PrintError(directory, "cannot create directory: " + error.message());
        return kExitFailure;
    }

    auto start = std::chrono::steady_clock::now();
    CORBTexture card = MakeTestCard(256);
    card.setOrientation(orbtexture::eOrientRight);
    card.setTextureAtlas(std::vector<float>{0.0f, 0.0f, 1.0f, 1.0f}.data(), 4);
    const char note[] = "orbtex demo test card";
    card.addMetaData(MetaDataBlock(kDemoFourCC, 1, sizeof(note), reinterpret_cast<const uint8_t*>(note)));
    card.addPaddingMetaData(16);
    const double buildMs = MillisecondsSince(start);

    const std::string path = (std::filesystem::path(directory) / "testcard.orb").string();
    start = std::chrono::steady_clock::now();
    if (!card.saveFile(path.c_str()))
    {
        PrintError(path, "cannot write file");
        return kExitFailure;
    }
    const double saveMs = MillisecondsSince(start);

    start = std::chrono::steady_clock::now();
    const CORBTexture fromFile(path.c_str());
    const double loadMs = MillisecondsSince(start);

    std::vector<unsigned char> bytes;
    std::string reason;
    if (!ReadFileBytes(path, bytes, reason))
    {
        PrintError(path, reason);
        return kExitFailure;
    }
    const CORBTexture fromMemory(bytes.data(), bytes.size());

    const bool fileOk = card.isEqual(fromFile);
    const bool memoryOk = card.isEqual(fromMemory);

    // Saving the reloaded texture must give the same bytes again.
    const std::string resavedPath = (std::filesystem::path(directory) / "testcard-resaved.orb").string();
    std::vector<unsigned char> resaved;
    const bool resaveOk = fromFile.saveFile(resavedPath.c_str()) && ReadFileBytes(resavedPath, resaved, reason) &&
                          resaved == bytes;

    std::cout << std::fixed << std::setprecision(2) << "orbtex demo\n"
              << "  test card:      " << card.getWidth() << " x " << card.getHeight() << " "
              << PixelFormatName(card.getPixelType().PixelTypeID) << " " << ChannelTypeName(card.getChannelType())
              << ", built in " << buildMs << " ms\n"
              << "  saved:          " << path << " (" << bytes.size() << " bytes: 52 header, "
              << card.getMetaDataSize() << " metadata, " << card.getDataSize() << " data), " << saveMs << " ms\n"
              << "  file reload:    " << (fileOk ? "identical" : "DIFFERENT") << ", " << loadMs << " ms\n"
              << "  memory reload:  " << (memoryOk ? "identical" : "DIFFERENT") << "\n"
              << "  resaved file:   " << (resaveOk ? "byte-identical" : "DIFFERENT") << " (" << resavedPath << ")\n";

    if (!fileOk || !memoryOk || !resaveOk)
    {
        PrintError(path, "round trip is not byte-identical");
        return kExitFailure;
    }
    HtmlReport page("orbtex demo");
    bool ok = RunConversions(card, directory, "testcard", "test card conversions", kConversions, page);

    std::vector<unsigned char> photoBytes(kDemoPhotoPNG, kDemoPhotoPNG + kDemoPhotoPNGSize);
    CORBTexture photo;
    std::string photoReason;
    if (!LoadImageBytes(photoBytes, orbtexture::eColourSpaceLinear, photo, photoReason))
    {
        PrintError("built-in photograph", photoReason);
        return kExitFailure;
    }
    std::cout << "  photograph:     " << photo.getWidth() << " x " << photo.getHeight()
              << " crop of a portrait (public domain), saved as photo-*.orb\n";
    ok = RunConversions(photo, directory, "photo", "photograph conversions", kPhotoConversions, page) && ok;

    const std::string reportPath = (std::filesystem::path(directory) / "report.html").string();
    PendingOutput report(reportPath);
    std::string reportReason;
    if (!page.Write(report.TemporaryPath(), reportReason) || !report.Commit(reportReason))
    {
        PrintError(reportPath, reportReason);
        return kExitFailure;
    }
    std::cout << "  report:         " << reportPath << "\n";
    return ok ? kExitOk : kExitFailure;
}

} // namespace cli
