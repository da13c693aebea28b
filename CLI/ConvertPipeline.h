#ifndef ORBTEX_CLI_CONVERT_PIPELINE_H
#define ORBTEX_CLI_CONVERT_PIPELINE_H

// One file through orbtex convert: loaded, checked against what this version
// can decode and encode, run through the image operations, converted to the
// target format and type, and written by the output writer.

#include <cstdint>
#include <string>

#include "ConvertOptions.h"
#include "ORBTexture.h"
#include "OutputWriter.h"
#include "ProgressLine.h"

namespace cli
{

// "linear", "srgb" or "sRGB"; false for anything else.
bool ParseColourSpace(const std::string& word, orbtexture::EORBTColourSpace& space);

// The --format and --type of every file of the command, read once.
struct Target
{
    uint64_t format = 0;
    uint32_t type = 0;
};

// --format and --type by their names; false with a reason.
bool ReadTarget(const ConvertOptions& options, Target& target, std::string& reason);

// How one file went: the failed path and reason, or what --verbose tells.
struct FileResult
{
    std::string failedPath, reason;
    std::string written; // format and channel type
    double seconds[3] = {0, 0, 0}; // load, convert, write
    bool measured = false;
    float psnr = 0; // -1: identical
};

// Converts 'input' to 'output' as the options ask, naming on the progress line
// the file in hand; nothing is written over a file of 'inputs'. False with
// the failed path and reason in 'result'.
bool ConvertFile(const ConvertOptions& options, const Target& target, const ProtectedInputs& inputs,
                 const std::string& input, const std::string& output, ProgressLine& progress, FileResult& result);

} // namespace cli

#endif
