// The optimiser's entry: the working image, the punch-through preprocess, the
// progress record, size rounding, and the MIP chain as the search sees it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include "Codecs/ORBTC/fnzj/wrapper.h"

using namespace orbtexture;

namespace
{

using Pixels = std::vector<unsigned char>;

// What a call writes to standard error.
std::string CaptureStderr(const std::function<void()>& call)
{
    std::fflush(stderr);
    FILE* file = std::tmpfile();
    const int saved = dup(2);
    dup2(fileno(file), 2);
    call();
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);
    std::string text;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;)
        text += char(c);
    std::fclose(file);
    return text;
}

// Points GlobDebugOutput at a memory stream for its lifetime.
class DebugCapture
{
public:
    DebugCapture() : stream_(open_memstream(&data_, &size_)) { GlobDebugOutput = stream_; }
    ~DebugCapture()
    {
        GlobDebugOutput = nullptr;
        std::fclose(stream_);
        std::free(data_);
    }
    std::string Text()
    {
        std::fflush(stream_);
        return std::string(data_, size_);
    }

private:
    char* data_ = nullptr;
    size_t size_ = 0;
    FILE* stream_;
};

Pixels PixelsOf(const ImageBuffer& image)
{
    Pixels pixels;
    for (int y = 0; y < image.height; ++y)
        pixels.insert(pixels.end(), image.rows[y], image.rows[y] + size_t(image.width) * 4);
    return pixels;
}

} // namespace

TEST(OptimiserEntryImage, NewImageLimits)
{
    for (const auto& size : {std::pair<long, long>{4096, 1}, {1, 4096}})
    {
        ImageBuffer* image = NewImage(size.first, size.second);
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->width, size.first);
        EXPECT_EQ(image->height, size.second);
        const unsigned char* last = image->rows[image->height - 1];
        EXPECT_EQ(last[4 * (image->width - 1) + 3], 0);
        ReleaseImage(image);
    }

    ImageBuffer* image = NewImage(33, 17);
    const Pixels pixels = PixelsOf(*image);
    EXPECT_EQ(pixels, Pixels(33 * 17 * 4, 0));
    ReleaseImage(image);

    ImageBuffer* refused = nullptr;
    EXPECT_EQ(CaptureStderr([&] { refused = NewImage(4097, 2); }), "Failed to allocate a 4097*2 image\n");
    EXPECT_EQ(refused, nullptr);
    EXPECT_EQ(CaptureStderr([&] { refused = NewImage(3, 4097); }), "Failed to allocate a 3*4097 image\n");
    EXPECT_EQ(refused, nullptr);
}

TEST(OptimiserEntryProgress, ValueRule)
{
    EXPECT_EQ(ORBTCGetProgress(nullptr), 0.0f);
    void* handle = nullptr;
    EXPECT_EQ(ORBTCGetProgress(&handle), 0.0f);
    ORBTCFinaliseProgressStruct(&handle); // a null record is ignored

    ORBTCInitProgressStruct(&handle);
    ASSERT_NE(handle, nullptr);
    auto* record = static_cast<ProgressRecord*>(handle);
    EXPECT_EQ(ORBTCGetProgress(&handle), 0.0f);

    record->totalUnits = 8;
    record->unitsDone = 1;
    record->earlierUnits = 5;
    EXPECT_FLOAT_EQ(ORBTCGetProgress(&handle), 0.75f);
    record->earlierUnits = 9;
    EXPECT_EQ(ORBTCGetProgress(&handle), 1.0f);
    // No total but a top level: done over nothing, infinite or not a number.
    record->totalUnits = 0;
    record->topLevelUnits = 4;
    EXPECT_EQ(ORBTCGetProgress(&handle), 1.0f);
    record->unitsDone = 0;
    EXPECT_EQ(ORBTCGetProgress(&handle), 0.0f);

    ORBTCFinaliseProgressStruct(&handle);
    EXPECT_EQ(handle, nullptr);
}

TEST(OptimiserEntryDims, RoundingAndMessages)
{
    struct Case
    {
        int bitsPerPixel, width, height;
        unsigned int noTwiddle;
        bool warn;
        int roundedWidth, roundedHeight;
        unsigned int noTwiddleAfter;
        const char* messages;
    };
    const Case cases[] = {
        {4, 30, 18, 0, true, 28, 16, 1,
         "Warning :Image \"a\" dimensions not powers of 2. Twiddling disabled\n"
         "Warning: Image \"a\" has been truncated to a valid texture size\n"},
        {4, 30, 18, 0, false, 28, 16, 1, "Warning :Image \"a\" dimensions not powers of 2. Twiddling disabled\n"},
        {4, 30, 18, 1, false, 28, 16, 1, ""},
        {2, 39, 23, 0, true, 32, 20, 1,
         "Warning :Image \"a\" dimensions not powers of 2. Twiddling disabled\n"
         "Warning: Image \"a\" has been truncated to a valid texture size\n"},
        {1, 23, 23, 0, true, 16, 16, 0, "Warning: Image \"a\" has been truncated to a valid texture size\n"},
        {4, 16, 8, 0, true, 16, 8, 0, ""},
        {4, 8192, 5000, 0, true, 4096, 4096, 1,
         "Warning :Image \"a\" dimensions not powers of 2. Twiddling disabled\n"
         "Warning:Src Image dim \"a\" is too large- truncating\n"},
        {2, 8192, 4096, 0, false, 4096, 4096, 0, ""},
    };
    for (const Case& c : cases)
    {
        DebugCapture capture;
        int width = c.width, height = c.height;
        unsigned int noTwiddle = c.noTwiddle;
        MakeDimsCompatable("a", c.bitsPerPixel, width, height, noTwiddle, c.warn);
        EXPECT_EQ(width, c.roundedWidth) << c.bitsPerPixel << ": " << c.width << " x " << c.height;
        EXPECT_EQ(height, c.roundedHeight) << c.bitsPerPixel << ": " << c.width << " x " << c.height;
        EXPECT_EQ(noTwiddle, c.noTwiddleAfter) << c.bitsPerPixel << ": " << c.width << " x " << c.height;
        EXPECT_EQ(capture.Text(), c.messages) << c.bitsPerPixel << ": " << c.width << " x " << c.height;
    }
}

TEST(OptimiserEntryDimsDeathTest, TooSmallEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int width = 7, height = 64;
    unsigned int noTwiddle = 1;
    EXPECT_EXIT(MakeDimsCompatable("tiny", 2, width, height, noTwiddle, false), ::testing::ExitedWithCode(1),
                "Error :Src Image \"tiny\" is too small for compressor");
    width = 64, height = 7;
    EXPECT_EXIT(MakeDimsCompatable("flat", 1, width, height, noTwiddle, false), ::testing::ExitedWithCode(1),
                "\"flat\" is too small");
}

namespace
{

Pixels RandomPixels(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    Pixels pixels(count * 4);
    for (auto& byte : pixels)
        byte = static_cast<unsigned char>(random());
    return pixels;
}

ImageBuffer* ImageFrom(const Pixels& pixels, int width, int height)
{
    ImageBuffer* image = NewImage(width, height);
    for (int y = 0; y < height; ++y)
        std::copy_n(&pixels[size_t(y) * width * 4], size_t(width) * 4, image->rows[y]);
    return image;
}

// An image of 'width' x 'height' RGBA pixels, all transparent black but those
// set by the caller.
struct SmallImage
{
    int width, height;
    Pixels pixels;
    SmallImage(int w, int h) : width(w), height(h), pixels(size_t(w) * h * 4, 0) {}
    void Set(int x, int y, unsigned char r, unsigned char g, unsigned char b, unsigned char a)
    {
        unsigned char* p = &pixels[(size_t(y) * width + x) * 4];
        p[0] = r, p[1] = g, p[2] = b, p[3] = a;
    }
    Pixels At(const Pixels& from, int x, int y) const
    {
        const unsigned char* p = &from[(size_t(y) * width + x) * 4];
        return Pixels(p, p + 4);
    }
    Pixels Bled(bool isGeneration2) const
    {
        ImageBuffer* image = ImageFrom(pixels, width, height);
        PTPreprocess(image, isGeneration2);
        Pixels result = PixelsOf(*image);
        ReleaseImage(image);
        return result;
    }
};

// The generation 1 bleed written plainly over a copy of the original.
Pixels ReferenceBleed(const Pixels& source, int width, int height)
{
    static const uint64_t weights[11] = {1, 4, 16, 64, 256, 1024, 256, 64, 16, 4, 1};
    Pixels result = source;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            unsigned char* out = &result[(size_t(y) * width + x) * 4];
            if (out[3] >= 5)
                continue;
            uint64_t sum[3] = {0, 0, 0}, weightSum = 0;
            for (int dy = -5; dy <= 5; ++dy)
                for (int dx = -5; dx <= 5; ++dx)
                {
                    const int sx = ((x + dx) % width + width) % width, sy = ((y + dy) % height + height) % height;
                    const unsigned char* in = &source[(size_t(sy) * width + sx) * 4];
                    const uint64_t weight = weights[dy + 5] * weights[dx + 5] * in[3];
                    for (int c = 0; c < 3; ++c)
                        sum[c] += weight * in[c];
                    weightSum += weight;
                }
            for (int c = 0; c < 3; ++c)
                out[c] = weightSum == 0 ? 0
                                        : static_cast<unsigned char>(std::floor(double(sum[c]) / double(weightSum) + 0.5));
            out[3] = 0;
        }
    return result;
}

} // namespace

TEST(OptimiserEntryPreprocess, Generation2ClearsNearTransparentPixels)
{
    SmallImage image(4, 2);
    image.Set(0, 0, 10, 20, 30, 4);
    image.Set(1, 0, 10, 20, 30, 5);
    image.Set(2, 0, 200, 100, 50, 0);
    image.Set(3, 1, 1, 2, 3, 255);
    const Pixels result = image.Bled(true);
    EXPECT_EQ(image.At(result, 0, 0), Pixels({0, 0, 0, 0}));
    EXPECT_EQ(image.At(result, 1, 0), Pixels({10, 20, 30, 5}));
    EXPECT_EQ(image.At(result, 2, 0), Pixels({0, 0, 0, 0}));
    EXPECT_EQ(image.At(result, 3, 1), Pixels({1, 2, 3, 255}));
}

TEST(OptimiserEntryPreprocess, Generation1ReachAndWrap)
{
    // One opaque red pixel at the corner of a 16 x 16 image of transparent
    // grey: the window reaches 5 pixels each way, round the edges too.
    SmallImage image(16, 16);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
            image.Set(x, y, 90, 90, 90, 0);
    image.Set(0, 0, 250, 0, 0, 255);
    const Pixels result = image.Bled(false);

    const Pixels red = {250, 0, 0, 0}, black = {0, 0, 0, 0};
    EXPECT_EQ(image.At(result, 0, 0), Pixels({250, 0, 0, 255}));
    EXPECT_EQ(image.At(result, 5, 0), red);
    EXPECT_EQ(image.At(result, 6, 0), black);
    EXPECT_EQ(image.At(result, 11, 0), red); // 5 to the left, wrapped
    EXPECT_EQ(image.At(result, 10, 0), black);
    EXPECT_EQ(image.At(result, 0, 5), red);
    EXPECT_EQ(image.At(result, 0, 11), red);
    EXPECT_EQ(image.At(result, 0, 10), black);
    EXPECT_EQ(image.At(result, 5, 11), red);
    EXPECT_EQ(image.At(result, 8, 8), black);
}

TEST(OptimiserEntryPreprocess, Generation1WeightedMean)
{
    // The pixel itself (weights 1024 x 1024 x alpha 3), neighbour A one column
    // right (1024 x 256 x 255) and B two rows down (64 x 1024 x 5): 3145728,
    // 66846720 and 327680.
    SmallImage image(16, 16);
    image.Set(8, 8, 77, 77, 77, 3);
    image.Set(9, 8, 200, 0, 10, 255);
    image.Set(8, 10, 0, 100, 255, 5);
    const Pixels result = image.Bled(false);
    // Red 193.57, green 3.91, blue 14.14, each rounded.
    EXPECT_EQ(image.At(result, 8, 8), Pixels({194, 4, 14, 0}));
    EXPECT_EQ(image.At(result, 8, 10), Pixels({0, 100, 255, 5}));
}

TEST(OptimiserEntryPreprocess, Generation1ReadsOnlyUnchangedPixels)
{
    // Two adjacent pixels of alpha 4 and nothing else: each mixes the other's
    // original colour (weight a quarter of its own) into its own.
    for (const bool vertical : {false, true})
    {
        SmallImage image(16, 16);
        const int x2 = vertical ? 8 : 9, y2 = vertical ? 9 : 8;
        image.Set(8, 8, 240, 0, 0, 4);
        image.Set(x2, y2, 0, 0, 240, 4);
        const Pixels result = image.Bled(false);
        EXPECT_EQ(image.At(result, 8, 8), Pixels({192, 0, 48, 0})) << vertical;
        EXPECT_EQ(image.At(result, x2, y2), Pixels({48, 0, 192, 0})) << vertical;
    }
}

TEST(OptimiserEntryPreprocess, Generation1MatchesPlainFilter)
{
    // Many near-transparent pixels of alpha 1 to 4, whose colour counts until
    // they are changed: heights below, at and well above the window's 11 rows.
    std::mt19937 random(7);
    const unsigned char alphas[] = {0, 1, 2, 3, 4, 5, 40, 255};
    for (const auto& size : {std::pair<int, int>{5, 3}, {9, 7}, {13, 11}, {6, 12}, {23, 29}, {40, 64}})
    {
        const int width = size.first, height = size.second;
        Pixels source = RandomPixels(size_t(width) * height, unsigned(width * height));
        for (size_t i = 3; i < source.size(); i += 4)
            source[i] = random() % 4 == 0 ? alphas[random() % 8] : alphas[random() % 5];
        ImageBuffer* image = ImageFrom(source, width, height);
        PTPreprocess(image, false);
        EXPECT_EQ(PixelsOf(*image), ReferenceBleed(source, width, height)) << width << " x " << height;
        ReleaseImage(image);
    }
}

TEST(OptimiserEntryProgress, EntryClearsTheRecord)
{
    void* handle = nullptr;
    ORBTCInitProgressStruct(&handle);
    ASSERT_NE(handle, nullptr);
    auto* record = static_cast<ProgressRecord*>(handle);

    // The entry clears the counters, its scale telling whether a chain was
    // asked for, even one that the size then refuses; nothing moves them.
    record->totalUnits = 8;
    record->unitsDone = 4;
    const Pixels source = RandomPixels(12 * 12, 1);
    Pixels output(72);
    ASSERT_EQ(ORBTCCompressTexture(source.data(), 1, 12, 12, 0, output.data(), 0, 1, 0, 0, 4, 4, 0, 0, 0, 0, &handle),
              0);
    EXPECT_EQ(record->totalUnits, 0u);
    EXPECT_EQ(record->unitsDone, 0u);
    EXPECT_EQ(record->topLevelUnits, 0u);
    EXPECT_FLOAT_EQ(record->scale, 1.3333334f);
    EXPECT_EQ(ORBTCGetProgress(&handle), 0.0f);
    ASSERT_EQ(ORBTCCompressTexture(source.data(), 1, 8, 8, 0, output.data(), 0, 0, 0, 0, 4, 4, 0, 0, 0, 0, &handle), 0);
    EXPECT_EQ(record->scale, 1.0f);
    EXPECT_EQ(ORBTCGetProgress(&handle), 0.0f);
    ORBTCFinaliseProgressStruct(&handle);
}

namespace
{

struct LevelSeen
{
    int width, height;
    ptrdiff_t offset; // of the level's words in the output
    unsigned int noTwiddle, quality, punchThrough, format;
    int bitsPerPixel;
    bool isGeneration2;
    unsigned int level, levelCount;
    bool outputCleared;
    Pixels pixels;
};

struct Options
{
    unsigned int rgbaOrder = 1;
    int stride = 0;
    uint8_t quality = 0;
    unsigned int mipMode = 0;
    unsigned int punchThrough = 0;
    int bitsPerPixel = 4;
    unsigned int generation = 0;
    unsigned int noTwiddle = 0;
    unsigned int debugMipColours = 0;
};

// Records every level that FNZJNewMethod hands to the search.
class ObservedEntry : public ::testing::Test
{
protected:
    void SetUp() override { FNZJSetLevelObserver(&Observe, this); }
    void TearDown() override { FNZJSetLevelObserver(nullptr, nullptr); }

    int Compress(const Pixels& source, int width, int height, const Options& o, Pixels& output)
    {
        base_ = output.data();
        return ORBTCCompressTexture(source.data(), o.rgbaOrder, width, height, o.stride, output.data(), o.quality,
                                    o.mipMode, 0, o.punchThrough, 4, o.bitsPerPixel, o.generation, 0, o.noTwiddle,
                                    o.debugMipColours, nullptr);
    }

    std::vector<LevelSeen> seen;

private:
    static void Observe(const FNZJLevelCall& call, void* user)
    {
        auto* self = static_cast<ObservedEntry*>(user);
        LevelSeen level{};
        level.width = call.image->width;
        level.height = call.image->height;
        level.offset = call.output - self->base_;
        level.noTwiddle = call.noTwiddle;
        level.quality = call.quality;
        level.punchThrough = call.punchThrough;
        level.format = call.format;
        level.bitsPerPixel = call.bitsPerPixel;
        level.isGeneration2 = call.isGeneration2;
        FNZJGetCurrentLevel(level.level, level.levelCount);
        const size_t bytes = size_t(level.width) * level.height * 8 / (call.bitsPerPixel == 2 ? 32 : 16);
        level.outputCleared = std::all_of(call.output, call.output + bytes, [](unsigned char b) { return b == 0; });
        level.pixels = PixelsOf(*call.image);
        self->seen.push_back(level);
    }

    const unsigned char* base_ = nullptr;
};

class OptimiserEntryChain : public ObservedEntry
{
};
class OptimiserEntryLevel : public ObservedEntry
{
};

// The next level as the 2 x 2 average of the previous one, a side at its
// minimum wrapping round onto itself.
Pixels AverageLevel(const Pixels& previous, int width, int height, int minWidth, int minHeight, int& nextWidth,
                    int& nextHeight)
{
    nextWidth = width == minWidth ? width : width / 2;
    nextHeight = height == minHeight ? height : height / 2;
    Pixels next(size_t(nextWidth) * nextHeight * 4);
    for (int y = 0; y < nextHeight; ++y)
        for (int x = 0; x < nextWidth; ++x)
            for (int c = 0; c < 4; ++c)
            {
                int sum = 0;
                for (int j = 0; j < 2; ++j)
                    for (int i = 0; i < 2; ++i)
                        sum += previous[((size_t((2 * y + j) % height) * width) + (2 * x + i) % width) * 4 + c];
                next[(size_t(y) * nextWidth + x) * 4 + c] = static_cast<unsigned char>((sum + 2) / 4);
            }
    return next;
}

} // namespace

TEST_F(OptimiserEntryChain, SizesOffsetsAndOrder)
{
    struct Case
    {
        int bitsPerPixel, width, height;
        std::vector<std::pair<int, int>> levels; // below the top
        size_t bytes;
    };
    const Case cases[] = {
        // The larger side 16 gives four levels, all 8 x 8: 128 + 4 x 32 bytes.
        {4, 16, 16, {{8, 8}, {8, 8}, {8, 8}, {8, 8}}, 256},
        {4, 8, 8, {{8, 8}, {8, 8}, {8, 8}}, 3 * 32 + 32},
        {4, 32, 8, {{16, 8}, {8, 8}, {8, 8}, {8, 8}, {8, 8}}, 128 + 64 + 4 * 32},
        {4, 8, 32, {{8, 16}, {8, 8}, {8, 8}, {8, 8}, {8, 8}}, 128 + 64 + 4 * 32},
        {2, 32, 32, {{16, 16}, {16, 8}, {16, 8}, {16, 8}, {16, 8}}, 256 + 64 + 4 * 32},
        {2, 16, 8, {{16, 8}, {16, 8}, {16, 8}, {16, 8}}, 5 * 32},
    };
    std::vector<FNZJProgressEvent> events;
    FNZJSetProgressHook([](const FNZJProgressEvent& event, void* user) {
        static_cast<std::vector<FNZJProgressEvent>*>(user)->push_back(event);
    }, &events);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.bitsPerPixel) + "bpp " + std::to_string(c.width) + " x " +
                     std::to_string(c.height));
        seen.clear();
        events.clear();
        const Pixels source = RandomPixels(size_t(c.width) * c.height, 3);
        Pixels output(c.bytes + 64, 0xEE);
        Options options;
        options.mipMode = 1;
        options.bitsPerPixel = c.bitsPerPixel;
        ASSERT_EQ(Compress(source, c.width, c.height, options, output), 0);

        const unsigned int levelCount = unsigned(c.levels.size()) + 1;
        ASSERT_EQ(seen.size(), levelCount);
        ptrdiff_t offset = 0;
        for (unsigned int n = 0; n < levelCount; ++n)
        {
            const int width = n == 0 ? c.width : c.levels[n - 1].first;
            const int height = n == 0 ? c.height : c.levels[n - 1].second;
            EXPECT_EQ(seen[n].width, width) << "level " << n;
            EXPECT_EQ(seen[n].height, height) << "level " << n;
            EXPECT_EQ(seen[n].offset, offset) << "level " << n;
            EXPECT_TRUE(seen[n].outputCleared) << "level " << n;
            EXPECT_EQ(seen[n].level, n);
            EXPECT_EQ(seen[n].levelCount, levelCount);
            offset += width * height * 8 / (c.bitsPerPixel == 2 ? 32 : 16);
        }
        EXPECT_EQ(size_t(offset), c.bytes);
        EXPECT_EQ(Pixels(output.begin() + c.bytes, output.end()), Pixels(64, 0xEE));

        // Each level opens with a report of pass 0; reports never go back.
        std::vector<bool> opened(levelCount, false);
        unsigned int lastLevel = 0;
        for (const FNZJProgressEvent& event : events)
        {
            ASSERT_LT(event.level, levelCount);
            EXPECT_GE(event.level, lastLevel);
            lastLevel = event.level;
            if (!opened[event.level])
            {
                opened[event.level] = true;
                EXPECT_EQ(event.pass, 0u);
                EXPECT_EQ(event.passCount, 2u);
                EXPECT_EQ(event.levelCount, levelCount);
                EXPECT_EQ(int(event.width), seen[event.level].width);
                EXPECT_EQ(int(event.height), seen[event.level].height);
            }
        }
        EXPECT_EQ(std::count(opened.begin(), opened.end(), true), int(levelCount));
    }
    FNZJSetProgressHook(nullptr, nullptr);

    unsigned int level = 9, levelCount = 9;
    FNZJGetCurrentLevel(level, levelCount);
    EXPECT_EQ(level, 0u);
    EXPECT_EQ(levelCount, 1u);
}

TEST_F(OptimiserEntryChain, AveragesWithRoundingAndWrapping)
{
    struct Case
    {
        int bitsPerPixel, width, height;
    };
    for (const Case& c : {Case{4, 16, 16}, Case{4, 32, 8}, Case{2, 32, 16}})
    {
        SCOPED_TRACE(std::to_string(c.bitsPerPixel) + "bpp " + std::to_string(c.width) + " x " +
                     std::to_string(c.height));
        seen.clear();
        const Pixels source = RandomPixels(size_t(c.width) * c.height, 11);
        Pixels output(1024);
        Options options;
        options.mipMode = 1;
        options.bitsPerPixel = c.bitsPerPixel;
        ASSERT_EQ(Compress(source, c.width, c.height, options, output), 0);
        ASSERT_GE(seen.size(), 3u);
        EXPECT_EQ(seen[0].pixels, source);
        const int minWidth = c.bitsPerPixel == 2 ? 16 : 8;
        for (size_t n = 1; n < seen.size(); ++n)
        {
            int width, height;
            const Pixels expected =
                AverageLevel(seen[n - 1].pixels, seen[n - 1].width, seen[n - 1].height, minWidth, 8, width, height);
            ASSERT_EQ(seen[n].width, width);
            ASSERT_EQ(seen[n].height, height);
            EXPECT_EQ(seen[n].pixels, expected) << "level " << n;
        }
    }

    // Plainly: sums of 2, 5, 1 and 3 over each 2 x 2 give 1, 1, 0 and 1.
    seen.clear();
    Pixels plain(16 * 16 * 4, 0);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
        {
            const int odd = (x & 1) + (y & 1);
            unsigned char* p = &plain[(size_t(y) * 16 + x) * 4];
            p[0] = y & 1;
            p[1] = odd == 2 ? 2 : 1;
            p[2] = odd == 2 ? 1 : 0;
            p[3] = odd != 0 ? 1 : 0;
        }
    Pixels output(256);
    Options options;
    options.mipMode = 1;
    ASSERT_EQ(Compress(plain, 16, 16, options, output), 0);
    ASSERT_EQ(seen.size(), 5u);
    EXPECT_EQ(seen[1].pixels, [] {
        Pixels level;
        for (int i = 0; i < 64; ++i)
            level.insert(level.end(), {1, 1, 0, 1});
        return level;
    }());
}

TEST_F(OptimiserEntryChain, DebugColoursCycleThroughSeven)
{
    // 256 x 8 has eight levels below the top; the eighth repeats the first.
    const Pixels source = RandomPixels(256 * 8, 5);
    Pixels output(1024 + 512 + 256 + 128 + 64 + 4 * 32);
    Options options;
    options.mipMode = 1;
    options.debugMipColours = 1;
    ASSERT_EQ(Compress(source, 256, 8, options, output), 0);
    ASSERT_EQ(seen.size(), 9u);
    const Pixels colours[] = {{255, 0, 0, 255},     {0, 255, 0, 255},   {255, 255, 0, 255}, {0, 0, 255, 255},
                              {255, 0, 255, 255},   {0, 255, 255, 255}, {255, 255, 255, 255}, {255, 0, 0, 255}};
    for (size_t n = 1; n < seen.size(); ++n)
    {
        Pixels expected;
        for (int i = 0; i < seen[n].width * seen[n].height; ++i)
            expected.insert(expected.end(), colours[n - 1].begin(), colours[n - 1].end());
        EXPECT_EQ(seen[n].pixels, expected) << "level " << n;
    }
    EXPECT_EQ(seen[8].width, 8);
}

TEST_F(OptimiserEntryChain, SourceChainOrderAndStride)
{
    // BGRA rows of 16 pixels, 80 bytes apart, then the levels below packed
    // tightly and taken as they are.
    const int stride = 80;
    Pixels source = RandomPixels(16 * stride / 4 + 4 * 8 * 8, 9);
    Options options;
    options.rgbaOrder = 0;
    options.stride = stride;
    options.mipMode = 2;
    Pixels output(256);
    ASSERT_EQ(Compress(source, 16, 16, options, output), 0);
    ASSERT_EQ(seen.size(), 5u);

    Pixels top;
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x)
        {
            const unsigned char* p = &source[size_t(y) * stride + 4 * x];
            top.insert(top.end(), {p[2], p[1], p[0], p[3]});
        }
    EXPECT_EQ(seen[0].pixels, top);
    for (size_t n = 1; n < 5; ++n)
    {
        const auto begin = source.begin() + 16 * stride + (n - 1) * 256;
        EXPECT_EQ(seen[n].pixels, Pixels(begin, begin + 256)) << "level " << n;
    }

    // RGBA order with a stride copies the rows as they are.
    seen.clear();
    options.rgbaOrder = 1;
    options.mipMode = 0;
    ASSERT_EQ(Compress(source, 16, 16, options, output), 0);
    ASSERT_EQ(seen.size(), 1u);
    for (int y = 0; y < 16; ++y)
        EXPECT_EQ(Pixels(seen[0].pixels.begin() + y * 64, seen[0].pixels.begin() + y * 64 + 64),
                  Pixels(source.begin() + y * stride, source.begin() + y * stride + 64))
            << "row " << y;
}

TEST_F(OptimiserEntryChain, PunchThroughOnTopLevelOnly)
{
    // Transparent blue everywhere but one opaque red pixel; the three levels
    // below come from the source and keep their transparent colour.
    Pixels source(4 * 8 * 8 * 4, 0);
    for (size_t i = 0; i < source.size(); i += 4)
        source[i + 2] = 200;
    source[0] = 255, source[2] = 0, source[3] = 255;
    Options options;
    options.punchThrough = 1;
    options.mipMode = 2;

    options.generation = 0; // the bleed
    Pixels output(256);
    ASSERT_EQ(Compress(source, 8, 8, options, output), 0);
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(Pixels(seen[0].pixels.begin() + 4, seen[0].pixels.begin() + 8), Pixels({255, 0, 0, 0}));
    EXPECT_EQ(seen[0].punchThrough, 1u);
    EXPECT_EQ(Pixels(seen[1].pixels.begin(), seen[1].pixels.begin() + 4), Pixels({0, 0, 200, 0}));

    for (const unsigned int generation : {1u, 2u}) // any other generation clears
    {
        seen.clear();
        options.generation = generation;
        ASSERT_EQ(Compress(source, 8, 8, options, output), 0);
        ASSERT_EQ(seen.size(), 4u);
        EXPECT_EQ(Pixels(seen[0].pixels.begin() + 4, seen[0].pixels.begin() + 8), Pixels({0, 0, 0, 0}));
        EXPECT_EQ(seen[0].isGeneration2, generation == 1);
        EXPECT_EQ(Pixels(seen[1].pixels.begin(), seen[1].pixels.begin() + 4), Pixels({0, 0, 200, 0}));
    }
}

TEST_F(OptimiserEntryChain, MessagesAndIncompatibleSizes)
{
    const Pixels source = RandomPixels(16 * 16, 2);
    Pixels output(256);
    Options options;
    options.mipMode = 1;
    options.punchThrough = 1;
    {
        DebugCapture capture;
        ASSERT_EQ(Compress(source, 16, 16, options, output), 0);
        EXPECT_EQ(capture.Text(), "\nCompressing data. Please wait...\n\n"
                                  "Doing \"Punch-Through\" preprocess of top map.....\n"
                                  "Compressing top map (16 * 16).....\n"
                                  "\nDoing Level 1 (8 x 8).....\n"
                                  "\nDoing Level 2 (8 x 8).....\n"
                                  "\nDoing Level 3 (8 x 8).....\n"
                                  "\nDoing Level 4 (8 x 8).....\n");
    }

    // 12 x 12: no chain, and a grid of 3 x 3 blocks cannot be twiddled.
    seen.clear();
    options.punchThrough = 0;
    {
        DebugCapture capture;
        ASSERT_EQ(Compress(source, 12, 12, options, output), 0);
        EXPECT_EQ(capture.Text(), "\nCompressing data. Please wait...\n\n"
                                  "Warning: Size is not compatible with MIP mapping. Ignoring -m\n"
                                  "Compressing top map (12 * 12).....\n");
    }
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].noTwiddle, 1u);
    EXPECT_EQ(seen[0].levelCount, 1u);

    // A chain below the block size fails at its first level; no output, at
    // the top.
    seen.clear();
    EXPECT_EQ(Compress(source, 4, 4, options, output), 1);
    EXPECT_EQ(seen.size(), 1u);
    EXPECT_EQ(ORBTCCompressTexture(source.data(), 1, 8, 8, 0, nullptr, 0, 0, 0, 0, 4, 4, 0, 0, 0, 0, nullptr), 1);
    EXPECT_EQ(seen.size(), 1u);
}

TEST_F(OptimiserEntryLevel, QualityTwiddleAndDoor)
{
    const Pixels source = RandomPixels(16 * 16, 4);
    Pixels output(256);
    Options options;
    for (const int quality : {200, 6, 5})
    {
        seen.clear();
        options.quality = uint8_t(quality);
        ASSERT_EQ(Compress(source, 8, 8, options, output), 0);
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(seen[0].quality, quality > 6 ? 6u : unsigned(quality));
    }

    // The door: RGBA rows, no chain, 2bpp for the flag 1 only, row order
    // exactly for generation 1.
    seen.clear();
    ASSERT_EQ(orbtc_compress(source.data(), output.data(), 16, 8, 1, 3, 1), 0);
    ASSERT_EQ(orbtc_compress(source.data(), output.data(), 16, 16, 0, 400, 2), 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].bitsPerPixel, 2);
    EXPECT_TRUE(seen[0].isGeneration2);
    EXPECT_EQ(seen[0].noTwiddle, 1u);
    EXPECT_EQ(seen[0].quality, 3u);
    EXPECT_EQ(seen[0].format, 4u);
    EXPECT_EQ(seen[0].pixels, Pixels(source.begin(), source.begin() + 16 * 8 * 4));
    EXPECT_EQ(seen[1].bitsPerPixel, 4);
    EXPECT_FALSE(seen[1].isGeneration2);
    EXPECT_EQ(seen[1].noTwiddle, 0u);
    EXPECT_EQ(seen[1].quality, 6u);
    EXPECT_EQ(seen[1].pixels, source);
}

TEST_F(OptimiserEntryLevel, BlockGridChecks)
{
    Pixels output(512, 0xEE);
    auto run = [&](int width, int height, int bitsPerPixel, unsigned int noTwiddle, unsigned char* out) {
        ImageBuffer* image = NewImage(width, height);
        const int result = FNZJNewMethod(image, 4, bitsPerPixel, 0, noTwiddle, 0, 0, out, nullptr);
        ReleaseImage(image);
        return result;
    };
    EXPECT_EQ(run(8, 8, 4, 0, nullptr), 1);
    EXPECT_EQ(run(8, 6, 4, 0, output.data()), 1);
    EXPECT_EQ(run(12, 8, 2, 0, output.data()), 1);
    EXPECT_EQ(run(0, 8, 4, 0, output.data()), 1);
    EXPECT_TRUE(seen.empty());

    // 2 x 3 blocks go in row order; 4 x 2 (2bpp) stay twiddled unless asked.
    EXPECT_EQ(run(8, 12, 4, 0, output.data()), 0);
    EXPECT_EQ(run(32, 8, 2, 0, output.data()), 0);
    EXPECT_EQ(run(32, 8, 2, 1, output.data()), 0);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[0].noTwiddle, 1u);
    EXPECT_EQ(seen[1].noTwiddle, 0u);
    EXPECT_EQ(seen[2].noTwiddle, 1u);
    EXPECT_TRUE(seen[1].outputCleared);
}
