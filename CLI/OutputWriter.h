#ifndef ORBTEX_CLI_OUTPUT_WRITER_H
#define ORBTEX_CLI_OUTPUT_WRITER_H

// Writing the result of orbtex convert: the container or image type by the
// output's extension, every file under a temporary name beside its
// destination, a texture file read back and compared with what was meant,
// and all renamed into place only once written, so that a failure leaves no
// partial output.

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "ConvertOptions.h"
#include "ORBTexture.h"

namespace cli
{

// What an output becomes, by its extension.
enum class OutputKind
{
    Native,
    Legacy,
    DDS,
    KTX,
    ASTC,
    CHeader,
    KTX2,
    Image
};

// Native for .orb and for any extension not written (which the caller refuses).
OutputKind KindOfOutput(const std::string& extension, int legacyApi);

// The ASTC formats, the only ones a .astc file holds.
bool IsASTCFormat(orbtexture::PixelType format);

// Files no output may replace, with the names they were given by.
class ProtectedInputs
{
public:
    // Adds the file at 'path', if there is one; a file added already keeps
    // its first name.
    void Add(const std::string& path);
    // The input that 'path' names, if any; "" otherwise.
    std::string At(const std::string& path) const;

private:
    // A file by device and inode: two paths name one file when these agree.
    using FileIdentity = std::pair<uint64_t, uint64_t>;
    static bool IdentityOf(const std::string& path, FileIdentity& identity);

    std::map<FileIdentity, std::string> m_files;
};

// Why writing 'output' is refused when it is 'overwritten', an input.
std::string OverwriteReason(const std::string& input, const std::string& output, const std::string& overwritten);

// Writes 'texture', converted from 'input', to 'output' as 'kind' asks: a
// texture file (a legacy one for options.legacyApi), or an image file of the
// first surface, or of every surface with options.allSurfaces. Nothing is
// renamed over a file of 'inputs'. False with the path that failed and why.
bool WriteOutput(const ConvertOptions& options, const ProtectedInputs& inputs, const std::string& input,
                 const std::string& output, OutputKind kind, orbtexture::CORBTexture& texture,
                 std::string& failedPath, std::string& reason);

} // namespace cli

#endif
