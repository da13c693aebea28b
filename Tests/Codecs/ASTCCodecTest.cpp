// The ASTC bridge: temporary names, the runner, the exact command lines (seen
// through a stand-in program on PATH) and round trips through the real astcenc.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Codecs/ASTCCodec.h"
#include "Codecs/ASTCToolOutput.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::ReadBytes;
using testsupport::ScratchDir;

namespace
{

using Bytes = std::vector<uint8_t>;

// Sets an environment variable for the test's lifetime (null unsets it).
class ScopedEnv
{
public:
    ScopedEnv(const char* name, const char* value) : m_name(name), m_had(std::getenv(name) != nullptr)
    {
        if (m_had)
            m_old = std::getenv(name);
        value ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnv() { m_had ? setenv(m_name, m_old.c_str(), 1) : unsetenv(m_name); }

private:
    const char* m_name;
    bool m_had;
    std::string m_old;
};

std::vector<std::string> DirectoryEntries(const std::filesystem::path& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadText(const std::string& path)
{
    const Bytes bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

// A stand-in astcenc: a shell script in its own directory, which is put first
// on PATH for the test. It logs each command line to 'log' and runs 'body'.
class FakeASTCEnc
{
public:
    explicit FakeASTCEnc(const std::string& body)
    {
        std::filesystem::create_directories(m_dir / "bin");
        const std::string script = m_dir / "bin/astcenc";
        std::ofstream(script) << "#!/bin/sh\necho \"$*\" >> '" << log() << "'\n" << body << "\n";
        chmod(script.c_str(), 0755);
        m_path.reset(new ScopedEnv("PATH", ((m_dir / "bin") + ":/usr/bin:/bin").c_str()));
    }
    std::string log() const { return m_dir / "log"; }
    std::string file(const std::string& name) const { return m_dir / name; }
    std::vector<std::string> lines() const
    {
        std::vector<std::string> result;
        std::ifstream in(log());
        for (std::string line; std::getline(in, line);)
            result.push_back(line);
        return result;
    }

private:
    ScratchDir m_dir{"_fake"};
    std::unique_ptr<ScopedEnv> m_path;
};

// Smooth colours with a soft alpha ramp, the kind of content ASTC keeps well.
Bytes Smooth(unsigned width, unsigned height, unsigned depth)
{
    Bytes pixels(size_t(width) * height * depth * 4);
    uint8_t* p = pixels.data();
    for (unsigned z = 0; z < depth; ++z)
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x, p += 4)
            {
                p[0] = uint8_t(30 + x * 190 / width);
                p[1] = uint8_t(60 + y * 150 / height);
                p[2] = uint8_t(200 - z * 20 - (x + y) * 60 / (width + height));
                p[3] = uint8_t(255 - x * 80 / width);
            }
    return pixels;
}

double PSNR(const Bytes& a, const Bytes& b)
{
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += double(int(a[i]) - int(b[i])) * (int(a[i]) - int(b[i]));
    return sum == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(a.size()) / sum);
}

unsigned BlockBytes(unsigned w, unsigned h, unsigned d, unsigned bx, unsigned by, unsigned bz)
{
    return ((w + bx - 1) / bx) * ((h + by - 1) / by) * ((d + bz - 1) / bz) * 16;
}

} // namespace

TEST(ASTCTempNames, DirectoryFromTMPDIRThreadAndExtension)
{
    char buffer[4096];
    const char* const cases[][2] = {
        {nullptr, "/tmp/"}, {"/var/scratch", "/var/scratch/"}, {"/var/scratch/", "/var/scratch/"}};
    for (const auto& c : cases)
    {
        ScopedEnv tmp("TMPDIR", c[0]);
        EXPECT_EQ(getTempDir(buffer), std::strlen(c[1]));
        EXPECT_STREQ(buffer, c[1]);
    }
    const std::string stem = "ORBTexLib_" + std::to_string(getProcessID()) + "_" + std::to_string(getThreadID());
    {
        // An empty TMPDIR gives bare names in the working directory.
        ScopedEnv tmp("TMPDIR", "");
        EXPECT_EQ(getTempDir(buffer), 0u);
        EXPECT_EQ(getTempFile(buffer, "ktx"), int(stem.size() + 4));
        EXPECT_EQ(std::string(buffer), stem + ".ktx");
    }
    {
        // A directory the 4096-byte buffer cannot hold is refused, not cut.
        const std::string longDirectory(4095, 'd');
        ScopedEnv tmp("TMPDIR", longDirectory.c_str());
        EXPECT_EQ(getTempDir(buffer), 4096u);
        EXPECT_STREQ(buffer, "");
        EXPECT_LT(getTempFile(buffer, "ktx"), 0);
    }

    // Each thread has its own name; the extension is the only difference
    // between a call's two files.
    ScopedEnv tmp("TMPDIR", "/t");
    ASSERT_GT(getTempFile(buffer, "astc"), 0);
    EXPECT_EQ(std::string(buffer), "/t/" + stem + ".astc");
    std::vector<std::string> names(6);
    std::vector<std::thread> threads;
    for (auto& name : names)
        threads.emplace_back([&name] {
            char own[4096];
            getTempFile(own, "ktx");
            name = own;
        });
    for (auto& thread : threads)
        thread.join();
    names.push_back("/t/" + stem + ".ktx");
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
}

TEST(ASTCRunner, ExitCodesSignalsAndMissingTool)
{
    FakeASTCEnc fake("o=$(readlink /proc/$$/fd/1); e=$(readlink /proc/$$/fd/2)\n"
                     "echo \"$o\" > \"$OUT1\"; echo \"$e\" > \"$OUT2\"\n"
                     "case \"$1\" in kill) kill -9 $$;; esac\nexit ${1:-0}");
    ScopedEnv out1("OUT1", fake.file("stdout").c_str()), out2("OUT2", fake.file("stderr").c_str());
    int code = -1;
    const char* const three[] = {"3", nullptr};
    EXPECT_TRUE(executeASTCEnc(three, &code));
    EXPECT_EQ(code, 3);
    // The tool's output goes nowhere.
    EXPECT_EQ(ReadText(fake.file("stdout")), "/dev/null\n");
    EXPECT_EQ(ReadText(fake.file("stderr")), "/dev/null\n");

    const char* const none[] = {nullptr};
    code = -1;
    EXPECT_TRUE(executeASTCEnc(none, &code));
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(executeASTCEnc(three, nullptr));
    EXPECT_TRUE(isASTCEncAvailable()); // a non-zero exit still means it runs

    // 127 is "could not start", whoever exits with it; a signal is no exit.
    const char* const notStarted[] = {"127", nullptr};
    const char* const killed[] = {"kill", nullptr};
    code = -1;
    EXPECT_FALSE(executeASTCEnc(notStarted, &code));
    EXPECT_FALSE(executeASTCEnc(killed, &code));
    EXPECT_EQ(code, -1);
    EXPECT_EQ(fake.lines(), (std::vector<std::string>{"3", "", "3", "", "127", "kill"}));
}

TEST(ASTCRunner, MissingToolGivesZeroAndLeavesNoFile)
{
    ScratchDir empty("_empty"), tmp;
    ScopedEnv path("PATH", empty.path().c_str());
    ScopedEnv tmpdir("TMPDIR", tmp.path().c_str());
    EXPECT_FALSE(isASTCEncAvailable());
    const Bytes pixels = Smooth(8, 8, 1);
    Bytes blocks(64), decoded(256);
    EXPECT_EQ(ASTCCompress(pixels.data(), blocks.data(), 8, 8, 1, 4, 4, 1, 2), 0u);
    EXPECT_EQ(ASTCDecompress(blocks.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4), 0u);
    // The compressor removes its KTX file; the decompressor its .astc file
    // (a KTX result was never made).
    EXPECT_TRUE(DirectoryEntries(tmp.path()).empty());

    // Through Transcode: encoding fails, decoding gives zeros, never what the
    // heap held.
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 8, 8), pixels.data());
    EXPECT_FALSE(Transcode(texture, PixelType(ePF_ASTC_4x4), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(std::count(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize(), 0), 64);
    std::fill_n(texture.getDataPtr(), texture.getDataSize(), uint8_t(0xAB));
    EXPECT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(std::count(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize(), 0), 256);
}

TEST(ASTCRunner, SizeQueriesRunNothing)
{
    FakeASTCEnc fake("exit 0");
    const Bytes pixels = Smooth(10, 10, 1);
    EXPECT_EQ(ASTCCompress(pixels.data(), nullptr, 10, 10, 1, 4, 4, 1, 0), 9u * 16);
    EXPECT_EQ(ASTCCompress(nullptr, nullptr, 13, 7, 5, 6, 6, 6, 0), 3u * 2 * 1 * 16);
    EXPECT_EQ(ASTCDecompress(nullptr, nullptr, 10, 10, 2, ePF_ASTC_4x4x4), 800u);
    // Block sizes without a format, and formats that are not ASTC, give 0.
    EXPECT_EQ(ASTCCompress(nullptr, nullptr, 8, 8, 1, 7, 7, 1, 0), 0u);
    EXPECT_EQ(ASTCDecompress(nullptr, nullptr, 8, 8, 1, ePF_ETC1), 0u);
    EXPECT_TRUE(fake.lines().empty());
}

// The stand-in answers "-c" with status 1 as astcenc 2.0 and later do, and
// "-cl" by copying a prepared .astc file to the output name.
class ASTCCommandLines : public ::testing::Test
{
protected:
    ASTCCommandLines()
        : m_fake("case \"$1\" in -c) exit 1;; -cl) cp \"$PREPARED\" \"$3\";; -dl) cp \"$PREPARED\" \"$3\";; esac")
    {
    }

    // Prepares what the stand-in returns: a .astc file or a KTX file.
    void Prepare(const CORBTexture& texture, bool asASTC)
    {
        const std::string path = m_fake.file(asASTC ? "prepared.astc" : "prepared.ktx");
        ASSERT_TRUE(asASTC ? texture.saveASTCFile(CORBTString(path.c_str())) : texture.saveFile(CORBTString(path.c_str())));
        m_prepared.reset(); // restores the variable before it is set again
        m_prepared.reset(new ScopedEnv("PREPARED", path.c_str()));
    }

    // The temporary names without extension, their directory cut to "T/".
    static std::string Stem()
    {
        return "T/ORBTexLib_" + std::to_string(getProcessID()) + "_" + std::to_string(getThreadID());
    }

    // The command lines with the temporary directory cut to "T/".
    std::vector<std::string> Lines() const
    {
        std::vector<std::string> lines = m_fake.lines();
        const std::string directory = m_tmp.path().string() + "/";
        for (std::string& line : lines)
            for (size_t at; (at = line.find(directory)) != std::string::npos;)
                line.replace(at, directory.size(), "T/");
        return lines;
    }

    FakeASTCEnc m_fake; // first, so that its own files are outside TMPDIR
    ScratchDir m_tmp;
    ScopedEnv m_tmpdir{"TMPDIR", m_tmp.path().c_str()};
    std::unique_ptr<ScopedEnv> m_prepared;
};

TEST_F(ASTCCommandLines, CompressRetriesWithLinearOperationAndCleansUp)
{
    CORBTexture blocks(CORBTextureHeader(ePF_ASTC_6x6, 12, 12));
    for (uint32_t i = 0; i < blocks.getDataSize(); ++i)
        blocks.getDataPtr()[i] = uint8_t(i * 7);
    Prepare(blocks, true);

    const Bytes pixels = Smooth(12, 12, 1);
    Bytes out(64 + 1, 0xEE);
    EXPECT_EQ(ASTCCompress(pixels.data(), out.data(), 12, 12, 1, 6, 6, 1, 7), 64u);
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + 64, blocks.getDataPtr()));
    EXPECT_EQ(out[64], 0xEE);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"-c " + Stem() + ".ktx " + Stem() + ".astc 6x6 -medium",
                                                 "-cl " + Stem() + ".ktx " + Stem() + ".astc 6x6 -medium"}));
    EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty());

    // Each quality's preset; quality 0's has a newer name too, used in the retry.
    Prepare(CORBTexture(CORBTextureHeader(ePF_ASTC_6x6x6, 6, 6, 6)), true);
    const char* const switches[] = {"-veryfast", "-fast", "-medium", "-thorough", "-exhaustive", "-medium"};
    for (int quality = 0; quality < 6; ++quality)
        EXPECT_EQ(ASTCCompress(Smooth(6, 6, 6).data(), out.data(), 6, 6, 6, 6, 6, 6, quality), 16u);
    const std::vector<std::string> lines = Lines();
    ASSERT_EQ(lines.size(), 14u);
    for (int i = 0; i < 6; ++i)
    {
        const std::string& first = lines[2 + 2 * i];
        const std::string& retry = lines[3 + 2 * i];
        EXPECT_EQ(first.substr(first.rfind(".astc ") + 6), std::string("6x6x6 ") + switches[i]);
        EXPECT_EQ(retry.substr(retry.rfind(".astc ") + 6), std::string("6x6x6 ") + (i ? switches[i] : "-fastest"));
    }
}

TEST_F(ASTCCommandLines, DecompressCommandAndCleanUp)
{
    const Bytes pixels = Smooth(5, 4, 1);
    CORBTexture decoded(CORBTextureHeader(ORBStandard8PixelType, 4, 5), pixels.data());
    Prepare(decoded, false);

    const Bytes blocks(2 * 16, 0x5A);
    Bytes out(pixels.size() + 1, 0xEE);
    EXPECT_EQ(ASTCDecompress(blocks.data(), out.data(), 5, 4, 1, ePF_ASTC_4x4), 80u);
    EXPECT_TRUE(std::equal(pixels.begin(), pixels.end(), out.begin()));
    EXPECT_EQ(out.back(), 0xEE);
    EXPECT_EQ(Lines(), std::vector<std::string>{"-dl " + Stem() + ".astc " + Stem() + ".ktx"});
    EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty());
}

TEST_F(ASTCCommandLines, OutputOfAnotherShapeIsRefused)
{
    // A tool that answers with more blocks, or a larger image, than asked
    // for must not overrun the caller's buffer.
    Prepare(CORBTexture(CORBTextureHeader(ePF_ASTC_4x4, 16, 16)), true);
    const Bytes pixels = Smooth(8, 8, 1);
    Bytes out(64);
    EXPECT_EQ(ASTCCompress(pixels.data(), out.data(), 8, 8, 1, 4, 4, 1, 2), 0u);
    Prepare(CORBTexture(CORBTextureHeader(ePF_ASTC_5x5, 8, 8)), true);
    EXPECT_EQ(ASTCCompress(pixels.data(), out.data(), 8, 8, 1, 4, 4, 1, 2), 0u);

    Prepare(CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 16, 16)), false);
    Bytes decoded(8 * 8 * 4);
    EXPECT_EQ(ASTCDecompress(out.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4), 0u);
    EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty());
}

TEST(ASTCCommandLinesFailure, FailedRunKeepsOnlyWhatTheCallerMustNotRemove)
{
    // A failing compression removes its KTX input; a failing decompression
    // removes its .astc input and leaves the KTX name (never written here).
    FakeASTCEnc fake("exit 2");
    ScratchDir tmp;
    ScopedEnv tmpdir("TMPDIR", tmp.path().c_str());
    const Bytes pixels = Smooth(4, 4, 1);
    Bytes out(64);
    EXPECT_EQ(ASTCCompress(pixels.data(), out.data(), 4, 4, 1, 4, 4, 1, 0), 0u);
    EXPECT_EQ(ASTCDecompress(out.data(), out.data(), 4, 4, 1, ePF_ASTC_4x4), 0u);
    EXPECT_EQ(fake.lines().size(), 2u); // status 2 is no reason to retry
    EXPECT_TRUE(DirectoryEntries(tmp.path()).empty());
}

// stopASTCEncRuns ends the tool of every call under way and removes the
// call's files, the tool's partial output too; the calls fail.
TEST(ASTCCommandLinesFailure, StoppedRunsLeaveNothing)
{
    FakeASTCEnc fake("echo partial > \"$3\"; exec sleep 60");
    ScratchDir tmp;
    ScopedEnv tmpdir("TMPDIR", tmp.path().c_str());
    const Bytes pixels = Smooth(8, 8, 1);
    Bytes blocks(64), decoded(256);
    unsigned results[2] = {1, 1};
    std::thread compress([&] { results[0] = ASTCCompress(pixels.data(), blocks.data(), 8, 8, 1, 4, 4, 1, 2); });
    std::thread decompress([&] { results[1] = ASTCDecompress(blocks.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4); });
    // Each call's input and the tool's output.
    for (int i = 0; i < 4000 && DirectoryEntries(tmp.path()).size() < 4; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(DirectoryEntries(tmp.path()).size(), 4u);
    stopASTCEncRuns();
    compress.join();
    decompress.join();
    EXPECT_EQ(results[0], 0u);
    EXPECT_EQ(results[1], 0u);
    EXPECT_EQ(DirectoryEntries(tmp.path()), std::vector<std::string>());
}

TEST(ASTCToolOutput, PackedRowsAreReadAsWritten)
{
    // An opaque 5 x 3 image as astcenc writes it: 15-byte rows, no padding.
    ScratchDir dir;
    const uint32_t words[14] = {0x04030201, 0x1401, 1, 0x1907, 0x8051, 0x1907, 5, 3, 0, 0, 1, 1, 0, 45};
    Bytes file = {0xAB, 'K', 'T', 'X', ' ', '1', '1', 0xBB, '\r', '\n', 0x1A, '\n'};
    file.resize(12 + sizeof words);
    std::memcpy(file.data() + 12, words, sizeof words); // the last word is the image size
    for (uint8_t i = 0; i < 45; ++i)
        file.push_back(i);
    testsupport::WriteBytes(dir / "packed.ktx", file);

    CORBTexture texture;
    ASSERT_TRUE(LoadDecodedKTX((dir / "packed.ktx").c_str(), 5, 3, 1, texture));
    EXPECT_EQ(texture.getPixelType(), PixelType('r', 'g', 'b', 0, 8, 8, 8, 0));
    ASSERT_EQ(texture.getDataSize(), 45u);
    EXPECT_TRUE(std::equal(file.end() - 45, file.end(), texture.getDataPtr()));

    // Cut short, it does not load; nor at another size than expected.
    file.resize(file.size() - 1);
    testsupport::WriteBytes(dir / "short.ktx", file);
    EXPECT_FALSE(LoadDecodedKTX((dir / "short.ktx").c_str(), 5, 3, 1, texture));
    EXPECT_FALSE(LoadDecodedKTX((dir / "packed.ktx").c_str(), 5, 4, 1, texture));
}

// The real encoder, as scripts/setup.sh installs it.
class ASTCRealEncoder : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(isASTCEncAvailable()) << "astcenc is not on PATH";
    }
    ScratchDir m_tmp;
    ScopedEnv m_tmpdir{"TMPDIR", m_tmp.path().c_str()};
};

TEST_F(ASTCRealEncoder, RoundTripsOfEveryShapeAndChannelLayout)
{
    struct Case
    {
        EORBTPixelFormat format;
        unsigned width, height, depth;
        bool grey, opaque;
        int quality;
        double minimumPSNR;
    };
    // Sizes that are and are not multiples of the block; the first four PSNR
    // bounds lie 2 dB below what astcenc's own test mode reports. astcenc hands
    // back opaque images with three channels and grey ones with one or two, in
    // rows that are no multiple of 4 bytes in the last four.
    const Case cases[] = {
        {ePF_ASTC_4x4, 16, 12, 1, false, false, 1, 33}, {ePF_ASTC_6x6, 20, 13, 1, false, false, 1, 37},
        {ePF_ASTC_8x8, 24, 16, 1, false, false, 1, 33.5}, {ePF_ASTC_4x4x4, 8, 8, 6, false, false, 1, 26.8},
        {ePF_ASTC_4x4, 10, 6, 1, false, true, 3, 36}, {ePF_ASTC_4x4, 5, 3, 1, true, true, 3, 36},
        {ePF_ASTC_4x4, 3, 7, 1, true, false, 3, 36}, {ePF_ASTC_4x4, 7, 4, 1, false, false, 3, 36}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.format << " " << c.width << "x" << c.height << (c.grey ? " grey" : "")
                                        << (c.opaque ? " opaque" : ""));
        unsigned bx, by, bz;
        ORBTGetFormatMinDims(c.format, bx, by, bz);
        Bytes pixels = Smooth(c.width, c.height, c.depth);
        for (size_t i = 0; i < pixels.size(); i += 4)
        {
            if (c.grey)
                pixels[i + 1] = pixels[i + 2] = pixels[i];
            if (c.opaque)
                pixels[i + 3] = 255;
        }
        const unsigned size = BlockBytes(c.width, c.height, c.depth, bx, by, bz);
        Bytes blocks(size);
        ASSERT_EQ(ASTCCompress(pixels.data(), blocks.data(), c.width, c.height, c.depth, uint8_t(bx), uint8_t(by),
                               uint8_t(bz), c.quality),
                  size);
        Bytes decoded(pixels.size());
        ASSERT_EQ(ASTCDecompress(blocks.data(), decoded.data(), c.width, c.height, c.depth, c.format),
                  pixels.size());
        EXPECT_GT(PSNR(pixels, decoded), c.minimumPSNR);
        for (size_t i = 0; i < pixels.size(); i += 4)
        {
            ASSERT_TRUE(!c.grey || (decoded[i] == decoded[i + 1] && decoded[i] == decoded[i + 2])) << i;
            ASSERT_TRUE(!c.opaque || decoded[i + 3] == 255) << i;
        }
    }
    EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty());
}

TEST_F(ASTCRealEncoder, MIPChainTilesLevelsBelowTheBlock)
{
    // Levels of 4 x 4, 2 x 2 and 1 x 1 are tiled up to 6 x 6 to encode and
    // decoded through a block-sized buffer. They are grey, opaque or not,
    // which astcenc hands back as one- or two-channel files.
    const Bytes pixels = Smooth(8, 8, 1);
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 8, 8, 1, 4));
    std::copy(pixels.begin(), pixels.end(), texture.getDataPtr());
    auto grey = [](uint32_t level) { return 100 + level * 30; };
    auto alpha = [&](uint32_t level) { return level == 1 ? 255 : grey(level); };
    for (uint32_t level = 1; level < 4; ++level)
        for (uint32_t i = 0; i < texture.getDataSize(int(level)); ++i)
            texture.getDataPtr(level)[i] = uint8_t(i % 4 == 3 ? alpha(level) : grey(level));
    ASSERT_TRUE(Transcode(texture, PixelType(ePF_ASTC_6x6), eVarUnsignedByteNorm, eColourSpaceLinear,
                          ECompressorQuality(0)));
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    for (uint32_t level = 1; level < 4; ++level)
        for (uint32_t i = 0; i < texture.getDataSize(int(level)); ++i)
            ASSERT_NEAR(texture.getDataPtr(level)[i], i % 4 == 3 ? alpha(level) : grey(level), 1)
                << "level " << level << " byte " << i;
    EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty());
}

TEST_F(ASTCRealEncoder, ConcurrentCallsGiveTheSameBlocks)
{
    const Bytes pixels = Smooth(32, 32, 1);
    Bytes alone(BlockBytes(32, 32, 1, 5, 5, 1));
    ASSERT_EQ(ASTCCompress(pixels.data(), alone.data(), 32, 32, 1, 5, 5, 1, 0), alone.size());

    std::vector<Bytes> results(4, Bytes(alone.size()));
    std::vector<unsigned> counts(results.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < results.size(); ++i)
        threads.emplace_back([&, i] {
            for (int repeat = 0; repeat < 3; ++repeat)
                counts[i] = ASTCCompress(pixels.data(), results[i].data(), 32, 32, 1, 5, 5, 1, 0);
        });
    for (auto& thread : threads)
        thread.join();
    for (size_t i = 0; i < results.size(); ++i)
    {
        EXPECT_EQ(counts[i], alone.size());
        EXPECT_EQ(results[i], alone) << i;
    }
    EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty());
}
