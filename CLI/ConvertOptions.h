#ifndef ORBTEX_CLI_CONVERT_OPTIONS_H
#define ORBTEX_CLI_CONVERT_OPTIONS_H

// The settings of an 'orbtex convert' run, as its arguments give them.

#include <string>
#include <vector>

#include "ImageOperations.h"

namespace cli
{

struct ConvertOptions
{
    // One file: inputs[0] to output. A batch (-o DIR): every input, files
    // of a folder among them, to DIR/NAME.extension.
    std::vector<std::string> inputs;
    std::string output;
    bool batch = false;
    std::string outDirectory;
    std::string extension; // with its dot; .orb unless --ext gives one
    int jobs = 0;          // 0: one per core
    bool verbose = false;
    std::string format;
    std::string type;
    std::string colourSpace;
    std::string inputColourSpace = "linear";
    int quality = 0;
    bool qualityGiven = false;
    bool reencode = false;
    bool force = false;
    bool dither = false;
    bool allSurfaces = false;
    bool allowShort = false;
    bool quiet = false;
    int legacyApi = 0; // 0: a native .orb
    int zstdLevel = 0; // a .ktx2 output's Zstandard level; 0: none
    ImageOperations operations;
};

} // namespace cli

#endif
