// orbtex compare: measure the difference of two textures and picture it.

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "CliSupport.h"
#include "Commands.h"
#include "FormatNames.h"
#include "ImageFiles.h"
#include "ORBTextureDiffTools.h"
#include "ORBTextureUtilities.h"
#include "TextureInput.h"

namespace cli
{

const char* const kCompareHelp =
    "usage: orbtex compare A B [options]\n"
    "\n"
    "Compares two textures or images of the same size and prints, for red,\n"
    "green, blue, alpha and the pixel as a whole, the largest difference, the\n"
    "mean error, the RMS error, the standard deviation of the error and the\n"
    "PSNR, over one surface. Differences are of A - B in the channels' own\n"
    "numbers: 0 to 255 for 8-bit data, 0 to 65535 for 16-bit data, 0 to 1 for\n"
    "float. Both are first brought to a pixel type the comparison takes\n"
    "(r8g8b8a8 ubn, r16g16b16a16 usn, r32g32b32a32 uin or sf; compressed\n"
    "formats are decoded); when A and B end up with different types, both are\n"
    "compared as r32g32b32a32 sf. The overall RMS is the root of the sum of the\n"
    "channels' RMS values, and the PSNR is 20 log10(peak / sqrt(RMS)); \"inf\"\n"
    "marks identical data.\n"
    "\n"
    "Options:\n"
    "  --mip N, --member N, --face N\n"
    "                         the surface to measure (default 0 each)\n"
    "  --diff OUT             write a difference image of level 0 (.png, .tga,\n"
    "                         .bmp: the first surface; .orb, .dds, .ktx: all\n"
    "                         levels, members and faces both textures hold)\n"
    "  --diff-mode colour|tolerance|blend\n"
    "                         colour (default): |A - B| x F per channel, alpha\n"
    "                         inverted so that no difference is opaque black;\n"
    "                         tolerance: black where equal, blue where every\n"
    "                         channel differs by less than F (0 to 1), red\n"
    "                         elsewhere; blend: A x F + B x (1 - F)\n"
    "  --factor F             F above (default: 1 for colour, 0.01 for\n"
    "                         tolerance, 0.5 for blend)\n"
    "\n"
    "Exit status: 0 compared, 1 a file could not be read or compared or the\n"
    "difference image not written (none is left behind), 2 usage error.\n";

namespace
{

using namespace orbtexture;

struct CompareOptions
{
    std::string first, second, diff;
    std::string mode = "colour";
    float factor = 0.0f;
    bool factorGiven = false;
    unsigned surface[3] = {0, 0, 0}; // level, member, face
};

int ParseArguments(const std::vector<std::string>& arguments, CompareOptions& options)
{
    std::vector<std::string> positional;
    for (size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& argument = arguments[i];
        if (IsHelpFlag(argument))
        {
            std::cout << kCompareHelp;
            return kExitOk;
        }
        const bool valued = argument == "--diff" || argument == "--diff-mode" || argument == "--factor" ||
                            argument == "--mip" || argument == "--member" || argument == "--face";
        if (!valued)
        {
            if (argument.size() > 1 && argument[0] == '-')
                return UsageError("compare", "unknown option '" + argument + "'");
            positional.push_back(argument);
            continue;
        }
        if (i + 1 == arguments.size())
            return UsageError("compare", argument + " needs a value");
        const std::string& value = arguments[++i];
        char* end = nullptr;
        if (argument == "--diff")
            options.diff = value;
        else if (argument == "--diff-mode")
        {
            options.mode = value == "color" ? "colour" : value;
            if (options.mode != "colour" && options.mode != "tolerance" && options.mode != "blend")
                return UsageError("compare", "--diff-mode is colour, tolerance or blend, not '" + value + "'");
        }
        else if (argument == "--factor")
        {
            options.factor = std::strtof(value.c_str(), &end);
            if (value.empty() || *end != '\0' || !std::isfinite(options.factor))
                return UsageError("compare", "--factor needs a number, not '" + value + "'");
            options.factorGiven = true;
        }
        else
        {
            errno = 0;
            const long number = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || errno || number < 0 || number > 0x7FFFFFFFL)
                return UsageError("compare", argument + " needs a number from 0, not '" + value + "'");
            options.surface[argument == "--mip" ? 0 : argument == "--member" ? 1 : 2] = unsigned(number);
        }
    }
    if (positional.size() != 2)
        return UsageError("compare", "needs two files to compare");
    options.first = positional[0];
    options.second = positional[1];
    if (!options.diff.empty())
    {
        const std::string extension = FileExtension(options.diff);
        if (!IsWritableImageExtension(extension) && extension != ".orb" && extension != ".dds" && extension != ".ktx")
            return UsageError("compare", "--diff writes .png, .tga, .bmp, .orb, .dds or .ktx, not '" + extension + "'");
    }
    if (!options.factorGiven)
        options.factor = options.mode == "tolerance" ? 0.01f : options.mode == "blend" ? 0.5f : 1.0f;
    return -1;
}

bool LoadStandard(const std::string& path, CORBTexture& texture)
{
    std::string reason;
    if (!LoadTextureOrImage(path, eColourSpaceLinear, false, texture, reason) || !MakeStandard(texture, reason))
    {
        PrintError(path, reason);
        return false;
    }
    return true;
}

std::string Size(const CORBTexture& t)
{
    return std::to_string(t.getWidth()) + "x" + std::to_string(t.getHeight()) + "x" + std::to_string(t.getDepth());
}

// The reason a pair cannot be compared at the chosen surface, naming the file.
bool CheckPair(const CompareOptions& options, const CORBTexture& a, const CORBTexture& b)
{
    if (Size(a) != Size(b))
    {
        PrintError(options.second, "size " + Size(b) + " differs from " + Size(a) + " of " + options.first);
        return false;
    }
    const char* const names[3] = {"MIP level", "array member", "face"};
    for (const auto* entry : {&options.first, &options.second})
    {
        const CORBTexture& t = entry == &options.first ? a : b;
        const uint32_t counts[3] = {t.getNumMIPLevels(), t.getNumArrayMembers(), t.getNumFaces()};
        for (int k = 0; k < 3; ++k)
            if (options.surface[k] >= counts[k])
            {
                PrintError(*entry, std::string("has no ") + names[k] + " " + std::to_string(options.surface[k]) +
                                       " (it has " + std::to_string(counts[k]) + ")");
                return false;
            }
    }
    return true;
}

std::string Number(float value)
{
    char text[32];
    std::snprintf(text, sizeof text, value == std::floor(value) && std::fabs(value) < 1e9f ? "%.0f" : "%.6g",
                  double(value));
    return text;
}

std::string Decibels(float value)
{
    if (value == -1.0f)
        return "inf";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", double(value));
    return text;
}

void PrintTable(const CORBTexture& a, const CompareOptions& options, const CORBTexture& b)
{
    const unsigned mip = options.surface[0], member = options.surface[1], face = options.surface[2];
    const ChannelDiffResult results[5] = {
        GetMaxDifference(a, b, mip, member, face), GetMeanErrorValue(a, b, mip, member, face),
        GetRMSErrorValue(a, b, mip, member, face), GetStandardDeviation(a, b, mip, member, face),
        GetPSNRValue(a, b, mip, member, face)};
    std::cout << "compared as " << PixelFormatName(a.getPixelType().PixelTypeID) << " "
              << ChannelTypeShortName(a.getChannelType()) << ", level " << mip << ", member " << member << ", face "
              << face << " (" << a.getWidth(mip) << "x" << a.getHeight(mip) << "x" << a.getDepth(mip) << ")\n";
    std::printf("%-8s %14s %14s %14s %14s %10s\n", "channel", "max", "mean", "rms", "stddev", "psnr_db");
    const char* const rows[5] = {"r", "g", "b", "a", "overall"};
    for (int row = 0; row < 5; ++row)
    {
        const auto field = [&](int measure) {
            return row < 4 ? results[measure].channels[row] : results[measure].overall;
        };
        std::printf("%-8s %14s %14s %14s %14s %10s\n", rows[row], Number(field(0)).c_str(), Number(field(1)).c_str(),
                    Number(field(2)).c_str(), Number(field(3)).c_str(), Decibels(field(4)).c_str());
    }
    std::fflush(stdout);
}

bool WriteDiff(const CompareOptions& options, const CORBTexture& a, const CORBTexture& b)
{
    const CORBTexture picture = options.mode == "tolerance" ? ToleranceDiff(a, b, options.factor)
                                : options.mode == "blend"   ? BlendDiff(a, b, options.factor)
                                                            : ColourDiff(a, b, options.factor);
    std::string reason;
    if (!picture.getDataPtr())
    {
        PrintError(options.diff, "cannot make the difference image");
        return false;
    }
    PendingOutput output(options.diff);
    const std::string extension = FileExtension(options.diff);
    bool written;
    if (IsWritableImageExtension(extension))
        written = WriteImageFile(output.TemporaryPath(), extension, picture.getDataPtr(), picture.getWidth(),
                                 picture.getHeight() * picture.getDepth(), reason);
    else
    {
        errno = 0;
        written = picture.saveFile(CORBTString(output.TemporaryPath().c_str()));
        if (!written)
            reason = std::string("cannot write file") + (errno ? ": " + std::string(std::strerror(errno)) : "");
    }
    if (!written || !output.Commit(reason))
    {
        PrintError(options.diff, reason);
        return false;
    }
    return true;
}

} // namespace

int RunCompare(const std::vector<std::string>& arguments)
{
    CompareOptions options;
    const int parsed = ParseArguments(arguments, options);
    if (parsed >= 0)
        return parsed;

    CORBTexture a, b;
    if (!LoadStandard(options.first, a) || !LoadStandard(options.second, b) || !CheckPair(options, a, b))
        return kExitFailure;
    if (a.getPixelType() != b.getPixelType() || a.getChannelType() != b.getChannelType())
        for (CORBTexture* t : {&a, &b})
            if (!Transcode(*t, PixelType(ORBStandard32PixelType), eVarSignedFloat, t->getColourSpace()))
            {
                PrintError(t == &a ? options.first : options.second, "cannot convert to r32g32b32a32 sf");
                return kExitFailure;
            }
    PrintTable(a, options, b);
    if (!options.diff.empty() && !WriteDiff(options, a, b))
        return kExitFailure;
    return kExitOk;
}

} // namespace cli
