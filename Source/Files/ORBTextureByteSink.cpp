#include "Files/ORBTextureByteSink.h"

#include <cerrno>
#include <new>

namespace orbtexture
{

bool CFileByteSink::Put(const void* bytes, size_t size)
{
    errno = 0;
    if (std::fwrite(bytes, 1, size, m_file) == size)
        return true;
    m_error = errno ? errno : EIO;
    return false;
}

bool CMemoryByteSink::Put(const void* bytes, size_t size)
{
    try
    {
        const uint8_t* begin = static_cast<const uint8_t*>(bytes);
        m_bytes.insert(m_bytes.end(), begin, begin + size);
        return true;
    }
    catch (const std::bad_alloc&)
    {
        m_error = ENOMEM;
        return false;
    }
}

} // namespace orbtexture
