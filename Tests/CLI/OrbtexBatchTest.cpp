// orbtex convert IN... -o DIR: many files with the same options, in parallel.

#include <algorithm>
#include <filesystem>
#include <string>
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

namespace
{

// A width x height RGBA picture, different for each seed, with smooth and
// sharp parts so that every codec has work.
std::vector<uint8_t> Picture(int width, int height, int seed)
{
    std::vector<uint8_t> pixels(size_t(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            uint8_t* p = &pixels[(size_t(y) * width + x) * 4];
            p[0] = uint8_t(x * 255 / width + seed * 40);
            p[1] = uint8_t(y * 255 / height);
            p[2] = uint8_t(((x / 4 + y / 4 + seed) % 2) * 200 + ((x * y * (seed + 3)) & 31));
            p[3] = 255;
        }
    return pixels;
}

void WritePng(const std::string& path, int width, int height, int seed)
{
    ASSERT_TRUE(stbi_write_png(path.c_str(), width, height, 4, Picture(width, height, seed).data(), width * 4));
}

void WriteOrb(const std::string& path, int seed)
{
    CORBTexture texture(CORBTextureHeader(ORBStandard8PixelType, 8, 8));
    std::copy_n(Picture(8, 8, seed).data(), texture.getDataSize(), texture.getDataPtr());
    ASSERT_TRUE(texture.saveFile(path.c_str()));
}

std::vector<std::string> Names(const std::string& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

} // namespace

TEST(OrbtexBatch, ABrokenFileIsReportedAndTheOthersGoOn)
{
    ScratchDir dir;
    std::filesystem::create_directory(dir / "in");
    WritePng(dir / "in/a.png", 16, 8, 1);
    WritePng(dir / "loose.png", 8, 8, 2);
    WriteOrb(dir / "in/b.orb", 3);
    testsupport::WriteBytes(dir / "in/c.png", {'n', 'o', 't'});
    testsupport::WriteBytes(dir / "in/notes.txt", {'x'});

    const std::string inputs = Quote(dir / "in") + " " + Quote(dir / "loose.png");
    const RunResult run = Orbtex(dir, "convert " + inputs + " -o " + Quote(dir / "out") + " --ext ktx --format ETC1");
    EXPECT_EQ(run.status, 1);
    // The folder gives its images and textures, not its other files.
    EXPECT_EQ(run.err, "orbtex: " + (dir / "in/c.png") + ": not a readable image: unknown image type\n");
    EXPECT_EQ(Names(dir / "out"), (std::vector<std::string>{"a.ktx", "b.ktx", "loose.ktx"}));

    // Each output is what the one-file form writes.
    for (const std::string name : {"in/a.png", "in/b.orb", "loose.png"})
    {
        const std::string stem = std::filesystem::path(name).stem().string();
        ASSERT_EQ(Orbtex(dir, "convert " + Quote(dir / name) + " " + Quote(dir / "single.ktx") + " --format ETC1").status,
                  0);
        EXPECT_EQ(testsupport::ReadBytes(dir / ("out/" + stem + ".ktx")), testsupport::ReadBytes(dir / "single.ktx"))
            << name;
    }

    // Two inputs of one name: the second is refused, the first converted.
    WritePng(dir / "in/a.tga", 4, 4, 4);
    std::filesystem::remove(dir / "in/c.png");
    RunResult clash = Orbtex(dir, "convert " + Quote(dir / "in") + " -o " + Quote(dir / "out2"));
    EXPECT_EQ(clash.status, 1);
    EXPECT_EQ(clash.err, "orbtex: " + (dir / "in/a.tga") + ": its output " + (dir / "out2/a.orb") +
                             " is also the output of " + (dir / "in/a.png") + "\n");
    EXPECT_EQ(Names(dir / "out2"), (std::vector<std::string>{"a.orb", "b.orb"}));

    std::filesystem::create_directory(dir / "empty");
    clash = Orbtex(dir, "convert " + Quote(dir / "empty") + " " + Quote(dir / "loose.png") + " -o " +
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
    WriteOrb(dir / "t/c.orb", 3);
    std::filesystem::create_hard_link(dir / "t/b.png", dir / "t/linked.png");
    const auto before = [&](const std::string& name) { return testsupport::ReadBytes(dir / name); };
    const std::vector<uint8_t> a = before("t/a.png"), b = before("t/b.png");

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
    EXPECT_EQ(before("t/a.png"), a);
    EXPECT_EQ(before("t/b.png"), b);
    EXPECT_TRUE(std::filesystem::exists(dir / "t/c.png"));

    run = Orbtex(dir, "convert " + Quote(dir / "t/a.png") + " " + Quote(dir / "t/a.png") + " --format r5g6b5");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "orbtex: " + (dir / "t/a.png") + ": its output " + (dir / "t/a.png") +
                           " is the input itself (--force writes over it)\n");
    // The surfaces of --all-surfaces are named only once the input is read.
    const std::string surface = dir / "t/s-level0-member0-face0.png";
    std::filesystem::copy_file(dir / "t/a.png", surface);
    run = Orbtex(dir, "convert " + Quote(surface) + " " + Quote(dir / "t/s.png") + " --all-surfaces");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "orbtex: " + surface + ": its output " + surface + " is the input itself\n");
    EXPECT_EQ(testsupport::ReadBytes(surface), a);

    run = Orbtex(dir, "convert " + Quote(dir / "t/a.png") + " " + Quote(dir / "t/a.png") + " --format r5g6b5 --force");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(before("t/a.png"), a);
}

TEST(OrbtexBatch, OutputDoesNotDependOnJobs)
{
    ScratchDir dir;
    std::string inputs;
    for (int i = 0; i < 6; ++i)
    {
        const std::string name = "p" + std::to_string(i) + ".png";
        WritePng(dir / name, 32 << (i % 2), 32 << (i % 2), i);
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
            EXPECT_EQ(testsupport::ReadBytes(dir / ("one/" + name)), testsupport::ReadBytes(dir / ("four/" + name)))
                << options << ": " << name;
        std::filesystem::remove_all(dir / "one");
        std::filesystem::remove_all(dir / "four");
    }
}

TEST(OrbtexBatch, ProgressOnlyOnATerminalAndVerboseLines)
{
    ScratchDir dir;
    WritePng(dir / "a.png", 32, 32, 1);
    WritePng(dir / "b.png", 32, 32, 2);
    testsupport::WriteBytes(dir / "bad.png", {'n', 'o'});
    const std::string arguments = "convert " + Quote(dir / "a.png") + " " + Quote(dir / "bad.png") + " " +
                                  Quote(dir / "b.png") + " -o " + Quote(dir / "out") +
                                  " --format ORBTC_4bpp_RGB --quality 3 --jobs 2";
    const std::string badLine = "orbtex: " + (dir / "bad.png") + ": not a readable image: unknown image type";

    // Standard error to a file: the error and nothing else.
    RunResult piped = Orbtex(dir, arguments);
    EXPECT_EQ(piped.status, 1);
    EXPECT_EQ(piped.err, badLine + "\n");
    EXPECT_EQ(piped.out, "");

    // On a terminal: one line redrawn in place, the error on a line of its own.
    const auto onTerminal = [&](const std::string& extra) {
        const std::string command = "script -qec \"'" + std::string(ORBTEX_PROGRAM) + "' " + arguments + extra +
                                    "\" /dev/null >" + Quote(dir / "tty") + " 2>&1 </dev/null";
        std::system(command.c_str());
        return testsupport::Slurp(dir / "tty");
    };
    const std::string shown = onTerminal("");
    EXPECT_NE(shown.find("of 3 files done, "), std::string::npos) << shown;
    EXPECT_NE(shown.find(": surface 1 of 1 (32x32), pass 4 of 4, "), std::string::npos) << shown;
    EXPECT_NE(shown.find("\r\033[K" + badLine + "\r\n"), std::string::npos) << shown;
    EXPECT_EQ(CountLines(shown), 1) << shown;
    // Erased at the end.
    EXPECT_EQ(shown.substr(shown.size() - 4), "\r\033[K") << shown;
    const std::string quiet = onTerminal(" --quiet");
    EXPECT_EQ(quiet.find("files done"), std::string::npos) << quiet;
    EXPECT_EQ(quiet.find("pass"), std::string::npos) << quiet;

    // --verbose: a line a file; a PSNR where the pixels changed.
    piped = Orbtex(dir, arguments + " --verbose");
    std::vector<std::string> lines = Lines(piped.out);
    std::sort(lines.begin(), lines.end());
    ASSERT_EQ(lines.size(), 2u) << piped.out;
    for (int i = 0; i < 2; ++i)
    {
        const std::string name = i ? "b" : "a";
        const std::string start =
            dir / (name + ".png") + " -> " + (dir / ("out/" + name + ".orb")) + ": ORBTC_4bpp_RGB ubn, load ";
        EXPECT_EQ(lines[i].rfind(start, 0), 0u) << lines[i];
        EXPECT_LT(lines[i].find(" s, convert "), lines[i].find(" s, write ")) << lines[i];
        const size_t psnr = lines[i].find(" s, PSNR ");
        ASSERT_NE(psnr, std::string::npos) << lines[i];
        EXPECT_NEAR(std::stod(lines[i].substr(psnr + 9)), 40.0, 20.0) << lines[i];
        EXPECT_EQ(lines[i].substr(lines[i].size() - 3), " dB") << lines[i];
    }
    piped = Orbtex(dir, "convert " + Quote(dir / "a.png") + " " + Quote(dir / "a.orb") + " --verbose");
    EXPECT_NE(piped.out.find(": r8g8b8a8 ubn, load "), std::string::npos) << piped.out;
    EXPECT_EQ(piped.out.substr(piped.out.size() - 26), ", identical to the source\n") << piped.out;
}

TEST(OrbtexBatch, UsageErrorsWriteNothing)
{
    ScratchDir dir;
    WritePng(dir / "a.png", 4, 4, 1);
    const std::string in = Quote(dir / "a.png"), out = Quote(dir / "out");
    for (const std::string& arguments : {in + " -o " + out + " --jobs 0", in + " -o " + out + " --ext jpg",
                                         in + " -o " + out + " --ext ktx --legacy-api 2",
                                         in + " " + Quote(dir / "b.orb") + " --jobs 2"})
    {
        const RunResult run = Orbtex(dir, "convert " + arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_EQ(CountLines(run.err), 1) << run.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out"));
    EXPECT_FALSE(std::filesystem::exists(dir / "b.orb"));
}
