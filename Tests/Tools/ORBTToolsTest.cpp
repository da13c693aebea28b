// The arrays, maps and strings of the public interface, the raw texture
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
#include "Tools/ORBTMap.h"
#include "Tools/ORBTRawTexture.h"
#include "Tools/ORBTString.h"

using namespace orbtexture;

namespace
{

const unsigned int npos = CORBTString::npos;

std::string S(const CORBTString& s) { return s.c_str(); }

TEST(ORBTString, ConstructionAssignmentAndExactGrowth)
{
    EXPECT_EQ("", S(CORBTString(static_cast<const char*>(nullptr))));
    // An explicit count copies zero bytes too, and so does a copy.
    const CORBTString counted("ab\0cd", 5), copy(counted);
    EXPECT_EQ(6u, counted.capacity());
    EXPECT_EQ(0, memcmp(copy.c_str(), "ab\0cd", 6));
    const CORBTString source("abcdef");
    EXPECT_EQ("cde|ef|",
              S(CORBTString(source, 2, 3) + "|" + CORBTString(source, 4, 100) + "|" + CORBTString(source, 9)));

    CORBTString s("0123456789");
    s.assign("abcdefghij");
    EXPECT_EQ(11u, s.capacity());
    s.assign("abcdefghijk");
    EXPECT_EQ(12u, s.capacity());
    // Sources inside the string's own buffer, on the reuse and the replacement paths.
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
}

TEST(ORBTString, PositionsPastTheEndClip)
{
    // In the middle the stored length stays; up to the end it is a resize.
    CORBTString s("abcd");
    s.erase(1, 1);
    EXPECT_EQ(4u, s.length());
    EXPECT_EQ("acd", S(s));
    CORBTString t("abcd");
    t.erase(2, 0xFFFFFFFE); // an end past 32 bits is still a resize
    EXPECT_EQ(2u, t.length());

    CORBTString u("abcdef");
    EXPECT_EQ("def|abcdef", S(u.right(3) + "|" + u.right(60)));
    char buffer[8];
    memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(5u, u.copy(buffer, 5, 3)); // the count asked, not the 3 bytes copied
    EXPECT_EQ(0, memcmp(buffer, "def###", 6));
    EXPECT_EQ('\0', u.at(1000));
}

TEST(ORBTString, ComparisonAndSearches)
{
    // Whole-string forms stop at the first zero byte; the whole string compares unsigned bytes, a part signed ones.
    EXPECT_TRUE(CORBTString("ab\0c", 4) == "ab");
    CORBTString high("\x80");
    EXPECT_GT(high.compare("a"), 0);
    EXPECT_EQ(-1, high.compare(0, 1, "a"));
    EXPECT_EQ(1, CORBTString("abcd").compare(0, 4, "abz", 2));

    CORBTString s("abcabc");
    EXPECT_EQ(npos, s.find(static_cast<const char*>(nullptr)));
    EXPECT_EQ(4u, s.find("bcx", 3, 2));
    // find_first_ofn is a substring search, gated on the zero-terminated length.
    CORBTString embedded("ab\0abc", 6);
    EXPECT_EQ(3u, embedded.find("abc"));
    EXPECT_EQ(npos, embedded.find_first_ofn("abc", 0, 3));
    EXPECT_EQ(3u, embedded.find_first_ofn("ab", 1, 2));
    EXPECT_EQ(3u, CORBTString("aaaa").find_number_of("aa"));
    // A miss is the length.
    EXPECT_EQ(3u, s.find_next_occurance_of('a', 1));
    EXPECT_EQ(6u, s.find_next_occurance_of("ca", 3));
    // find_last_of and find_last_not_of count their position from the end.
    CORBTString dots("a.b.c");
    EXPECT_EQ(3u, dots.find_last_of('.'));
    EXPECT_EQ(1u, dots.find_last_of('.', 2));
    EXPECT_EQ(npos, dots.find_last_of('.', 4));
    EXPECT_EQ(2u, dots.find_last_not_of(".c", 1));
    // find_previous_occurance_of never examines index 0.
    EXPECT_EQ(3u, s.find_previous_occurance_of('a', 3));
    EXPECT_EQ(npos, s.find_previous_occurance_of('a', 2));
    EXPECT_EQ(1u, s.find_previous_occurance_of(CORBTString("bc"), 3));
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

// Counts calls to the virtual RemoveLast that Remove dispatches to.
class CountingArray : public CORBTArray<int>
{
public:
    int RemoveLast() override
    {
        ++removeLastCalls;
        return CORBTArray<int>::RemoveLast();
    }
    int removeLastCalls = 0;
};

template <typename K, typename V>
class InspectableMap : public CORBTMap<K, V>
{
public:
    unsigned int ValueCount() const { return this->m_Values.GetSize(); }
};

TEST(ORBTArray, GrowthAndRemoval)
{
    // The default 16 take the first 16 appends; growth doubles from there, and exactly from 0.
    CountingArray a;
    EXPECT_EQ(1, a.Remove(0));
    a.Append(0);
    const int* storage = a.GetDataPtr();
    for (int i = 1; i < 16; ++i)
        a.Append(i * 10);
    EXPECT_EQ(storage, a.GetDataPtr());
    a.Append(160);
    EXPECT_EQ(32u, a.GetCapacity());
    CORBTArray<int> zero(0);
    zero.Append(1);
    EXPECT_EQ(1u, zero.GetCapacity());
    zero.Append(2);
    zero.Append(3);
    EXPECT_EQ(4u, zero.GetCapacity());
    zero.SetCapacity(2);
    EXPECT_EQ(4u, zero.GetCapacity());

    EXPECT_EQ(0, a.Remove(1));
    EXPECT_EQ(20, a[1]);
    EXPECT_EQ(0, a.Remove(15)); // the last index goes through RemoveLast and leaves the element in place
    EXPECT_EQ(1, a.removeLastCalls);
    EXPECT_EQ(160, a.GetDataPtr()[15]);
    EXPECT_EQ(0, a.Remove(50)); // beyond the last index: one element fewer, nothing moved
    EXPECT_EQ(14u, a.GetSize());
    EXPECT_EQ(20, a[1]);

    // An element of its own appended while the storage moves.
    CORBTArray<CORBTString> s(2);
    s.Append("first");
    s.Append("second");
    s.Append(s[0]);
    EXPECT_STREQ("first", s[2].c_str());
}

TEST(ORBTMap, InsertionRemovalAndDeepCopies)
{
    InspectableMap<unsigned int, int> m;
    EXPECT_EQ(nullptr, m.Find(7));
    EXPECT_EQ(0u, m.GetSize()); // Find never inserts
    m[1] = 10;
    m[2] = 20;
    m[3] = 30;
    EXPECT_EQ(0, m[5]); // default value on insertion
    // The last item takes the removed item's slot; removing the last item keeps the arrays paired.
    m.Remove(1);
    m.Remove(99);
    EXPECT_EQ(5u, m.GetKey(0));
    EXPECT_EQ(0, m.GetValue(0));
    m.Remove(3);
    EXPECT_EQ(2u, m.ValueCount());
    m[4] = 40;
    EXPECT_EQ(4u, m.GetKey(2));
    EXPECT_EQ(40, m.GetValue(2));

    typedef CORBTMap<unsigned int, CORBTString> Inner;
    CORBTMap<unsigned int, Inner> outer, assigned;
    outer[1][10] = "a";
    CORBTMap<unsigned int, Inner> copy(outer);
    copy[1][10] = "changed";
    copy[1][11] = "new";
    EXPECT_STREQ("a", outer[1][10].c_str());
    EXPECT_FALSE(outer[1].Exists(11));
    assigned[9][9] = "gone";
    assigned = outer;
    EXPECT_FALSE(assigned.Exists(9));
    EXPECT_STREQ("a", assigned[1][10].c_str());
}

TEST(RawTexture, TwiddleInterleavesYLowAndXHigh)
{
    unsigned index, x, y;
    const unsigned cases[][3] = {{1, 0, 2}, {0, 1, 1}, {5, 3, 0x27}, {0x10000, 0x10000, 0}}; // only 16 bits count
    for (const auto& c : cases)
    {
        ORBTTextureTwiddle(index, c[0], c[1]);
        EXPECT_EQ(index, c[2]) << c[0] << " " << c[1];
    }
    for (unsigned i : {3u, 77u, 0xFFFFu, 0x12345678u, 0xFFFFFFFFu})
    {
        ORBTTextureDeTwiddle(x, y, i);
        ORBTTextureTwiddle(index, x, y);
        EXPECT_EQ(index, i);
    }
    ORBTTextureDeTwiddle(x, y, 3);
    EXPECT_EQ(x * 10 + y, 11u);
}

TEST(RawTexture, TiledLoadRepeatsTheTile)
{
    const unsigned char tile[4] = {'a', 'b', 'c', 'd'}; // 2x2, raster: a b / c d
    unsigned char raster[16], twiddled[16], out[12] = {}, untouched = 0x5A;
    ORBTTextureLoadTiled(raster, 4, 4, tile, 2, 2, 1, false);
    EXPECT_EQ(std::memcmp(raster, "ababcdcdababcdcd", 16), 0);
    // Twiddled: tile and destination are both in twiddled order (a=00, b=y1, c=x1, d=x1y1).
    ORBTTextureLoadTiled(twiddled, 4, 4, tile, 2, 2, 1, true);
    EXPECT_EQ(std::memcmp(twiddled, "abcdabcdabcdabcd", 16), 0);
    // Multi-byte elements, a 3-wide destination and nothing done for empty sizes.
    const unsigned char wide[4] = {1, 2, 3, 4}; // 2x1 tile of 2-byte elements
    ORBTTextureLoadTiled(out, 3, 2, wide, 2, 1, 2, false);
    EXPECT_EQ(std::vector<unsigned char>(out, out + 12),
              (std::vector<unsigned char>{1, 2, 3, 4, 1, 2, 1, 2, 3, 4, 1, 2}));
    ORBTTextureLoadTiled(&untouched, 0, 7, tile, 2, 2, 1, false);
    ORBTTextureLoadTiled(&untouched, 1, 1, tile, 0, 2, 1, false);
    EXPECT_EQ(untouched, 0x5A);
}

TEST(RawTexture, CreateCountsTheChainAtTheMinimum)
{
    // 64 + 16 + 16 + 16 pixels at 32 bits; the whole data area is written to show it is there.
    void* block = ORBTTextureCreate(8, 8, 4, 4, 32, true);
    ASSERT_NE(block, nullptr);
    ORBTextureHeaderV3 header;
    std::memcpy(&header, block, 52);
    EXPECT_EQ(header.version, ORBTEX_VERSION_3);
    EXPECT_EQ(header.width * 100 + header.height * 10 + header.numMIPMaps, 881u);
    EXPECT_EQ(header.pixelFormat, 51u);
    std::memset(static_cast<unsigned char*>(block) + 52, 0, 448);
    std::free(block);
    // Non-square: 8x2, 4x1, 2x0, 1x0, each at least 2x2: 16 + 8 + 4 + 4 pixels at 8 bits.
    block = ORBTTextureCreate(8, 2, 2, 2, 8, true);
    ASSERT_NE(block, nullptr);
    std::memset(static_cast<unsigned char*>(block) + 52, 0, 32);
    std::free(block);
    EXPECT_EQ(ORBTTextureCreate(65536, 65536, 1, 1, 32, false), nullptr);
}

TEST(Bitmap, RefusesEmptyAndUnaddressableSizes)
{
    EXPECT_EQ(new_bitmap(0, 4, 1, nullptr), nullptr);
    EXPECT_EQ(new_bitmap(4, -1, 1, nullptr), nullptr);
    // Four bytes a pixel of INT_MAX squared pass what one allocation can address.
    EXPECT_EQ(new_bitmap(INT_MAX, INT_MAX, 1, nullptr), nullptr);
}

TEST(Bitmap, RowsTopToBottomBoundsCheckedAndOpaqueWithoutAlpha)
{
    const unsigned char fill[4] = {1, 2, 3, 4}, last[4] = {10, 20, 30, 40};
    Bitmap* bitmap = new_bitmap(3, 2, 1, fill);
    ASSERT_NE(bitmap, nullptr);
    int width = 0, height = 0;
    EXPECT_EQ(bitmap_get_size(bitmap, &width, &height), 1);
    EXPECT_EQ(width * 10 + height, 32);
    EXPECT_EQ(bitmap_set_pixel_rgba(bitmap, 2, 1, 10, 20, 30, 40), 1);
    const int outside[4][2] = {{3, 0}, {0, 2}, {-1, 0}, {0, -1}};
    for (const auto& xy : outside)
        EXPECT_EQ(bitmap_set_pixel_rgba(bitmap, xy[0], xy[1], 9, 9, 9, 9), 0) << xy[0] << "," << xy[1];
    // Pixel (2, 1) is the last of six; the others keep the fill.
    EXPECT_EQ(std::memcmp(bitmap->pixels + 20, last, 4), 0);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(std::memcmp(bitmap->pixels + 4 * i, fill, 4), 0) << i;
    unsigned char rgba[4] = {};
    EXPECT_EQ(bitmap_get_pixel_rgba(bitmap, 3, 1, rgba), 0);
    delete_bitmap(bitmap);

    bitmap = new_bitmap(2, 1, 0, fill);
    bitmap_set_pixel_rgba(bitmap, 1, 0, 5, 6, 7, 8);
    EXPECT_EQ(bitmap->pixels[3], 255);
    EXPECT_EQ(bitmap_get_pixel_rgba(bitmap, 1, 0, rgba), 1);
    EXPECT_EQ(rgba[0] + rgba[3], 5 + 255);
    delete_bitmap(bitmap);
}

} // namespace
