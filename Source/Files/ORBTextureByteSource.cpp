#include "Files/ORBTextureByteSource.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include <sys/stat.h>

namespace orbtexture
{

bool CByteSource::ReadWord(uint32_t& word)
{
    uint8_t bytes[4];
    if (!ReadExact(bytes, 4))
        return false;
    word = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
    return true;
}

CMemoryByteSource::CMemoryByteSource(const void* data, size_t size)
    : m_data(static_cast<const uint8_t*>(data)), m_size(data ? size : 0), m_position(0)
{
}

size_t CMemoryByteSource::Read(void* destination, size_t size)
{
    const size_t count = std::min(size, m_size - m_position);
    if (count)
        std::memcpy(destination, m_data + m_position, count);
    m_position += count;
    return count;
}

uint64_t CMemoryByteSource::Skip(uint64_t size)
{
    const size_t count = size_t(std::min<uint64_t>(size, m_size - m_position));
    m_position += count;
    return count;
}

CFileByteSource::CFileByteSource(FILE* file)
    : m_file(file), m_size(kUnknown), m_position(0), m_error(0)
{
    struct stat status;
    if (!file || fstat(fileno(file), &status) != 0)
        return;
    const long start = S_ISREG(status.st_mode) ? std::ftell(file) : -1;
    if (start >= 0 && status.st_size >= start)
        m_size = uint64_t(status.st_size) - uint64_t(start);
}

size_t CFileByteSource::Read(void* destination, size_t size)
{
    if (!m_file || size == 0)
        return 0;
    const size_t count = std::fread(destination, 1, size, m_file);
    if (count < size && std::ferror(m_file))
        m_error = errno ? errno : EIO;
    m_position += count;
    return count;
}

uint64_t CFileByteSource::Skip(uint64_t size)
{
    if (!m_file)
        return 0;
    // Regular files seek; anything else reads through.
    if (m_size != kUnknown)
    {
        const uint64_t count = std::min(size, m_size - std::min(m_position, m_size));
        if (count <= uint64_t(LONG_MAX) && std::fseek(m_file, long(count), SEEK_CUR) == 0)
        {
            m_position += count;
            return count;
        }
    }
    uint8_t buffer[65536];
    uint64_t skipped = 0;
    while (skipped < size)
    {
        const size_t got = Read(buffer, size_t(std::min<uint64_t>(sizeof buffer, size - skipped)));
        skipped += got;
        if (got == 0)
            break;
    }
    return skipped;
}

uint64_t CFileByteSource::Remaining() const
{
    if (m_size == kUnknown)
        return kUnknown;
    return m_size - std::min(m_position, m_size);
}

} // namespace orbtexture
