// The ETC family's whole-image compressor: blocks in row order, each given
// its pixels and the block compressor of its format and quality.

#include "Codecs/ETC/ETCCodec.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "Codecs/ETC/ETCBlockCodec.h"
#include "Codecs/ETC/ETCExhaustive.h"
#include "Model/ORBTextureErrors.h"

namespace orbtexture
{

namespace
{

std::atomic<unsigned int> threadCountOverride{0};

bool IsETCFormat(unsigned int format) { return format == ePF_ETC1 || (format >= ePF_ETC2_RGB && format <= ePF_EAC_RG11); }

unsigned int BlockBytes(unsigned int format)
{
    return format == ePF_ETC2_RGBA || format == ePF_EAC_RG11 ? 16 : 8;
}

// Source column (or row) of padded position c: the pad repeats the last
// columns in their own order; an image narrower than its pad wraps within it.
unsigned int PadSource(unsigned int c, unsigned int size, unsigned int padded)
{
    if (c < size)
        return c;
    const unsigned int pad = padded - size;
    return (c + size - pad % size) % size;
}

// The 4 x 4 block at (x, y) of a bytesPerPixel image, padded at the edges.
void CopyBlock(const unsigned char* image, unsigned int width, unsigned int height, unsigned int paddedWidth,
               unsigned int paddedHeight, unsigned int x, unsigned int y, unsigned int bytesPerPixel,
               unsigned char* block)
{
    for (unsigned int row = 0; row < 4; ++row)
    {
        const unsigned int sourceRow = PadSource(y + row, height, paddedHeight);
        for (unsigned int column = 0; column < 4; ++column)
        {
            const unsigned int sourceColumn = PadSource(x + column, width, paddedWidth);
            std::memcpy(block + (row * 4 + column) * bytesPerPixel,
                        image + (size_t(sourceRow) * width + sourceColumn) * bytesPerPixel, bytesPerPixel);
        }
    }
}

// A colour block's words, most significant byte first.
void StoreWords(unsigned char* out, unsigned int word1, unsigned int word2)
{
    for (int i = 0; i < 4; ++i)
    {
        out[i] = static_cast<unsigned char>(word1 >> (24 - 8 * i));
        out[4 + i] = static_cast<unsigned char>(word2 >> (24 - 8 * i));
    }
}

} // namespace

void ETCSetThreadCountOverride(unsigned int count) { threadCountOverride.store(count); }

unsigned int ETCThreadCount()
{
    const unsigned int forced = threadCountOverride.load();
    if (forced != 0)
        return forced;
    const unsigned int cores = std::thread::hardware_concurrency();
    return cores ? cores : 1;
}

unsigned int ETCCompress(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                         int quality, unsigned int format, bool isSigned)
{
    const unsigned int paddedWidth = (width + 3) / 4 * 4;
    const unsigned int paddedHeight = (height + 3) / 4 * 4;
    const unsigned int fullSize = paddedWidth * paddedHeight;
    const bool halfByte = format == ePF_ETC1 || format == ePF_ETC2_RGB || format == ePF_ETC2_RGB_A1 ||
                          format == ePF_EAC_R11;
    const unsigned int size = halfByte ? fullSize / 2 : fullSize;
    if (!input || !output || width == 0 || height == 0)
        return size;

    // Qualities 4 and 5 stand for 2 and 3; negative ones are refused.
    if (quality >= 0 && quality < 4)
    {
        if (isSigned && format != ePF_EAC_R11 && format != ePF_EAC_RG11)
            return SetError(eORBTErrorUnsupported,
                            "ETCCompress: signed channels need EAC R11 or RG11 below quality 4 (format %u)", format),
                   0;
    }
    else if (quality == 4 || quality == 5)
        quality -= 2;
    else
        return SetError(eORBTErrorUnsupported, "ETCCompress: quality %d is not 0 to 5", quality), 0;
    if (!IsETCFormat(format))
        return SetError(eORBTErrorUnsupported, "ETCCompress: format %u is not of the ETC family", format), 0;
    const ORBTCallContext& context = CurrentCallContext();
    std::atomic<bool> stopped{false};

    const unsigned char* image = static_cast<const unsigned char*>(input);
    unsigned char* blocks = static_cast<unsigned char*>(output);
    const bool perceptual = quality == 1;
    const bool eac = format == ePF_EAC_R11 || format == ePF_EAC_RG11;
    const unsigned short* values = !eac ? nullptr : isSigned ? valueTableSigned() : valueTableUnsigned();

    // One row of blocks; rows are independent, so they run on several threads.
    const auto compressRow = [&](unsigned int y) {
        unsigned char decoded[48];
        unsigned char rgb[48];
        unsigned char alpha[16];
        unsigned short channels[32];
        for (unsigned int x = 0; x < paddedWidth; x += 4)
        {
            if (context.Cancelled())
            {
                stopped.store(true);
                return;
            }
            unsigned char* out = blocks + size_t((y / 4) * (paddedWidth / 4) + x / 4) * BlockBytes(format);
            unsigned int word1 = 0, word2 = 0;
            const bool whole = x + 4 <= width && y + 4 <= height;
            switch (format)
            {
            case ePF_ETC1:
            case ePF_ETC2_RGB:
            {
                // Whole blocks are read in place, edge blocks from a padded copy.
                unsigned char* source = const_cast<unsigned char*>(image);
                int sourceWidth = int(width), sourceHeight = int(height), sx = int(x), sy = int(y);
                if (!whole)
                {
                    CopyBlock(image, width, height, paddedWidth, paddedHeight, x, y, 3, rgb);
                    source = rgb;
                    sourceWidth = sourceHeight = 4;
                    sx = sy = 0;
                }
                if (format == ePF_ETC1)
                {
                    if (quality == 2)
                        compressBlockETC1Exhaustive(source, decoded, sourceWidth, sx, sy, word1, word2);
                    else if (quality == 3)
                        compressBlockETC1ExhaustivePerceptual(source, decoded, sourceWidth, sx, sy, word1, word2);
                    else if (perceptual)
                        compressBlockDiffFlipFastPerceptual(source, decoded, sourceWidth, sx, sy, word1, word2);
                    else
                        compressBlockDiffFlipFast(source, decoded, sourceWidth, sx, sy, word1, word2);
                }
                else if (quality == 2)
                    compressBlockETC2Exhaustive(source, decoded, sourceWidth, sx, sy, word1, word2);
                else if (quality == 3)
                    compressBlockETC2ExhaustivePerceptual(source, decoded, sourceWidth, sx, sy, word1, word2);
                else if (perceptual)
                    compressBlockETC2FastPerceptual(source, decoded, sourceWidth, sx, sy, word1, word2);
                else
                    compressBlockETC2Fast(source, nullptr, decoded, sourceWidth, sourceHeight, sx, sy, word1, word2,
                                          ePF_ETC2_RGB);
                StoreWords(out, word1, word2);
                break;
            }
            case ePF_ETC2_RGBA:
            case ePF_ETC2_RGB_A1:
            {
                unsigned char rgba[64];
                CopyBlock(image, width, height, paddedWidth, paddedHeight, x, y, 4, rgba);
                for (int i = 0; i < 16; ++i)
                {
                    std::memcpy(rgb + i * 3, rgba + i * 4, 3);
                    alpha[i] = rgba[i * 4 + 3];
                }
                if (format == ePF_ETC2_RGB_A1)
                {
                    // Quality has no effect on 1-bit alpha.
                    compressBlockETC2Fast(rgb, alpha, decoded, 4, 4, 0, 0, word1, word2, ePF_ETC2_RGB_A1);
                    StoreWords(out, word1, word2);
                    break;
                }
                // The exhaustive qualities search every alpha table and base.
                if (quality >= 2)
                    compressBlockAlphaSlow(alpha, 0, 0, 4, out, alphaTable);
                else
                    compressBlockAlphaFast(alpha, 0, 0, 4, out, alphaTable);
                if (quality == 2)
                    compressBlockETC2Exhaustive(rgb, decoded, 4, 0, 0, word1, word2);
                else if (quality == 3)
                    compressBlockETC2ExhaustivePerceptual(rgb, decoded, 4, 0, 0, word1, word2);
                else if (perceptual)
                    compressBlockETC2FastPerceptual(rgb, decoded, 4, 0, 0, word1, word2);
                else
                    compressBlockETC2Fast(rgb, nullptr, decoded, 4, 4, 0, 0, word1, word2, ePF_ETC2_RGBA);
                StoreWords(out + 8, word1, word2);
                break;
            }
            case ePF_EAC_R11:
            case ePF_EAC_RG11:
            {
                // Every quality is the same search; each channel its own block.
                const int stride = format == ePF_EAC_R11 ? 1 : 2;
                CopyBlock(image, width, height, paddedWidth, paddedHeight, x, y, 2 * stride,
                          reinterpret_cast<unsigned char*>(channels));
                compressBlockAlpha16(channels, stride, 0, 0, 4, out, isSigned, values);
                if (stride == 2)
                    compressBlockAlpha16(channels + 1, stride, 0, 0, 4, out + 8, isSigned, values);
                break;
            }
            default: break;
            }
        }
    };

    const unsigned int rows = paddedHeight / 4;
    const unsigned int threads = std::min(context.threads ? context.threads : ETCThreadCount(), rows);
    // Each worker takes the next row not yet taken; the calling thread reports.
    std::atomic<unsigned int> nextRow{0}, rowsDone{0};
    const auto worker = [&](bool reports) {
        for (unsigned int row = nextRow++; row < rows && !stopped.load(); row = nextRow++)
        {
            compressRow(row * 4);
            const unsigned int done = ++rowsDone;
            if (reports)
                context.Report(float(done) / float(rows));
        }
    };
    const auto finish = [&]() -> unsigned int {
        if (stopped.load())
            return SetError(eORBTErrorCancelled, "cancelled"), 0;
        return size;
    };
    if (threads <= 1)
    {
        worker(true);
        return finish();
    }
    std::vector<std::thread> pool;
    for (unsigned int t = 1; t < threads; ++t)
    {
        try
        {
            pool.emplace_back(worker, false);
        }
        catch (const std::system_error&)
        {
            break; // fewer threads: the rows are taken by those that run
        }
    }
    worker(true);
    for (std::thread& thread : pool)
        thread.join();
    return finish();
}

unsigned int ETCCompress(const void* input, void* output, const unsigned int& width, const unsigned int& height,
                         int quality, unsigned int format, bool isSigned, const ORBTCallContext& context)
{
    const CScopedCallContext scope(context);
    return ETCCompress(input, output, width, height, quality, format, isSigned);
}

} // namespace orbtexture
