// The ASTC bridge: temporary names, the runner, the exact command lines (seen
// through a stand-in program on PATH) and round trips through the real astcenc.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Codecs/ASTCCodec.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using testsupport::ReadBytes;
using testsupport::ScratchDir;

namespace
{

using Bytes = std::vector<uint8_t>;

// Sets an environment variable for the object's lifetime (null unsets it).
class ScopedEnv
{
public:
    ScopedEnv(const char* name, const char* value) : m_name(name), m_had(std::getenv(name) != nullptr)
    {
        m_old = m_had ? std::getenv(name) : "";
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

// A stand-in astcenc: a shell script in its own directory, put first on PATH
// for the object's lifetime. It logs each command line, then runs 'body'.
class FakeASTCEnc
{
public:
    explicit FakeASTCEnc(const std::string& body)
    {
        std::filesystem::create_directories(m_dir / "bin");
        const std::string script = m_dir / "bin/astcenc";
        std::ofstream(script) << "#!/bin/sh\necho \"$*\" >> '" << file("log") << "'\n" << body << "\n";
        chmod(script.c_str(), 0755);
        m_path.reset(new ScopedEnv("PATH", ((m_dir / "bin") + ":/usr/bin:/bin").c_str()));
    }
    std::string file(const std::string& name) const { return m_dir / name; }
    std::vector<std::string> lines() const
    {
        std::vector<std::string> result;
        std::ifstream in(file("log"));
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

} // namespace

TEST(ASTCTempNames, DirectoryFromTMPDIRProcessThreadAndExtension)
{
    const std::string stem = "ORBTexLib_" + std::to_string(getProcessID()) + "_" + std::to_string(getThreadID());
    const std::string tooLong(4095, 'd'); // with its '/', more than the 4096-byte buffer holds: refused, not cut
    const struct
    {
        const char* tmpdir;
        std::string directory, file; // file: "" when refused
    } cases[] = {{nullptr, "/tmp/", "/tmp/" + stem + ".ktx"},
                 {"/var/scratch", "/var/scratch/", "/var/scratch/" + stem + ".ktx"},
                 {"/var/scratch/", "/var/scratch/", "/var/scratch/" + stem + ".ktx"},
                 {"", "", stem + ".ktx"}, // bare names in the working directory
                 {tooLong.c_str(), "", ""}};
    for (const auto& c : cases)
    {
        ScopedEnv tmp("TMPDIR", c.tmpdir);
        char buffer[4096];
        EXPECT_EQ(getTempDir(buffer), c.tmpdir == tooLong.c_str() ? 4096u : c.directory.size());
        EXPECT_EQ(buffer, c.directory);
        EXPECT_EQ(getTempFile(buffer, "ktx"), c.file.empty() ? -1 : int(c.file.size()));
        EXPECT_EQ(c.file.empty() ? c.file : std::string(buffer), c.file);
    }
}

TEST(ASTCRunner, ExitCodesSignalsAndOutput)
{
    FakeASTCEnc fake("o=$(readlink /proc/$$/fd/1); e=$(readlink /proc/$$/fd/2)\n"
                     "echo \"$o $e\" > \"$OUT\"\ncase \"$1\" in kill) kill -9 $$;; esac\nexit ${1:-0}");
    ScopedEnv out("OUT", fake.file("output").c_str());
    int code = -1;
    const char* const three[] = {"3", nullptr};
    EXPECT_TRUE(executeASTCEnc(three, &code));
    EXPECT_EQ(code, 3);
    EXPECT_EQ(ReadText(fake.file("output")), "/dev/null /dev/null\n"); // the tool's output goes nowhere
    EXPECT_TRUE(executeASTCEnc(three, nullptr));
    EXPECT_TRUE(isASTCEncAvailable()); // a non-zero exit still means it runs

    // 127 is "could not start", whoever exits with it; a signal is no exit.
    const char* const notStarted[] = {"127", nullptr};
    const char* const killed[] = {"kill", nullptr};
    code = -1;
    EXPECT_FALSE(executeASTCEnc(notStarted, &code));
    EXPECT_FALSE(executeASTCEnc(killed, &code));
    EXPECT_EQ(code, -1);
    EXPECT_EQ(fake.lines(), (std::vector<std::string>{"3", "3", "", "127", "kill"}));
}

TEST(ASTCRunner, MissingToolGivesZeroAndLeavesNoFile)
{
    ScratchDir empty("_empty"), tmp;
    ScopedEnv path("PATH", empty.path().c_str()), tmpdir("TMPDIR", tmp.path().c_str());
    EXPECT_FALSE(isASTCEncAvailable());
    // Size queries need no tool; block sizes without a format, and formats that are not ASTC, give 0.
    EXPECT_EQ(ASTCCompress(Smooth(10, 10, 1).data(), nullptr, 10, 10, 1, 4, 4, 1, 0), 9u * 16);
    EXPECT_EQ(ASTCCompress(nullptr, nullptr, 13, 7, 5, 6, 6, 6, 0), 3u * 2 * 1 * 16);
    EXPECT_EQ(ASTCDecompress(nullptr, nullptr, 10, 10, 2, ePF_ASTC_4x4x4), 800u);
    EXPECT_EQ(ASTCCompress(nullptr, nullptr, 8, 8, 1, 7, 7, 1, 0), 0u);
    EXPECT_EQ(ASTCDecompress(nullptr, nullptr, 8, 8, 1, ePF_ETC1), 0u);

    const Bytes pixels = Smooth(8, 8, 1);
    Bytes blocks(64), decoded(256);
    EXPECT_EQ(ASTCCompress(pixels.data(), blocks.data(), 8, 8, 1, 4, 4, 1, 2), 0u);
    EXPECT_EQ(ASTCDecompress(blocks.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4), 0u);
    EXPECT_TRUE(DirectoryEntries(tmp.path()).empty());

    // Through Transcode: encoding fails, decoding gives zeros, never what the heap held.
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 8, 8), pixels.data());
    EXPECT_FALSE(Transcode(texture, PixelType(ePF_ASTC_4x4), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(std::count(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize(), 0), 64);
    std::fill_n(texture.getDataPtr(), texture.getDataSize(), uint8_t(0xAB));
    EXPECT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(std::count(texture.getDataPtr(), texture.getDataPtr() + texture.getDataSize(), 0), 256);
}

// The stand-in answers "-c" with status 1 as astcenc 2.0 and later do, and
// "-cl" and "-dl" by copying a prepared file to the output name.
class ASTCCommandLines : public ::testing::Test
{
protected:
    ASTCCommandLines() : m_fake("case \"$1\" in -c) exit 1;; -cl|-dl) cp \"$PREPARED\" \"$3\";; esac") {}

    // What the stand-in returns: a .astc file or a KTX file.
    void Prepare(const CORBTexture& texture, bool asASTC)
    {
        const std::string path = m_fake.file(asASTC ? "prepared.astc" : "prepared.ktx");
        ASSERT_TRUE(asASTC ? texture.saveASTCFile(path.c_str()) : texture.saveFile(path.c_str()));
        m_prepared.reset(); // restores the variable before it is set again
        m_prepared.reset(new ScopedEnv("PREPARED", path.c_str()));
    }

    // The temporary names without extension, their directory cut to "T/".
    static std::string Stem() { return "T/ORBTexLib_" + std::to_string(getProcessID()) + "_" + std::to_string(getThreadID()); }

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
    const CORBTexture blocks(CORBTextureHeader(ePF_ASTC_6x6, 12, 12), testsupport::Sequence(64, 7).data());
    Prepare(blocks, true);
    Bytes out(64 + 1, 0xEE);
    EXPECT_EQ(ASTCCompress(Smooth(12, 12, 1).data(), out.data(), 12, 12, 1, 6, 6, 1, 7), 64u);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 64), testsupport::DataOf(blocks));
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
        const std::string &first = lines[2 + 2 * i], &retry = lines[3 + 2 * i];
        EXPECT_EQ(first.substr(first.rfind(".astc ") + 6), std::string("6x6x6 ") + switches[i]);
        EXPECT_EQ(retry.substr(retry.rfind(".astc ") + 6), std::string("6x6x6 ") + (i ? switches[i] : "-fastest"));
    }
}

TEST_F(ASTCCommandLines, DecompressCommandAndOutputOfAnotherShape)
{
    const Bytes pixels = Smooth(5, 4, 1);
    Prepare(CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 4, 5), pixels.data()), false);
    const Bytes blocks(2 * 16, 0x5A);
    Bytes out(pixels.size() + 1, 0xEE);
    EXPECT_EQ(ASTCDecompress(blocks.data(), out.data(), 5, 4, 1, ePF_ASTC_4x4), 80u);
    EXPECT_EQ(out, [&] { Bytes expected = pixels; expected.push_back(0xEE); return expected; }());
    EXPECT_EQ(Lines(), std::vector<std::string>{"-dl " + Stem() + ".astc " + Stem() + ".ktx"});

    // A tool that answers with more blocks, other blocks or a larger image
    // than asked for must not overrun the caller's buffer.
    Bytes small(64), decoded(8 * 8 * 4);
    for (const CORBTextureHeader& header : {CORBTextureHeader(ePF_ASTC_4x4, 16, 16), CORBTextureHeader(ePF_ASTC_5x5, 8, 8)})
    {
        Prepare(CORBTexture(header), true);
        EXPECT_EQ(ASTCCompress(Smooth(8, 8, 1).data(), small.data(), 8, 8, 1, 4, 4, 1, 2), 0u);
    }
    Prepare(CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 16, 16)), false);
    EXPECT_EQ(ASTCDecompress(small.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4), 0u);
    // Nor a decoded file cut short.
    Prepare(CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 8, 8)), false);
    std::filesystem::resize_file(m_fake.file("prepared.ktx"), 96 + 4 + 8 * 8 * 4 - 1);
    EXPECT_EQ(ASTCDecompress(small.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4), 0u);
    EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty());
}

TEST(ASTCCommandLinesFailure, FailedAndStoppedRunsLeaveNothing)
{
    // A failing run removes the call's files; status 2 is no reason to retry.
    FakeASTCEnc fake("case \"$MODE\" in fail) exit 2;; esac; echo partial > \"$3\"; exec sleep 60");
    ScratchDir tmp;
    ScopedEnv tmpdir("TMPDIR", tmp.path().c_str());
    const Bytes pixels = Smooth(8, 8, 1);
    Bytes blocks(64), decoded(256);
    {
        ScopedEnv mode("MODE", "fail");
        EXPECT_EQ(ASTCCompress(pixels.data(), blocks.data(), 8, 8, 1, 4, 4, 1, 0), 0u);
        EXPECT_EQ(ASTCDecompress(blocks.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4), 0u);
        EXPECT_EQ(fake.lines().size(), 2u);
        EXPECT_TRUE(DirectoryEntries(tmp.path()).empty());
    }
    // stopASTCEncRuns ends the tool of every call under way and removes the
    // call's files, the tool's partial output too; the calls fail.
    unsigned results[2] = {1, 1};
    std::thread compress([&] { results[0] = ASTCCompress(pixels.data(), blocks.data(), 8, 8, 1, 4, 4, 1, 2); });
    std::thread decompress([&] { results[1] = ASTCDecompress(blocks.data(), decoded.data(), 8, 8, 1, ePF_ASTC_4x4); });
    for (int i = 0; i < 4000 && DirectoryEntries(tmp.path()).size() < 4; ++i) // two inputs, two outputs
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(DirectoryEntries(tmp.path()).size(), 4u);
    stopASTCEncRuns();
    compress.join();
    decompress.join();
    EXPECT_EQ(results[0] + results[1], 0u);
    EXPECT_EQ(DirectoryEntries(tmp.path()), std::vector<std::string>());
}

// The real encoder, as scripts/setup.sh installs it.
class ASTCRealEncoder : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(isASTCEncAvailable()) << "astcenc is not on PATH"; }
    void TearDown() override { EXPECT_TRUE(DirectoryEntries(m_tmp.path()).empty()); }
    ScratchDir m_tmp;
    ScopedEnv m_tmpdir{"TMPDIR", m_tmp.path().c_str()};
};

TEST_F(ASTCRealEncoder, RoundTripsOfEveryShapeAndChannelLayout)
{
    const struct
    {
        EORBTPixelFormat format;
        unsigned width, height, depth;
        bool grey, opaque;
        int quality;
        double minimumPSNR;
    } cases[] = {
        // Sizes that are and are not multiples of the block, 2 dB below what
        // astcenc's own test mode reports; then opaque images, which astcenc
        // hands back with three channels, and grey ones, with one or two, in
        // rows that are no multiple of 4 bytes.
        {ePF_ASTC_4x4, 16, 12, 1, false, false, 1, 33}, {ePF_ASTC_6x6, 20, 13, 1, false, false, 1, 37},
        {ePF_ASTC_4x4x4, 8, 8, 6, false, false, 1, 26.8}, {ePF_ASTC_4x4, 10, 6, 1, false, true, 3, 36},
        {ePF_ASTC_4x4, 5, 3, 1, true, true, 3, 36},       {ePF_ASTC_4x4, 3, 7, 1, true, false, 3, 36}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.format << " " << c.width << "x" << c.height << "x" << c.depth);
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
        const unsigned size = ((c.width + bx - 1) / bx) * ((c.height + by - 1) / by) * ((c.depth + bz - 1) / bz) * 16;
        Bytes blocks(size), decoded(pixels.size());
        ASSERT_EQ(ASTCCompress(pixels.data(), blocks.data(), c.width, c.height, c.depth, uint8_t(bx), uint8_t(by),
                               uint8_t(bz), c.quality),
                  size);
        ASSERT_EQ(ASTCDecompress(blocks.data(), decoded.data(), c.width, c.height, c.depth, c.format), pixels.size());
        EXPECT_GT(PSNR(pixels, decoded), c.minimumPSNR);
        for (size_t i = 0; i < pixels.size(); i += 4)
            ASSERT_TRUE((!c.grey || (decoded[i] == decoded[i + 1] && decoded[i] == decoded[i + 2])) &&
                        (!c.opaque || decoded[i + 3] == 255))
                << i;
    }
}

TEST_F(ASTCRealEncoder, MIPChainTilesLevelsBelowTheBlock)
{
    // Levels of 4 x 4, 2 x 2 and 1 x 1 are tiled up to 6 x 6 to encode and
    // decoded through a block-sized buffer. They are grey, opaque or not,
    // which astcenc hands back as one- or two-channel files.
    const Bytes pixels = Smooth(8, 8, 1);
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 8, 8, 1, 4));
    std::copy(pixels.begin(), pixels.end(), texture.getDataPtr());
    auto expected = [](uint32_t level, uint32_t i) { return i % 4 == 3 && level == 1 ? 255u : 100 + level * 30; };
    for (uint32_t level = 1; level < 4; ++level)
        for (uint32_t i = 0; i < texture.getDataSize(int(level)); ++i)
            texture.getDataPtr(level)[i] = uint8_t(expected(level, i));
    ASSERT_TRUE(Transcode(texture, PixelType(ePF_ASTC_6x6), eVarUnsignedByteNorm, eColourSpaceLinear,
                          ECompressorQuality(0)));
    ASSERT_TRUE(Transcode(texture, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    for (uint32_t level = 1; level < 4; ++level)
        for (uint32_t i = 0; i < texture.getDataSize(int(level)); ++i)
            ASSERT_NEAR(texture.getDataPtr(level)[i], expected(level, i), 1) << "level " << level << " byte " << i;
}

TEST_F(ASTCRealEncoder, ConcurrentCallsGiveTheSameBlocks)
{
    const Bytes pixels = Smooth(32, 32, 1);
    Bytes alone(7 * 7 * 16);
    ASSERT_EQ(ASTCCompress(pixels.data(), alone.data(), 32, 32, 1, 5, 5, 1, 0), alone.size());
    std::vector<Bytes> results(4, Bytes(alone.size()));
    std::vector<std::thread> threads;
    for (Bytes& result : results)
        threads.emplace_back([&] {
            for (int repeat = 0; repeat < 3; ++repeat)
                if (ASTCCompress(pixels.data(), result.data(), 32, 32, 1, 5, 5, 1, 0) != alone.size())
                    result.clear();
        });
    for (auto& thread : threads)
        thread.join();
    for (const Bytes& result : results)
        EXPECT_EQ(result, alone);
}

// A failing bridge call leaves its kind and a reason that starts with the call's name.
TEST(ASTCErrors, FailuresLeaveTheirReason)
{
    FakeASTCEnc fake("exit 2");
    const struct { unsigned (*call)(); EORBTErrorKind kind; const char* reason; } cases[] = {
        {[] { uint8_t p[64]{}; return ASTCCompress(p, p, 4, 4, 1, 4, 4, 1, 2); }, eORBTErrorTool,
         "ASTCCompress: astcenc -c 4x4 -medium exited with status 2"},
        {[] { ScopedEnv path("PATH", "/missing"); return unsigned(isASTCEncAvailable()); }, eORBTErrorTool,
         "isASTCEncAvailable: astcenc could not be started"},
        {[] { uint8_t p[64]{}; ScopedEnv t("TMPDIR", "/missing"); return ASTCDecompress(p, p, 4, 4, 1, ePF_ASTC_4x4); },
         eORBTErrorIO, "ASTCDecompress: cannot create /missing/ORBTexLib_"},
    };
    for (const auto& c : cases)
        EXPECT_TRUE(c.call() == 0 && ORBTGetLastErrorKind() == c.kind &&
                    std::string(ORBTGetLastError()).rfind(c.reason, 0) == 0)
            << c.reason << " / " << ORBTGetLastError();
    EXPECT_EQ(ORBTGetLastErrno(), ENOENT); // the failed write's
}
