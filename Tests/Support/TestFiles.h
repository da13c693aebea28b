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

#include "ORBTextureInfo.h"

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

} // namespace testsupport

#endif
