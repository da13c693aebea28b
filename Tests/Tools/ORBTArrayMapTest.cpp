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

} // namespace
