// Export as a C array: the exact text, the bytes it holds, the symbol name.

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ORBTexture.h"
#include "Support/TestFiles.h"

using namespace orbtexture;
using namespace testsupport;

namespace
{

std::string ReadText(const std::string& path)
{
    const std::vector<uint8_t> bytes = ReadBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

// The bytes of every "0x.." element of the array.
std::vector<uint8_t> ArrayBytes(const std::string& text)
{
    std::vector<uint8_t> bytes;
    for (size_t at = text.find("0x", text.find("[] = {")); at != std::string::npos; at = text.find("0x", at + 2))
        bytes.push_back(uint8_t(std::strtoul(text.substr(at, 4).c_str(), nullptr, 16)));
    return bytes;
}

const char* const kPreamble = "/********************************************************** \n"
                              " * ORBTexLib\n"
                              " **********************************************************/\n\n"
                              "#ifndef A8BIT \n"
                              " #define A8BIT static const unsigned char\n"
                              "#endif\n\n";

// Header of a 9 x 1 'r','g','b','a' 8,8,8,8 texture up to its metaDataSize word.
const char* const kHeaderLines = "\n/* Header */\n0x4f,0x52,0x42,0x03,\n0x00,0x00,0x00,0x00,\n" // version, flags
                                 "0x72,0x67,0x62,0x61,\n0x08,0x08,0x08,0x08,\n" // channel names and widths
                                 "0x00,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n" // colour space, channel type
                                 "0x01,0x00,0x00,0x00,\n0x09,0x00,0x00,0x00,\n" // height, width
                                 // depth, array members, faces, MIP levels
                                 "0x01,0x00,0x00,0x00,\n0x01,0x00,0x00,0x00,\n0x01,0x00,0x00,0x00,\n"
                                 "0x01,0x00,0x00,0x00,\n";

// Its 36 data bytes, 0, 5, 10, ...: 32 on the first line, 4 on the second.
const char* const kDataLines = "\n/* Data */\n"
                               "0x00,0x05,0x0a,0x0f,0x14,0x19,0x1e,0x23,0x28,0x2d,0x32,0x37,0x3c,0x41,0x46,0x4b,"
                               "0x50,0x55,0x5a,0x5f,0x64,0x69,0x6e,0x73,0x78,0x7d,0x82,0x87,0x8c,0x91,0x96,0x9b,\n"
                               "0xa0,0xa5,0xaa,0xaf,};\n";

CORBTexture NineTexels()
{
    return CORBTexture(CORBTextureHeader(ORBStandard8PixelType, 1, 9), Sequence(36, 5).data());
}

} // namespace

TEST(CHeader, ExactTextAndItsLineFeeds)
{
    ScratchDir dir;
    CORBTexture texture = NineTexels();
    ASSERT_TRUE(texture.saveFile((dir / "nine.h").c_str()));
    EXPECT_EQ(ReadText(dir / "nine.h"), std::string(kPreamble) + "A8BIT nine[] = {\n" + kHeaderLines +
                                            "0x00,0x00,0x00,0x00,\n" + std::string(kDataLines));
    EXPECT_FALSE(std::filesystem::exists(dir / "nine.h.orb"));

    texture.setOrientation(EORBTOrientation(eOrientUp));
    ASSERT_TRUE(texture.saveFile((dir / "oriented.h").c_str()));
    // metaDataSize, then fourCC, key (orientation), size and data of the item.
    EXPECT_EQ(ReadText(dir / "oriented.h"), std::string(kPreamble) + "A8BIT oriented[] = {\n" + kHeaderLines +
                                                "0x0f,0x00,0x00,0x00,\n\n/* Meta Data */\n0x4f,0x52,0x42,0x03,\n"
                                                "0x03,0x00,0x00,0x00,\n0x03,0x00,0x00,0x00,\n0x00,0x02,0x00,\n" +
                                                std::string(kDataLines));
    // The array is the native file, byte for byte.
    ASSERT_TRUE(texture.saveFile((dir / "oriented.orb").c_str()));
    EXPECT_EQ(ArrayBytes(ReadText(dir / "oriented.h")), ReadBytes(dir / "oriented.orb"));

    // Items under the 32nd fourCC have a line feed after every data byte,
    // those under the others none; an empty item still has its line feed.
    CORBTexture many = NineTexels();
    const uint8_t two[2] = {0xAA, 0xBB};
    for (uint32_t fourCC = 1; fourCC <= 33; ++fourCC)
        many.addMetaData(MetaDataBlock(fourCC, 0, 2, two));
    many.addMetaData(MetaDataBlock(32, 1, 0, nullptr));
    ASSERT_TRUE(many.saveFile((dir / "many.h").c_str()));
    const std::string text = ReadText(dir / "many.h");
    const std::string thirtyFirst = "0x1f,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n0x02,0x00,0x00,0x00,\n"
                                    "0xaa,0xbb,\n"
                                    "0x20,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n0x02,0x00,0x00,0x00,\n"
                                    "0xaa,\n0xbb,\n\n"
                                    "0x20,0x00,0x00,0x00,\n0x01,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n\n"
                                    "0x21,0x00,0x00,0x00,\n0x00,0x00,0x00,0x00,\n0x02,0x00,0x00,0x00,\n"
                                    "0xaa,0xbb,\n" +
                                    std::string(kDataLines);
    ASSERT_GE(text.size(), thirtyFirst.size());
    EXPECT_EQ(text.substr(text.size() - thirtyFirst.size()), thirtyFirst);
}

TEST(CHeader, SymbolNameFromThePath)
{
    ScratchDir dir;
    if (dir.path().string().find_first_of(".\\") != std::string::npos)
        GTEST_SKIP() << "scratch directory " << dir.path() << " has a '.' or '\\' in it";
    const CORBTexture texture = NineTexels();
    std::filesystem::create_directories(dir / "a/b.c");
    struct Case
    {
        const char* path;
        const char* symbol;
    };
    // The path is cut at its first '.', then after its last '/' or '\'.
    const Case cases[] = {{"a/b.c/tex.h", "b"}, {"x\\y\\tex.v2.H", "tex"}, {"plain.h", "plain"}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.path);
        ASSERT_TRUE(texture.saveFile((dir / c.path).c_str()));
        const std::string text = ReadText(dir / c.path);
        EXPECT_NE(text.find(std::string("\nA8BIT ") + c.symbol + "[] = {\n"), std::string::npos);
    }
    // A block smaller than the header describes is refused, and the file removed.
    CORBTexture grown = NineTexels();
    grown.setHeight(2);
    EXPECT_FALSE(grown.saveFile((dir / "grown.h").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir / "grown.h"));
}
