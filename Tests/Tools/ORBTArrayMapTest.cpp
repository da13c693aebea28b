#include <gtest/gtest.h>

#include "Tools/ORBTArray.h"
#include "Tools/ORBTMap.h"
#include "Tools/ORBTString.h"

namespace
{

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
    unsigned int KeyCount() const { return this->m_Keys.GetSize(); }
    unsigned int ValueCount() const { return this->m_Values.GetSize(); }
    unsigned int KeyCapacity() const { return this->m_Keys.GetCapacity(); }
    unsigned int ValueCapacity() const { return this->m_Values.GetCapacity(); }
};

TEST(ORBTArray, GrowthRule)
{
    CORBTArray<int> a;
    EXPECT_EQ(0u, a.GetSize());
    EXPECT_EQ(16u, a.GetCapacity());
    a.Append(0);
    const int* storage = a.GetDataPtr();
    for (int i = 1; i < 16; ++i)
    {
        a.Append(i);
    }
    EXPECT_EQ(storage, a.GetDataPtr());
    a.Append(16);
    EXPECT_EQ(32u, a.GetCapacity());
    EXPECT_EQ(0, a[0]);
    EXPECT_EQ(16, a[16]);

    CORBTArray<int> zero(0);
    zero.Append(1);
    EXPECT_EQ(1u, zero.GetCapacity());
    zero.Append(2);
    zero.Append(3);
    EXPECT_EQ(4u, zero.GetCapacity());

    zero.SetCapacity(2);
    EXPECT_EQ(4u, zero.GetCapacity());
    zero.SetCapacity(9);
    EXPECT_EQ(9u, zero.GetCapacity());
    EXPECT_EQ(3, zero[2]);
}

TEST(ORBTArray, AppendingOwnElementAcrossGrowth)
{
    CORBTArray<CORBTString> a(2);
    a.Append("first");
    a.Append("second");
    a.Append(a[0]); // reallocates while the argument lives in the old storage
    a.Append(a[2]);
    ASSERT_EQ(4u, a.GetSize());
    EXPECT_STREQ("first", a[3].c_str());
}

TEST(ORBTArray, RemoveAndRemoveLast)
{
    CountingArray a;
    EXPECT_EQ(1, a.Remove(0));
    EXPECT_EQ(1, a.RemoveLast());
    for (int i = 0; i < 5; ++i)
    {
        a.Append(i * 10);
    }

    EXPECT_EQ(0, a.Remove(1));
    ASSERT_EQ(4u, a.GetSize());
    EXPECT_EQ(20, a[1]);
    EXPECT_EQ(40, a[3]);

    a.removeLastCalls = 0;
    EXPECT_EQ(0, a.Remove(3)); // the last index goes through RemoveLast
    EXPECT_EQ(1, a.removeLastCalls);
    EXPECT_EQ(3u, a.GetSize());
    EXPECT_EQ(40, a.GetDataPtr()[3]); // left in place

    // Beyond the last index: one element fewer, success, nothing moved.
    EXPECT_EQ(0, a.Remove(50));
    EXPECT_EQ(2u, a.GetSize());
    EXPECT_EQ(0, a[0]);
    EXPECT_EQ(20, a[1]);

    a.Clear();
    EXPECT_EQ(0u, a.GetSize());
    EXPECT_EQ(16u, a.GetCapacity());
}

TEST(ORBTArray, CopiesAreDeep)
{
    CORBTArray<CORBTString> a(3);
    a.Append("x");
    a.Append("y");
    CORBTArray<CORBTString> b(a);
    EXPECT_EQ(3u, b.GetCapacity());
    b[0] = "changed";
    EXPECT_STREQ("x", a[0].c_str());

    CORBTArray<CORBTString> c;
    c = a;
    const CORBTArray<CORBTString>& alias = c;
    c = alias;
    EXPECT_EQ(3u, c.GetCapacity());
    ASSERT_EQ(2u, c.GetSize());
    EXPECT_STREQ("y", c[1].c_str());
    EXPECT_NE(a.GetDataPtr(), c.GetDataPtr());
}

TEST(ORBTMap, LookupAndInsertion)
{
    CORBTMap<unsigned int, int> m;
    EXPECT_EQ(nullptr, m.Find(7));
    EXPECT_FALSE(m.Exists(7));
    EXPECT_EQ(0u, m.GetSize()); // Find never inserts

    m[7] = 70;
    m[3] = 30;
    m[7] += 1;
    EXPECT_EQ(2u, m.GetSize());
    ASSERT_NE(nullptr, m.Find(7));
    EXPECT_EQ(71, *m.Find(7));
    *m.Find(3) = 33;
    const CORBTMap<unsigned int, int>& cm = m;
    EXPECT_EQ(33, *cm.Find(3));
    EXPECT_EQ(0, m[5]); // default value on insertion
    EXPECT_EQ(7u, m.GetKey(0));
    EXPECT_EQ(5u, m.GetKey(2));
    EXPECT_EQ(33, cm.GetValue(1));

    m.Clear();
    EXPECT_EQ(0u, m.GetSize());
    EXPECT_FALSE(m.Exists(7));
}

TEST(ORBTMap, GrowsBothArrays)
{
    InspectableMap<unsigned int, unsigned int> m;
    for (unsigned int k = 0; k < 17; ++k)
    {
        m[k * 3] = k;
    }
    EXPECT_EQ(17u, m.GetSize());
    EXPECT_EQ(32u, m.KeyCapacity());
    EXPECT_EQ(32u, m.ValueCapacity());
    for (unsigned int k = 0; k < 17; ++k)
    {
        ASSERT_TRUE(m.Exists(k * 3));
        EXPECT_EQ(k, *m.Find(k * 3));
    }
}

TEST(ORBTMap, RemovalMovesLastIntoSlot)
{
    InspectableMap<unsigned int, int> m;
    m[1] = 10;
    m[2] = 20;
    m[3] = 30;
    m.Remove(1);
    ASSERT_EQ(2u, m.GetSize());
    EXPECT_EQ(3u, m.GetKey(0));
    EXPECT_EQ(30, m.GetValue(0));
    EXPECT_EQ(2u, m.GetKey(1));
    EXPECT_EQ(20, m.GetValue(1));

    m.Remove(99);
    EXPECT_EQ(2u, m.GetSize());

    // Removing the last item keeps the arrays parallel with the count.
    m.Remove(2);
    EXPECT_EQ(1u, m.GetSize());
    EXPECT_EQ(1u, m.KeyCount());
    EXPECT_EQ(1u, m.ValueCount());
    m[4] = 40;
    EXPECT_EQ(4u, m.GetKey(1));
    EXPECT_EQ(40, m.GetValue(1));
    EXPECT_FALSE(m.Exists(2));
}

TEST(ORBTMap, NestedCopiesAreDeep)
{
    typedef CORBTMap<unsigned int, CORBTString> Inner;
    CORBTMap<unsigned int, Inner> outer;
    outer[1][10] = "a";
    outer[2][20] = "b";

    CORBTMap<unsigned int, Inner> copy(outer);
    copy[1][10] = "changed";
    copy[1][11] = "new";
    EXPECT_STREQ("a", outer[1][10].c_str());
    EXPECT_FALSE(outer[1].Exists(11));

    CORBTMap<unsigned int, Inner> assigned;
    assigned[9][9] = "gone";
    assigned = outer;
    EXPECT_FALSE(assigned.Exists(9));
    EXPECT_STREQ("b", assigned[2][20].c_str());
}

} // namespace
