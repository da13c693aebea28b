#ifndef ORBTEX_TESTS_RUN_ORBTEX_H
#define ORBTEX_TESTS_RUN_ORBTEX_H

// Runs the built orbtex program in a scratch directory.

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

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
    return std::string(bytes.begin(), bytes.end());
}

// A path as one shell word (paths here hold no quote).
inline std::string Quote(const std::string& path) { return "'" + path + "'"; }

// 'arguments' are passed through the shell as written.
inline RunResult Orbtex(const ScratchDir& dir, const std::string& arguments)
{
    const std::string command = std::string("'") + ORBTEX_PROGRAM + "' " + arguments + " >'" + (dir / "stdout") +
                                "' 2>'" + (dir / "stderr") + "'";
    const int raw = std::system(command.c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, Slurp(dir / "stdout"), Slurp(dir / "stderr")};
}

inline int CountLines(const std::string& text)
{
    int lines = 0;
    for (char c : text)
        lines += c == '\n';
    return lines;
}

// Starts orbtex with 'arguments' and, if given, the environment variable
// 'variable' set; its output goes to dir/stdout and dir/stderr. Interrupt and
// termination act by default whatever the test runner ignores.
inline pid_t SpawnOrbtex(const ScratchDir& dir, const std::vector<std::string>& arguments,
                         const std::string& variable = "", const std::string& value = "")
{
    const std::string out = dir / "stdout", err = dir / "stderr";
    std::vector<std::string> words = {ORBTEX_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
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

// The wait status of a spawned orbtex; -1 if it ran past 'seconds' (it is
// then killed).
inline int WaitOrbtex(pid_t pid, int seconds = 30)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0)
    {
        if (std::chrono::steady_clock::now() > deadline)
        {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return status;
}

// Hidden temporary files orbtex leaves in 'dir' (".NAME.orbtex-PID.EXT").
inline std::vector<std::string> TemporaryFiles(const ScratchDir& dir)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
    {
        const std::string name = entry.path().filename().string();
        if (name[0] == '.' && name.find(".orbtex-") != std::string::npos)
            names.push_back(name);
    }
    return names;
}

// A 32x16 r5g6b5 usn sRGB premultiplied texture of 2 levels, 3 members and 6
// faces, zeros, with every item of the library's own that info decodes
// (cube-map order, bump map, border, orientation) and a foreign "DEMO" item
// of key 9 and 5 bytes.
inline orbtexture::CORBTexture TextureWithEveryItem()
{
    using namespace orbtexture;
    CORBTexture texture(CORBTextureHeader(PixelType('r', 'g', 'b', 0, 5, 6, 5, 0).PixelTypeID, 16, 32, 1, 2, 3, 6,
                                          eColourSpaceSRGB, eVarUnsignedShortNorm, true));
    std::memset(texture.getDataPtr(), 0, texture.getDataSize());
    texture.setCubeMapOrder("XxYyZz");
    texture.setBumpMap(2.5f, "xyz");
    texture.setBorder(1, 2, 3);
    texture.setOrientation(EORBTOrientation(eOrientLeft | eOrientUp));
    const uint8_t blob[5] = {1, 2, 3, 4, 5};
    texture.addMetaData(MetaDataBlock(0x4F4D4544, 9, 5, blob));
    return texture;
}

} // namespace testsupport

#endif
