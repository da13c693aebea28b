#ifndef FUZZSEEDS_H
#define FUZZSEEDS_H

// Seed writers of the fuzz targets. A file under Fuzz/Seeds/ registers the
// seeds of a target with a static FuzzSeedRegistration; fuzzseeds DIR writes
// each target's seeds to DIR/<target>/seed-N.

#include <cstdint>
#include <string>
#include <vector>

typedef std::vector<uint8_t> FuzzBytes;
typedef std::vector<FuzzBytes> (*FuzzSeedFunction)();

struct FuzzSeedRegistration
{
    FuzzSeedRegistration(const char* target, FuzzSeedFunction seeds);
};

// The bytes of a file, empty if it cannot be read: seeds written by the
// library's own writers go through a scratch file.
FuzzBytes ReadFuzzSeedFile(const std::string& path);

#endif
