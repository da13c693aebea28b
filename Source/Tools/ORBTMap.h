#ifndef ORBTMAP_H
#define ORBTMAP_H

// Map of the public interface: two parallel arrays searched linearly. Items
// keep insertion order until the first removal, which moves the last item
// into the freed slot.

#include "Tools/ORBTArray.h"
#include "Tools/ORBTDefines.h"

template <typename K, typename V>
class ORBT_API CORBTMap
{
public:
    CORBTMap()
        : m_Size(0)
    {
    }

    CORBTMap(const CORBTMap& other) = default;
    CORBTMap& operator=(const CORBTMap& other) = default;
    CORBTMap(CORBTMap&& other) noexcept
        : m_Keys(std::move(other.m_Keys)), m_Values(std::move(other.m_Values)), m_Size(other.m_Size)
    {
        other.m_Size = 0;
    }
    CORBTMap& operator=(CORBTMap&& other) noexcept
    {
        if (&other != this)
        {
            m_Keys = std::move(other.m_Keys);
            m_Values = std::move(other.m_Values);
            m_Size = other.m_Size;
            other.m_Size = 0;
        }
        return *this;
    }

    // Finds the key or appends it with a default value. The reference is
    // invalidated by the next insertion.
    V& operator[](const K& key)
    {
        const unsigned int index = IndexOf(key);
        if (index != m_Size)
        {
            return m_Values[index];
        }
        m_Keys.Append(key);
        m_Values.Append(V());
        ++m_Size;
        return m_Values[m_Size - 1];
    }

    // Appends a key the caller knows to be absent, without searching, and
    // returns its value. Bulk loaders use it with an index of their own.
    V& AppendAbsent(const K& key, const V& value)
    {
        m_Keys.Append(key);
        m_Values.Append(value);
        ++m_Size;
        return m_Values[m_Size - 1];
    }

    const V* Find(const K& key) const
    {
        const unsigned int index = IndexOf(key);
        return index != m_Size ? &m_Values[index] : nullptr;
    }

    V* Find(const K& key)
    {
        const unsigned int index = IndexOf(key);
        return index != m_Size ? &m_Values[index] : nullptr;
    }

    bool Exists(const K& key) const
    {
        return IndexOf(key) != m_Size;
    }

    // The last item takes the removed item's slot.
    void Remove(const K& key)
    {
        const unsigned int index = IndexOf(key);
        if (index == m_Size)
        {
            return;
        }
        --m_Size;
        if (index != m_Size)
        {
            m_Keys[index] = m_Keys[m_Size];
            m_Values[index] = m_Values[m_Size];
        }
        m_Keys.RemoveLast();
        m_Values.RemoveLast();
    }

    unsigned int GetSize() const { return m_Size; }

    // Index access in map order; unchecked.
    const K& GetKey(unsigned int index) const { return m_Keys[index]; }
    V& GetValue(unsigned int index) { return m_Values[index]; }
    const V& GetValue(unsigned int index) const { return m_Values[index]; }

    void Clear()
    {
        m_Keys.Clear();
        m_Values.Clear();
        m_Size = 0;
    }

protected:
    CORBTArray<K> m_Keys;
    CORBTArray<V> m_Values;
    unsigned int m_Size;

private:
    // Index of the first matching key, or m_Size when absent.
    unsigned int IndexOf(const K& key) const
    {
        unsigned int i = 0;
        while (i < m_Size && !(m_Keys[i] == key))
        {
            ++i;
        }
        return i;
    }
};

#endif
