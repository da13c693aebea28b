// The documentation as a user reads it: every example in docs/orbtex.md runs,
// every option of every command has one, and the manual page names them all.

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <stb_image_write.h>

#include "ORBTexture.h"
#include "RunOrbtex.h"

using namespace orbtexture;
using testsupport::Orbtex;
using testsupport::Quote;
using testsupport::RunResult;
using testsupport::ScratchDir;
using testsupport::Slurp;

namespace
{

const std::string kManual = std::string(ORBTEX_SOURCE_DIR) + "/docs/orbtex.md";
const std::string kManPage = std::string(ORBTEX_SOURCE_DIR) + "/docs/orbtex.1";
const char* const kCommands[] = {"info", "convert", "compare", "formats", "demo"};

// The lines of the manual's ```sh blocks, blank lines and comments left out.
std::vector<std::string> Examples()
{
    std::vector<std::string> examples;
    bool inBlock = false;
    const std::string text = Slurp(kManual);
    for (size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
    {
        const std::string line = text.substr(start, end - start);
        if (line.rfind("```", 0) == 0)
            inBlock = !inBlock && line == "```sh";
        else if (inBlock && !line.empty() && line[0] != '#')
            examples.push_back(line);
    }
    return examples;
}

// The long options a command's --help names.
std::set<std::string> HelpOptions(const ScratchDir& dir, const std::string& command)
{
    const std::string help = Orbtex(dir, command + " --help").out;
    std::set<std::string> options;
    const std::regex option("--[a-z][a-z-]*[a-z]");
    for (auto it = std::sregex_iterator(help.begin(), help.end(), option); it != std::sregex_iterator(); ++it)
        options.insert(it->str());
    return options;
}

bool HasWord(const std::string& line, const std::string& word)
{
    return std::regex_search(line, std::regex("(^| )" + word + "( |$)"));
}

std::vector<uint8_t> Picture(int width, int height, bool cutOut)
{
    std::vector<uint8_t> pixels(size_t(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
        {
            uint8_t* p = &pixels[(size_t(y) * width + x) * 4];
            p[0] = uint8_t(x * 4 + y);
            p[1] = uint8_t(128 + 100 * ((x / 8 + y / 8) % 2) - y);
            p[2] = uint8_t((x * y) & 0xFF);
            const int dx = x - width / 2, dy = y - height / 2;
            p[3] = cutOut && dx * dx + dy * dy > width * width / 8 ? 0 : 255;
        }
    return pixels;
}

// The files the manual's examples start from.
void MakeExampleFiles(const ScratchDir& dir)
{
    const std::vector<uint8_t> photo = Picture(64, 64, false);
    ASSERT_TRUE(stbi_write_png((dir / "photo.png").c_str(), 64, 64, 4, photo.data(), 64 * 4));
    ASSERT_TRUE(stbi_write_jpg((dir / "photo.jpg").c_str(), 64, 64, 4, photo.data(), 90));
    const std::vector<uint8_t> sprite = Picture(32, 32, true);
    ASSERT_TRUE(stbi_write_png((dir / "sprite.png").c_str(), 32, 32, 4, sprite.data(), 32 * 4));
    std::vector<uint8_t> height(32 * 32);
    for (size_t i = 0; i < height.size(); ++i)
        height[i] = uint8_t((i % 32) * (i / 32) / 4);
    ASSERT_TRUE(stbi_write_png((dir / "height.png").c_str(), 32, 32, 1, height.data(), 32));

    CORBTexture card(CORBTextureHeader(ORBStandard8PixelType, 64, 64, 1, 7));
    for (uint32_t i = 0; i < card.getDataSize(); ++i)
        card.getDataPtr()[i] = uint8_t(i % 4 == 3 ? 255 : i * 7 + (i >> 8));
    card.setOrientation(eOrientUp);
    ASSERT_TRUE(card.saveFile((dir / "card.orb").c_str()));
    std::vector<uint8_t> bytes = testsupport::ReadBytes(dir / "card.orb");
    bytes.resize(bytes.size() - 100);
    testsupport::WriteBytes(dir / "short.orb", bytes);

    std::filesystem::create_directory(dir / "textures");
    ASSERT_TRUE(stbi_write_png((dir / "textures/rock.png").c_str(), 32, 32, 4, sprite.data(), 32 * 4));
    ASSERT_TRUE(stbi_write_tga((dir / "textures/sky.tga").c_str(), 64, 64, 4, photo.data()));
    ASSERT_TRUE(card.saveFile((dir / "textures/card.orb").c_str()));
}

} // namespace

TEST(OrbtexDocs, EveryExampleRuns)
{
    ScratchDir dir;
    MakeExampleFiles(dir);
    const std::vector<std::string> examples = Examples();
    ASSERT_GT(examples.size(), 30u);
    const std::string bin = std::filesystem::path(ORBTEX_PROGRAM).parent_path().string();
    for (const std::string& example : examples)
    {
        ASSERT_EQ(example.rfind("orbtex ", 0), 0u) << "not an orbtex command: " << example;
        const std::string command = "cd " + Quote(dir.path().string()) + " && PATH=" + Quote(bin) + ":\"$PATH\" " +
                                    example + " >" + Quote(dir / "stdout") + " 2>" + Quote(dir / "stderr") +
                                    " </dev/null";
        const int status = std::system(command.c_str());
        EXPECT_EQ(status, 0) << example << "\n" << Slurp(dir / "stderr");
        EXPECT_EQ(Slurp(dir / "stderr"), "") << example;
    }
    // What the examples say they write.
    for (const char* written : {"converted/rock.ktx", "converted/sky.ktx", "converted/card.ktx",
                                "previews/photo.png", "previews/sprite.png", "report/report.html",
                                "levels-level6-member0-face0.png", "demo/testcard.orb"})
        EXPECT_TRUE(std::filesystem::exists(dir / written)) << written;
}

TEST(OrbtexDocs, EveryCommandAndOptionHasAnExample)
{
    ScratchDir dir;
    const std::vector<std::string> examples = Examples();
    for (const char* global : {"orbtex --help", "orbtex --version", "orbtex help convert"})
        EXPECT_NE(std::find(examples.begin(), examples.end(), global), examples.end()) << global;
    for (const std::string command : kCommands)
    {
        const std::set<std::string> options = HelpOptions(dir, command);
        EXPECT_FALSE(options.empty()) << command;
        for (const std::string& option : options)
        {
            bool shown = false;
            for (const std::string& example : examples)
                shown = shown || (example.rfind("orbtex " + command + " ", 0) == 0 && HasWord(example, option));
            EXPECT_TRUE(shown) << "orbtex " << command << " " << option << " has no example in docs/orbtex.md";
        }
    }
}

// The manual page names every command and option and the version --version prints.
TEST(OrbtexDocs, ManPageNamesEveryCommandAndOption)
{
    ScratchDir dir;
    EXPECT_EQ(Orbtex(dir, "--version").out, "orbtex " ORBTEX_VERSION "\n");
    // roff writes a hyphen as \-.
    const std::string page = std::regex_replace(Slurp(kManPage), std::regex(R"(\\-)"), "-");
    EXPECT_NE(page.find(".TH ORBTEX 1 \"\" \"ORBTexLib " ORBTEX_VERSION "\""), std::string::npos);
    for (const std::string command : kCommands)
    {
        EXPECT_NE(page.find(".SS " + command), std::string::npos) << command;
        for (const std::string& option : HelpOptions(dir, command))
            EXPECT_NE(page.find(option), std::string::npos) << command << " " << option;
    }
    if (std::system("command -v groff >/dev/null 2>&1") == 0)
    {
        const std::string check = "groff -man -Tutf8 -ww -z " + Quote(kManPage) + " 2>" + Quote(dir / "groff");
        EXPECT_EQ(std::system(check.c_str()), 0);
        EXPECT_EQ(Slurp(dir / "groff"), "");
    }
}
