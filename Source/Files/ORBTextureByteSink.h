#ifndef ORBTEXTUREBYTESINK_H
#define ORBTEXTUREBYTESINK_H

// Internal: where the writers of every container put their bytes, a file or
// memory. A failed write makes every later one fail too.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace orbtexture
{

class CByteSink
{
public:
    virtual ~CByteSink() = default;
    // Appends 'size' bytes; false if they were not all written.
    bool Write(const void* bytes, size_t size)
    {
        m_ok = m_ok && (size == 0 || Put(bytes, size));
        return m_ok;
    }
    // One item of 'size' bytes, which fails for a size of 0 as fwrite does.
    bool WriteItem(const void* bytes, size_t size) { return size != 0 && Write(bytes, size); }
    bool Failed() const { return !m_ok; }
    // errno of the failure, 0 when none is known.
    int Error() const { return m_error; }

protected:
    virtual bool Put(const void* bytes, size_t size) = 0;
    int m_error = 0;

private:
    bool m_ok = true;
};

class CFileByteSink final : public CByteSink
{
public:
    explicit CFileByteSink(FILE* file) : m_file(file) {}

private:
    bool Put(const void* bytes, size_t size) override;
    FILE* m_file;
};

// Appends to a byte vector.
class CMemoryByteSink final : public CByteSink
{
public:
    explicit CMemoryByteSink(std::vector<uint8_t>& bytes) : m_bytes(bytes) {}

private:
    bool Put(const void* bytes, size_t size) override;
    std::vector<uint8_t>& m_bytes;
};

} // namespace orbtexture

#endif
