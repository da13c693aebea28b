#include "Codecs/ASTCCodec.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Codecs/ASTCRuns.h"
#include "Codecs/ASTCToolOutput.h"
#include "Model/ORBTextureErrors.h"
#include "Model/ORBTextureFormatFacts.h"
#include "ORBTexture.h"
#include "ORBTextureUtilities.h" // layer: the bridge converts the tool's pixels with Transcode

namespace orbtexture
{

namespace
{

constexpr size_t kPathBufferSize = 4096;

// A temporary file, from before it is written: stopASTCEncRuns removes it
// while the owner lives, and the owner removes it when it goes out of scope
// unless kept. A call stopped while it ran keeps nothing.
class CTemporaryFile
{
public:
    explicit CTemporaryFile(const char* path) : m_path(path), m_registered(path), m_stops(ASTCStopCount()) {}
    ~CTemporaryFile()
    {
        if (!m_kept || ASTCStopCount() != m_stops)
            std::remove(m_path);
    }
    void keep() { m_kept = true; }

private:
    const char* m_path;
    CRegisteredPath m_registered;
    unsigned m_stops;
    bool m_kept = false;
};

// The loaded texture is what astcenc was asked for: one surface of the given
// size and format. Anything else would not fit the caller's buffer.
bool IsExpectedSurface(const CORBTexture& texture, unsigned int width, unsigned int height, unsigned int depth,
                       uint64_t format)
{
    return texture.getDataPtr() && texture.getPixelType().PixelTypeID == format && texture.getWidth() == width &&
           texture.getHeight() == height && texture.getDepth() == depth && texture.getNumMIPLevels() == 1 &&
           texture.getNumArrayMembers() == 1 && texture.getNumFaces() == 1;
}

// Sets a failure of astcenc under 'operation', with the errno of the system
// call that failed (0 for none); returns false.
bool SetToolError(const char* operation, const char* what, int error)
{
    if (error)
        SetError(eORBTErrorTool, "%s: %s: %s", operation, what, std::strerror(error));
    else
        SetError(eORBTErrorTool, "%s: %s", operation, what);
    SetLastErrno(error);
    return false;
}

// A temporary file's path in 'buffer'; false, with the reason under
// 'operation', when it does not fit.
bool TemporaryPath(const char* operation, char* buffer, const char* extension)
{
    if (getTempFile(buffer, extension) >= 0)
        return true;
    char what[128];
    std::snprintf(what, sizeof what, "%s: the temporary .%s file's name in the temporary directory", operation,
                  extension);
    return SetSystemError(what, ENAMETOOLONG);
}

// Writes the temporary file 'path' with 'save'; false, with the save's reason
// under 'operation' and its errno, when it fails.
template <typename Save>
bool WriteTemporary(const char* operation, const char* path, Save&& save)
{
    if (save(CORBTString(path)))
        return true;
    const int error = ORBTGetLastErrno();
    SetError(ORBTGetLastErrorKind(), "%s: %s", operation, std::string(ORBTGetLastError()).c_str());
    SetLastErrno(error);
    return false;
}

// Sets why 'operation' could not use astcenc's output and returns false.
bool RefuseToolOutput(const char* operation, const char* what)
{
    return SetError(eORBTErrorTool, "%s: astcenc's output %s", operation, what);
}

const char* QualitySwitch(int quality)
{
    switch (quality)
    {
    case 0: return "-veryfast";
    case 1: return "-fast";
    case 3: return "-thorough";
    case 4: return "-exhaustive";
    default: return "-medium";
    }
}

} // namespace

unsigned long long getThreadID() { return static_cast<unsigned long long>(pthread_self()); }

unsigned long long getProcessID() { return static_cast<unsigned long long>(getpid()); }

unsigned int getTempDir(char* buffer)
{
    const char* directory = std::getenv("TMPDIR");
    if (!directory)
        directory = "/tmp/";
    const size_t length = std::strlen(directory);
    buffer[0] = '\0';
    if (length == 0)
        return 0;
    const bool slash = directory[length - 1] == '/';
    const size_t total = length + (slash ? 0 : 1);
    // A directory that does not fit leaves the buffer empty and tells the
    // length it needs, so that getTempFile refuses it.
    if (total >= kPathBufferSize)
        return static_cast<unsigned int>(total);
    std::memcpy(buffer, directory, length);
    if (!slash)
        buffer[length] = '/';
    buffer[total] = '\0';
    return static_cast<unsigned int>(total);
}

int getTempFile(char* buffer, const char* extension)
{
    const unsigned int length = getTempDir(buffer);
    if (length >= kPathBufferSize)
    {
        SetSystemError("getTempFile: the temporary directory's name", ENAMETOOLONG);
        return -1;
    }
    const int written = std::snprintf(buffer + length, kPathBufferSize - length, "ORBTexLib_%llu_%llu.%s",
                                      getProcessID(), getThreadID(), extension);
    if (written < 0 || size_t(written) >= kPathBufferSize - length)
    {
        buffer[0] = '\0';
        SetSystemError("getTempFile: the temporary file's name", ENAMETOOLONG);
        return -1;
    }
    return int(length) + written;
}

namespace
{

// Runs astcenc as executeASTCEnc does; why it did not run is given under 'operation'.
bool RunASTCEnc(const char* operation, const char* const* arguments, int* exitCode)
{
    size_t count = 0;
    while (arguments && arguments[count])
        ++count;
    // The list is built before fork: the child only redirects and execs.
    char** list = static_cast<char**>(std::malloc((count + 2) * sizeof(char*)));
    if (!list)
        return SetError(eORBTErrorMemory, "%s: no memory for astcenc's %zu arguments", operation, count);
    list[0] = const_cast<char*>("astcenc");
    for (size_t i = 0; i < count; ++i)
        list[i + 1] = const_cast<char*>(arguments[i]);
    list[count + 1] = nullptr;

    const unsigned stops = ASTCStopCount();
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == -1)
    {
        const int error = errno;
        std::free(list);
        return SetToolError(operation, "astcenc could not be started: fork", error);
    }
    if (child == 0)
    {
        // The tool dies with the thread that waits for it, so a host killed
        // while it runs leaves no tool working for nobody.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent)
            _exit(127);
        const int null = open("/dev/null", O_WRONLY);
        if (null != -1)
        {
            dup2(null, STDOUT_FILENO);
            dup2(null, STDERR_FILENO);
            if (null > STDERR_FILENO)
                close(null);
        }
        execvp("astcenc", list);
        _exit(127);
    }
    std::free(list);

    {
        // Registered until it has exited; reaped only after that, so that a
        // registered id never names another process.
        const CRegisteredChild registered(child);
        siginfo_t info;
        while (waitid(P_PID, id_t(child), &info, WEXITED | WNOWAIT) == -1 && errno == EINTR)
            ;
    }
    int status = 0;
    pid_t waited;
    do
        waited = waitpid(child, &status, 0);
    while (waited == -1 && errno == EINTR);
    const int waitError = waited == -1 ? errno : 0;
    if (waited != child || !WIFEXITED(status) || WEXITSTATUS(status) == 127)
    {
        if (ASTCStopCount() != stops)
            return SetError(eORBTErrorCancelled, "%s: astcenc was stopped by stopASTCEncRuns", operation);
        if (waited != child)
            return SetToolError(operation, "waiting for astcenc failed", waitError);
        if (!WIFEXITED(status))
        {
            char what[64];
            std::snprintf(what, sizeof what, "astcenc was ended by signal %d", WTERMSIG(status));
            return SetToolError(operation, what, 0);
        }
        return SetToolError(operation, "astcenc could not be started (status 127: not in PATH, or not executable)",
                            0);
    }
    if (exitCode)
        *exitCode = WEXITSTATUS(status);
    return true;
}

} // namespace

bool executeASTCEnc(const char* const* arguments, int* exitCode)
{
    return RunASTCEnc("executeASTCEnc", arguments, exitCode);
}

bool isASTCEncAvailable()
{
    const char* const none[] = {nullptr};
    return RunASTCEnc("isASTCEncAvailable", none, nullptr);
}

unsigned int ASTCCompress(const void* source, void* destination, unsigned int width, unsigned int height,
                          unsigned int depth, unsigned char blockX, unsigned char blockY, unsigned char blockZ,
                          int quality)
{
    const uint32_t format = ASTCFormatOfBlock(blockX, blockY, blockZ);
    if (!format)
        return SetError(eORBTErrorUnsupported, "ASTCCompress: no ASTC format has %ux%ux%u blocks", blockX, blockY,
                        blockZ);
    if (width == 0 || height == 0 || depth == 0)
        return SetError(eORBTErrorSize, "ASTCCompress: the image is %ux%ux%u, it has no pixels", width, height,
                        depth);
    const uint64_t size = uint64_t((width + blockX - 1) / blockX) * ((height + blockY - 1) / blockY) *
                          ((depth + blockZ - 1) / blockZ) * 16;
    if (size > UINT32_MAX)
        return SetError(eORBTErrorSize, "ASTCCompress: the blocks of a %ux%ux%u image need %llu bytes, above 32 bits",
                        width, height, depth, (unsigned long long)size);
    if (!source || !destination)
        return static_cast<unsigned int>(size);

    char ktxPath[kPathBufferSize];
    if (!TemporaryPath("ASTCCompress", ktxPath, "ktx"))
        return 0;
    CTemporaryFile ktxFile(ktxPath);
    {
        const CORBTextureHeader header(ORBStandard8PixelType, height, width, depth, 1, 1, 1, eColourSpaceLinear,
                                       eVarUnsignedByteNorm);
        const CORBTexture input(header, source);
        if (!WriteTemporary("ASTCCompress", ktxPath, [&](const CORBTString& path) { return input.saveFile(path); }))
        {
            ktxFile.keep(); // the writer removed what it made
            return 0;
        }
    }

    char astcPath[kPathBufferSize];
    if (!TemporaryPath("ASTCCompress", astcPath, "astc"))
        return 0;
    char block[32];
    if (blockZ == 1)
        std::snprintf(block, sizeof block, "%dx%d", blockX, blockY);
    else
        std::snprintf(block, sizeof block, "%dx%dx%d", blockX, blockY, blockZ);

    const char* arguments[] = {"-c", ktxPath, astcPath, block, QualitySwitch(quality), nullptr};
    CTemporaryFile astcFile(astcPath);
    int exitCode = 0;
    bool ran = RunASTCEnc("ASTCCompress", arguments, &exitCode);
    // astcenc 2.0 and later reject "-c" (and "-veryfast") with status 1: retry once with their names.
    if (ran && exitCode == 1)
    {
        arguments[0] = "-cl";
        if (quality == 0)
            arguments[4] = "-fastest";
        ran = RunASTCEnc("ASTCCompress", arguments, &exitCode);
    }
    if (!ran || exitCode != 0)
    {
        astcFile.keep(); // a failed run's output is the caller's to look at
        if (ran)
            SetError(eORBTErrorTool, "ASTCCompress: astcenc %s %s %s exited with status %d", arguments[0], block,
                     arguments[4], exitCode);
        return 0;
    }

    const CORBTexture compressed(astcPath);
    if (!compressed.getDataPtr())
    {
        // The load has given its reason; it is kept after this call's name.
        const int error = ORBTGetLastErrno();
        SetError(eORBTErrorTool, "ASTCCompress: astcenc's output could not be read: %s", ORBTGetLastError());
        SetLastErrno(error);
        return 0;
    }
    if (!IsExpectedSurface(compressed, width, height, depth, format) ||
        compressed.getDataSize(-1, true, true) != size)
        return RefuseToolOutput("ASTCCompress", "is not the one surface of the asked size and block");
    std::memcpy(destination, compressed.getDataPtr(0), size_t(size));
    return static_cast<unsigned int>(size);
}

unsigned int ASTCDecompress(const void* source, void* destination, unsigned int width, unsigned int height,
                            unsigned int depth, unsigned int format)
{
    if (!IsASTCFormat(format))
        return SetError(eORBTErrorUnsupported, "ASTCDecompress: format %u is not an ASTC format", format);
    if (width == 0 || height == 0 || depth == 0)
        return SetError(eORBTErrorSize, "ASTCDecompress: the image is %ux%ux%u, it has no pixels", width, height,
                        depth);
    const uint64_t size = uint64_t(width) * height * depth * 4;
    if (size > UINT32_MAX)
        return SetError(eORBTErrorSize, "ASTCDecompress: the pixels of a %ux%ux%u image need %llu bytes, above 32 bits",
                        width, height, depth, (unsigned long long)size);
    if (!source || !destination)
        return static_cast<unsigned int>(size);

    char astcPath[kPathBufferSize];
    if (!TemporaryPath("ASTCDecompress", astcPath, "astc"))
        return 0;
    CTemporaryFile astcFile(astcPath);
    {
        const CORBTextureHeader header(format, height, width, depth);
        const CORBTexture input(header, source);
        if (!WriteTemporary("ASTCDecompress", astcPath,
                            [&](const CORBTString& path) { return input.saveASTCFile(path); }))
        {
            astcFile.keep(); // the writer removed what it made
            return 0;
        }
    }

    char ktxPath[kPathBufferSize];
    if (!TemporaryPath("ASTCDecompress", ktxPath, "ktx"))
        return 0;
    const char* const arguments[] = {"-dl", astcPath, ktxPath, nullptr};
    CTemporaryFile ktxFile(ktxPath);
    int exitCode = 0;
    const bool ran = RunASTCEnc("ASTCDecompress", arguments, &exitCode);
    if (!ran || exitCode != 0)
    {
        ktxFile.keep(); // a failed run's output is the caller's to look at
        if (ran)
            SetError(eORBTErrorTool, "ASTCDecompress: astcenc -dl exited with status %d", exitCode);
        return 0;
    }

    CORBTexture decoded;
    if (!LoadDecodedKTX(ktxPath, width, height, depth, decoded))
        return RefuseToolOutput("ASTCDecompress", "could not be read as an 8-bit KTX file");
    if (!Transcode(decoded, PixelType(ORBStandard8PixelType), eVarUnsignedByteNorm, eColourSpaceLinear,
                   ECompressorQuality(2), false))
        return RefuseToolOutput("ASTCDecompress", "could not be converted to rgba8");
    if (!IsExpectedSurface(decoded, width, height, depth, ORBStandard8PixelType) ||
        decoded.getDataSize(-1, true, true) != size)
        return RefuseToolOutput("ASTCDecompress", "is not the one surface of the asked size");
    std::memcpy(destination, decoded.getDataPtr(0), size_t(size));
    return static_cast<unsigned int>(size);
}

} // namespace orbtexture
