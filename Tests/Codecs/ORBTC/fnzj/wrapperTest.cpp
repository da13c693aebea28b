// The optimiser's entry: the working image, the punch-through preprocess, the
// progress record, size rounding, and the MIP chain as the search sees it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "Codecs/ORBTC/fnzj/wrapper.h"

using namespace orbtexture;

namespace
{

using Pixels = std::vector<unsigned char>;

// GlobDebugOutput into memory for the capture's lifetime.
struct DebugCapture
{
    char* data = nullptr;
    size_t size = 0;
    FILE* stream = open_memstream(&data, &size);
    DebugCapture() { GlobDebugOutput = stream; }
    ~DebugCapture() { GlobDebugOutput = nullptr, std::fclose(stream), std::free(data); }
    std::string Text() { return std::fflush(stream), std::string(data, size); }
};

Pixels RandomPixels(size_t count, unsigned seed)
{
    std::mt19937 random(seed);
    Pixels pixels(count * 4);
    for (auto& byte : pixels)
        byte = static_cast<unsigned char>(random());
    return pixels;
}

Pixels PixelsOf(const ImageBuffer& image)
{
    Pixels pixels;
    for (int y = 0; y < image.height; ++y)
        pixels.insert(pixels.end(), image.rows[y], image.rows[y] + size_t(image.width) * 4);
    return pixels;
}

Pixels At(const Pixels& pixels, int width, int x, int y)
{
    const auto p = pixels.begin() + (size_t(y) * width + x) * 4;
    return Pixels(p, p + 4);
}

void Set(Pixels& pixels, int width, int x, int y, Pixels value)
{
    std::copy(value.begin(), value.end(), pixels.begin() + (size_t(y) * width + x) * 4);
}

Pixels Preprocessed(const Pixels& pixels, int width, int height, bool isGeneration2)
{
    ImageBuffer* image = NewImage(width, height);
    for (int y = 0; y < height; ++y)
        std::copy_n(&pixels[size_t(y) * width * 4], size_t(width) * 4, image->rows[y]);
    PTPreprocess(image, isGeneration2);
    Pixels result = PixelsOf(*image);
    ReleaseImage(image);
    return result;
}

} // namespace

TEST(OptimiserEntryImage, NewImageLimits)
{
    for (const auto& size : {std::pair<long, long>{4096, 1}, {1, 4096}, {33, 17}})
    {
        ImageBuffer* image = NewImage(size.first, size.second);
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(PixelsOf(*image), Pixels(size_t(size.first * size.second * 4), 0));
        ReleaseImage(image);
    }
    for (const auto& size : {std::pair<long, long>{4097, 2}, {3, 4097}})
    {
        testing::internal::CaptureStderr();
        EXPECT_EQ(NewImage(size.first, size.second), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to allocate a " + std::to_string(size.first) + "*" +
                                                              std::to_string(size.second) + " image\n");
    }
}

TEST(OptimiserEntryPreprocess, BleedReachWeightsAndGenerations)
{
    // One opaque red pixel in transparent grey: the window reaches 5 pixels
    // each way, round the edges too.
    Pixels image(16 * 16 * 4, 0);
    for (size_t i = 0; i < image.size(); i += 4)
        image[i] = image[i + 1] = image[i + 2] = 90;
    Set(image, 16, 0, 0, {250, 0, 0, 255});
    Pixels result = Preprocessed(image, 16, 16, false);
    for (const auto& xy : {std::pair<int, int>{5, 0}, {11, 0}, {0, 5}, {0, 11}, {5, 11}})
        EXPECT_EQ(At(result, 16, xy.first, xy.second), Pixels({250, 0, 0, 0})) << xy.first << ", " << xy.second;
    for (const auto& xy : {std::pair<int, int>{6, 0}, {10, 0}, {0, 10}, {8, 8}})
        EXPECT_EQ(At(result, 16, xy.first, xy.second), Pixels(4, 0)) << xy.first << ", " << xy.second;
    // Generation 2 only clears what is below alpha 5.
    EXPECT_EQ(Preprocessed({10, 20, 30, 4, 10, 20, 30, 5, 200, 100, 50, 0, 1, 2, 3, 255}, 2, 2, true),
              Pixels({0, 0, 0, 0, 10, 20, 30, 5, 0, 0, 0, 0, 1, 2, 3, 255}));

    // The pixel itself (weights 1024 x 1024 x alpha 3), A one column right
    // (1024 x 256 x 255) and B two rows down (64 x 1024 x 5): red 193.57,
    // green 3.91, blue 14.14. B, of alpha 5, stays.
    image.assign(16 * 16 * 4, 0);
    Set(image, 16, 8, 8, {77, 77, 77, 3});
    Set(image, 16, 9, 8, {200, 0, 10, 255});
    Set(image, 16, 8, 10, {0, 100, 255, 5});
    result = Preprocessed(image, 16, 16, false);
    EXPECT_EQ(At(result, 16, 8, 8), Pixels({194, 4, 14, 0}));
    EXPECT_EQ(At(result, 16, 8, 10), Pixels({0, 100, 255, 5}));

    // Two adjacent pixels of alpha 4 alone: each mixes in the other's
    // original colour at a quarter of its own weight.
    for (const bool vertical : {false, true})
    {
        Pixels image(16 * 16 * 4, 0);
        const int x2 = vertical ? 8 : 9, y2 = vertical ? 9 : 8;
        Set(image, 16, 8, 8, {240, 0, 0, 4});
        Set(image, 16, x2, y2, {0, 0, 240, 4});
        const Pixels result = Preprocessed(image, 16, 16, false);
        EXPECT_EQ(At(result, 16, 8, 8), Pixels({192, 0, 48, 0})) << vertical;
        EXPECT_EQ(At(result, 16, x2, y2), Pixels({48, 0, 192, 0})) << vertical;
    }
}

TEST(OptimiserEntryProgress, RuleAndEntry)
{
    void* handle = nullptr;
    EXPECT_EQ(ORBTCGetProgress(nullptr) + ORBTCGetProgress(&handle), 0.0f);
    ORBTCInitProgressStruct(&handle);
    ASSERT_NE(handle, nullptr);
    auto& record = *static_cast<ProgressRecord*>(handle);
    record.totalUnits = 8, record.unitsDone = 1, record.earlierUnits = 5;
    EXPECT_FLOAT_EQ(ORBTCGetProgress(&handle), 0.75f);
    // No total but a top level: nothing done over nothing is not a number.
    record.totalUnits = 0, record.topLevelUnits = 4, record.unitsDone = 0;
    EXPECT_EQ(ORBTCGetProgress(&handle), 0.0f);

    // The entry clears the counters, its scale telling whether a chain was
    // asked for, even one the size refuses; nothing moves them after.
    record.totalUnits = 8, record.unitsDone = 4;
    Pixels output(72);
    ASSERT_EQ(ORBTCCompressTexture(RandomPixels(144, 1).data(), 1, 12, 12, 0, output.data(), 0, 1, 0, 0, 4, 4, 0, 0, 0,
                                   0, &handle),
              0);
    EXPECT_EQ(record.totalUnits + record.unitsDone + record.topLevelUnits + record.earlierUnits, 0u);
    EXPECT_FLOAT_EQ(record.scale, 1.3333334f);
    EXPECT_EQ(ORBTCGetProgress(&handle), 0.0f);
    ORBTCFinaliseProgressStruct(&handle);
    EXPECT_EQ(handle, nullptr);
}

TEST(OptimiserEntryDims, RoundingAndMessages)
{
    const std::string twiddle = "Warning :Image \"a\" dimensions not powers of 2. Twiddling disabled\n",
                      truncated = "Warning: Image \"a\" has been truncated to a valid texture size\n",
                      large = "Warning:Src Image dim \"a\" is too large- truncating\n";
    struct Case
    {
        int bitsPerPixel, width, height;
        unsigned int noTwiddle;
        bool warn;
        int roundedWidth, roundedHeight;
        unsigned int noTwiddleAfter;
        std::string messages;
    };
    for (const Case& c : {Case{4, 30, 18, 0, true, 28, 16, 1, twiddle + truncated},
                          Case{2, 39, 23, 1, false, 32, 20, 1, ""}, Case{1, 23, 23, 0, true, 16, 16, 0, truncated},
                          Case{4, 8192, 5000, 0, true, 4096, 4096, 1, twiddle + large}})
    {
        DebugCapture capture;
        int width = c.width, height = c.height;
        unsigned int noTwiddle = c.noTwiddle;
        MakeDimsCompatable("a", c.bitsPerPixel, width, height, noTwiddle, c.warn);
        EXPECT_EQ(std::make_tuple(width, height, noTwiddle, capture.Text()),
                  std::make_tuple(c.roundedWidth, c.roundedHeight, c.noTwiddleAfter, c.messages))
            << c.bitsPerPixel << ": " << c.width << " x " << c.height;
    }

    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int width = 64, height = 7;
    unsigned int noTwiddle = 1;
    EXPECT_EXIT(MakeDimsCompatable("flat", 1, width, height, noTwiddle, false), ::testing::ExitedWithCode(1),
                "Error :Src Image \"flat\" is too small for compressor");
}

namespace
{

struct LevelSeen
{
    FNZJLevelCall call;
    int width, height;
    ptrdiff_t offset; // of the level's words in the output
    unsigned int level, levelCount;
    Pixels pixels;
};

// Records every level that FNZJNewMethod hands to the search.
class OptimiserEntryChain : public ::testing::Test
{
protected:
    void SetUp() override
    {
        FNZJSetLevelObserver(
            [](const FNZJLevelCall& call, void* user) {
                auto* self = static_cast<OptimiserEntryChain*>(user);
                LevelSeen level{call, call.image->width, call.image->height, call.output - self->base, 0, 0,
                                PixelsOf(*call.image)};
                FNZJGetCurrentLevel(level.level, level.levelCount);
                const size_t bytes = size_t(level.width) * level.height / (call.bitsPerPixel == 2 ? 4 : 2);
                EXPECT_EQ(std::count(call.output, call.output + bytes, 0), ptrdiff_t(bytes)) << "output not cleared";
                self->seen.push_back(level);
            },
            this);
    }
    void TearDown() override { FNZJSetLevelObserver(nullptr, nullptr); }

    // Format 4, twiddled unless the grid refuses, no progress record.
    int Compress(const Pixels& source, int width, int height, Pixels& output, unsigned int mipMode,
                 int bitsPerPixel = 4, unsigned int debugColours = 0, unsigned int punchThrough = 0,
                 unsigned int generation = 0, uint8_t quality = 0, unsigned int rgbaOrder = 1, int stride = 0)
    {
        seen.clear();
        base = output.data();
        return ORBTCCompressTexture(source.data(), rgbaOrder, width, height, stride, output.data(), quality, mipMode,
                                    0, punchThrough, 4, bitsPerPixel, generation, 0, 0, debugColours, nullptr);
    }

    const unsigned char* base = nullptr;
    std::vector<LevelSeen> seen;
};

} // namespace

TEST_F(OptimiserEntryChain, SizesOffsetsAndAveraging)
{
    struct Case
    {
        int bitsPerPixel, width, height;
        std::vector<std::pair<int, int>> levels; // below the top
    };
    std::vector<FNZJProgressEvent> opened;
    FNZJSetProgressHook(
        [](const FNZJProgressEvent& event, void* user) {
            if (event.pass == 0)
                static_cast<std::vector<FNZJProgressEvent>*>(user)->push_back(event);
        },
        &opened);
    for (const Case& c : {Case{4, 16, 16, {{8, 8}, {8, 8}, {8, 8}, {8, 8}}}, // 128 + 4 x 32 bytes
                          Case{4, 8, 8, {{8, 8}, {8, 8}, {8, 8}}},
                          Case{4, 32, 8, {{16, 8}, {8, 8}, {8, 8}, {8, 8}, {8, 8}}},
                          Case{2, 32, 32, {{16, 16}, {16, 8}, {16, 8}, {16, 8}, {16, 8}}}})
    {
        SCOPED_TRACE(std::to_string(c.bitsPerPixel) + "bpp " + std::to_string(c.width) + " x " +
                     std::to_string(c.height));
        opened.clear();
        Pixels source = RandomPixels(size_t(c.width) * c.height, 3);
        for (size_t i = 0; i < source.size(); i += 4)
            source[i] = (i / 4 % c.width + i / 4 / c.width) % 2 ? 255 : 0;
        Pixels output(1024, 0xEE);
        ASSERT_EQ(Compress(source, c.width, c.height, output, 1, c.bitsPerPixel), 0);
        const unsigned int levelCount = unsigned(c.levels.size()) + 1;
        ASSERT_EQ(seen.size(), levelCount);
        ASSERT_EQ(opened.size(), levelCount);
        EXPECT_EQ(seen[0].pixels, source);
        ptrdiff_t offset = 0;
        for (unsigned int n = 0; n < levelCount; ++n)
        {
            const LevelSeen& level = seen[n];
            EXPECT_EQ(std::make_tuple(level.offset, level.level, level.levelCount),
                      std::make_tuple(offset, n, levelCount));
            EXPECT_EQ(std::make_tuple(opened[n].level, opened[n].levelCount, opened[n].passCount, opened[n].width),
                      std::make_tuple(n, levelCount, 2u, unsigned(level.width)));
            offset += level.width * level.height / (c.bitsPerPixel == 2 ? 4 : 2);
            if (n == 0)
                continue;
            // Red is a checker on top: each 2 x 2 average, rounded, is 128.
            ASSERT_EQ(std::make_pair(level.width, level.height), c.levels[n - 1]) << "level " << n;
            for (size_t i = 0; i < level.pixels.size(); i += 4)
                ASSERT_EQ(level.pixels[i], 128) << "level " << n << " pixel " << i / 4;
        }
        EXPECT_EQ(std::count(output.begin() + offset, output.end(), 0xEE), 1024 - offset);
    }
    FNZJSetProgressHook(nullptr, nullptr);
    unsigned int level = 9, levelCount = 9;
    FNZJGetCurrentLevel(level, levelCount);
    EXPECT_EQ(std::make_pair(level, levelCount), std::make_pair(0u, 1u));
}

TEST_F(OptimiserEntryChain, DebugColoursSourceChainAndStride)
{
    // 256 x 8 has eight levels below the top; the eighth repeats the first.
    Pixels output(2112);
    ASSERT_EQ(Compress(RandomPixels(256 * 8, 5), 256, 8, output, 1, 4, 1), 0);
    ASSERT_EQ(seen.size(), 9u);
    const Pixels colours[] = {{255, 0, 0, 255},   {0, 255, 0, 255},   {255, 255, 0, 255},   {0, 0, 255, 255},
                              {255, 0, 255, 255}, {0, 255, 255, 255}, {255, 255, 255, 255}, {255, 0, 0, 255}};
    for (size_t n = 1; n < seen.size(); ++n)
        for (int i = 0; i < seen[n].width * seen[n].height; ++i)
            ASSERT_EQ(At(seen[n].pixels, 1, i, 0), colours[n - 1]) << "level " << n << " pixel " << i;

    // BGRA rows of 16 pixels, 80 bytes apart, then the levels below packed
    // tightly and taken as they are.
    const Pixels source = RandomPixels(16 * 20 + 4 * 8 * 8, 9);
    ASSERT_EQ(Compress(source, 16, 16, output, 2, 4, 0, 0, 0, 0, 0, 80), 0);
    ASSERT_EQ(seen.size(), 5u);
    for (int i = 0; i < 256; ++i)
    {
        const Pixels in = At(source, 20, i % 16, i / 16);
        ASSERT_EQ(At(seen[0].pixels, 16, i % 16, i / 16), Pixels({in[2], in[1], in[0], in[3]})) << i;
    }
    for (size_t n = 1; n < 5; ++n)
        EXPECT_TRUE(std::equal(seen[n].pixels.begin(), seen[n].pixels.end(), source.begin() + 1280 + (n - 1) * 256))
            << "level " << n;
}

TEST_F(OptimiserEntryChain, PunchThroughOnTopLevelOnly)
{
    // Transparent blue everywhere but one opaque red pixel; the three levels
    // below come from the source and keep their transparent colour.
    Pixels source(4 * 8 * 8 * 4, 0);
    for (size_t i = 0; i < source.size(); i += 4)
        source[i + 2] = 200;
    Set(source, 8, 0, 0, {255, 0, 0, 255});
    Pixels output(128);
    for (const unsigned int generation : {0u, 1u, 2u}) // any but 0 clears
    {
        ASSERT_EQ(Compress(source, 8, 8, output, 2, 4, 0, 1, generation), 0);
        ASSERT_EQ(seen.size(), 4u);
        EXPECT_EQ(At(seen[0].pixels, 8, 1, 0), generation == 0 ? Pixels({255, 0, 0, 0}) : Pixels(4, 0));
        EXPECT_EQ(At(seen[1].pixels, 8, 0, 0), Pixels({0, 0, 200, 0}));
        EXPECT_EQ(std::make_pair(seen[0].call.punchThrough, seen[0].call.isGeneration2),
                  std::make_pair(1u, generation == 1));
    }
}

TEST_F(OptimiserEntryChain, MessagesAndRefusedChains)
{
    const Pixels source = RandomPixels(16 * 16, 2);
    Pixels output(256);
    {
        DebugCapture capture;
        ASSERT_EQ(Compress(source, 16, 16, output, 1, 4, 0, 1), 0);
        EXPECT_EQ(capture.Text(), "\nCompressing data. Please wait...\n\n"
                                  "Doing \"Punch-Through\" preprocess of top map.....\n"
                                  "Compressing top map (16 * 16).....\n"
                                  "\nDoing Level 1 (8 x 8).....\n\nDoing Level 2 (8 x 8).....\n"
                                  "\nDoing Level 3 (8 x 8).....\n\nDoing Level 4 (8 x 8).....\n");
    }
    {
        // 12 x 12: no chain, and a grid of 3 x 3 blocks cannot be twiddled.
        DebugCapture capture;
        ASSERT_EQ(Compress(source, 12, 12, output, 1), 0);
        EXPECT_EQ(capture.Text(), "\nCompressing data. Please wait...\n\n"
                                  "Warning: Size is not compatible with MIP mapping. Ignoring -m\n"
                                  "Compressing top map (12 * 12).....\n");
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(seen[0].call.noTwiddle, 1u);
    }
    // A chain below the block size fails at its first level.
    EXPECT_EQ(Compress(source, 4, 4, output, 1), 1);
    EXPECT_EQ(seen.size(), 1u);
}

TEST_F(OptimiserEntryChain, QualityDoorAndBlockGrid)
{
    const Pixels source = RandomPixels(16 * 16, 4);
    Pixels output(256);
    ASSERT_EQ(Compress(source, 8, 8, output, 0, 4, 0, 0, 0, 200), 0);
    EXPECT_EQ(seen[0].call.quality, 6u);
    EXPECT_EQ(ORBTCCompressTexture(source.data(), 1, 8, 8, 0, nullptr, 0, 0, 0, 0, 4, 4, 0, 0, 0, 0, nullptr), 1);

    // The door: RGBA rows, 2bpp for the flag 1 only, row order exactly for
    // generation 1.
    seen.clear();
    ASSERT_EQ(orbtc_compress(source.data(), output.data(), 16, 8, 1, 3, 1), 0);
    ASSERT_EQ(orbtc_compress(source.data(), output.data(), 16, 16, 0, 400, 2), 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].pixels, Pixels(source.begin(), source.begin() + 16 * 8 * 4));
    const FNZJLevelCall &first = seen[0].call, &second = seen[1].call;
    EXPECT_EQ(std::make_tuple(first.bitsPerPixel, first.isGeneration2, first.noTwiddle, first.quality, first.format),
              std::make_tuple(2, true, 1u, 3u, 4u));
    EXPECT_EQ(std::make_tuple(second.bitsPerPixel, second.isGeneration2, second.noTwiddle, second.quality),
              std::make_tuple(4, false, 0u, 6u));

    // Sizes off the block grid fail; a grid of 2 x 3 blocks goes in row order.
    seen.clear();
    auto level = [&](int width, int height, int bitsPerPixel) {
        ImageBuffer* image = NewImage(width, height);
        const int result = FNZJNewMethod(image, 4, bitsPerPixel, 0, 0, 0, 0, output.data(), nullptr);
        ReleaseImage(image);
        return result;
    };
    EXPECT_EQ(level(8, 6, 4) + level(12, 8, 2) + level(0, 8, 4), 3);
    EXPECT_TRUE(seen.empty());
    EXPECT_EQ(level(8, 12, 4) + level(32, 8, 2), 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(std::make_pair(seen[0].call.noTwiddle, seen[1].call.noTwiddle), std::make_pair(1u, 0u));
}
