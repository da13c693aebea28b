#include "CliSupport.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

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
    unsigned char head[ORBTEX_V3_HEADER_SIZE];
    const size_t got = std::fread(head, 1, sizeof(head), file);
    std::fclose(file);

    if (got < 4)
        return "file too short to be a texture";
    uint32_t word;
    std::memcpy(&word, head, 4);
    if (word == 52 || word == 44)
        return "legacy .orb headers are not supported by this version";
    if (word != ORBTEX_VERSION_3)
    {
        char text[64];
        std::snprintf(text, sizeof(text), "not an .orb texture (first word 0x%08X)", word);
        return text;
    }
    if (got < ORBTEX_V3_HEADER_SIZE)
        return "truncated header";
    return "malformed .orb file (bad sizes, metadata or missing data)";
}

} // namespace cli
