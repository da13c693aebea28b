#include "Codecs/ORBTC/fnzj/wrapper.h"

#include "Codecs/ORBTC/fnzj/threadsupport.h"
#include "Model/ORBTextureErrors.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sched.h>

namespace orbtexture
{

FILE* GlobDebugOutput = nullptr;

// ---- Quality levels ----

const unsigned int NumPassesTableORBTC1[7] = {2, 4, 6, 8, 16, 32, 128};
const unsigned int NumPassesTableORBTC2[7] = {2, 5, 6, 8, 16, 32, 128};
const unsigned int NumIterationsTable[7] = {4, 8, 16, 16, 20, 22, 32};
const unsigned int NumCandidatesTable[7] = {1, 1, 2, 3, 3, 4, 4};
const unsigned int InitialPerQualVariants[7] = {4, 7, 10, 13, 13, 13, 13};
const unsigned int DecreasePerQualVariants[7] = {2, 2, 1, 1, 0, 0, 0};
const unsigned int HEVarsStepSizes[7] = {4, 4, 4, 4, 2, 1, 1};
const float OtherCandidateThresholdFactors[7] = {0.5f, 0.4f, 0.3f, 0.2f, 0.001f, 0.0005f, 0.0f};

namespace
{

constexpr int kMaxQuality = 6;

__attribute__((format(printf, 1, 2))) void DebugPrint(const char* format, ...)
{
    FILE* const stream = CurrentCallContext().debug ? CurrentCallContext().debug : GlobDebugOutput;
    if (!stream)
        return;
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stream, format, arguments);
    va_end(arguments);
}

[[noreturn]] void MutexFailure(const char* action, int line, int error)
{
    // Ends the process: a lock that fails leaves the progress record unusable.
    std::fprintf(stderr, "%s at \"%s\":%d: %s\n", action, "wrapper", line, std::strerror(error));
    std::abort();
}

// Runs a pthread mutex call; a failure reports the call's line and aborts.
#define FNZJ_MUTEX_CALL(call, action)                                                                                  \
    do                                                                                                                 \
    {                                                                                                                  \
        if (const int mutexError = (call); mutexError != 0)                                                            \
            MutexFailure(action, __LINE__, mutexError);                                                                \
    } while (0)

std::atomic<FNZJProgressHook> progressHook{nullptr};
std::atomic<void*> progressHookUser{nullptr};
thread_local unsigned int currentLevel = 0, currentLevelCount = 1;

FNZJLevelObserver levelObserver = nullptr;
void* levelObserverUser = nullptr;

// The smallest level: 2 x 2 blocks.
struct MinimumLevelSize
{
    int width, height;
};
MinimumLevelSize MinimumLevelSizeFor(int bitsPerPixel)
{
    if (bitsPerPixel == 1)
        return {16, 16};
    if (bitsPerPixel == 2)
        return {16, 8};
    return {8, 8};
}

// Pixels a word covers: 8 x 8, 8 x 4 or 4 x 4.
int PixelsPerWord(int bitsPerPixel)
{
    return bitsPerPixel == 1 ? 64 : bitsPerPixel == 2 ? 32 : 16;
}

int Wrap(int value, int size)
{
    return (value % size + size) % size;
}

// ---- Generation 1 punch-through bleed ----

constexpr uint64_t kBleedWeights[11] = {1, 4, 16, 64, 256, 1024, 256, 64, 16, 4, 1};
constexpr int kBleedRadius = 5;
constexpr int kSavedRows = 5;   // the first rows, read again when windows wrap from the bottom
constexpr int kDelayedRows = 6; // finished rows that a later window may still read
constexpr int kTransparentBelow = 5;

// Row y of the image into 'out', its near-transparent pixels replaced by the
// weighted mean colour of their neighbourhood. 'columnSums' has room for four
// sums a pixel.
void BleedRow(const ImageBuffer& image, int y, uint64_t* columnSums, unsigned char* out)
{
    const int width = image.width, height = image.height;
    const unsigned char* source = image.rows[y];
    std::memcpy(out, source, size_t(width) * 4);
    bool anyTransparent = false;
    for (int x = 0; x < width && !anyTransparent; ++x)
        anyTransparent = source[4 * x + 3] < kTransparentBelow;
    if (!anyTransparent)
        return;

    // Down each column: alpha times row weight, and that times each channel.
    std::fill(columnSums, columnSums + size_t(width) * 4, 0);
    for (int dy = -kBleedRadius; dy <= kBleedRadius; ++dy)
    {
        const unsigned char* row = image.rows[Wrap(y + dy, height)];
        const uint64_t rowWeight = kBleedWeights[dy + kBleedRadius];
        for (int x = 0; x < width; ++x)
        {
            const uint64_t weight = rowWeight * row[4 * x + 3];
            uint64_t* sums = columnSums + 4 * x;
            sums[0] += weight * row[4 * x];
            sums[1] += weight * row[4 * x + 1];
            sums[2] += weight * row[4 * x + 2];
            sums[3] += weight;
        }
    }

    for (int x = 0; x < width; ++x)
    {
        if (source[4 * x + 3] >= kTransparentBelow)
            continue;
        uint64_t total[4] = {0, 0, 0, 0};
        for (int dx = -kBleedRadius; dx <= kBleedRadius; ++dx)
        {
            const uint64_t columnWeight = kBleedWeights[dx + kBleedRadius];
            const uint64_t* sums = columnSums + 4 * Wrap(x + dx, width);
            for (int c = 0; c < 4; ++c)
                total[c] += columnWeight * sums[c];
        }
        const uint64_t divisor = total[3] != 0 ? total[3] : 1;
        for (int c = 0; c < 3; ++c) // sum / divisor + 0.5, truncated
            out[4 * x + c] = static_cast<unsigned char>((2 * total[c] + divisor) / (2 * divisor));
        out[4 * x + 3] = 0;
    }
}

void PTPreprocessGeneration1(ImageBuffer& image)
{
    const int width = image.width, height = image.height;
    if (width <= 0 || height <= 0)
        return;
    const size_t rowBytes = size_t(width) * 4;

    unsigned char* saved[kSavedRows] = {};
    unsigned char* delayed[kDelayedRows] = {};
    auto* columnSums = static_cast<uint64_t*>(std::malloc(size_t(width) * 4 * sizeof(uint64_t)));
    bool gotAll = columnSums != nullptr;
    for (auto& buffer : saved)
        gotAll = (buffer = static_cast<unsigned char*>(std::malloc(rowBytes))) != nullptr && gotAll;
    for (auto& buffer : delayed)
        gotAll = (buffer = static_cast<unsigned char*>(std::malloc(rowBytes))) != nullptr && gotAll;

    if (gotAll)
    {
        // A finished row waits in the ring until the window of the row six
        // below no longer reaches it; the first rows wait until the end.
        for (int y = 0; y < height; ++y)
        {
            unsigned char* target;
            if (y < kSavedRows)
                target = saved[y];
            else
            {
                const int slot = (y - kSavedRows) % kDelayedRows;
                if (y - kSavedRows >= kDelayedRows)
                    std::memcpy(image.rows[y - kDelayedRows], delayed[slot], rowBytes);
                target = delayed[slot];
            }
            BleedRow(image, y, columnSums, target);
        }
        for (int y = std::max(kSavedRows, height - kDelayedRows); y < height; ++y)
            std::memcpy(image.rows[y], delayed[(y - kSavedRows) % kDelayedRows], rowBytes);
        for (int y = 0; y < std::min(kSavedRows, height); ++y)
            std::memcpy(image.rows[y], saved[y], rowBytes);
    }
    else
        std::fprintf(stderr, "Malloc failed in PTPreProcORBTC1. Aborting filter\n");

    for (auto* buffer : delayed)
        std::free(buffer);
    for (auto* buffer : saved)
        std::free(buffer);
    std::free(columnSums);
}

// Puts the thread's current level back to the top of a one-level texture.
struct CurrentLevelReset
{
    ~CurrentLevelReset() { FNZJSetCurrentLevel(0, 1); }
};

} // namespace

// ---- The working image ----

ImageBuffer* NewImage(long width, long height)
{
    ImageBuffer* image = nullptr;
    if (width >= 0 && height >= 0 && width <= kMaxImageSide && height <= kMaxImageSide)
        image = static_cast<ImageBuffer*>(std::calloc(1, sizeof(ImageBuffer) + size_t(width) * size_t(height) * 4));
    if (!image)
    {
        std::fprintf(stderr, "Failed to allocate a %ld*%ld image\n", width, height);
        return nullptr;
    }
    image->allocatedWidth = uint32_t(width);
    image->allocatedHeight = uint32_t(height);
    image->width = int32_t(width);
    image->height = int32_t(height);
    image->pixels = reinterpret_cast<unsigned char*>(image + 1);
    for (long y = 0; y < height; ++y)
        image->rows[y] = image->pixels + size_t(y) * size_t(width) * 4;
    return image;
}

void ReleaseImage(ImageBuffer* image)
{
    std::free(image);
}

// ---- Progress ----

void ORBTCInitProgressStruct(void** handle)
{
    if (!handle)
        return;
    auto* record = static_cast<ProgressRecord*>(std::malloc(sizeof(ProgressRecord)));
    if (record)
    {
        FNZJ_MUTEX_CALL(pthread_mutex_init(&record->lock, nullptr), "init mutex");
        record->topLevelUnits = record->unitsDone = record->earlierUnits = record->totalUnits = 0;
        record->scale = 0.0f;
    }
    *handle = record;
}

float ORBTCGetProgress(void** handle)
{
    if (!handle || !*handle)
        return 0.0f;
    auto* record = static_cast<ProgressRecord*>(*handle);
    float value;
    FNZJ_MUTEX_CALL(pthread_mutex_lock(&record->lock), "lock mutex");
    if (record->totalUnits != 0)
        value = float(uint64_t(record->unitsDone) + record->earlierUnits) / float(record->totalUnits);
    else if (record->topLevelUnits == 0)
        value = 0.0f;
    else
        value = float(record->unitsDone) / (0.0f * record->scale);
    FNZJ_MUTEX_CALL(pthread_mutex_unlock(&record->lock), "unlock mutex");
    sched_yield();
    if (value > 1.0f)
        return 1.0f;
    if (value >= 0.0f)
        return value;
    return 0.0f; // below 0, or not a number
}

void ORBTCFinaliseProgressStruct(void** handle)
{
    if (!handle || !*handle)
        return;
    auto* record = static_cast<ProgressRecord*>(*handle);
    FNZJ_MUTEX_CALL(pthread_mutex_destroy(&record->lock), "destroy mutex");
    std::free(record);
    *handle = nullptr;
}

void FNZJSetProgressHook(FNZJProgressHook hook, void* user)
{
    progressHook.store(nullptr);
    progressHookUser.store(user);
    progressHook.store(hook);
}

void FNZJReportProgress(const FNZJProgressEvent& event)
{
    if (const FNZJProgressHook hook = progressHook.load())
        hook(event, progressHookUser.load());
    if (event.levelCount && event.passCount)
        CurrentCallContext().Report((float(event.level) + float(event.pass) / float(event.passCount)) /
                                    float(event.levelCount));
}

void FNZJSetCurrentLevel(unsigned int level, unsigned int levelCount)
{
    currentLevel = level;
    currentLevelCount = levelCount;
}

void FNZJGetCurrentLevel(unsigned int& level, unsigned int& levelCount)
{
    level = currentLevel;
    levelCount = currentLevelCount;
}

void FNZJSetLevelObserver(FNZJLevelObserver observer, void* user)
{
    levelObserver = observer;
    levelObserverUser = user;
}

// ---- Entry ----

bool ValIsPOW2(long value)
{
    return value > 0 && (value & (value - 1)) == 0;
}

int ORBTCCompressTexture(const unsigned char* source, unsigned int rgbaOrder, int width, int height, int stride,
                         unsigned char* output, uint8_t quality, unsigned int mipMode, unsigned int /*reserved1*/,
                         unsigned int punchThrough, unsigned int format, int bitsPerPixel, unsigned int generation,
                         unsigned int /*reserved2*/, unsigned int noTwiddle, unsigned int debugMipColours,
                         void** progressHandle)
{
    if (quality > kMaxQuality)
        quality = kMaxQuality;

    if (progressHandle && *progressHandle)
    {
        auto* record = static_cast<ProgressRecord*>(*progressHandle);
        FNZJ_MUTEX_CALL(pthread_mutex_lock(&record->lock), "lock mutex");
        record->topLevelUnits = record->unitsDone = record->earlierUnits = record->totalUnits = 0;
        record->scale = mipMode != 0 ? 1.3333334f : 1.0f;
        FNZJ_MUTEX_CALL(pthread_mutex_unlock(&record->lock), "unlock mutex");
    }

    if (!source)
        return SetError(eORBTErrorArgument, "ORBTCCompressTexture: no source pixels"), 1;

    // The chain doubles a side at its minimum before halving it, so a top
    // level side at the minimum gets room for twice as much.
    const bool chainable = mipMode != 0 && ValIsPOW2(width) && ValIsPOW2(height);
    const MinimumLevelSize minimum = MinimumLevelSizeFor(bitsPerPixel);
    const long allocatedWidth = chainable && width == minimum.width ? 2L * width : width;
    const long allocatedHeight = chainable && height == minimum.height ? 2L * height : height;
    ImageBuffer* image = NewImage(allocatedWidth, allocatedHeight);
    if (!image)
        return SetError(eORBTErrorMemory, "the optimiser could not allocate a %ldx%ld image", allocatedWidth,
                        allocatedHeight),
               1;
    image->width = width;
    image->height = height;

    const ptrdiff_t sourceStep = stride != 0 ? ptrdiff_t(stride) : ptrdiff_t(width) * 4;
    for (int y = 0; y < height; ++y, source += sourceStep)
    {
        unsigned char* row = image->rows[y];
        if (rgbaOrder != 0)
            std::memcpy(row, source, size_t(width) * 4);
        else
            for (int x = 0; x < width; ++x)
            {
                row[4 * x] = source[4 * x + 2];
                row[4 * x + 1] = source[4 * x + 1];
                row[4 * x + 2] = source[4 * x];
                row[4 * x + 3] = source[4 * x + 3];
            }
    }

    DebugPrint("\nCompressing data. Please wait...\n\n");

    unsigned int furtherLevels = 0;
    if (mipMode != 0)
    {
        if (chainable)
            while ((1L << furtherLevels) < std::max(width, height))
                ++furtherLevels;
        else
        {
            DebugPrint("Warning: Size is not compatible with MIP mapping. Ignoring -m\n");
            mipMode = 0;
        }
    }

    if (punchThrough != 0)
    {
        DebugPrint("Doing \"Punch-Through\" preprocess of top map.....\n");
        PTPreprocess(image, generation != 0);
    }

    DebugPrint("Compressing top map (%d * %d).....\n", width, height);

    const CurrentLevelReset levelReset;
    const unsigned int levelCount = furtherLevels + 1;
    const unsigned int passCount = generation == 1 ? NumPassesTableORBTC2[quality] : NumPassesTableORBTC1[quality];
    auto compressLevel = [&](unsigned int level) {
        FNZJSetCurrentLevel(level, levelCount);
        FNZJReportProgress({level, levelCount, 0, passCount, unsigned(image->width), unsigned(image->height)});
        return FNZJNewMethod(image, format, bitsPerPixel, generation, noTwiddle, quality, punchThrough, output,
                             progressHandle) == 0;
    };

    if (!compressLevel(0))
    {
        ReleaseImage(image);
        return 1;
    }

    for (unsigned int level = 1; level <= furtherLevels; ++level)
    {
        int levelWidth = image->width, levelHeight = image->height;
        output += size_t(levelWidth) * size_t(levelHeight) / PixelsPerWord(bitsPerPixel) * 8;

        // A side at its minimum is tiled twice, so that halving keeps it there.
        if (levelWidth == minimum.width)
        {
            for (int y = 0; y < levelHeight; ++y)
                std::memcpy(image->rows[y] + 4 * levelWidth, image->rows[y], size_t(levelWidth) * 4);
            levelWidth *= 2;
        }
        if (levelHeight == minimum.height)
        {
            for (int y = 0; y < levelHeight; ++y)
                std::memcpy(image->rows[levelHeight + y], image->rows[y], size_t(levelWidth) * 4);
            levelHeight *= 2;
        }
        levelWidth /= 2;
        levelHeight /= 2;
        image->width = levelWidth;
        image->height = levelHeight;

        if (debugMipColours != 0)
        {
            const unsigned int k = (level - 1) % 7 + 1;
            unsigned char colour[4] = {0, 0, 0, 255};
            for (int c = 0; c < 3; ++c)
                if (k & (1u << c))
                    colour[c] = 255;
            for (int y = 0; y < levelHeight; ++y)
                for (int x = 0; x < levelWidth; ++x)
                    std::memcpy(image->rows[y] + 4 * x, colour, 4);
        }
        else if (mipMode == 1)
        {
            // In place: pixel (x, y) reads rows 2y and 2y + 1 at columns 2x
            // and 2x + 1, none of which is written before it is read.
            for (int y = 0; y < levelHeight; ++y)
            {
                const unsigned char* upper = image->rows[2 * y];
                const unsigned char* lower = image->rows[2 * y + 1];
                unsigned char* out = image->rows[y];
                for (int x = 0; x < levelWidth; ++x)
                    for (int c = 0; c < 4; ++c)
                        out[4 * x + c] = static_cast<unsigned char>(
                            (upper[8 * x + c] + upper[8 * x + 4 + c] + lower[8 * x + c] + lower[8 * x + 4 + c] + 2) >>
                            2);
            }
        }
        else
            for (int y = 0; y < levelHeight; ++y, source += size_t(levelWidth) * 4)
                std::memcpy(image->rows[y], source, size_t(levelWidth) * 4);

        DebugPrint("\nDoing Level %d (%d x %d).....\n", int(level), levelWidth, levelHeight);

        if (!compressLevel(level))
        {
            ReleaseImage(image);
            return 1;
        }
    }

    ReleaseImage(image);
    return 0;
}

int ORBTCCompressTexture(const unsigned char* source, unsigned int rgbaOrder, int width, int height, int stride,
                         unsigned char* output, uint8_t quality, unsigned int mipMode, unsigned int reserved1,
                         unsigned int punchThrough, unsigned int format, int bitsPerPixel, unsigned int generation,
                         unsigned int reserved2, unsigned int noTwiddle, unsigned int debugMipColours,
                         void** progressHandle, const ORBTCallContext& context)
{
    const CScopedCallContext scope(context);
    return ORBTCCompressTexture(source, rgbaOrder, width, height, stride, output, quality, mipMode, reserved1,
                                punchThrough, format, bitsPerPixel, generation, reserved2, noTwiddle, debugMipColours,
                                progressHandle);
}

int FNZJNewMethod(ImageBuffer* image, unsigned int format, int bitsPerPixel, unsigned int generation,
                  unsigned int noTwiddle, unsigned int quality, unsigned int punchThrough, unsigned char* output,
                  void** /*progressHandle: nothing moves the counters*/)
{
    if (!output || !image)
        return 1;
    const int blockWidth = bitsPerPixel == 1 || bitsPerPixel == 2 ? 8 : 4;
    const int blockHeight = bitsPerPixel == 1 ? 8 : 4;
    if (image->width <= 0 || image->height <= 0 || image->width % blockWidth != 0 || image->height % blockHeight != 0)
        return SetError(eORBTErrorSize, "the optimiser takes whole %dx%d blocks, not %dx%d", blockWidth, blockHeight,
                        image->width, image->height),
               1;
    const long blocksWide = image->width / blockWidth, blocksHigh = image->height / blockHeight;

    // Twiddled order exists only for power-of-two grids.
    if (noTwiddle == 0 && (!ValIsPOW2(blocksWide) || !ValIsPOW2(blocksHigh)))
        noTwiddle = 1;

    std::memset(output, 0, size_t(blocksWide) * size_t(blocksHigh) * 8);

    const bool isGeneration2 = generation == 1;
    if (levelObserver)
        levelObserver({image, format, bitsPerPixel, isGeneration2, output, noTwiddle, quality, punchThrough},
                      levelObserverUser);
    return SearchForImageRepresentatives(image, format, static_cast<unsigned int>(bitsPerPixel), isGeneration2,
                                         output, noTwiddle, quality, punchThrough) != 0
               ? 0
               : 1;
}

int orbtc_compress(const unsigned char* source, unsigned char* output, int width, int height, unsigned int generation,
                   unsigned int quality, int twoBitFlag)
{
    return ORBTCCompressTexture(source, 1, width, height, 0, output,
                                static_cast<uint8_t>(std::min(quality, unsigned(kMaxQuality))), 0, 0, 0, 4,
                                twoBitFlag == 1 ? 2 : 4, generation, 0, generation == 1 ? 1 : 0, 0, nullptr);
}

void PTPreprocess(ImageBuffer* image, bool isGeneration2)
{
    if (!image)
        return;
    if (!isGeneration2)
    {
        PTPreprocessGeneration1(*image);
        return;
    }
    for (int y = 0; y < image->height; ++y)
    {
        unsigned char* row = image->rows[y];
        for (int x = 0; x < image->width; ++x)
            if (row[4 * x + 3] < kTransparentBelow)
                std::memset(row + 4 * x, 0, 4);
    }
}

void MakeDimsCompatable(const char* imageName, int bitsPerPixel, int& width, int& height, unsigned int& noTwiddle,
                        bool warn)
{
    const int widthStep = bitsPerPixel == 1 || bitsPerPixel == 2 ? 8 : 4;
    const int heightStep = bitsPerPixel == 1 ? 8 : 4;
    const int roundedWidth = width / widthStep * widthStep;
    const int roundedHeight = height / heightStep * heightStep;
    const bool rounded = roundedWidth != width || roundedHeight != height;
    width = roundedWidth;
    height = roundedHeight;

    if ((!ValIsPOW2(width) || !ValIsPOW2(height)) && noTwiddle == 0)
    {
        DebugPrint("Warning :Image \"%s\" dimensions not powers of 2. Twiddling disabled\n", imageName);
        noTwiddle = 1;
    }
    if (width > kMaxImageSide || height > kMaxImageSide)
    {
        if (warn)
            DebugPrint("Warning:Src Image dim \"%s\" is too large- truncating\n", imageName);
        width = std::min(width, kMaxImageSide);
        height = std::min(height, kMaxImageSide);
    }
    if (width <= 0 || height <= 0)
    {
        // Ends the process: no entry of the library calls this with a zero side.
        std::fprintf(stderr, "Error :Src Image \"%s\" is too small for compressor \n", imageName);
        std::exit(1);
    }
    if (rounded && warn)
        DebugPrint("Warning: Image \"%s\" has been truncated to a valid texture size\n", imageName);
}

} // namespace orbtexture
