// The arrays and strings of the public interface, the raw texture
// helpers, and the bitmap that the extended ORBTC decoder writes into.

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Bitmap/Bitmap.h"
#include "ORBTextureInfo.h"
#include "Tools/ORBTArray.h"
#include "Tools/ORBTRawTexture.h"
#include "Tools/ORBTString.h"

using namespace orbtexture;

namespace
{

const unsigned int npos = CORBTString::npos;

std::string S(const CORBTString& s) { return s.c_str(); }

TEST(ORBTString, ConstructionAliasingPositionsAndSearches)
{
    EXPECT_EQ("", S(CORBTString(static_cast<const char*>(nullptr))));
    // An explicit count copies zero bytes too, and so does a copy.
    const CORBTString counted("ab\0cd", 5), copy(counted);
    EXPECT_EQ(0, memcmp(copy.c_str(), "ab\0cd", 6));
    const CORBTString source("abcdef");
    EXPECT_EQ("cde|ef|",
              S(CORBTString(source, 2, 3) + "|" + CORBTString(source, 4, 100) + "|" + CORBTString(source, 9)));

    // Sources inside the string's own buffer, on the reuse and the replacement paths.
    CORBTString s("abcdefghijk");
    s.assign(s.c_str() + 3, 4);
    EXPECT_EQ("defg", S(s));
    CORBTString t("xyz");
    t.assign(t, 1);
    t.assign(t.c_str(), 2);
    const CORBTString& alias = t;
    t = alias;
    EXPECT_EQ("yz", S(t));
    CORBTString a("abc");
    a.append(a);
    a += a;
    a.append(a.c_str() + 1, 2);
    a.append(a, 12);
    EXPECT_EQ("abcabcabcabcbcbc", S(a));

    // Erasing in the middle keeps the stored length; up to the end it is a resize.
    CORBTString e("abcd");
    e.erase(1, 1);
    EXPECT_EQ("acd 4", S(e) + " " + std::to_string(e.length()));
    e.erase(2, 0xFFFFFFFE); // an end past 32 bits is still a resize
    EXPECT_EQ(2u, e.length());
    EXPECT_EQ("def|abcdef", S(source.right(3) + "|" + source.right(60)));
    char buffer[8];
    memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(5u, source.copy(buffer, 5, 3)); // the count asked, not the 3 bytes copied
    EXPECT_EQ(0, memcmp(buffer, "def###", 6));
    EXPECT_EQ('\0', source.at(1000));

    // Whole-string forms stop at the first zero byte; the whole string compares unsigned bytes, a part signed ones.
    EXPECT_TRUE(CORBTString("ab\0c", 4) == "ab");
    EXPECT_GT(CORBTString("\x80").compare("a"), 0);
    EXPECT_EQ(-1, CORBTString("\x80").compare(0, 1, "a"));
    CORBTString abc("abcabc"), dots("a.b.c");
    EXPECT_EQ(npos, abc.find(static_cast<const char*>(nullptr)));
    EXPECT_EQ(6u, abc.find_next_occurance_of("ca", 3)); // a miss is the length
    // find_last_of counts its position from the end; find_previous_occurance_of never examines index 0.
    EXPECT_EQ(1u, dots.find_last_of('.', 2));
    EXPECT_EQ(npos, dots.find_last_of('.', 4));
    EXPECT_EQ(3u, abc.find_previous_occurance_of('a', 3));
    EXPECT_EQ(npos, abc.find_previous_occurance_of('a', 2));
}

TEST(ORBTString, SubstitutionFormatAndPaths)
{
    // Inserted text is not scanned again, so this terminates.
    CORBTString a("aaa");
    a.substitute("a", "aa");
    EXPECT_EQ("aaaaaa", S(a));
    CORBTString t("one two one two");
    t.substitute("one", "1", false);
    t.substitute("two", "");
    EXPECT_EQ("1  one ", S(t));
    EXPECT_EQ(7u, t.length());
    CORBTString f("old contents");
    EXPECT_EQ("42-x-007", S(f.format("%d-%s-%03u", 42, "x", 7u)));
    EXPECT_EQ('|', ORBTStringFromFormattedStr("%500d|", 1)[500]);
    EXPECT_EQ("b a", S(ORBTStringFromFormattedStrPositional("%2$c %1$c", 'a', 'b')));

    const struct
    {
        const char *path, *extension, *directory, *name;
    } paths[] = {
        {"dir/a.b.png", ".png", "dir", "a.b.png"},
        {"x.d/file", ".d/file", "x.d", "file"},
        {"a\\b\\c.orb", ".orb", "a\\b", "c.orb"},
        {"a/b\\c", "", "a", "b\\c"}, // a '/' anywhere hides every '\'
        {"c.orb", ".orb", "", "c.orb"},
        {"dir/", "", "dir", ""},
    };
    for (const auto& p : paths)
    {
        EXPECT_EQ(p.extension, S(ORBTStringGetFileExtension(p.path))) << p.path;
        EXPECT_EQ(p.directory, S(ORBTStringGetContainingDirectoryPath(p.path))) << p.path;
        EXPECT_EQ(p.name, S(ORBTStringGetFileName(p.path))) << p.path;
    }
    EXPECT_EQ("x \t", S(ORBTStringStripWhiteSpaceFromStartOf(" \r\n\tx \t")));
    EXPECT_EQ(" \r\n\tx", S(ORBTStringStripWhiteSpaceFromEndOf(" \r\n\tx \t")));
    EXPECT_EQ(" \t\n", S(ORBTStringStripWhiteSpaceFromEndOf(" \t\n")));
}

TEST(ORBTArray, GrowthAndRemoval)
{
    // Growth doubles the default 16.
    CORBTArray<int> a;
    for (int i = 0; i < 17; ++i)
        a.Append(i * 10);
    EXPECT_EQ(32u, a.GetCapacity());
    // Removal moves the later elements down; the last index and beyond it
    // leave the elements in place and only count one fewer.
    EXPECT_EQ(0, a.Remove(1));
    EXPECT_EQ(0, a.Remove(15));
    EXPECT_EQ(160, a.GetDataPtr()[15]);
    EXPECT_EQ(0, a.Remove(50));
    EXPECT_EQ(14u, a.GetSize());
    EXPECT_EQ(20, a[1]);

    // An element of its own appended while the storage moves.
    CORBTArray<CORBTString> s(2);
    s.Append("first");
    s.Append("second");
    s.Append(s[0]);
    EXPECT_STREQ("first", s[2].c_str());
}

TEST(RawTexture, CreateCountsTheChainAtTheMinimum)
{
    // 64 + 16 + 16 + 16 pixels at 32 bits; the whole data area is written to show it is there.
    void* block = ORBTTextureCreate(8, 8, 4, 4, 32, true);
    ASSERT_NE(block, nullptr);
    ORBTextureHeaderV3 header;
    std::memcpy(&header, block, 52);
    EXPECT_EQ(header.width * 100 + header.height * 10 + header.numMIPMaps, 881u);
    std::memset(static_cast<unsigned char*>(block) + 52, 0, 448);
    std::free(block);
    // Non-square: 8x2, 4x1, 2x0, 1x0, each at least 2x2: 16 + 8 + 4 + 4 pixels at 8 bits.
    block = ORBTTextureCreate(8, 2, 2, 2, 8, true);
    ASSERT_NE(block, nullptr);
    std::memset(static_cast<unsigned char*>(block) + 52, 0, 32);
    std::free(block);
    EXPECT_EQ(ORBTTextureCreate(65536, 65536, 1, 1, 32, false), nullptr);
}

TEST(Bitmap, SizesRowsAndBounds)
{
    // Empty sizes, and four bytes a pixel of INT_MAX squared, are refused.
    EXPECT_EQ(new_bitmap(0, 4, 1, nullptr), nullptr);
    EXPECT_EQ(new_bitmap(4, -1, 1, nullptr), nullptr);
    EXPECT_EQ(new_bitmap(INT_MAX, INT_MAX, 1, nullptr), nullptr);

    const unsigned char fill[4] = {1, 2, 3, 4}, last[4] = {10, 20, 30, 40};
    Bitmap* bitmap = new_bitmap(3, 2, 1, fill);
    ASSERT_NE(bitmap, nullptr);
    int width = 0, height = 0;
    EXPECT_EQ(bitmap_get_size(bitmap, &width, &height), 1);
    EXPECT_EQ(width * 10 + height, 32);
    EXPECT_EQ(bitmap_set_pixel_rgba(bitmap, 2, 1, 10, 20, 30, 40), 1);
    for (const auto& xy : {std::make_pair(3, 0), std::make_pair(0, 2), std::make_pair(-1, 0), std::make_pair(0, -1)})
        EXPECT_EQ(bitmap_set_pixel_rgba(bitmap, xy.first, xy.second, 9, 9, 9, 9), 0) << xy.first << "," << xy.second;
    // Pixel (2, 1) is the last of six; the others keep the fill.
    EXPECT_EQ(std::memcmp(bitmap->pixels + 20, last, 4), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(std::memcmp(bitmap->pixels + 4 * i, fill, 4), 0) << i;
    unsigned char rgba[4] = {};
    EXPECT_EQ(bitmap_get_pixel_rgba(bitmap, 3, 1, rgba), 0);
    EXPECT_EQ(bitmap_get_pixel_rgba(bitmap, 2, 1, rgba), 1);
    EXPECT_EQ(std::memcmp(rgba, last, 4), 0);
    delete_bitmap(bitmap);
}

} // namespace
