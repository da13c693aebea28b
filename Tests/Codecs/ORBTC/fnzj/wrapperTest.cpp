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
