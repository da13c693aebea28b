#ifndef ORBTEX_TEST_FOREIGN_READERS_H
#define ORBTEX_TEST_FOREIGN_READERS_H

// Other programs' readers of the files this library writes: Pillow (Debian's
// /usr/bin/python3 with python3-pil) and ImageMagick's convert. Tests skip
// what is not installed.

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TestFiles.h"

namespace testsupport
{

inline const char* const kPython = "/usr/bin/python3";
inline const char* const kConvert = "/usr/bin/convert";

// Runs a shell command with its output sent to 'log'; true on exit status 0.
inline bool RunCommand(const std::string& command, const std::string& log)
{
    const int status = std::system((command + " >'" + log + "' 2>&1").c_str());
    return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

inline std::string LogText(const std::string& log)
{
    const std::vector<uint8_t> bytes = ReadBytes(log);
    return std::string(bytes.begin(), bytes.end());
}

inline bool HavePillow()
{
    return access(kPython, X_OK) == 0 && std::system("/usr/bin/python3 -c 'import PIL' >/dev/null 2>&1") == 0;
}

inline bool HaveImageMagick() { return access(kConvert, X_OK) == 0; }

// Pillow's decoding of a file as raw RGBA bytes; a file it cannot read fails
// the test unless 'mayRefuse'.
inline bool PillowRGBA(const ScratchDir& dir, const std::string& path, std::vector<uint8_t>& rgba,
                       bool mayRefuse = false)
{
    const char* source = "import sys\n"
                         "from PIL import Image\n"
                         "image = Image.open(sys.argv[1])\n"
                         "open(sys.argv[2], 'wb').write(image.convert('RGBA').tobytes())\n";
    const std::string script = dir / "dump.py";
    WriteBytes(script, std::vector<uint8_t>(source, source + std::strlen(source)));
    const std::string out = dir / "pillow.rgba", log = dir / "pillow.log";
    if (!RunCommand(std::string(kPython) + " '" + script + "' '" + path + "' '" + out + "'", log))
    {
        if (!mayRefuse)
            ADD_FAILURE() << "Pillow cannot read " << path << ":\n" << LogText(log);
        return false;
    }
    rgba = ReadBytes(out);
    return true;
}

// ImageMagick's decoding of a file as raw 8-bit RGBA bytes, as PillowRGBA.
inline bool MagickRGBA(const ScratchDir& dir, const std::string& path, std::vector<uint8_t>& rgba,
                       bool mayRefuse = false)
{
    const std::string out = dir / "magick.rgba", log = dir / "magick.log";
    if (!RunCommand(std::string(kConvert) + " '" + path + "' -depth 8 'rgba:" + out + "'", log))
    {
        if (!mayRefuse)
            ADD_FAILURE() << "ImageMagick cannot read " << path << ":\n" << LogText(log);
        return false;
    }
    rgba = ReadBytes(out);
    return true;
}

} // namespace testsupport

#endif
