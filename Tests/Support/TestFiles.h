#ifndef ORBTEX_TEST_FILES_H
#define ORBTEX_TEST_FILES_H

// Scratch files for tests: a directory per test, removed afterwards.

#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "ORBTexture.h"

namespace testsupport
{

class ScratchDir
{
public:
    // 'suffix' tells apart several directories of one test.
    explicit ScratchDir(const std::string& suffix = "")
    {
        const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string(info ? info->test_suite_name() : "suite") + "_" + (info ? info->name() : "test");
        for (char& c : name)
            if (!std::isalnum(static_cast<unsigned char>(c)))
                c = '_';
        m_Path = std::filesystem::temp_directory_path() / ("orbtex_test_" + name + "_" + std::to_string(::getpid()) + suffix);
        std::filesystem::remove_all(m_Path);
        std::filesystem::create_directories(m_Path);
    }
    ~ScratchDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_Path, ignored);
    }
    std::string operator/(const std::string& name) const { return (m_Path / name).string(); }
    const std::filesystem::path& path() const { return m_Path; }

private:
    std::filesystem::path m_Path;
};

inline std::vector<uint8_t> ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

template <typename T>
void AppendValue(std::vector<uint8_t>& bytes, const T& value)
{
    const size_t offset = bytes.size();
    bytes.resize(offset + sizeof(T));
    std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

template <typename T>
void PutValue(std::vector<uint8_t>& bytes, size_t offset, const T& value)
{
    std::memcpy(bytes.data() + offset, &value, sizeof(T));
}

// Sets the library's load limit for the life of the object.
class ScopedLoadLimit
{
public:
    explicit ScopedLoadLimit(uint64_t bytes) : m_Previous(ORBTGetLoadLimit()) { ORBTSetLoadLimit(bytes); }
    ~ScopedLoadLimit() { ORBTSetLoadLimit(m_Previous); }
    ScopedLoadLimit(const ScopedLoadLimit&) = delete;
    ScopedLoadLimit& operator=(const ScopedLoadLimit&) = delete;

private:
    uint64_t m_Previous;
};

// Loading 'bytes' from a file called 'name', reading its header and loading
// it as a memory image into a texture that held one all fail with
// 'expected' (the header read with 'headerExpected' if given), and leave the
// texture empty.
inline void ExpectRefused(const ScratchDir& dir, const std::string& name, const std::vector<uint8_t>& bytes,
                          const char* expected, const char* headerExpected = nullptr)
{
    SCOPED_TRACE(expected);
    WriteBytes(dir / name, bytes);
    EXPECT_EQ(orbtexture::CORBTexture((dir / name).c_str()).getDataPtr(), nullptr);
    EXPECT_STREQ(ORBTGetLastError(), expected);
    orbtexture::CORBTextureHeader header;
    EXPECT_FALSE(ORBTReadTextureHeader((dir / name).c_str(), header));
    EXPECT_STREQ(ORBTGetLastError(), headerExpected ? headerExpected : expected);
    orbtexture::CORBTexture texture((orbtexture::CORBTextureHeader(orbtexture::ORBStandard8PixelType, 2, 2)));
    EXPECT_FALSE(texture.loadFromMemory(bytes.data(), bytes.size(), name.c_str()));
    EXPECT_STREQ(ORBTGetLastError(), expected);
    EXPECT_TRUE(texture.getDataPtr() == nullptr && texture.getDataSize() == 0);
    EXPECT_EQ(texture.getPixelType().PixelTypeID, uint64_t(orbtexture::ePF_NumCompressed));
}

// 'count' bytes: first, first + step, first + 2 step, ... (mod 256).
inline std::vector<uint8_t> Sequence(size_t count, uint8_t step, uint8_t first = 0)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = uint8_t(i * step + first);
    return bytes;
}

// A texture's pixel bytes.
inline std::vector<uint8_t> DataOf(const orbtexture::CORBTexture& texture)
{
    const uint8_t* data = texture.getDataPtr();
    return data ? std::vector<uint8_t>(data, data + texture.getDataSize()) : std::vector<uint8_t>();
}

// What ORBTReadTextureFileInfo says of a file: the container, then the fields, a line each.
inline std::string FileInfo(const std::string& path, bool expectRead = true)
{
    orbtexture::CORBTextureHeader header;
    CORBTString container;
    CORBTArray<CORBTString> fields;
    EXPECT_EQ(ORBTReadTextureFileInfo(path.c_str(), header, container, fields), expectRead) << ORBTGetLastError();
    std::string text = std::string(container.c_str()) + "\n";
    for (unsigned i = 0; i < fields.GetSize(); ++i)
        text += std::string(fields[i].c_str()) + "\n";
    return text;
}

// Colour space, channel type, height, width, depth, array members, faces and MIP levels.
inline std::vector<uint32_t> Shape(const ORBTextureHeaderV3& h)
{
    return {h.colourSpace, h.channelType, h.height, h.width, h.depth, h.numSurfaces, h.numFaces, h.numMIPMaps};
}

} // namespace testsupport

#endif
