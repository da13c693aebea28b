#include "OutputWriter.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "CliSupport.h"
#include "FormatNames.h"
#include "ImageFiles.h"
#include "ORBTextureInfo.h"
#include "ORBTextureLegacy.h"
#include "TextureInput.h"

namespace cli
{

using orbtexture::CORBTexture;
using orbtexture::EORBTColourSpace;
using orbtexture::EORBTVariableType;
using orbtexture::PixelType;

OutputKind KindOfOutput(const std::string& extension, int legacyApi)
{
    if (IsWritableImageExtension(extension))
        return OutputKind::Image;
    if (extension == ".dds")
        return OutputKind::DDS;
    if (extension == ".ktx")
        return OutputKind::KTX;
    if (extension == ".ktx2")
        return OutputKind::KTX2;
    if (extension == ".astc")
        return OutputKind::ASTC;
    if (extension == ".h")
        return OutputKind::CHeader;
    return legacyApi ? OutputKind::Legacy : OutputKind::Native;
}

bool IsASTCFormat(PixelType format)
{
    return format.isNamedFormat() && ORBTIsASTCFormat(format.PixelTypeID);
}

bool ProtectedInputs::IdentityOf(const std::string& path, FileIdentity& identity)
{
    struct stat status;
    if (::stat(path.c_str(), &status) != 0)
        return false;
    identity = {uint64_t(status.st_dev), uint64_t(status.st_ino)};
    return true;
}

void ProtectedInputs::Add(const std::string& path)
{
    FileIdentity identity;
    if (IdentityOf(path, identity))
        m_files.emplace(identity, path);
}

std::string ProtectedInputs::At(const std::string& path) const
{
    FileIdentity identity;
    if (m_files.empty() || !IdentityOf(path, identity))
        return "";
    const auto found = m_files.find(identity);
    return found == m_files.end() ? "" : found->second;
}

std::string OverwriteReason(const std::string& input, const std::string& output, const std::string& overwritten)
{
    return "its output " + output +
           (overwritten == input ? " is the input itself" : " would write over the input " + overwritten);
}

namespace
{

// Test hook: ORBTEX_TEST_PAUSE_BEFORE_COMMIT=SECONDS keeps written outputs
// under their temporary names that long before they are checked and renamed.
void PauseBeforeCommit()
{
    const char* value = std::getenv("ORBTEX_TEST_PAUSE_BEFORE_COMMIT");
    const long seconds = value ? std::strtol(value, nullptr, 10) : 0;
    if (seconds > 0)
        std::this_thread::sleep_for(std::chrono::seconds(std::min(seconds, 600L)));
}

// Loads the file image about to be written and compares it with what was
// saved: a native image must give the texture back whole (header, metadata,
// pixels); a foreign or legacy one the sizes and pixel data it keeps (of the
// first surface only for .astc), since such containers may name the format by
// other codes and keep little metadata. The loader's reason, or what differs.
bool LoadsBack(const std::vector<uint8_t>& bytes, const std::string& name, const CORBTexture& expected, OutputKind kind,
               std::string& reason)
{
    // The image and the texture it must equal are both held already: the
    // load limit, meant for inputs, does not apply here.
    CORBTexture loaded;
    {
        const UnlimitedLoads unlimited;
        loaded.loadFromMemory(bytes.data(), bytes.size(), CORBTString(name.c_str()));
    }
    if (!loaded.getDataPtr())
    {
        reason = ORBTGetLastError();
        return false;
    }
    if (kind == OutputKind::Native)
    {
        reason = expected.isEqual(loaded) ? "" : "it differs from the texture";
        return reason.empty();
    }
    const bool firstSurfaceOnly = kind == OutputKind::ASTC;
    const bool sameShape =
        loaded.getWidth() == expected.getWidth() && loaded.getHeight() == expected.getHeight() &&
        loaded.getDepth() == expected.getDepth() && loaded.getBitsPerPixel() == expected.getBitsPerPixel() &&
        (firstSurfaceOnly || (loaded.getNumMIPLevels() == expected.getNumMIPLevels() &&
                              loaded.getNumArrayMembers() == expected.getNumArrayMembers() &&
                              loaded.getNumFaces() == expected.getNumFaces()));
    if (!sameShape)
    {
        reason = "header differs";
        return false;
    }
    const uint32_t size = firstSurfaceOnly ? expected.getDataSize(0, false, false) : expected.getDataSize();
    if (std::memcmp(expected.getDataPtr(), loaded.getDataPtr(), size) != 0)
    {
        reason = "pixel data differ";
        return false;
    }
    return true;
}

// Writes 'bytes' to 'path'; the system's reason on failure.
bool WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes, std::string& reason)
{
    errno = 0;
    FILE* file = std::fopen(path.c_str(), "wb");
    bool written = file && std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const int error = errno;
    written = file && std::fclose(file) == 0 && written;
    if (!written)
        reason = std::string("cannot write file: ") + std::strerror(errno ? errno : error ? error : EIO);
    return written;
}

// Renames a written output into place unless its name is an input's (a
// surface image of --all-surfaces, whose name is known only now).
bool CommitUnlessInput(const ProtectedInputs& inputs, const std::string& input, PendingOutput& output,
                       std::string& reason)
{
    const std::string overwritten = inputs.At(output.Destination());
    if (!overwritten.empty())
    {
        reason = OverwriteReason(input, output.Destination(), overwritten);
        return false;
    }
    return output.Commit(reason);
}

// Name of the C array of a header output: the file name up to its first '.',
// with anything a C identifier cannot hold replaced by '_'.
std::string CSymbolName(const std::string& path)
{
    std::string name = std::filesystem::path(path).filename().string();
    name = name.substr(0, name.find('.'));
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)))
            c = '_';
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])))
        name = "_" + name;
    return name;
}

// Why the container of 'kind' cannot describe the texture's format; empty
// when it can.
std::string UnrepresentableReason(OutputKind kind, const CORBTexture& texture, int legacyApi)
{
    const std::string described = FormatAndTypeName(texture.getPixelType().PixelTypeID, texture.getChannelType());
    uint32_t internalFormat, format, type;
    switch (kind)
    {
    case OutputKind::DDS:
        if (texture.getD3DFormat() == 0 && texture.getDXGIFormat() == 0)
            return described + " has no DDS format code";
        break;
    case OutputKind::KTX:
        if (!texture.getOGLFormat(internalFormat, format, type))
            return described + " has no KTX (OpenGL) format code";
        break;
    case OutputKind::Legacy:
    {
        const orbtexture::ORBTPixelType number = orbtexture::MapNewFormatToLegacyEnum(
            texture.getPixelType(), texture.getColourSpace(), texture.getChannelType(), texture.isPreMultiplied(),
            orbtexture::ELegacyApi(legacyApi));
        if (number == uint32_t(-1))
            return described + " has no legacy format number for legacy API " + std::to_string(legacyApi);
        // Some numbers of the writer's sets have no row in the reader's.
        uint64_t format;
        EORBTColourSpace space;
        EORBTVariableType type;
        bool premultiplied;
        if (!ORBTMapLegacyTextureEnumToNewFormat(number, format, space, type, premultiplied))
            return described + " has legacy format number " + std::to_string(number) + " for legacy API " +
                   std::to_string(legacyApi) + ", which no legacy reader knows";
        break;
    }
    case OutputKind::ASTC:
        if (!IsASTCFormat(texture.getPixelType()))
            return "a .astc file holds an ASTC format, not " + PixelFormatName(texture.getPixelType().PixelTypeID);
        break;
    default: break;
    }
    return "";
}

// A texture file under a temporary name, read back and checked, then renamed
// into place.
bool WriteTexture(const ConvertOptions& options, const ProtectedInputs& inputs, const std::string& input,
                  const std::string& path, OutputKind kind, CORBTexture& texture, std::string& reason)
{
    reason = UnrepresentableReason(kind, texture, options.legacyApi);
    if (!reason.empty())
        return false;
    // addMetaData of a key already present counts the item twice.
    texture.recountMetaDataSize();
    // The file is made in memory and checked before anything is written.
    static const char* const kNames[] = {"x.orb", "x.orb", "x.dds", "x.ktx", "x.astc", "x.h", "x.ktx2"};
    const std::string name = kind == OutputKind::CHeader ? CSymbolName(path) + ".h" : kNames[int(kind)];
    std::vector<uint8_t> bytes;
    const bool saved =
        kind == OutputKind::Legacy ? texture.saveToMemoryLegacyORB(bytes, orbtexture::ELegacyApi(options.legacyApi))
        : kind == OutputKind::KTX2 ? texture.saveToMemoryKTX2(bytes, options.zstdLevel)
                                   : texture.saveToMemory(bytes, CORBTString(name.c_str()));
    if (!saved)
    {
        reason = std::string("cannot write file: ") + ORBTGetLastError();
        return false;
    }
    if (kind != OutputKind::CHeader && !LoadsBack(bytes, name, texture, kind, reason))
    {
        reason = "written file does not load back: " + reason;
        return false;
    }
    PendingOutput output(path);
    if (!WriteBytes(output.TemporaryPath(), bytes, reason))
        return false;
    PauseBeforeCommit();
    // What reached the disk is what was checked.
    std::vector<unsigned char> written;
    if (!ReadFileBytes(output.TemporaryPath(), written, reason))
        return false;
    const auto differs = std::mismatch(bytes.begin(), bytes.end(), written.begin(), written.end());
    if (differs.first != bytes.end() || differs.second != written.end())
    {
        reason = "written file differs from what was made, at byte " +
                 std::to_string(differs.first - bytes.begin());
        return false;
    }
    return CommitUnlessInput(inputs, input, output, reason);
}

// Image files of one surface, or of every surface; written under temporary
// names and renamed only when all are written.
bool WriteImages(const ConvertOptions& options, const ProtectedInputs& inputs, const std::string& input,
                 const std::string& output, const CORBTexture& texture, std::string& failedPath, std::string& reason)
{
    const std::string extension = FileExtension(output);
    CORBTexture rgba8(texture);
    if (!ToRGBA8(rgba8, reason))
    {
        failedPath = output;
        return false;
    }

    std::vector<std::unique_ptr<PendingOutput>> outputs;
    const std::filesystem::path base(output);
    const uint32_t levels = options.allSurfaces ? rgba8.getNumMIPLevels() : 1;
    const uint32_t members = options.allSurfaces ? rgba8.getNumArrayMembers() : 1;
    const uint32_t faces = options.allSurfaces ? rgba8.getNumFaces() : 1;
    for (uint32_t level = 0; level < levels; ++level)
        for (uint32_t member = 0; member < members; ++member)
            for (uint32_t face = 0; face < faces; ++face)
            {
                std::string path = output;
                if (options.allSurfaces)
                    path = (base.parent_path() / (base.stem().string() + "-level" + std::to_string(level) +
                                                  "-member" + std::to_string(member) + "-face" +
                                                  std::to_string(face) + base.extension().string()))
                               .string();
                outputs.push_back(std::make_unique<PendingOutput>(path));
                if (!WriteImageFile(outputs.back()->TemporaryPath(), extension,
                                    rgba8.getDataPtr(level, member, face), rgba8.getWidth(level),
                                    rgba8.getHeight(level) * rgba8.getDepth(level), reason))
                {
                    failedPath = path;
                    return false;
                }
            }
    PauseBeforeCommit();
    for (auto& output : outputs)
        if (!CommitUnlessInput(inputs, input, *output, reason))
        {
            failedPath = output->Destination();
            return false;
        }
    return true;
}

} // namespace

bool WriteOutput(const ConvertOptions& options, const ProtectedInputs& inputs, const std::string& input,
                 const std::string& output, OutputKind kind, CORBTexture& texture, std::string& failedPath,
                 std::string& reason)
{
    if (kind == OutputKind::Image)
        return WriteImages(options, inputs, input, output, texture, failedPath, reason);
    failedPath = output;
    return WriteTexture(options, inputs, input, output, kind, texture, reason);
}

} // namespace cli
