// Per-call threads, progress and cancellation of the long entries.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "ORBTextureInfo.h"
#include "ORBTextureUtilities.h"
#include "Support/TestPictures.h"

using namespace orbtexture;

namespace
{

CORBTexture PictureTexture(unsigned side)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, side, side));
    const std::vector<unsigned char> pixels = testsupport::Picture(side, side, false);
    std::memcpy(texture.getDataPtr(), pixels.data(), pixels.size());
    return texture;
}

} // namespace

// A cancel from another thread stops ORBTC quality 8 and ETC quality 2 soon,
// in well under the time between two progress reports (the optimiser's
// passes, the ETC rows: on one thread and wide, so that a row takes tens of
// milliseconds), with the reason, and leaves the texture as it was.
TEST(CallContext, CancelStopsSoonAndKeepsTheTexture)
{
    using Clock = std::chrono::steady_clock;
    struct Reports
    {
        std::atomic<int> count{0};
        Clock::time_point times[256];
    };
    for (const auto& [format, quality, wanted, size, threads] :
         {std::tuple{ePF_ORBTC_4bpp_RGB, 8, 3, 512u, 0u}, {ePF_ETC2_RGB, 2, 6, 2048u, 1u}})
    {
        const CORBTexture original = PictureTexture(size);
        CORBTexture texture(original);
        std::atomic<bool> cancel{false};
        Reports reports;
        ORBTCallContext context;
        context.cancel = &cancel;
        context.threads = threads;
        context.progressUser = &reports;
        context.progress = [](float, void* user) {
            Reports& r = *static_cast<Reports*>(user);
            if (const int n = r.count; n < 256)
                r.times[n] = Clock::now(), r.count = n + 1;
        };
        const PixelType target(format);
        const int q = quality; // the error is the thread's
        auto run = std::async(std::launch::async, [&] {
            const bool done = Transcode(texture, target, eVarUnsignedByteNorm, eColourSpaceLinear,
                                        ECompressorQuality(q), false, context);
            return std::pair(done, std::pair(std::string(ORBTGetLastError()), ORBTGetLastErrorKind()));
        });
        while (reports.count < wanted)
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        const auto asked = Clock::now();
        cancel = true;
        const auto [done, error] = run.get();
        const auto took = Clock::now() - asked, between = reports.times[wanted - 1] - reports.times[wanted - 2];
        EXPECT_LT(took, std::chrono::milliseconds(500)) << format;
        EXPECT_LT(took, between / 4) << format;
        EXPECT_FALSE(done);
        EXPECT_EQ(error, std::pair(std::string("cancelled"), eORBTErrorCancelled));
        ASSERT_EQ(texture.getPixelType(), original.getPixelType());
        EXPECT_EQ(std::memcmp(texture.getDataPtr(), original.getDataPtr(), original.getDataSize()), 0);
    }
}

// Two calls at once with their own thread counts give what each gives alone;
// progress rises to 1.
TEST(CallContext, ConcurrentCallsKeepTheirOwnSettings)
{
    const CORBTexture source = PictureTexture(128);
    auto encode = [&](unsigned threads, std::vector<float>* progress) {
        ORBTCallContext context;
        context.threads = threads;
        context.progress = [](float fraction, void* user) { static_cast<std::vector<float>*>(user)->push_back(fraction); };
        context.progressUser = progress;
        CORBTexture texture(source);
        EXPECT_TRUE(Transcode(texture, PixelType(ePF_ORBTCII_4bpp), eVarUnsignedByteNorm, eColourSpaceLinear,
                              ECompressorQuality(4), false, context));
        return std::vector<unsigned char>(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize());
    };
    std::vector<float> progressA, progressB, ignored;
    auto one = std::async(std::launch::async, encode, 1u, &progressA);
    auto two = std::async(std::launch::async, encode, 5u, &progressB);
    EXPECT_EQ(one.get(), encode(1, &ignored));
    EXPECT_EQ(two.get(), encode(5, &ignored));
    for (const std::vector<float>* progress : {&progressA, &progressB})
    {
        ASSERT_FALSE(progress->empty());
        EXPECT_TRUE(std::is_sorted(progress->begin(), progress->end()));
        EXPECT_FLOAT_EQ(progress->back(), 1.f);
    }
}

// The encoders' limits, asked before any work, in the words orbtex prints.
TEST(CodecRegistry, CanEncodeTellsTheRule)
{
    CORBTString reason;
    EXPECT_TRUE(CanEncode(PixelType(ePF_ORBTC_2bpp_RGB), 448, 296, 1, 8, reason));
    EXPECT_TRUE(CanEncode(PixelType(ePF_ORBTCII_2bpp), 4096, 3, 1, 8, reason));
    EXPECT_FALSE(CanEncode(PixelType(ePF_ORBTC_2bpp_RGB), 451, 300, 1, 2, reason));
    EXPECT_STREQ(reason.c_str(), "the image is 451x300, but ORBTC_2bpp_RGB needs sides that are multiples of 16 "
                                 "across and 8 down (or less than that) and at most 4096");
    EXPECT_FALSE(CanEncode(PixelType(ePF_ORBTCII_4bpp), 4097, 4, 1, 0, reason));
    EXPECT_FALSE(CanEncode(PixelType(ePF_ETC1), 4, 4, 1, 6, reason));
    EXPECT_STREQ(reason.c_str(), "quality 6 of ETC1 is not supported by this version (0 to 5 are)");
    CORBTexture texture = PictureTexture(36);
    EXPECT_FALSE(Transcode(texture, PixelType(ePF_ORBTC_2bpp_RGB), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_STREQ(ORBTGetLastError(), "ORBTCCompress: 36x36 is not whole 8x4 blocks");
}
