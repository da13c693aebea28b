#ifndef ASTCCODEC_H
#define ASTCCODEC_H

// ASTC through the external encoder: pixels go to `astcenc` as a temporary
// KTX file and come back as a temporary .astc file (and the other way round
// to decode). The program is found through PATH; temporary files live in
// $TMPDIR (default /tmp/) and are named after the process and thread.

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

// The calling POSIX thread's identity as a number.
ORBT_API unsigned long long getThreadID();

// The process id.
ORBT_API unsigned long long getProcessID();

// Fills 'buffer' (4096 bytes) with $TMPDIR, or "/tmp/" when unset, ending in
// '/'. Returns the length; 0 for an empty TMPDIR (names are then relative to
// the working directory). A directory the buffer cannot hold leaves it empty
// and returns the length it would need, 4096 or more.
ORBT_API unsigned int getTempDir(char* buffer);

// Fills 'buffer' (4096 bytes) with the temporary directory and
// "ORBTexLib_<process>_<thread>.<extension>". Returns the length, or a
// negative value when the name does not fit.
ORBT_API int getTempFile(char* buffer, const char* extension);

// Runs astcenc with 'arguments' (null-terminated, without the program name),
// its output sent to /dev/null. True when the program ran to an exit of its
// own other than 127; its exit code then goes to 'exitCode' when given.
ORBT_API bool executeASTCEnc(const char* const* arguments, int* exitCode);

// True when astcenc can be started.
ORBT_API bool isASTCEncAvailable();

// Ends every astcenc run of the process that is under way (SIGKILL, then
// waits for it) and removes the temporary files of the calls that started
// them; those calls then fail. Async-signal-safe, for a host's handler of
// SIGINT or SIGTERM that ends the process, which would otherwise leave the
// files behind. (The tool is started so that it dies with the thread that
// waits for it in any case.)
ORBT_API void stopASTCEncRuns();

// Compresses width x height x depth RGBA8 pixels to ASTC blocks of
// blockX x blockY x blockZ. 'quality' 0 to 4 picks -veryfast, -fast,
// -medium, -thorough, -exhaustive; 5 and above -medium. Returns the bytes
// written, 0 on failure. With a null pointer nothing runs and the size of the
// blocks is returned.
ORBT_API unsigned int ASTCCompress(const void* source, void* destination, unsigned int width, unsigned int height,
                                   unsigned int depth, unsigned char blockX, unsigned char blockY,
                                   unsigned char blockZ, int quality);

// Decodes ASTC blocks of the named format 'format' (an EORBTPixelFormat from
// ePF_ASTC_4x4 to ePF_ASTC_6x6x6) to width x height x depth RGBA8 pixels.
// Returns the bytes written, 0 on failure. With a null pointer nothing runs
// and width * height * depth * 4 is returned.
ORBT_API unsigned int ASTCDecompress(const void* source, void* destination, unsigned int width, unsigned int height,
                                     unsigned int depth, unsigned int format);

} // namespace orbtexture

#endif
