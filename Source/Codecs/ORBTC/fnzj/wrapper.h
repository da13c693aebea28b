#ifndef FNZJ_WRAPPER_H
#define FNZJ_WRAPPER_H

// The optimiser's entry: the working image, the compression of a texture and
// its MIP chain, the punch-through preprocess, the progress record, and the
// records shared by the optimiser's threads.
//
// Like the rest of the optimiser, these functions end the process on an
// internal failure, as documented: a failed lock call (message, then abort),
// bitsPerPixel 1 (message, then abort), and MakeDimsCompatable on a size that
// rounds to 0 (exit status 1).

#include <cstdint>
#include <cstdio>
#include <pthread.h>

#include "Codecs/ORBTC/ORBTCCodec.h"
#include "Tools/ORBTCallContext.h"
#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// The record shared read-only by all threads of one phase: set at the entry,
// the pass fields by each pass.
struct CompressParams
{
    uint8_t format = 0;
    uint8_t bitsPerPixel = 4;
    uint8_t blockWidth = 4;   // 8 for 2bpp
    uint8_t blockHeight = 4;
    uint8_t windowWidth = 9;  // 2 x blockWidth + 1
    uint8_t windowHeight = 9; // 2 x blockHeight + 1
    uint32_t isGeneration2 = 0;
    uint32_t blocksHigh = 0;
    uint32_t blocksWide = 0;
    uint32_t punchThrough = 0; // 1 only for 4bpp with the option set
    uint32_t numIterations = 0;
    uint32_t clampToBox = 0;
    uint32_t numCandidates = 0;
    uint32_t numVariants = 0;
    int64_t otherCandidateThreshold = 0;
    uint32_t forceAllRegions = 0;
    uint32_t hardModesAllowed = 0;
    uint32_t tryHardVariants = 0;
    uint32_t hardVariantStep = 0;
    uint32_t useIslands = 0;
};

// ---- The working image ----

constexpr int kMaxImageSide = int(orbtexture::kORBTCLargestSide);

// One allocation: the record, then width x height RGBA pixels. 'rows[y]'
// points at row y. Released by ReleaseImage (a single free).
struct ImageBuffer
{
    uint32_t allocatedWidth, allocatedHeight;
    int32_t width, height; // the MIP chain changes these
    unsigned char* rows[kMaxImageSide];
    unsigned char* pixels;
};

// A cleared image; null (after "Failed to allocate a %ld*%ld image\n" on
// standard error) for a side above 4096 or a failed allocation.
ImageBuffer* NewImage(long width, long height);
void ReleaseImage(ImageBuffer* image);

// ---- Quality levels, indexed by the optimiser's quality 0 to 6 ----

extern const unsigned int NumPassesTableORBTC1[7];
extern const unsigned int NumPassesTableORBTC2[7];
extern const unsigned int NumIterationsTable[7];
extern const unsigned int NumCandidatesTable[7];
extern const unsigned int InitialPerQualVariants[7];
extern const unsigned int DecreasePerQualVariants[7];
extern const unsigned int HEVarsStepSizes[7];
extern const float OtherCandidateThresholdFactors[7];

// ---- Progress ----

struct ProgressRecord
{
    uint32_t topLevelUnits;  // work units of the top level
    uint32_t unitsDone;      // of the level in hand
    uint32_t earlierUnits;   // done in earlier levels
    uint32_t totalUnits;
    float scale;             // 1.0, or 1.3333334 while a MIP chain is made
    pthread_mutex_t lock;    // guards the record
};

// Allocates a record into 'handle' (null on failure).
ORBT_API void ORBTCInitProgressStruct(void** handle);
// Units done over total units, clamped to 0 to 1; 0 for a null handle.
ORBT_API float ORBTCGetProgress(void** handle);
ORBT_API void ORBTCFinaliseProgressStruct(void** handle);

// What the optimiser has done so far, for a caller's progress display: the
// level being compressed and its pass. Reported through FNZJSetProgressHook,
// never through the progress record above, and never changing the output.
struct FNZJProgressEvent
{
    unsigned int level, levelCount; // level 0 is the top
    unsigned int pass, passCount;   // passes done of this level
    unsigned int width, height;     // of the level
};
using FNZJProgressHook = void (*)(const FNZJProgressEvent& event, void* user);
// Process-wide; null turns reporting off. Calls come on the compressing thread.
ORBT_API void FNZJSetProgressHook(FNZJProgressHook hook, void* user);
// Reports to the hook, if any.
void FNZJReportProgress(const FNZJProgressEvent& event);
// The level and level count that the entry is working on, for the reports of
// the search (set by ORBTCCompressTexture, per thread).
void FNZJSetCurrentLevel(unsigned int level, unsigned int levelCount);
void FNZJGetCurrentLevel(unsigned int& level, unsigned int& levelCount);

// ---- Entry ----

// Informational messages go here; null (the default) silences them.
ORBT_API extern FILE* GlobDebugOutput;

// Compresses 'source' (four bytes a pixel, RGBA when rgbaOrder is non-zero,
// else BGRA; 'stride' bytes a row, 0 for width x 4) into 'output', all levels
// one after the other. Returns 0 on success, 1 on failure.
ORBT_API int ORBTCCompressTexture(const unsigned char* source, unsigned int rgbaOrder, int width, int height,
                                  int stride, unsigned char* output, uint8_t quality, unsigned int mipMode,
                                  unsigned int reserved1, unsigned int punchThrough, unsigned int format,
                                  int bitsPerPixel, unsigned int generation, unsigned int reserved2,
                                  unsigned int noTwiddle, unsigned int debugMipColours, void** progressHandle);

// The same with the threads, progress, cancel flag and debug stream of
// 'context'. A cancelled call returns 1 with the reason "cancelled".
ORBT_API int ORBTCCompressTexture(const unsigned char* source, unsigned int rgbaOrder, int width, int height,
                                  int stride, unsigned char* output, uint8_t quality, unsigned int mipMode,
                                  unsigned int reserved1, unsigned int punchThrough, unsigned int format,
                                  int bitsPerPixel, unsigned int generation, unsigned int reserved2,
                                  unsigned int noTwiddle, unsigned int debugMipColours, void** progressHandle,
                                  const ORBTCallContext& context);

// Compresses one level of 'image'. Returns 0 on success, 1 otherwise.
ORBT_API int FNZJNewMethod(ImageBuffer* image, unsigned int format, int bitsPerPixel, unsigned int generation,
                           unsigned int noTwiddle, unsigned int quality, unsigned int punchThrough,
                           unsigned char* output, void** progressHandle);

// For tests: what FNZJNewMethod hands the search of a level, seen just before
// the search runs (the output already cleared, noTwiddle as adjusted).
struct FNZJLevelCall
{
    const ImageBuffer* image;
    unsigned int format;
    int bitsPerPixel;
    bool isGeneration2;
    const unsigned char* output;
    unsigned int noTwiddle;
    unsigned int quality;
    unsigned int punchThrough;
};
using FNZJLevelObserver = void (*)(const FNZJLevelCall& call, void* user);
// Null (the default) for none. Not for use while another thread compresses.
void FNZJSetLevelObserver(FNZJLevelObserver observer, void* user);

// The library's door: rgba8 pixels of one level. 0 on success.
int orbtc_compress(const unsigned char* source, unsigned char* output, int width, int height, unsigned int generation,
                   unsigned int quality, int twoBitFlag);

// Punch-through preprocess of the top level, in place.
void PTPreprocess(ImageBuffer* image, bool isGeneration2);

bool ValIsPOW2(long value);

// Rounds a size down to whole blocks (see the header comment for its exits).
void MakeDimsCompatable(const char* imageName, int bitsPerPixel, int& width, int& height, unsigned int& noTwiddle,
                        bool warn);

} // namespace orbtexture

#endif
