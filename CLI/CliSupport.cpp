#include "CliSupport.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include <unistd.h>

#include "ORBTextureHeader.h"
#include "ORBTextureInfo.h"

namespace cli
{

void PrintError(const std::string& subject, const std::string& message)
{
    std::cerr << "orbtex: " << subject << ": " << message << "\n";
}

int UsageError(const std::string& command, const std::string& message)
{
    std::cerr << "orbtex: " << message << " (see 'orbtex " << (command.empty() ? "" : command + " ")
              << "--help')\n";
    return kExitUsage;
}

bool IsHelpFlag(const std::string& argument) { return argument == "--help" || argument == "-h"; }

bool ReadFileBytes(const std::string& path, std::vector<unsigned char>& bytes, std::string& reason)
{
    errno = 0;
    std::ifstream in(path, std::ios::binary);
    if (!in)
    {
        reason = errno ? std::strerror(errno) : "cannot open file";
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad())
    {
        reason = "read error";
        return false;
    }
    return true;
}

namespace
{

std::string Hex(uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%08X", value);
    return text;
}

// Walks a native file the way the loader does and names the first problem.
std::string DescribeNativeFailure(FILE* file)
{
    std::fseek(file, 0, SEEK_END);
    const long end = std::ftell(file);
    const uint64_t fileSize = end > 0 ? uint64_t(end) : 0;
    ORBTextureHeaderV3 record;
    std::fseek(file, 0, SEEK_SET);
    if (std::fread(&record, ORBTEX_V3_HEADER_SIZE, 1, file) != 1)
        return "truncated header";

    uint64_t position = ORBTEX_V3_HEADER_SIZE;
    while (record.metaDataSize != 0 && position - ORBTEX_V3_HEADER_SIZE < record.metaDataSize)
    {
        uint32_t words[3];
        if (fileSize - position < sizeof(words) || std::fseek(file, long(position), SEEK_SET) != 0 ||
            std::fread(words, sizeof(words), 1, file) != 1)
            return "metadata runs past the end of the file";
        const std::string item = "metadata item (fourCC " + Hex(words[0]) + ", key " + std::to_string(words[1]) + ")";
        if (words[2] == 0)
            return "empty " + item;
        if (words[2] > fileSize - position - sizeof(words))
            return item + " runs past the end of the file";
        position += sizeof(words) + words[2];
    }

    if (record.numMIPMaps == 0 || record.numSurfaces == 0 || record.numFaces == 0)
        return "declares no surfaces";
    const orbtexture::CORBTextureHeader header(record);
    if (header.getDataSize() == 0 && header.getBitsPerPixel() == 0)
        return "pixel format has no known size";
    if (position >= fileSize)
        return "pixel data missing";
    return "texture too large: its data size does not fit in 32 bits";
}

} // namespace

std::string DescribeLoadFailure(const std::string& path)
{
    std::string extension = path.substr(path.find_last_of('.') == std::string::npos ? path.size()
                                                                                     : path.find_last_of('.'));
    for (char& c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    if (extension == ".ktx" || extension == ".dds" || extension == ".astc")
        return extension.substr(1) + " files are not supported by this version";

    errno = 0;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return errno ? std::strerror(errno) : "cannot open file";
    uint32_t word = 0;
    const bool haveWord = std::fread(&word, 4, 1, file) == 1;
    std::string reason;
    if (!haveWord)
        reason = "file too short to be a texture";
    else if (word == 52 || word == 44)
        reason = "legacy .orb headers are not supported by this version";
    else if (word != ORBTEX_VERSION_3)
        reason = "not an .orb texture (first word " + Hex(word) + ")";
    else
        reason = DescribeNativeFailure(file);
    std::fclose(file);
    return reason;
}

PendingOutput::PendingOutput(const std::string& destination) : m_destination(destination)
{
    const std::filesystem::path path(destination);
    const std::string name =
        "." + path.stem().string() + ".orbtex-" + std::to_string(::getpid()) + path.extension().string();
    m_temporary = (path.parent_path() / name).string();
}

PendingOutput::~PendingOutput()
{
    if (!m_committed)
        std::remove(m_temporary.c_str());
}

bool PendingOutput::Commit(std::string& reason)
{
    if (std::rename(m_temporary.c_str(), m_destination.c_str()) != 0)
    {
        reason = std::string("cannot replace file: ") + std::strerror(errno);
        return false;
    }
    m_committed = true;
    return true;
}

} // namespace cli
