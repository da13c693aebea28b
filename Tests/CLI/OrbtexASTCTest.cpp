// orbtex convert to and from ASTC, which the library serves through astcenc.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "Codecs/ASTCCodec.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::Orbtex;
using testsupport::Quote;
using testsupport::RunResult;
using testsupport::ScratchDir;

namespace
{


// An opaque 20 x 14 rgba8 gradient with two levels.
CORBTexture Gradient()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 14, 20, 1, 2));
    for (uint32_t level = 0; level < 2; ++level)
    {
        uint8_t* p = texture.getDataPtr(level);
        for (uint32_t y = 0; y < texture.getHeight(level); ++y)
            for (uint32_t x = 0; x < texture.getWidth(level); ++x, p += 4)
            {
                p[0] = uint8_t(40 + 8 * x);
                p[1] = uint8_t(200 - 9 * y);
                p[2] = uint8_t(90 + 3 * (x + y));
                p[3] = 255;
            }
    }
    return texture;
}

double PSNR(const uint8_t* a, const uint8_t* b, size_t size)
{
    double sum = 0;
    for (size_t i = 0; i < size; ++i)
        sum += double(int(a[i]) - int(b[i])) * (int(a[i]) - int(b[i]));
    return sum == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * double(size) / sum);
}

// How many processes have 'text' in their command line.
int ProcessesMentioning(const std::string& text)
{
    int count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error))
    {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        // A process may end while it is read.
        char line[8192];
        const int fd = ::open((entry.path() / "cmdline").c_str(), O_RDONLY);
        const ssize_t got = fd < 0 ? -1 : ::read(fd, line, sizeof line);
        if (fd >= 0)
            ::close(fd);
        count += got > 0 && std::string(line, size_t(got)).find(text) != std::string::npos;
    }
    return count;
}

// Waits up to 'seconds' for 'done'.
template <typename Condition>
bool Within(double seconds, Condition done)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

} // namespace

// A signal while astcenc works ends it with the tool, and the handlers of
// SIGINT and SIGTERM remove its temporary files; after SIGKILL, which no
// handler sees, the tool still ends with its parent.
TEST(OrbtexASTC, SignalsEndTheEncoderAndRemoveItsFiles)
{
    if (!isASTCEncAvailable())
        GTEST_SKIP() << "astcenc is not on PATH";
    ScratchDir dir;
    CORBTexture noise(CORBTextureHeader(ORBStandard8PixelType, 1024, 1024));
    for (uint32_t i = 0; i < noise.getDataSize(); ++i)
        noise.getDataPtr()[i] = uint8_t((i * 2654435761u) >> 11);
    ASSERT_TRUE(noise.saveFile((dir / "noise.orb").c_str()));
    const std::string tmp = dir / "tmp";
    for (const int signal : {SIGINT, SIGTERM, SIGKILL})
    {
        SCOPED_TRACE(strsignal(signal));
        std::filesystem::create_directories(tmp);
        const pid_t pid = testsupport::SpawnOrbtex(
            dir, {"convert", dir / "noise.orb", dir / "out.ktx", "--format", "ASTC_4x4", "--quality", "3"}, "TMPDIR",
            tmp);
        ASSERT_GT(pid, 0);
        ASSERT_TRUE(Within(30, [&] { return ProcessesMentioning(tmp) > 0; })) << "astcenc did not start";
        ::kill(pid, signal);
        const int status = testsupport::WaitOrbtex(pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_TRUE(Within(1, [&] { return ProcessesMentioning(tmp) == 0; }));
        EXPECT_TRUE(signal == SIGKILL || std::filesystem::is_empty(tmp));
        EXPECT_FALSE(std::filesystem::exists(dir / "out.ktx"));
        std::filesystem::remove_all(tmp);
    }
}

TEST(OrbtexASTC, ConvertsToEveryContainerAndBack)
{
    ScratchDir dir;
    const CORBTexture source = Gradient();
    ASSERT_TRUE(source.saveFile((dir / "in.orb").c_str()));

    // astcenc's temporary files go to TMPDIR and are gone afterwards.
    std::filesystem::create_directories(dir.path() / "tmp");
    const char* tmpdir = std::getenv("TMPDIR");
    const std::string oldTmpdir = tmpdir ? tmpdir : "";
    setenv("TMPDIR", (dir / "tmp").c_str(), 1);

    // The same blocks whatever the container; .astc keeps level 0 only.
    CORBTexture expected(source);
    ASSERT_TRUE(Transcode(expected, PixelType(ePF_ASTC_6x6), eVarUnsignedByteNorm, eColourSpaceLinear,
                          ECompressorQuality(1)));
    for (const char* out : {"out.orb", "out.ktx", "out.astc"})
    {
        SCOPED_TRACE(out);
        const RunResult run =
            Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / out) + " --format astc_6x6 --quality 1");
        ASSERT_EQ(run.status, 0) << run.err;
        const CORBTexture written((dir / out).c_str());
        ASSERT_EQ(written.getPixelType(), PixelType(ePF_ASTC_6x6));
        EXPECT_EQ(written.getNumMIPLevels(), std::string(out) == "out.astc" ? 1u : 2u);
        EXPECT_TRUE(std::equal(written.getDataPtr(), written.getDataPtr() + written.getDataSize(),
                               expected.getDataPtr()));
    }

    const RunResult back =
        Orbtex(dir, "convert " + Quote(dir / "out.ktx") + " " + Quote(dir / "back.orb") + " --format r8g8b8a8");
    ASSERT_EQ(back.status, 0) << back.err;
    const CORBTexture decoded((dir / "back.orb").c_str());
    ASSERT_NE(decoded.getDataPtr(), nullptr);
    EXPECT_GT(PSNR(decoded.getDataPtr(), source.getDataPtr(), source.getDataSize(0)), 36);
    if (tmpdir)
        setenv("TMPDIR", oldTmpdir.c_str(), 1);
    else
        unsetenv("TMPDIR");
    EXPECT_TRUE(std::filesystem::is_empty(dir.path() / "tmp"));
}

TEST(OrbtexASTC, WithoutTheToolNamesItAndWritesNothing)
{
    ScratchDir dir;
    ASSERT_TRUE(Gradient().saveFile((dir / "in.orb").c_str()));
    std::filesystem::create_directories(dir.path() / "empty");
    const std::string path = std::getenv("PATH");
    setenv("PATH", (dir / "empty").c_str(), 1);
    const RunResult to =
        Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "out.ktx") + " --format ASTC_4x4");
    // Blocks move between containers without the tool; an image needs it.
    CORBTexture blocks(CORBTextureHeader(ePF_ASTC_8x5, 5, 8));
    std::fill_n(blocks.getDataPtr(), blocks.getDataSize(), uint8_t(0x5A));
    ASSERT_TRUE(blocks.saveFile((dir / "blocks.orb").c_str()));
    const RunResult moved = Orbtex(dir, "convert " + Quote(dir / "blocks.orb") + " " + Quote(dir / "blocks.ktx"));
    const RunResult shown = Orbtex(dir, "convert " + Quote(dir / "blocks.orb") + " " + Quote(dir / "blocks.png"));
    const RunResult formats = Orbtex(dir, "formats");
    setenv("PATH", path.c_str(), 1);

    EXPECT_EQ(to.status, 1);
    EXPECT_EQ(to.err, "orbtex: " + (dir / "in.orb") + ": ASTC_4x4 needs the astcenc program, which is not on PATH\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "out.ktx"));
    EXPECT_EQ(moved.status, 0) << moved.err;
    EXPECT_EQ(shown.err,
              "orbtex: " + (dir / "blocks.orb") + ": ASTC_8x5 needs the astcenc program, which is not on PATH\n");
    EXPECT_NE(formats.out.find("astcenc program, not found on PATH"), std::string::npos);
}
