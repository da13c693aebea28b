#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "Tools/ORBTString.h"

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
    EXPECT_EQ("cde|ef|", S(CORBTString(source, 2, 3) + "|" + CORBTString(source, 4, 100) + "|" + CORBTString(source, 9)));

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

} // namespace
