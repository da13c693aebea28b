// orbtex convert to and from ASTC, which the library serves through astcenc.

#include "Codecs/ASTCCodec.h"
#include "ORBTextureUtilities.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

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
        const pid_t pid = SpawnOrbtex(
            dir, {"convert", dir / "noise.orb", dir / "out.ktx", "--format", "ASTC_4x4", "--quality", "3"}, "TMPDIR",
            tmp);
        ASSERT_GT(pid, 0);
        ASSERT_TRUE(Within(30, [&] { return ProcessesMentioning(tmp) > 0; })) << "astcenc did not start";
        ::kill(pid, signal);
        const int status = WaitOrbtex(pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
        EXPECT_TRUE(Within(1, [&] { return ProcessesMentioning(tmp) == 0; }));
        EXPECT_TRUE(signal == SIGKILL || std::filesystem::is_empty(tmp));
        EXPECT_FALSE(std::filesystem::exists(dir / "out.ktx"));
        std::filesystem::remove_all(tmp);
    }
}

// The same blocks whatever the container (.astc keeps level 0 only), and
// back; astcenc's temporary files go to TMPDIR and are gone afterwards.
TEST(OrbtexASTC, ConvertsToEveryContainerAndBack)
{
    ScratchDir dir;
    CORBTexture expected = Pattern(20, 14, 2);
    ASSERT_TRUE(expected.saveFile((dir / "in.orb").c_str()));
    ASSERT_TRUE(Transcode(expected, PixelType(ePF_ASTC_6x6), eVarUnsignedByteNorm, eColourSpaceLinear,
                          ECompressorQuality(1)));
    std::filesystem::create_directories(dir / "tmp");
    const std::string tmpdir = "TMPDIR=" + Quote(dir / "tmp");
    for (const char* out : {"out.orb", "out.ktx", "out.astc"})
    {
        const RunResult run = Convert(dir, "in.orb", out, "--format astc_6x6 --quality 1", tmpdir);
        ASSERT_EQ(run.status, 0) << out << ": " << run.err;
        const CORBTexture written((dir / out).c_str());
        ASSERT_EQ(written.getPixelType(), PixelType(ePF_ASTC_6x6)) << out;
        EXPECT_EQ(written.getNumMIPLevels(), std::string(out) == "out.astc" ? 1u : 2u) << out;
        EXPECT_EQ(Bytes(written), Bytes(expected, written.getDataSize())) << out;
    }
    ASSERT_TRUE(Transcode(expected, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear));
    EXPECT_EQ(Bytes(Converted(dir, "out.ktx", "back.orb", "--format r8g8b8a8", tmpdir)), Bytes(expected));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "tmp"));
}

// Blocks move between containers without the tool; an image needs it.
TEST(OrbtexASTC, WithoutTheToolNamesItAndWritesNothing)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern(20, 14).saveFile((dir / "in.orb").c_str()));
    ASSERT_TRUE(Filled(CORBTextureHeader(ePF_ASTC_8x5, 5, 8)).saveFile((dir / "blocks.orb").c_str()));
    std::filesystem::create_directories(dir / "empty");
    const std::string path = "PATH=" + Quote(dir / "empty");
    const std::string missing = " needs the astcenc program, which is not on PATH\n";
    const RunResult to = Convert(dir, "in.orb", "out.ktx", "--format ASTC_4x4", path);
    EXPECT_EQ(to.status, 1);
    EXPECT_EQ(to.err, "orbtex: " + (dir / "in.orb") + ": ASTC_4x4" + missing);
    EXPECT_EQ(Convert(dir, "blocks.orb", "blocks.ktx", "", path).status, 0);
    EXPECT_EQ(Convert(dir, "blocks.orb", "blocks.png", "", path).err,
              "orbtex: " + (dir / "blocks.orb") + ": ASTC_8x5" + missing);
    EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"blocks.ktx", "blocks.orb", "empty", "in.orb"}));
    EXPECT_NE(Orbtex(dir, "formats", path).out.find("astcenc program, not found on PATH"), std::string::npos);
}
