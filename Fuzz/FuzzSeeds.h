#ifndef FUZZSEEDS_H
#define FUZZSEEDS_H

// Seed writers of the fuzz targets. A file under Fuzz/Seeds/ registers the
// seeds of a target with a static FuzzSeedRegistration; fuzzseeds DIR writes
// each target's seeds to DIR/<target>/seed-N.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "FuzzSupport.h"

typedef std::vector<uint8_t> FuzzBytes;
typedef std::vector<FuzzBytes> (*FuzzSeedFunction)();

struct FuzzSeedRegistration
{
    FuzzSeedRegistration(const char* target, FuzzSeedFunction seeds);
};

// The bytes of a file, empty if it cannot be read.
FuzzBytes ReadFuzzSeedFile(const std::string& path);

// What save(path) writes to a scratch file of the given extension (empty if
// it fails): seeds written by the library's own writers.
template <typename Save>
FuzzBytes SavedSeed(const char* extension, Save&& save)
{
    const std::string path = FuzzScratchPath("fuzzseeds", "seed", extension);
    FuzzBytes bytes;
    if (save(path))
        bytes = ReadFuzzSeedFile(path);
    std::remove(path.c_str());
    return bytes;
}

#endif
