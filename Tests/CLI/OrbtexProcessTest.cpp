// orbtex against FIFOs, directories and signals, and the check of a written
// file before it replaces the destination.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <stb_image_write.h>

#include "ORBTexture.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::CountLines;
using testsupport::Orbtex;
using testsupport::Quote;
using testsupport::RunResult;
using testsupport::ScratchDir;
using testsupport::SpawnOrbtex;
using testsupport::TemporaryFiles;
using testsupport::WaitOrbtex;

namespace
{


// An 8x4 rgba8 texture of distinct bytes.
CORBTexture Pattern()
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 4, 8));
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 37 + 11);
    return texture;
}

// Writes 'bytes' into the FIFO at 'path' once a reader has it open; gives up
// after 20 s without one. Ignores SIGPIPE while it lives, so a reader that
// stops early does not end the test.
class FifoWriter
{
public:
    FifoWriter(const std::string& path, std::vector<uint8_t> bytes)
        : m_previous(::signal(SIGPIPE, SIG_IGN)), m_thread([path, bytes]() {
              const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
              int fd;
              while ((fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK)) < 0 &&
                     std::chrono::steady_clock::now() < deadline)
                  std::this_thread::sleep_for(std::chrono::milliseconds(5));
              if (fd < 0)
                  return;
              ::fcntl(fd, F_SETFL, 0);
              size_t written = 0;
              while (written < bytes.size())
              {
                  const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
                  if (n <= 0)
                      break;
                  written += size_t(n);
              }
              ::close(fd);
          })
    {
    }
    ~FifoWriter()
    {
        m_thread.join();
        ::signal(SIGPIPE, m_previous);
    }

private:
    sighandler_t m_previous;
    std::thread m_thread;
};

// Runs orbtex on a FIFO fed once with 'bytes'; a second open of the FIFO
// would wait for a writer that never comes, so the run is bounded.
RunResult OrbtexOnFifo(const ScratchDir& dir, const std::string& fifoName, const std::vector<uint8_t>& bytes,
                       const std::string& before, const std::string& after = "")
{
    const std::string fifo = dir / fifoName;
    std::filesystem::remove(fifo);
    EXPECT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    FifoWriter writer(fifo, bytes);
    const std::string command = "timeout 20 '" + std::string(ORBTEX_PROGRAM) + "' " + before + " " + Quote(fifo) +
                                " " + after + " >'" + (dir / "stdout") + "' 2>'" + (dir / "stderr") + "'";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, testsupport::Slurp(dir / "stdout"),
            testsupport::Slurp(dir / "stderr")};
}

// Waits until 'path' holds 'size' bytes.
bool WaitForFile(const std::string& path, uintmax_t size)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    std::error_code error;
    while (std::chrono::steady_clock::now() < deadline)
    {
        if (std::filesystem::file_size(path, error) == size && !error)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

} // namespace

TEST(OrbtexProcess, FifoInputsAreOpenedOnce)
{
    ScratchDir dir;
    const CORBTexture pattern = Pattern();
    ASSERT_TRUE(pattern.saveFile((dir / "in.orb").c_str()));
    const std::vector<uint8_t> orb = testsupport::ReadBytes(dir / "in.orb");

    RunResult run = OrbtexOnFifo(dir, "pipe.orb", orb, "info");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("size:           8 x 4 x 1"), std::string::npos) << run.out;

    run = OrbtexOnFifo(dir, "pipe.orb", orb, "convert", Quote(dir / "out.orb"));
    ASSERT_EQ(run.status, 0) << run.err;
    const CORBTexture out((dir / "out.orb").c_str());
    ASSERT_NE(out.getDataPtr(), nullptr);
    EXPECT_EQ(std::memcmp(out.getDataPtr(), pattern.getDataPtr(), pattern.getDataSize()), 0);

    // A file that fails to load is reported from the one reading.
    std::vector<uint8_t> unknown = orb;
    testsupport::PutValue<uint32_t>(unknown, 0, 0x12345678);
    for (const char* command : {"info", "convert"})
    {
        run = OrbtexOnFifo(dir, "pipe.orb", unknown, command,
                           std::string(command) == "convert" ? Quote(dir / "bad.orb") : "");
        EXPECT_EQ(run.status, 1) << command << ": " << run.err;
        EXPECT_NE(run.err.find("pipe.orb: not an .orb texture (first word 0x12345678)"), std::string::npos) << run.err;
    }

    const uint8_t pixels[8] = {1, 2, 3, 4, 250, 251, 252, 253};
    ASSERT_TRUE(stbi_write_png((dir / "two.png").c_str(), 2, 1, 4, pixels, 8));
    run = OrbtexOnFifo(dir, "pipe.png", testsupport::ReadBytes(dir / "two.png"), "convert",
                       Quote(dir / "from-png.orb"));
    ASSERT_EQ(run.status, 0) << run.err;
    const CORBTexture fromPng((dir / "from-png.orb").c_str());
    ASSERT_NE(fromPng.getDataPtr(), nullptr);
    EXPECT_EQ(std::vector<uint8_t>(fromPng.getDataPtr(), fromPng.getDataPtr() + 8),
              std::vector<uint8_t>(pixels, pixels + 8));
}

TEST(OrbtexProcess, DirectoriesAreNamedAsSuch)
{
    ScratchDir dir;
    for (const char* name : {"dir.orb", "dir.png", "dir.jpg"})
    {
        std::filesystem::create_directory(dir / name);
        RunResult run = Orbtex(dir, "convert " + Quote(dir / name) + " " + Quote(dir / "out.orb"));
        EXPECT_EQ(run.status, 1) << name;
        EXPECT_EQ(run.err, "orbtex: " + (dir / name) + ": is a directory\n");
    }
    const RunResult run = Orbtex(dir, "info " + Quote(dir / "dir.orb"));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "orbtex: " + (dir / "dir.orb") + ": is a directory\n");
    EXPECT_FALSE(std::filesystem::exists(dir / "out.orb"));
}

// A signal while the output is written removes its temporary files, and the
// program dies of that signal.
TEST(OrbtexProcess, SignalsRemoveTemporaryFiles)
{
    ScratchDir dir;
    CORBTexture cube(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 1, 1, 2));
    std::memset(cube.getDataPtr(), 77, cube.getDataSize());
    ASSERT_TRUE(cube.saveFile((dir / "cube.orb").c_str()));
    ASSERT_TRUE(cube.saveFile((dir / "box.orb").c_str()));

    struct Case
    {
        int signal;
        std::vector<std::string> arguments;
        size_t temporaries;
    };
    const Case cases[] = {
        {SIGTERM, {"convert", dir / "cube.orb", dir / "out.orb", "--format", "r5g6b5"}, 1},
        {SIGINT, {"convert", dir / "cube.orb", dir / "face.png", "--all-surfaces"}, 2},
        // A batch on two threads, each with files pending.
        {SIGTERM,
         {"convert", dir / "cube.orb", dir / "box.orb", "-o", dir.path().string(), "--ext", "png", "--all-surfaces",
          "--jobs", "2"},
         4},
    };
    for (const Case& c : cases)
    {
        const pid_t pid = SpawnOrbtex(dir, c.arguments, "ORBTEX_TEST_PAUSE_BEFORE_COMMIT", "60");
        ASSERT_GT(pid, 0);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (TemporaryFiles(dir).size() < c.temporaries && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(TemporaryFiles(dir).size(), c.temporaries);
        ::kill(pid, c.signal);
        const int status = WaitOrbtex(pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == c.signal) << strsignal(c.signal) << " " << status;
        EXPECT_TRUE(TemporaryFiles(dir).empty()) << strsignal(c.signal);
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.orb"));
    EXPECT_FALSE(std::filesystem::exists(dir / "face-level0-member0-face0.png"));
    EXPECT_FALSE(std::filesystem::exists(dir / "box-level0-member0-face0.png"));
}

// A written file that does not read back as meant is not committed: here the
// temporary file is changed while convert waits before checking it.
TEST(OrbtexProcess, WrittenFileIsCheckedBeforeItReplacesTheOutput)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    const uintmax_t fileSize = 52 + 8 * 4 * 4;

    struct Case
    {
        std::string output;
        std::streamoff offset;
        uint8_t value;
        std::string message;
    };
    const Case cases[] = {
        {"word.orb", 0, 0x33, "word.orb: written file does not load back: not an .orb texture (first word 0x0342"},
        {"pixel.orb", std::streamoff(fileSize - 1), 0x5A, "pixel.orb: written file does not load back: pixel data differ"},
    };
    for (const Case& c : cases)
    {
        const pid_t pid =
            SpawnOrbtex(dir, {"convert", dir / "in.orb", dir / c.output}, "ORBTEX_TEST_PAUSE_BEFORE_COMMIT", "2");
        ASSERT_GT(pid, 0);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (TemporaryFiles(dir).empty() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        ASSERT_EQ(TemporaryFiles(dir).size(), 1u);
        const std::string temporary = dir / TemporaryFiles(dir)[0];
        ASSERT_TRUE(WaitForFile(temporary, fileSize));
        {
            std::fstream file(temporary, std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(c.offset);
            file.put(char(c.value));
        }
        const int status = WaitOrbtex(pid);
        ASSERT_TRUE(WIFEXITED(status)) << status;
        EXPECT_EQ(WEXITSTATUS(status), 1);
        const std::string err = testsupport::Slurp(dir / "stderr");
        EXPECT_NE(err.find(c.message), std::string::npos) << err;
        EXPECT_EQ(CountLines(err), 1) << err;
        EXPECT_TRUE(TemporaryFiles(dir).empty());
        EXPECT_FALSE(std::filesystem::exists(dir / c.output));
    }
}

// A native file that declares up to the load limit but holds few or no pixel
// bytes is refused before its pixel block is allocated.
TEST(OrbtexProcess, ShortNativeFilesCostLittleMemory)
{
    ScratchDir dir;
    const uint64_t rgba8 = ORBStandard8PixelType;
    struct Case
    {
        const char* name;
        uint64_t format;
        uint32_t width, height, depth, members;
        size_t pixelBytes;
    };
    const Case cases[] = {
        {"members.orb", rgba8, 1, 1, 1, 1u << 28, 0},   {"depth.orb", rgba8, 1, 1, 1u << 28, 1, 0},
        {"large.orb", rgba8, 16384, 16383, 1, 1, 0},    {"orbtc.orb", ePF_ORBTC_4bpp_RGB, 1, 1, 1, 1u << 25, 0},
        {"some.orb", rgba8, 16384, 16383, 1, 1, 4096},
    };
    for (const Case& c : cases)
    {
        ORBTextureHeaderV3 header;
        header.pixelFormat = c.format;
        header.width = c.width, header.height = c.height, header.depth = c.depth, header.numSurfaces = c.members;
        std::vector<uint8_t> bytes(sizeof header + c.pixelBytes, 7);
        std::memcpy(bytes.data(), &header, sizeof header);
        testsupport::WriteBytes(dir / c.name, bytes);
        const std::string file = dir / c.name;
        std::vector<std::vector<std::string>> runs = {{"convert", file, dir / "out.orb"}, {"compare", file, file}};
        // Without any pixel byte even short data allowed are refused.
        if (!c.pixelBytes)
            runs.push_back({"convert", file, dir / "out.orb", "--allow-short"});
        for (const std::vector<std::string>& arguments : runs)
        {
            SCOPED_TRACE(arguments[0] + " " + c.name + " " + arguments.back());
            const pid_t pid = SpawnOrbtex(dir, arguments);
            int status = 0;
            struct rusage usage;
            ASSERT_EQ(::wait4(pid, &status, 0, &usage), pid);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
            EXPECT_LT(usage.ru_maxrss, 64 * 1024); // kilobytes
            const char* reason = c.pixelBytes ? "pixel data short by" : "pixel data missing";
            EXPECT_NE(testsupport::Slurp(dir / "stderr").find(reason), std::string::npos);
        }
    }
}

TEST(OrbtexProcess, FailedRenameRemovesTheTemporaryFile)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern().saveFile((dir / "in.orb").c_str()));
    std::filesystem::create_directory(dir / "taken.orb");
    testsupport::WriteBytes(dir / "taken.orb/keep", {1});
    const RunResult run = Orbtex(dir, "convert " + Quote(dir / "in.orb") + " " + Quote(dir / "taken.orb"));
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("taken.orb: cannot replace file: "), std::string::npos) << run.err;
    EXPECT_TRUE(TemporaryFiles(dir).empty());
    EXPECT_TRUE(std::filesystem::exists(dir / "taken.orb/keep"));
}
