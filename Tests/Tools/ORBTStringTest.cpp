#include <gtest/gtest.h>

#include <cstring>

#include "Tools/ORBTString.h"

namespace
{

const unsigned int npos = CORBTString::npos;

TEST(ORBTString, ConstructionForms)
{
    CORBTString empty;
    EXPECT_EQ(0u, empty.length());
    EXPECT_EQ(1u, empty.capacity());
    EXPECT_STREQ("", empty.c_str());

    EXPECT_EQ(0u, CORBTString(static_cast<const char*>(nullptr)).length());

    // An explicit count copies zero bytes too.
    CORBTString counted("ab\0cd", 5);
    EXPECT_EQ(5u, counted.length());
    EXPECT_EQ(6u, counted.capacity());
    EXPECT_EQ(0, memcmp(counted.c_str(), "ab\0cd", 6));

    CORBTString source("abcdef");
    EXPECT_STREQ("cde", CORBTString(source, 2, 3).c_str());
    EXPECT_STREQ("ef", CORBTString(source, 4, 100).c_str());
    EXPECT_STREQ("", CORBTString(source, 9).c_str());
    EXPECT_STREQ("xxx", CORBTString(3u, 'x').c_str());
    EXPECT_STREQ("q", CORBTString('q').c_str());

    CORBTString copy(counted);
    EXPECT_EQ(5u, copy.length());
    EXPECT_EQ(0, memcmp(copy.c_str(), "ab\0cd", 6));
}

TEST(ORBTString, AppendReserveAndResizeKeepTheText)
{
    CORBTString s("ab");
    s.append("cde");
    s += 'f';
    EXPECT_STREQ("abcdef", s.c_str());
    s.reserve(7);
    EXPECT_STREQ("abcdef", s.c_str());
    s.resize(9, 'z');
    EXPECT_STREQ("abcdefzzz", s.c_str());
    s.resize(2);
    EXPECT_STREQ("ab", s.c_str());
    EXPECT_EQ(2u, s.length());
    s.clear();
    EXPECT_TRUE(s.empty());
}

TEST(ORBTString, AssignReusesOrReplacesBuffer)
{
    CORBTString s("0123456789"); // capacity 11
    s.assign("abcdefghij");
    EXPECT_EQ(11u, s.capacity());
    s.assign("abcdefghijk");
    EXPECT_EQ(12u, s.capacity());

    // Overlapping sources are fine while the capacity suffices, and the
    // replacement path copies before releasing.
    s.assign(s.c_str() + 3, 4);
    EXPECT_STREQ("defg", s.c_str());
    CORBTString t("xyz");
    t.assign(t, 1);
    EXPECT_STREQ("yz", t.c_str());
    t.assign(t.c_str(), 2);
    EXPECT_STREQ("yz", t.c_str());
    const CORBTString& alias = t;
    t = alias;
    EXPECT_STREQ("yz", t.c_str());
    t = 'k';
    EXPECT_STREQ("k", t.c_str());
    t.assign(5, '-');
    EXPECT_STREQ("-----", t.c_str());
}

TEST(ORBTString, AppendingItselfIsSafe)
{
    CORBTString s("abc");
    s.append(s);
    EXPECT_STREQ("abcabc", s.c_str());
    s += s;
    EXPECT_EQ(12u, s.length());
    s.append(s.c_str() + 1, 2);
    EXPECT_STREQ("abcabcabcabcbc", s.c_str());
    s.append(s, 12);
    EXPECT_STREQ("abcabcabcabcbcbc", s.c_str());
}

TEST(ORBTString, EraseInMiddleKeepsStoredLength)
{
    CORBTString s("abcd");
    s.erase(1, 1);
    EXPECT_EQ(4u, s.length());
    EXPECT_STREQ("acd", s.c_str());

    CORBTString t("abcd");
    t.erase(2, 2); // reaches the end: a resize
    EXPECT_EQ(2u, t.length());
    EXPECT_STREQ("ab", t.c_str());
    t.erase(1);
    EXPECT_STREQ("a", t.c_str());
    EXPECT_EQ(1u, t.length());

    CORBTString u("abcd");
    u.erase(2, 0xFFFFFFFE); // end past 32 bits: still a resize, not a move
    EXPECT_STREQ("ab", u.c_str());
    EXPECT_EQ(2u, u.length());
}

TEST(ORBTString, PiecesAndCopy)
{
    CORBTString s("abcdef");
    EXPECT_STREQ("abc", s.left(3).c_str());
    EXPECT_STREQ("def", s.right(3).c_str());
    EXPECT_STREQ("abcdef", s.left(6).c_str());
    EXPECT_STREQ("abcdef", s.right(60).c_str());
    EXPECT_STREQ("bcdef", s.substr(1).c_str());

    char buffer[8];
    memset(buffer, '#', sizeof(buffer));
    EXPECT_EQ(5u, s.copy(buffer, 5, 3)); // count, not the 3 bytes copied
    EXPECT_EQ(0, memcmp(buffer, "def###", 6));
    EXPECT_EQ(0u, s.copy(nullptr, 5));
}

TEST(ORBTString, Comparison)
{
    // Whole-string forms stop at the first zero byte.
    CORBTString embedded("ab\0c", 4);
    EXPECT_TRUE(embedded == "ab");
    EXPECT_TRUE(embedded == CORBTString("ab"));

    CORBTString high("\x80");
    EXPECT_GT(high.compare("a"), 0);               // unsigned bytes
    EXPECT_EQ(-1, high.compare(0, 1, "a"));         // signed bytes

    CORBTString s("abcd");
    EXPECT_EQ(0, s.compare(1, 2, "bc"));
    EXPECT_EQ(-1, s.compare(0, 2, "abc"));
    EXPECT_EQ(1, s.compare(0, 4, "abc"));
    EXPECT_EQ(1, s.compare(0, 4, "abz", 2));
    EXPECT_EQ(0, s.compare(2, npos, CORBTString("xcd"), 1));
    EXPECT_EQ(-1, s.compare(0, 1, CORBTString("b")));

    EXPECT_TRUE(CORBTString("abc") < "abd");
    EXPECT_TRUE(CORBTString("abd") > CORBTString("abc"));
    EXPECT_TRUE("abc" < CORBTString("abd"));
    EXPECT_TRUE("abc" == CORBTString("abc"));
}

TEST(ORBTString, CaseAndFormat)
{
    CORBTString s("aZ\xe9q\0Qr", 7);
    s.toUpper();
    EXPECT_EQ(0, memcmp(s.c_str(), "AZ\xe9Q\0Qr", 8));
    s.toLower();
    EXPECT_EQ(0, memcmp(s.c_str(), "az\xe9q\0Qr", 8));

    CORBTString f("old contents");
    CORBTString copy = f.format("%d-%s-%03u", 42, "x", 7u);
    EXPECT_STREQ("42-x-007", f.c_str());
    EXPECT_STREQ("42-x-007", copy.c_str());
    EXPECT_EQ(8u, f.length());

    f.formatPositional("%2$s %1$s", "world", "hello");
    EXPECT_STREQ("hello world", f.c_str());

    CORBTString wide = ORBTStringFromFormattedStr("%500d|", 1);
    EXPECT_EQ(501u, wide.length());
    EXPECT_EQ('|', wide[500]);
    EXPECT_STREQ("b a", ORBTStringFromFormattedStrPositional("%2$c %1$c", 'a', 'b').c_str());
}

TEST(ORBTString, ForwardSearches)
{
    CORBTString s("abcabc");
    EXPECT_EQ(3u, s.find("abc", 1));
    EXPECT_EQ(2u, s.find('c'));
    EXPECT_EQ(npos, s.find(static_cast<const char*>(nullptr)));
    EXPECT_EQ(npos, s.find("c", 6));
    EXPECT_EQ(npos, s.find("abcabca", 0, 7));
    EXPECT_EQ(4u, s.find("bcx", 3, 2));

    EXPECT_EQ(1u, s.find_first_of("cb"));
    EXPECT_EQ(4u, s.find_first_of(CORBTString("b"), 2));
    EXPECT_EQ(2u, s.find_first_not_of("ab"));
    EXPECT_EQ(npos, s.find_first_not_of("abc"));
    EXPECT_EQ(3u, s.find_first_not_of('c', 2));

    // Substring search gated on the zero-terminated length.
    CORBTString embedded("ab\0abc", 6);
    EXPECT_EQ(3u, embedded.find("abc"));
    EXPECT_EQ(npos, embedded.find_first_ofn("abc", 0, 3));
    EXPECT_EQ(3u, embedded.find_first_ofn("ab", 1, 2));

    EXPECT_EQ(3u, CORBTString("aaaa").find_number_of("aa"));
    EXPECT_EQ(2u, s.find_number_of('a'));
    EXPECT_EQ(1u, s.find_number_of(CORBTString("bc"), 2));
    EXPECT_EQ(0u, s.find_number_of('a', 6));

    EXPECT_EQ(3u, s.find_next_occurance_of('a', 1));
    EXPECT_EQ(6u, s.find_next_occurance_of('x'));
    EXPECT_EQ(6u, s.find_next_occurance_of("ca", 3));
    EXPECT_EQ(6u, s.find_next_occurance_of('a', 10));
}

TEST(ORBTString, BackwardSearches)
{
    CORBTString dots("a.b.c");
    EXPECT_EQ(3u, dots.find_last_of('.'));
    EXPECT_EQ(1u, dots.find_last_of('.', 2)); // scan starts at index 2
    EXPECT_EQ(npos, dots.find_last_of('.', 4));
    EXPECT_EQ(npos, dots.find_last_of('.', 5));
    EXPECT_EQ(npos, CORBTString().find_last_of('.'));
    EXPECT_EQ(3u, dots.find_last_of(CORBTString("x.")));
    EXPECT_EQ(2u, dots.find_last_not_of(".c", 1));
    EXPECT_EQ(npos, CORBTString("...").find_last_not_of('.'));

    CORBTString s("abcabc");
    EXPECT_EQ(3u, s.find_previous_occurance_of('a', 5));
    EXPECT_EQ(3u, s.find_previous_occurance_of('a', 3));
    EXPECT_EQ(npos, s.find_previous_occurance_of('a', 2)); // index 0 is never examined
    EXPECT_EQ(npos, s.find_previous_occurance_of('c'));     // position 0
    EXPECT_EQ(3u, s.find_previous_occurance_of("abc", 100));
    EXPECT_EQ(1u, s.find_previous_occurance_of(CORBTString("bc"), 3));
    EXPECT_EQ(npos, s.find_previous_occurance_of("x", 5));
}

TEST(ORBTString, Substitution)
{
    CORBTString s("a-b-c");
    s.substitute('-', '+', false);
    EXPECT_STREQ("a+b-c", s.c_str());
    s.substitute('-', '+');
    EXPECT_STREQ("a+b+c", s.c_str());
    CORBTString empty;
    empty.substitute('\0', 'x');
    EXPECT_STREQ("", empty.c_str());

    // Inserted text is not scanned again, so this terminates.
    CORBTString a("aaa");
    a.substitute("a", "aa");
    EXPECT_STREQ("aaaaaa", a.c_str());

    CORBTString t("one two one two");
    t.substitute("one", "1", false);
    EXPECT_STREQ("1 two one two", t.c_str());
    t.substitute("two", "");
    EXPECT_STREQ("1  one ", t.c_str());
    EXPECT_EQ(7u, t.length());
}

TEST(ORBTString, FreeFunctions)
{
    CORBTString s("ab");
    EXPECT_STREQ("abcd", (s + "cd").c_str());
    EXPECT_STREQ("cdab", ("cd" + s).c_str());
    EXPECT_STREQ("cab", ('c' + s).c_str());

    EXPECT_STREQ(".png", ORBTStringGetFileExtension("dir/a.b.png").c_str());
    EXPECT_STREQ("", ORBTStringGetFileExtension("dir/file").c_str());
    EXPECT_STREQ(".d/file", ORBTStringGetFileExtension("x.d/file").c_str());

    EXPECT_STREQ("a/b", ORBTStringGetContainingDirectoryPath("a/b/c.orb").c_str());
    EXPECT_STREQ("a\\b", ORBTStringGetContainingDirectoryPath("a\\b\\c.orb").c_str());
    EXPECT_STREQ("", ORBTStringGetContainingDirectoryPath("c.orb").c_str());
    // A '/' anywhere hides every '\\'.
    EXPECT_STREQ("a", ORBTStringGetContainingDirectoryPath("a/b\\c").c_str());

    EXPECT_STREQ("c.orb", ORBTStringGetFileName("a/b/c.orb").c_str());
    EXPECT_STREQ("c.orb", ORBTStringGetFileName("a\\c.orb").c_str());
    EXPECT_STREQ("b\\c", ORBTStringGetFileName("a/b\\c").c_str());
    EXPECT_STREQ("c.orb", ORBTStringGetFileName("c.orb").c_str());
    EXPECT_STREQ("", ORBTStringGetFileName("dir/").c_str());

    EXPECT_STREQ("x \t", ORBTStringStripWhiteSpaceFromStartOf(" \r\n\tx \t").c_str());
    EXPECT_STREQ(" \r\n\tx", ORBTStringStripWhiteSpaceFromEndOf(" \r\n\tx \t").c_str());
    EXPECT_STREQ(" \t\n", ORBTStringStripWhiteSpaceFromStartOf(" \t\n").c_str());
    EXPECT_STREQ(" \t\n", ORBTStringStripWhiteSpaceFromEndOf(" \t\n").c_str());
}

TEST(ORBTString, AtAndSwap)
{
    CORBTString a("abc");
    CORBTString b("z");
    EXPECT_EQ('c', a.at(2));
    EXPECT_EQ('\0', a.at(3));
    EXPECT_EQ('\0', a.at(1000));
    a.swap(b);
    EXPECT_STREQ("z", a.c_str());
    EXPECT_STREQ("abc", b.c_str());
}

} // namespace
