// orbtex compare: measure the difference of two textures and picture it.

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>

#include "CliSupport.h"
#include "Commands.h"
#include "FormatNames.h"
#include "HtmlReport.h"
#include "ImageFiles.h"
#include "OptionParser.h"
#include "ORBTextureDiffTools.h"
#include "ORBTextureUtilities.h"
#include "Scores.h"
#include "TextureInput.h"

namespace cli
{

const char* const kCompareHelp =
    "usage: orbtex compare A B [options]\n"
    "       orbtex compare ORIGINAL RESULT... --report DIR [options]\n"
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
    "marks identical data. When B's format holds alpha, red, green, blue and\n"
    "the whole pixel are measured only where A is visible in B (A's alpha\n"
    "above 0, or at least half for 1-bit alpha), since colour under alpha 0\n"
    "is never seen; alpha is measured over every pixel.\n"
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
    "  --factor F             F above (default: 1 for colour, 8 for colour in\n"
    "                         a report, 0.01 for tolerance, 0.5 for blend)\n"
    "  --report DIR           compare each RESULT with ORIGINAL and write\n"
    "                         DIR/report.html: a table of format, quality\n"
    "                         (from a -qN at the end of the name), bits per\n"
    "                         pixel, data bytes, overall PSNR (where the\n"
    "                         original is visible, as above), alpha's own\n"
    "                         PSNR, and the time to load and decode, also\n"
    "                         printed, and for each\n"
    "                         RESULT the original, the decoded result and\n"
    "                         the difference image of the measured surface\n"
    "                         as .png files beside it\n"
    "\n"
    "Exit status: 0 compared, 1 a file could not be read or compared or the\n"
    "difference image not written (none is left behind; a report leaves out\n"
    "the results that failed), 2 usage error.\n";

namespace
{

using namespace orbtexture;

struct CompareOptions
{
    std::string first, diff, report;
    std::vector<std::string> results; // one unless a report is asked for
    std::string mode = "colour";
    float factor = 0.0f;
    bool factorGiven = false;
    unsigned surface[3] = {0, 0, 0}; // level, member, face
};

// --mip, --member or --face: a surface index stored in 'index'.
Option SurfaceOption(const std::string& name, unsigned& index)
{
    return {name, OptionValue::Required, [name, &index](const std::string& value) {
                char* end = nullptr;
                errno = 0;
                const long number = std::strtol(value.c_str(), &end, 10);
                if (value.empty() || *end != '\0' || errno || number < 0 || number > 0x7FFFFFFFL)
                    return name + " needs a number from 0, not '" + value + "'";
                index = unsigned(number);
                return std::string();
            }};
}

int ParseArguments(const std::vector<std::string>& arguments, CompareOptions& options)
{
    std::vector<std::string> positional;
    OptionTable table{"compare", kCompareHelp, {}, &positional};
    std::vector<Option>& o = table.options;
    o.push_back(TextOption("--diff", options.diff));
    o.push_back(TextOption("--report", options.report));
    o.push_back({"--diff-mode", OptionValue::Required, [&options](const std::string& value) {
                     options.mode = value == "color" ? "colour" : value;
                     if (options.mode != "colour" && options.mode != "tolerance" && options.mode != "blend")
                         return "--diff-mode is colour, tolerance or blend, not '" + value + "'";
                     return std::string();
                 }});
    o.push_back({"--factor", OptionValue::Required, [&options](const std::string& value) {
                     char* end = nullptr;
                     options.factor = std::strtof(value.c_str(), &end);
                     if (value.empty() || *end != '\0' || !std::isfinite(options.factor))
                         return "--factor needs a number, not '" + value + "'";
                     options.factorGiven = true;
                     return std::string();
                 }});
    o.push_back(SurfaceOption("--mip", options.surface[0]));
    o.push_back(SurfaceOption("--member", options.surface[1]));
    o.push_back(SurfaceOption("--face", options.surface[2]));
    const int parsed = ParseOptions(arguments, table);
    if (parsed >= 0)
        return parsed;
    if (positional.size() < 2 || (positional.size() > 2 && options.report.empty()))
        return UsageError("compare", "needs two files to compare (or an original and results with --report)");
    if (positional.size() > 2 && !options.diff.empty())
        return UsageError("compare", "--diff takes one pair of files");
    options.first = positional[0];
    options.results.assign(positional.begin() + 1, positional.end());
    if (!options.diff.empty())
    {
        const std::string extension = FileExtension(options.diff);
        if (!IsWritableImageExtension(extension) && extension != ".orb" && extension != ".dds" && extension != ".ktx")
            return UsageError("compare", "--diff writes .png, .tga, .bmp, .orb, .dds or .ktx, not '" + extension + "'");
    }
    if (!options.factorGiven)
        options.factor = options.mode == "tolerance" ? 0.01f
                         : options.mode == "blend"   ? 0.5f
                         : options.report.empty()    ? 1.0f
                                                     : 8.0f;
    return -1;
}

// Loads a file and brings it to a standard type; 'holds' tells what its own
// format keeps.
bool LoadStandard(const std::string& path, CORBTexture& texture, Holds& holds)
{
    std::string reason;
    if (!LoadTextureOrImage(path, eColourSpaceLinear, false, texture, reason))
    {
        PrintError(path, reason);
        return false;
    }
    holds = WhatItHolds(texture.getPixelType());
    if (!MakeStandard(texture, reason))
    {
        PrintError(path, reason);
        return false;
    }
    return true;
}

// The pair measured for colour and the pixel as a whole: where a result that
// holds alpha shows the original, or the whole surface; 'kept' of 'pixels'.
struct MeasuredPair
{
    CORBTexture a, b;
    unsigned mip = 0, member = 0, face = 0;
    size_t kept = 0, pixels = 0;
};

MeasuredPair ColourPair(const CORBTexture& a, const CORBTexture& b, Holds holds, unsigned mip, unsigned member,
                        unsigned face)
{
    MeasuredPair pair;
    pair.pixels = size_t(a.getWidth(mip)) * a.getHeight(mip) * a.getDepth(mip);
    if (MasksColour(holds))
    {
        VisiblePixels(a, b, mip, member, face, holds, pair.a, pair.b, pair.kept);
        if (pair.kept < pair.pixels)
            return pair;
    }
    pair.a = a, pair.b = b, pair.mip = mip, pair.member = member, pair.face = face, pair.kept = pair.pixels;
    return pair;
}

std::string Size(const CORBTexture& t)
{
    return std::to_string(t.getWidth()) + "x" + std::to_string(t.getHeight()) + "x" + std::to_string(t.getDepth());
}

// Whether a pair can be compared at the chosen surface; if not, says why,
// naming the file.
bool CheckPair(const CompareOptions& options, const CORBTexture& a, const std::string& second, const CORBTexture& b)
{
    if (Size(a) != Size(b))
    {
        PrintError(second, "size " + Size(b) + " differs from " + Size(a) + " of " + options.first);
        return false;
    }
    const char* const names[3] = {"MIP level", "array member", "face"};
    for (const auto* entry : {&options.first, &second})
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

// Brings a loaded pair to one type; false after naming the file that failed.
bool Comparable(const CompareOptions& options, CORBTexture& a, const std::string& second, CORBTexture& b)
{
    std::string reason;
    const int failed = ToCommonType(a, b, reason);
    if (failed)
        PrintError(failed == 1 ? options.first : second, reason);
    return failed == 0;
}

std::string Number(float value)
{
    char text[32];
    std::snprintf(text, sizeof text, value == std::floor(value) && std::fabs(value) < 1e9f ? "%.0f" : "%.6g",
                  double(value));
    return text;
}

// The five measures of a pair over one surface.
struct Measures
{
    ChannelDiffResult results[5];
};

Measures Measure(const CORBTexture& a, const CORBTexture& b, unsigned mip, unsigned member, unsigned face)
{
    if (!a.getDataPtr())
        return Measures{};
    return {{GetMaxDifference(a, b, mip, member, face), GetMeanErrorValue(a, b, mip, member, face),
             GetRMSErrorValue(a, b, mip, member, face), GetStandardDeviation(a, b, mip, member, face),
             GetPSNRValue(a, b, mip, member, face)}};
}

void PrintTable(const CORBTexture& a, const CompareOptions& options, const CORBTexture& b, Holds holds)
{
    const unsigned mip = options.surface[0], member = options.surface[1], face = options.surface[2];
    const MeasuredPair pair = ColourPair(a, b, holds, mip, member, face);
    const Measures colour = Measure(pair.a, pair.b, pair.mip, pair.member, pair.face);
    const Measures whole = Measure(a, b, mip, member, face);
    std::cout << "compared as " << PixelFormatName(a.getPixelType().PixelTypeID) << " "
              << ChannelTypeShortName(a.getChannelType()) << ", level " << mip << ", member " << member << ", face "
              << face << " (" << a.getWidth(mip) << "x" << a.getHeight(mip) << "x" << a.getDepth(mip) << ")\n";
    if (pair.kept < pair.pixels)
        std::cout << "r, g, b and overall over the " << pair.kept << " of " << pair.pixels << " pixels where "
                  << options.first << " is visible in " << options.results[0] << "; a over all\n";
    std::printf("%-8s %14s %14s %14s %14s %10s\n", "channel", "max", "mean", "rms", "stddev", "psnr_db");
    const char* const rows[5] = {"r", "g", "b", "a", "overall"};
    for (int row = 0; row < 5; ++row)
    {
        const auto field = [&](int measure) {
            const ChannelDiffResult& result = (row == 3 ? whole : colour).results[measure];
            return row < 4 ? result.channels[row] : result.overall;
        };
        // A result that shows none of the original has no colour to measure.
        const bool none = pair.kept == 0 && row != 3;
        const auto text = [&](int measure) {
            return none ? std::string("-") : measure < 4 ? Number(field(measure)) : DecibelsText(field(4));
        };
        std::printf("%-8s %14s %14s %14s %14s %10s\n", rows[row], text(0).c_str(), text(1).c_str(), text(2).c_str(),
                    text(3).c_str(), text(4).c_str());
    }
    std::fflush(stdout);
}

CORBTexture DiffPicture(const CompareOptions& options, const CORBTexture& a, const CORBTexture& b)
{
    return options.mode == "tolerance" ? ToleranceDiff(a, b, options.factor)
           : options.mode == "blend"   ? BlendDiff(a, b, options.factor)
                                       : ColourDiff(a, b, options.factor);
}

// Writes the measured surface of 'texture' as a PNG into 'output'.
bool WriteSurfacePng(const CompareOptions& options, const CORBTexture& texture, PendingOutput& output,
                     std::string& reason)
{
    const unsigned mip = options.surface[0], member = options.surface[1], face = options.surface[2];
    CORBTexture rgba8(texture);
    if (!ToRGBA8(rgba8, reason))
        return false;
    return WriteImageFile(output.TemporaryPath(), ".png", rgba8.getDataPtr(mip, member, face), rgba8.getWidth(mip),
                          rgba8.getHeight(mip) * rgba8.getDepth(mip), reason);
}

bool WriteDiff(const CompareOptions& options, const CORBTexture& a, const CORBTexture& b)
{
    const CORBTexture picture = DiffPicture(options, a, b);
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
        written = picture.saveFile(CORBTString(output.TemporaryPath().c_str()));
        if (!written)
            reason = "cannot write file: " + std::string(ORBTGetLastErrno() ? std::strerror(ORBTGetLastErrno())
                                                                             : ORBTGetLastError());
    }
    if (!written || !output.Commit(reason))
    {
        PrintError(options.diff, reason);
        return false;
    }
    return true;
}

// The files of a report, named after the inputs but never twice the same.
class ReportFiles
{
public:
    explicit ReportFiles(const std::string& directory) : m_directory(directory) {}

    // A new PNG in the report's folder for 'path' and 'role'; its name.
    std::string Add(const std::string& path, const std::string& role)
    {
        std::string base = std::filesystem::path(path).filename().string() + "-" + role;
        for (char& c : base)
            if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-' && c != '_')
                c = '_';
        std::string name = base + ".png";
        for (int n = 2; !m_names.insert(name).second; ++n)
            name = base + "-" + std::to_string(n) + ".png";
        m_outputs.push_back(std::make_unique<PendingOutput>(Path(name)));
        return name;
    }
    PendingOutput& Last() { return *m_outputs.back(); }
    std::string Path(const std::string& name) const { return (std::filesystem::path(m_directory) / name).string(); }
    bool CommitAll(std::string& failed, std::string& reason)
    {
        for (auto& output : m_outputs)
            if (!output->Commit(reason))
            {
                failed = output->Destination();
                return false;
            }
        return true;
    }

private:
    std::string m_directory;
    std::set<std::string> m_names;
    std::vector<std::unique_ptr<PendingOutput>> m_outputs;
};

// The quality a file name tells by a -qN at the end of its stem, as orbtex
// demo names its files; "-" if none.
std::string QualityFromName(const std::string& path)
{
    const std::string stem = std::filesystem::path(path).stem().string();
    const size_t at = stem.rfind("-q");
    if (at == std::string::npos || at + 2 == stem.size() ||
        stem.find_first_not_of("0123456789", at + 2) != std::string::npos)
        return "-";
    return stem.substr(at + 2);
}

int RunReport(const CompareOptions& options)
{
    CORBTexture original;
    Holds unused;
    if (!LoadStandard(options.first, original, unused))
        return kExitFailure;
    std::error_code error;
    if (!std::filesystem::create_directories(options.report, error) && error)
    {
        PrintError(options.report, "cannot create folder: " + error.message());
        return kExitFailure;
    }
    const unsigned mip = options.surface[0], member = options.surface[1], face = options.surface[2];
    ReportFiles files(options.report);
    std::string reason;
    const std::string originalPicture = files.Add(options.first, "original");
    if (!WriteSurfacePng(options, original, files.Last(), reason))
    {
        PrintError(files.Last().Destination(), reason);
        return kExitFailure;
    }

    ReportTable table{{"file", "format", "quality", "bpp", "bytes", "psnr_db", "alpha_psnr_db", "time_ms"}, {}};
    std::vector<std::pair<std::string, std::vector<ReportPicture>>> rows;
    const auto picture = [&](const std::string& file, const std::string& caption) {
        return ReportPicture{file, caption, original.getWidth(mip), original.getHeight(mip) * original.getDepth(mip)};
    };
    bool failed = false;
    for (const std::string& path : options.results)
    {
        const auto start = std::chrono::steady_clock::now();
        CORBTexture result;
        if (!LoadTextureOrImage(path, eColourSpaceLinear, false, result, reason))
        {
            PrintError(path, reason);
            failed = true;
            continue;
        }
        const std::vector<std::string> stored = {PixelFormatName(result.getPixelType().PixelTypeID),
                                                 QualityFromName(path), StoredBitsPerPixel(result),
                                                 std::to_string(result.getDataSize())};
        const Holds holds = WhatItHolds(result.getPixelType());
        CORBTexture a(original);
        if (!CheckPair(options, a, path, result) || !Comparable(options, a, path, result))
        {
            failed = true;
            continue;
        }
        const double milliseconds =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        const CORBTexture difference = DiffPicture(options, a, result);
        const std::string decodedName = files.Add(path, "decoded");
        bool written = WriteSurfacePng(options, result, files.Last(), reason);
        const std::string differenceName = written ? files.Add(path, "difference") : "";
        written = written && WriteSurfacePng(options, difference, files.Last(), reason);
        if (!written)
        {
            PrintError(files.Last().Destination(), reason);
            return kExitFailure;
        }
        char time[32];
        std::snprintf(time, sizeof time, "%.1f", milliseconds);
        table.rows.push_back({path});
        table.rows.back().insert(table.rows.back().end(), stored.begin(), stored.end());
        const MeasuredPair pair = ColourPair(a, result, holds, mip, member, face);
        table.rows.back().push_back(
            pair.kept ? DecibelsText(GetPSNRValue(pair.a, pair.b, pair.mip, pair.member, pair.face).overall) : "-");
        const bool alpha = MasksColour(holds);
        table.rows.back().push_back(alpha ? DecibelsText(GetPSNRValue(a, result, mip, member, face).channels[3])
                                          : "-");
        table.rows.back().push_back(time);
        rows.push_back({path,
                        {picture(originalPicture, "original " + options.first), picture(decodedName, "decoded"),
                         picture(differenceName, "difference (" + options.mode + ", factor " +
                                                     Number(options.factor) + ")")}});
    }

    HtmlReport page("orbtex compare: " + options.first);
    page.AddParagraph("Each result against " + options.first + " (" + Size(original) + "), level " +
                      std::to_string(mip) + ", member " + std::to_string(member) + ", face " + std::to_string(face) +
                      "; bpp and bytes are of the result as stored, psnr_db is the overall PSNR (for a result "
                      "that holds alpha, over the pixels where the original is visible in it: alpha above 0, or "
                      "at least half for 1-bit alpha), alpha_psnr_db alpha's own over every pixel (- for a "
                      "result without alpha), time_ms the time to load and decode the result.");
    page.AddTable(table);
    for (const auto& row : rows)
        page.AddPictures(row.first, row.second);
    PendingOutput html(files.Path("report.html"));
    std::string failedPath = html.Destination();
    if (!page.Write(html.TemporaryPath(), reason) || !files.CommitAll(failedPath, reason) || !html.Commit(reason))
    {
        PrintError(failedPath, reason);
        return kExitFailure;
    }
    table.Print(std::cout);
    std::cout << "report: " << html.Destination() << "\n";
    return failed ? kExitFailure : kExitOk;
}

} // namespace

int RunCompare(const std::vector<std::string>& arguments)
{
    CompareOptions options;
    const int parsed = ParseArguments(arguments, options);
    if (parsed >= 0)
        return parsed;
    const ASTCLeftoversRemoved leftovers;
    if (!options.report.empty())
        return RunReport(options);

    const std::string& second = options.results[0];
    CORBTexture a, b;
    Holds unused, holds;
    if (!LoadStandard(options.first, a, unused) || !LoadStandard(second, b, holds) ||
        !CheckPair(options, a, second, b) || !Comparable(options, a, second, b))
        return kExitFailure;
    PrintTable(a, options, b, holds);
    if (!options.diff.empty() && !WriteDiff(options, a, b))
        return kExitFailure;
    return kExitOk;
}

} // namespace cli
