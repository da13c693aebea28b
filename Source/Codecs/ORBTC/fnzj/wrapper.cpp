#include "Codecs/ORBTC/fnzj/wrapper.h"

#include "Codecs/ORBTC/fnzj/threadsupport.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
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

__attribute__((format(printf, 1, 2))) void DebugPrint(const char* format, ...)
{
    if (!GlobDebugOutput)
        return;
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(GlobDebugOutput, format, arguments);
    va_end(arguments);
}

[[noreturn]] void MutexFailure(const char* action, int line, int error)
{
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

// ---- Entry ----

bool ValIsPOW2(long value)
{
    return value > 0 && (value & (value - 1)) == 0;
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
        std::fprintf(stderr, "Error :Src Image \"%s\" is too small for compressor \n", imageName);
        std::exit(1);
    }
    if (rounded && warn)
        DebugPrint("Warning: Image \"%s\" has been truncated to a valid texture size\n", imageName);
}

} // namespace orbtexture
