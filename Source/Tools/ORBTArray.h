#ifndef ORBTARRAY_H
#define ORBTARRAY_H

// Growable array of the public interface. Storage comes from new[], so every
// slot up to the capacity holds a default-constructed element; removal only
// lowers the count and never destroys anything. The default storage of 16 is
// allocated at the first append, so that empty arrays (and empty maps built
// on them) cost no allocation.

#include <utility>

#include "Tools/ORBTDefines.h"

template <typename T>
class ORBT_API CORBTArray
{
public:
    CORBTArray()
        : m_Size(0), m_Capacity(16), m_pArray(nullptr)
    {
    }

    explicit CORBTArray(unsigned int initialCapacity)
        : m_Size(0), m_Capacity(initialCapacity), m_pArray(new T[initialCapacity])
    {
    }

    CORBTArray(const CORBTArray& other)
        : m_Size(other.m_Size), m_Capacity(other.m_Capacity),
          m_pArray(other.m_pArray ? new T[other.m_Capacity] : nullptr)
    {
        for (unsigned int i = 0; i < m_Size; ++i)
        {
            m_pArray[i] = other.m_pArray[i];
        }
    }

    CORBTArray& operator=(const CORBTArray& other)
    {
        if (&other != this)
        {
            T* storage = other.m_pArray ? new T[other.m_Capacity] : nullptr;
            for (unsigned int i = 0; i < other.m_Size; ++i)
            {
                storage[i] = other.m_pArray[i];
            }
            delete[] m_pArray;
            m_pArray = storage;
            m_Size = other.m_Size;
            m_Capacity = other.m_Capacity;
        }
        return *this;
    }

    // Moves take the other array's storage and leave it empty.
    CORBTArray(CORBTArray&& other) noexcept
        : m_Size(other.m_Size), m_Capacity(other.m_Capacity), m_pArray(other.m_pArray)
    {
        other.m_Size = 0;
        other.m_Capacity = 16;
        other.m_pArray = nullptr;
    }

    CORBTArray& operator=(CORBTArray&& other) noexcept
    {
        if (&other != this)
        {
            delete[] m_pArray;
            m_Size = other.m_Size;
            m_Capacity = other.m_Capacity;
            m_pArray = other.m_pArray;
            other.m_Size = 0;
            other.m_Capacity = 16;
            other.m_pArray = nullptr;
        }
        return *this;
    }

    virtual ~CORBTArray()
    {
        delete[] m_pArray;
    }

    // 0 on success, 1 on an empty array. A position beyond the last index
    // still drops one element from the end and reports success.
    virtual int Remove(unsigned int position)
    {
        if (m_Size == 0)
        {
            return 1;
        }
        if (position == m_Size - 1)
        {
            return RemoveLast();
        }
        --m_Size;
        for (unsigned int i = position; i < m_Size; ++i)
        {
            m_pArray[i] = m_pArray[i + 1];
        }
        return 0;
    }

    // 0 on success, 1 on an empty array. The element is left in place.
    virtual int RemoveLast()
    {
        if (m_Size == 0)
        {
            return 1;
        }
        --m_Size;
        return 0;
    }

    void Append(const T& value)
    {
        if (!m_pArray)
        {
            Reallocate(m_Capacity > m_Size + 1 ? m_Capacity : m_Size + 1);
        }
        if (m_Size + 1 > m_Capacity)
        {
            // The value may live in the storage about to be released.
            const T copy(value);
            const unsigned int doubled = m_Capacity * 2;
            Reallocate(doubled > m_Size + 1 ? doubled : m_Size + 1);
            m_pArray[m_Size++] = copy;
        }
        else
        {
            m_pArray[m_Size++] = value;
        }
    }

    // Unchecked.
    T& operator[](unsigned int index) { return m_pArray[index]; }
    const T& operator[](unsigned int index) const { return m_pArray[index]; }

    unsigned int GetSize() const { return m_Size; }
    unsigned int GetCapacity() const { return m_Capacity; }
    bool IsEmpty() const { return m_Size == 0; }

    // Null for an empty array that never held anything.
    T* GetDataPtr() { return m_pArray; }
    const T* GetDataPtr() const { return m_pArray; }

    T* begin() { return m_pArray; }
    T* end() { return m_pArray + m_Size; }
    const T* begin() const { return m_pArray; }
    const T* end() const { return m_pArray + m_Size; }

    void Clear() { m_Size = 0; }

    // Grows only.
    void SetCapacity(unsigned int capacity)
    {
        if (capacity > m_Capacity)
        {
            Reallocate(capacity);
        }
    }

protected:
    unsigned int m_Size;
    unsigned int m_Capacity;
    T* m_pArray;

private:
    void Reallocate(unsigned int capacity)
    {
        T* storage = new T[capacity];
        for (unsigned int i = 0; i < m_Size; ++i)
        {
            storage[i] = std::move(m_pArray[i]);
        }
        delete[] m_pArray;
        m_pArray = storage;
        m_Capacity = capacity;
    }
};

#endif
