#ifndef ORBTEX_TESTS_RUN_ORBTEX_H
#define ORBTEX_TESTS_RUN_ORBTEX_H

// Runs the built orbtex program in a scratch directory; makes its inputs.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "../Support/TestFiles.h"
#include "ORBTexture.h"

namespace testsupport
{

struct RunResult
{
    int status;
    std::string out, err;
};

inline std::string Slurp(const std::string& path)
{
    const std::vector<uint8_t> bytes = ReadBytes(path);
    return {bytes.begin(), bytes.end()};
}

// A path as one shell word (paths here hold no quote).
inline std::string Quote(const std::string& path) { return "'" + path + "'"; }

// 'arguments' are passed through the shell as written; 'prefix' goes before
// the program (variables such as "PATH=x", or a wrapper).
inline RunResult Orbtex(const ScratchDir& dir, const std::string& arguments, const std::string& prefix = "")
{
    const std::string command = prefix + " '" + ORBTEX_PROGRAM + "' " + arguments + " >" + Quote(dir / "stdout") +
                                " 2>" + Quote(dir / "stderr");
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(dir / "stdout"), Slurp(dir / "stderr")};
}

inline RunResult Convert(const ScratchDir& dir, const std::string& in, const std::string& out,
                         const std::string& options = "", const std::string& prefix = "")
{
    return Orbtex(dir, "convert " + Quote(dir / in) + " " + Quote(dir / out) + " " + options, prefix);
}

// The texture a conversion that must succeed writes.
inline orbtexture::CORBTexture Converted(const ScratchDir& dir, const std::string& in, const std::string& out,
                                         const std::string& options = "", const std::string& prefix = "")
{
    const RunResult run = Convert(dir, in, out, options, prefix);
    EXPECT_EQ(run.status, 0) << in << " -> " << out << " " << options << "\n" << run.err;
    return orbtexture::CORBTexture((dir / out).c_str());
}

// What orbtex writes to a terminal (script gives it one).
inline std::string OnTerminal(const ScratchDir& dir, const std::string& arguments)
{
    const std::string command = std::string("script -qec \"'") + ORBTEX_PROGRAM + "' " + arguments +
                                "\" /dev/null >" + Quote(dir / "tty") + " 2>&1 </dev/null";
    return std::system(command.c_str()) == -1 ? "" : Slurp(dir / "tty");
}

inline int CountLines(const std::string& text) { return int(std::count(text.begin(), text.end(), '\n')); }

inline std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    return lines;
}

// The sorted names in a directory, the runs' stdout and stderr left out.
inline std::vector<std::string> Names(const std::filesystem::path& directory)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (entry.path().filename() != "stdout" && entry.path().filename() != "stderr")
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

// A texture whose bytes run i * 37 + 11.
inline orbtexture::CORBTexture Filled(const orbtexture::CORBTextureHeader& header)
{
    orbtexture::CORBTexture texture(header);
    for (uint32_t i = 0; i < texture.getDataSize(); ++i)
        texture.getDataPtr()[i] = uint8_t(i * 37 + 11);
    return texture;
}

inline orbtexture::CORBTexture Pattern(uint32_t width, uint32_t height, uint32_t mips = 1)
{
    return Filled(orbtexture::CORBTextureHeader(orbtexture::ORBStandard8PixelType, height, width, 1, mips));
}

// The first 'size' bytes of the pixel data, all by default.
inline std::vector<uint8_t> Bytes(const orbtexture::CORBTexture& texture, size_t size = SIZE_MAX)
{
    const uint8_t* data = texture.getDataPtr();
    return data ? std::vector<uint8_t>(data, data + std::min<size_t>(size, texture.getDataSize()))
                : std::vector<uint8_t>();
}

// A native file declaring the texture, with only 'dataBytes' bytes of 0x5A.
inline std::vector<uint8_t> NativeFile(uint64_t format, uint32_t width, uint32_t height, size_t dataBytes,
                                       uint32_t depth = 1, uint32_t members = 1)
{
    ORBTextureHeaderV3 record;
    record.pixelFormat = format;
    record.width = width, record.height = height, record.depth = depth, record.numSurfaces = members;
    std::vector<uint8_t> bytes(sizeof record + dataBytes, 0x5A);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

// Starts orbtex with 'variable' set, if given, and output to dir/stdout and
// dir/stderr; interrupt and termination act by default.
inline pid_t SpawnOrbtex(const ScratchDir& dir, const std::vector<std::string>& arguments,
                         const std::string& variable = "", const std::string& value = "")
{
    const std::string out = dir / "stdout", err = dir / "stderr";
    std::vector<std::string> words = arguments;
    std::vector<char*> argv = {const_cast<char*>(ORBTEX_PROGRAM)};
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0)
    {
        ::signal(SIGINT, SIG_DFL);
        ::signal(SIGTERM, SIG_DFL);
        const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (o < 0 || e < 0 || ::dup2(o, 1) < 0 || ::dup2(e, 2) < 0)
            ::_exit(127);
        if (!variable.empty())
            ::setenv(variable.c_str(), value.c_str(), 1);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    return pid;
}

// Waits up to 'seconds' for 'done'.
template <typename Condition>
bool Within(double seconds, Condition done)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!done())
    {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// The wait status of a spawned orbtex; -1, and killed, past 'seconds'.
inline int WaitOrbtex(pid_t pid, int seconds = 30)
{
    int status = 0;
    if (Within(seconds, [&] { return ::waitpid(pid, &status, WNOHANG) != 0; }))
        return status;
    ::kill(pid, SIGKILL);
    ::waitpid(pid, &status, 0);
    return -1;
}

// Hidden temporary files orbtex leaves in 'dir' (".NAME.orbtex-PID.EXT").
inline std::vector<std::string> TemporaryFiles(const ScratchDir& dir)
{
    std::vector<std::string> names;
    for (const std::string& name : Names(dir.path()))
        if (name[0] == '.' && name.find(".orbtex-") != std::string::npos)
            names.push_back(name);
    return names;
}

} // namespace testsupport

#endif
