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
