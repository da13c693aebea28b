// orbtex against FIFOs, directories and signals, the check of a written file
// before it replaces the destination, and batches: convert IN... -o DIR, many
// files with the same options, in parallel.

#include <sys/resource.h>

#include <regex>

#include <stb_image_write.h>

#include "../Support/TestPictures.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

// Runs orbtex on a FIFO that a writer fills once with 'bytes'; a second
// open of the FIFO would wait for a writer that never comes, so both are
// bounded.
RunResult OrbtexOnFifo(const ScratchDir& dir, const std::string& fifoName, const std::vector<uint8_t>& bytes,
                       const std::string& before, const std::string& after = "")
{
    const std::string fifo = Quote(dir / fifoName), source = dir / "fifo-source";
    WriteBytes(source, bytes);
    std::filesystem::remove(dir / fifoName);
    return Orbtex(dir, before + " " + fifo + " " + after,
                  "mkfifo " + fifo + "; timeout 20 dd status=none if=" + Quote(source) + " of=" + fifo +
                      " 2>/dev/null & timeout 20");
}

void WritePng(const std::string& path, int width, int height, unsigned seed)
{
    const std::vector<unsigned char> pixels = Picture(unsigned(width), unsigned(height), false, seed);
    ASSERT_TRUE(stbi_write_png(path.c_str(), width, height, 4, pixels.data(), width * 4));
}

} // namespace

TEST(OrbtexProcess, FifoInputsAreOpenedOnce)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern(8, 4).saveFile((dir / "in.orb").c_str()));
    const std::vector<uint8_t> orb = ReadBytes(dir / "in.orb");
    RunResult run = OrbtexOnFifo(dir, "pipe.orb", orb, "info");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("size:           8 x 4 x 1"), std::string::npos) << run.out;

    // A file that fails to load is reported from the one reading.
    std::vector<uint8_t> unknown = orb;
    PutValue<uint32_t>(unknown, 0, 0x12345678);
    for (const std::string& after : {std::string(), Quote(dir / "bad.orb")})
    {
        run = OrbtexOnFifo(dir, "pipe.orb", unknown, after.empty() ? "info" : "convert", after);
        EXPECT_EQ(run.status, 1) << after << ": " << run.err;
        EXPECT_NE(run.err.find("pipe.orb: not an .orb texture (first word 0x12345678)"), std::string::npos) << run.err;
    }

    ASSERT_EQ(Convert(dir, "in.orb", "in.png").status, 0);
    for (const std::string name : {"in.orb", "in.png"}) // a texture and an image
    {
        const std::string out = dir / ("from-" + name.substr(3) + ".orb");
        run = OrbtexOnFifo(dir, "pipe" + name.substr(2), ReadBytes(dir / name), "convert", Quote(out));
        ASSERT_EQ(run.status, 0) << name << ": " << run.err;
        EXPECT_EQ(Bytes(CORBTexture(out.c_str())), Bytes(Pattern(8, 4))) << name;
    }
}

// A signal while the output is written removes its temporary files, and the
// program dies of that signal.
TEST(OrbtexProcess, SignalsRemoveTemporaryFiles)
{
    ScratchDir dir;
    const CORBTexture cube = Filled(CORBTextureHeader(ORBStandard8PixelType, 4, 4, 1, 1, 1, 2));
    ASSERT_TRUE(cube.saveFile((dir / "cube.orb").c_str()));
    ASSERT_TRUE(cube.saveFile((dir / "box.orb").c_str()));

    // Signal, arguments and the temporary files pending.
    const std::tuple<int, std::vector<std::string>, size_t> cases[] = {
        {SIGTERM, {"convert", dir / "cube.orb", dir / "out.orb", "--format", "r5g6b5"}, 1},
        {SIGINT, {"convert", dir / "cube.orb", dir / "face.png", "--all-surfaces"}, 2},
        // A batch on two threads, each with files pending.
        {SIGTERM,
         {"convert", dir / "cube.orb", dir / "box.orb", "-o", dir.path().string(), "--ext", "png", "--all-surfaces",
          "--jobs", "2"},
         4},
    };
    for (const auto& [signal, arguments, temporaries] : cases)
    {
        const pid_t pid = SpawnOrbtex(dir, arguments, "ORBTEX_TEST_PAUSE_BEFORE_COMMIT", "60");
        ASSERT_GT(pid, 0);
        const size_t pending = temporaries;
        Within(20, [&] { return TemporaryFiles(dir).size() >= pending; });
        EXPECT_EQ(TemporaryFiles(dir).size(), temporaries);
        ::kill(pid, signal);
        const int status = WaitOrbtex(pid);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << strsignal(signal) << " " << status;
        EXPECT_TRUE(TemporaryFiles(dir).empty()) << strsignal(signal);
    }
    EXPECT_EQ(Names(dir.path()), (std::vector<std::string>{"box.orb", "cube.orb"}));
}

// Ctrl-C cancels a long compression at once, well before the second that
// work which cannot stop is given.
TEST(OrbtexProcess, InterruptCancelsACompression)
{
    ScratchDir dir;
    WritePng(dir / "photo.png", 512, 512, 5);
    const pid_t pid =
        SpawnOrbtex(dir, {"convert", dir / "photo.png", dir / "out.orb", "--format", "ORBTC_4bpp_RGB", "--quality", "8"});
    ASSERT_GT(pid, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    const auto asked = std::chrono::steady_clock::now();
    ::kill(pid, SIGINT);
    const int status = WaitOrbtex(pid);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(600));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_EQ(Names(dir.path()), std::vector<std::string>{"photo.png"});
}

// A written file that does not read back as made is not committed: here the
// temporary file is changed while convert waits before checking it.
TEST(OrbtexProcess, WrittenFileIsCheckedBeforeItReplacesTheOutput)
{
    ScratchDir dir;
    ASSERT_TRUE(Pattern(8, 4).saveFile((dir / "in.orb").c_str()));
    const size_t fileSize = 52 + 8 * 4 * 4;
    const pid_t pid = SpawnOrbtex(dir, {"convert", dir / "in.orb", dir / "out.orb"}, "ORBTEX_TEST_PAUSE_BEFORE_COMMIT", "2");
    ASSERT_GT(pid, 0);
    ASSERT_TRUE(Within(20, [&] { return TemporaryFiles(dir).size() == 1; }));
    const std::string temporary = dir / TemporaryFiles(dir)[0];
    std::vector<uint8_t> bytes;
    ASSERT_TRUE(Within(20, [&] { return (bytes = ReadBytes(temporary)).size() == fileSize; }));
    bytes[fileSize - 1] ^= 0x5A;
    WriteBytes(temporary, bytes);
    const int status = WaitOrbtex(pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
    const std::string err = Slurp(dir / "stderr");
    EXPECT_NE(err.find("out.orb: written file differs from what was made, at byte 179"), std::string::npos) << err;
    EXPECT_EQ(CountLines(err), 1) << err;
    EXPECT_EQ(Names(dir.path()), std::vector<std::string>{"in.orb"});
}

// A native file that declares up to the load limit but holds few or no pixel
// bytes is refused before its pixel block is allocated.
TEST(OrbtexProcess, ShortNativeFilesCostLittleMemory)
{
    ScratchDir dir;
    const uint64_t rgba8 = ORBStandard8PixelType;
    const std::pair<std::string, std::vector<uint8_t>> cases[] = {
        {"members.orb", NativeFile(rgba8, 1, 1, 0, 1, 1u << 28)},
        {"depth.orb", NativeFile(rgba8, 1, 1, 0, 1u << 28)},
        {"large.orb", NativeFile(rgba8, 16384, 16383, 0)},
        {"orbtc.orb", NativeFile(ePF_ORBTC_4bpp_RGB, 1, 1, 0, 1, 1u << 25)},
        {"some.orb", NativeFile(rgba8, 16384, 16383, 4096)},
    };
    for (const auto& [name, bytes] : cases)
    {
        WriteBytes(dir / name, bytes);
        const bool some = name == "some.orb";
        const std::string file = dir / name;
        std::vector<std::vector<std::string>> runs = {{"convert", file, dir / "out.orb"}, {"compare", file, file}};
        // Without any pixel byte even short data allowed are refused.
        if (!some)
            runs.push_back({"convert", file, dir / "out.orb", "--allow-short"});
        for (const std::vector<std::string>& arguments : runs)
        {
            SCOPED_TRACE(arguments[0] + " " + name + " " + arguments.back());
            const pid_t pid = SpawnOrbtex(dir, arguments);
            int status = 0;
            struct rusage usage;
            ASSERT_EQ(::wait4(pid, &status, 0, &usage), pid);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
            EXPECT_LT(usage.ru_maxrss, 64 * 1024); // kilobytes
            const char* reason = some ? "pixel data short by" : "pixel data missing";
            EXPECT_NE(Slurp(dir / "stderr").find(reason), std::string::npos);
        }
    }
}

TEST(OrbtexBatch, ABrokenFileIsReportedAndTheOthersGoOn)
{
    ScratchDir dir;
    std::filesystem::create_directory(dir / "in");
    WritePng(dir / "in/a.png", 16, 8, 1);
    WritePng(dir / "loose.png", 8, 8, 2);
    ASSERT_TRUE(Pattern(8, 8).saveFile((dir / "in/b.orb").c_str()));
    WriteBytes(dir / "in/c.png", {'n', 'o', 't'});
    WriteBytes(dir / "in/notes.txt", {'x'});

    const RunResult run = Orbtex(dir, "convert " + Quote(dir / "in") + " " + Quote(dir / "loose.png") + " -o " +
                                          Quote(dir / "out") + " --ext ktx --format ETC1");
    EXPECT_EQ(run.status, 1);
    // The folder gives its images and textures, not its other files.
    EXPECT_EQ(run.err, "orbtex: " + (dir / "in/c.png") + ": not a readable image: unknown image type\n");
    EXPECT_EQ(Names(dir / "out"), (std::vector<std::string>{"a.ktx", "b.ktx", "loose.ktx"}));
    // Each output is what the one-file form writes.
    ASSERT_EQ(Convert(dir, "in/a.png", "single.ktx", "--format ETC1").status, 0);
    EXPECT_EQ(ReadBytes(dir / "out/a.ktx"), ReadBytes(dir / "single.ktx"));

    std::filesystem::create_directory(dir / "empty");
    const RunResult clash = Orbtex(dir, "convert " + Quote(dir / "empty") + " " + Quote(dir / "loose.png") + " -o " +
                                            Quote(dir / "out3") + " --ext png");
    EXPECT_EQ(clash.status, 1);
    EXPECT_EQ(clash.err, "orbtex: " + (dir / "empty") + ": holds no image or texture file\n");
    EXPECT_EQ(Names(dir / "out3"), (std::vector<std::string>{"loose.png"}));
}

// No output replaces an input: a batch refuses such a file before converting
// any, a hard link by its other name too; one file replaces itself only with
// --force.
TEST(OrbtexBatch, NoOutputWritesOverAnInput)
{
    ScratchDir dir;
    std::filesystem::create_directory(dir / "t");
    WritePng(dir / "t/a.png", 8, 8, 1);
    WritePng(dir / "t/b.png", 8, 8, 2);
    ASSERT_TRUE(Pattern(8, 8).saveFile((dir / "t/c.orb").c_str()));
    std::filesystem::create_hard_link(dir / "t/b.png", dir / "t/linked.png");
    const std::vector<uint8_t> a = ReadBytes(dir / "t/a.png"), b = ReadBytes(dir / "t/b.png");

    RunResult run = Orbtex(dir, "convert " + Quote(dir / "t") + " " + Quote(dir / "t/c.orb") + " -o " +
                                    Quote(dir / "t") + " --ext png --format r5g6b5");
    EXPECT_EQ(run.status, 1);
    // c.orb, named twice, is refused the second time; it alone is converted.
    EXPECT_EQ(Lines(run.err),
              (std::vector<std::string>{
                  "orbtex: " + (dir / "t/a.png") + ": its output " + (dir / "t/a.png") + " is the input itself",
                  "orbtex: " + (dir / "t/b.png") + ": its output " + (dir / "t/b.png") + " is the input itself",
                  "orbtex: " + (dir / "t/linked.png") + ": its output " + (dir / "t/linked.png") +
                      " would write over the input " + (dir / "t/b.png"),
                  "orbtex: " + (dir / "t/c.orb") + ": its output " + (dir / "t/c.png") + " is also the output of " +
                      (dir / "t/c.orb")}));
    EXPECT_EQ(ReadBytes(dir / "t/a.png"), a);
    EXPECT_EQ(ReadBytes(dir / "t/b.png"), b);
    EXPECT_TRUE(std::filesystem::exists(dir / "t/c.png"));

    run = Convert(dir, "t/a.png", "t/a.png", "--format r5g6b5");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "orbtex: " + (dir / "t/a.png") + ": its output " + (dir / "t/a.png") +
                           " is the input itself (--force writes over it)\n");
    // The surfaces of --all-surfaces are named only once the input is read.
    const std::string surface = dir / "t/s-level0-member0-face0.png";
    std::filesystem::copy_file(dir / "t/a.png", surface);
    run = Convert(dir, "t/s-level0-member0-face0.png", "t/s.png", "--all-surfaces");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "orbtex: " + surface + ": its output " + surface + " is the input itself\n");
    EXPECT_EQ(ReadBytes(surface), a);

    run = Convert(dir, "t/a.png", "t/a.png", "--format r5g6b5 --force");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(ReadBytes(dir / "t/a.png"), a);
}

TEST(OrbtexBatch, OutputDoesNotDependOnJobs)
{
    ScratchDir dir;
    std::string inputs;
    for (int i = 0; i < 6; ++i)
    {
        const std::string name = "p" + std::to_string(i) + ".png";
        WritePng(dir / name, 32 << (i % 2), 32 << (i % 2), unsigned(i));
        inputs += " " + Quote(dir / name);
    }
    // The optimiser and the exhaustive ETC search run threads of their own;
    // MIP chains give several surfaces a file.
    for (const std::string& options : {std::string("--format ORBTC_4bpp_RGB --quality 3 --mipmaps"),
                                       std::string("--format ETC1 --quality 2 --ext ktx"),
                                       std::string("--format DXT5 --ext dds --mipmaps 3")})
    {
        const RunResult one = Orbtex(dir, "convert" + inputs + " -o " + Quote(dir / "one") + " --jobs 1 " + options);
        const RunResult four = Orbtex(dir, "convert" + inputs + " -o " + Quote(dir / "four") + " --jobs 4 " + options);
        ASSERT_EQ(one.status, 0) << one.err;
        ASSERT_EQ(four.status, 0) << four.err;
        const std::vector<std::string> names = Names(dir / "one");
        ASSERT_EQ(names.size(), 6u) << options;
        EXPECT_EQ(Names(dir / "four"), names);
        for (const std::string& name : names)
            EXPECT_EQ(ReadBytes(dir / ("one/" + name)), ReadBytes(dir / ("four/" + name))) << options << ": " << name;
        std::filesystem::remove_all(dir / "one");
        std::filesystem::remove_all(dir / "four");
    }
}

// Progress goes to a terminal only: one line redrawn in place, errors on
// lines of their own, nothing with --quiet. --verbose prints a line a file.
TEST(OrbtexBatch, ProgressOnlyOnATerminalAndVerboseLines)
{
    ScratchDir dir;
    WritePng(dir / "a.png", 32, 32, 1);
    WritePng(dir / "b.png", 32, 32, 2);
    WriteBytes(dir / "bad.png", {'n', 'o'});
    const std::string arguments = "convert " + Quote(dir / "a.png") + " " + Quote(dir / "bad.png") + " " +
                                  Quote(dir / "b.png") + " -o " + Quote(dir / "out") +
                                  " --format ORBTC_4bpp_RGB --quality 3 --jobs 2";
    const std::string badLine = "orbtex: " + (dir / "bad.png") + ": not a readable image: unknown image type";
    RunResult piped = Orbtex(dir, arguments);
    EXPECT_EQ(piped.status, 1);
    EXPECT_EQ(piped.err, badLine + "\n");
    EXPECT_EQ(piped.out, "");

    std::string shown = OnTerminal(dir, arguments);
    EXPECT_NE(shown.find("of 3 files done, "), std::string::npos) << shown;
    EXPECT_NE(shown.find(": surface 1 of 1 (32x32), pass 4 of 4, "), std::string::npos) << shown;
    EXPECT_NE(shown.find("\r\033[K" + badLine + "\r\n"), std::string::npos) << shown;
    EXPECT_EQ(CountLines(shown), 1) << shown;
    EXPECT_EQ(shown.substr(shown.size() - 4), "\r\033[K") << shown; // erased at the end
    // One file: its own progress, never scrolled.
    const std::string single = "convert " + Quote(dir / "a.png") + " " + Quote(dir / "a.orb") +
                               " --format ORBTC_4bpp_RGB --quality 3";
    shown = OnTerminal(dir, single);
    EXPECT_NE(shown.find("a.png: surface 1 of 1 (32x32), pass 4 of 4,"), std::string::npos) << shown;
    EXPECT_EQ(shown.find("files done"), std::string::npos) << shown;
    EXPECT_EQ(shown.find('\n'), std::string::npos) << shown;
    for (const std::string& run : {arguments, single})
        EXPECT_FALSE(std::regex_search(OnTerminal(dir, run + " --quiet"), std::regex("pass|done"))) << run;

    // --verbose: a line a file, with a PSNR where the pixels changed.
    const std::string times = ", load [0-9.]+ s, convert [0-9.]+ s, write [0-9.]+ s, ";
    piped = Orbtex(dir, arguments + " --verbose");
    EXPECT_EQ(CountLines(piped.out), 2) << piped.out;
    for (const std::string name : {"a", "b"})
        EXPECT_TRUE(std::regex_search(piped.out, std::regex("(^|\n)" + dir / (name + ".png") + " -> " + dir / "out/" +
                                                            name + ".orb: ORBTC_4bpp_RGB ubn" + times +
                                                            "PSNR [2-6][0-9]\\.[0-9]+ dB\n")))
            << piped.out;
    piped = Convert(dir, "a.png", "a.orb", "--verbose");
    EXPECT_TRUE(std::regex_match(piped.out, std::regex(".* -> .*: r8g8b8a8 ubn" + times + "identical to the source\n")))
        << piped.out;
}
