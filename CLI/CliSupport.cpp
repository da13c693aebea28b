#include "CliSupport.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

namespace
{

class FileDescriptor
{
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

std::string TooLarge(size_t maxBytes) { return "file too large: more than " + std::to_string(maxBytes) + " bytes"; }

} // namespace

bool ReadFileBytes(const std::string& path, std::vector<unsigned char>& bytes, std::string& reason, size_t maxBytes)
{
    bytes.clear();
    int fd;
    do
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    while (fd < 0 && errno == EINTR);
    if (fd < 0)
    {
        reason = std::string("cannot open file: ") + std::strerror(errno);
        return false;
    }
    const FileDescriptor file(fd);

    struct stat status;
    if (::fstat(fd, &status) != 0)
    {
        reason = std::string("read error: ") + std::strerror(errno);
        return false;
    }
    if (S_ISDIR(status.st_mode))
    {
        reason = "is a directory";
        return false;
    }
    size_t chunk = 1 << 16;
    if (S_ISREG(status.st_mode))
    {
        if (uint64_t(status.st_size) > maxBytes)
        {
            reason = TooLarge(maxBytes);
            return false;
        }
        // One read for the whole file, one more to see its end.
        chunk = std::max(chunk, size_t(status.st_size) + 1);
    }

    size_t size = 0;
    for (;;)
    {
        if (bytes.size() - size < chunk)
            bytes.resize(size + chunk);
        const ssize_t got = ::read(fd, bytes.data() + size, bytes.size() - size);
        if (got < 0)
        {
            if (errno == EINTR)
                continue;
            reason = std::string("read error: ") + std::strerror(errno);
            bytes.clear();
            return false;
        }
        if (got == 0)
            break;
        size += size_t(got);
        if (size > maxBytes)
        {
            reason = TooLarge(maxBytes);
            bytes.clear();
            return false;
        }
        chunk = std::max(chunk, size);
    }
    bytes.resize(size);
    return true;
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
