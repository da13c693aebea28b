#ifndef ORBTEXTUREBYTESOURCE_H
#define ORBTEXTUREBYTESOURCE_H

// Internal: sequential bytes from a file or a memory image, for the parsers
// of every container. Reads never go back, so pipes work as well as files.

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace orbtexture
{

class CByteSource
{
public:
    static constexpr uint64_t kUnknown = UINT64_MAX;

    virtual ~CByteSource() = default;
    // Reads up to 'size' bytes and returns how many it read; fewer only at the
    // end or on an error (see Failed).
    virtual size_t Read(void* destination, size_t size) = 0;
    // Skips up to 'size' bytes and returns how many it skipped.
    virtual uint64_t Skip(uint64_t size) = 0;
    // Bytes left to read, or kUnknown when the source cannot tell (a pipe).
    virtual uint64_t Remaining() const = 0;
    // True after a read error other than the end.
    virtual bool Failed() const { return false; }
    // errno of the failure, 0 if none.
    virtual int Error() const { return 0; }

    bool ReadExact(void* destination, size_t size) { return Read(destination, size) == size; }
    // A little-endian 32-bit word.
    bool ReadWord(uint32_t& word);
};

// A memory image of 'size' bytes.
class CMemoryByteSource : public CByteSource
{
public:
    CMemoryByteSource(const void* data, size_t size);
    size_t Read(void* destination, size_t size) override;
    uint64_t Skip(uint64_t size) override;
    uint64_t Remaining() const override { return m_size - m_position; }

private:
    const uint8_t* m_data;
    size_t m_size;
    size_t m_position;
};

// An open file from its current position. The remaining size is known for
// regular files and unknown for pipes and devices.
class CFileByteSource : public CByteSource
{
public:
    explicit CFileByteSource(FILE* file);
    size_t Read(void* destination, size_t size) override;
    uint64_t Skip(uint64_t size) override;
    uint64_t Remaining() const override;
    bool Failed() const override { return m_error != 0; }
    int Error() const override { return m_error; }

private:
    FILE* m_file;
    uint64_t m_size;     // bytes from the start position to the end, or kUnknown
    uint64_t m_position; // bytes consumed since the start position
    int m_error;
};

} // namespace orbtexture

#endif
