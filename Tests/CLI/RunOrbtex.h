#ifndef ORBTEX_TESTS_RUN_ORBTEX_H
#define ORBTEX_TESTS_RUN_ORBTEX_H

// Runs the built orbtex program in a scratch directory.

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "../Support/TestFiles.h"

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

} // namespace testsupport

#endif
