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
    if (extension == ".astc")
        return OutputKind::ASTC;
    if (extension == ".h")
        return OutputKind::CHeader;
    return legacyApi ? OutputKind::Legacy : OutputKind::Native;
}

bool IsASTCFormat(PixelType format)
{
    return format.isNamedFormat() && format.PixelTypeID >= orbtexture::ePF_ASTC_4x4 &&
           format.PixelTypeID <= orbtexture::ePF_ASTC_6x6x6;
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

// Reads a written native file back as a memory image and compares header
// record, metadata items and pixel data with 'expected'; the difference or the
// loader's reason on failure.
bool LoadsBack(const std::string& path, const CORBTexture& expected, std::string& reason)
{
    std::vector<unsigned char> bytes;
    if (!ReadFileBytes(path, bytes, reason))
        return false;
    // The bytes are in memory already and the texture they must equal is
    // held too: the load limit, meant for inputs, does not apply here.
    const CORBTexture loaded = [&] {
        const UnlimitedLoads unlimited;
        return CORBTexture(bytes.data(), bytes.size());
    }();
    bytes = std::vector<unsigned char>();
    if (!loaded.getDataPtr())
    {
        reason = ORBTGetLastError();
        return false;
    }
    const ORBTextureHeaderV3 written = expected.getFileHeader(), read = loaded.getFileHeader();
    if (std::memcmp(&written, &read, sizeof written) != 0)
    {
        reason = "header differs";
        return false;
    }
    std::vector<const MetaDataBlock*> writtenItems, readItems;
    expected.forEachMetaData([&](const MetaDataBlock& block) { writtenItems.push_back(&block); });
    loaded.forEachMetaData([&](const MetaDataBlock& block) { readItems.push_back(&block); });
    const auto sameItem = [](const MetaDataBlock* a, const MetaDataBlock* b) {
        return a->fourCC == b->fourCC && a->key == b->key && a->dataSize == b->dataSize &&
               (a->dataSize == 0 || std::memcmp(a->data, b->data, a->dataSize) == 0);
    };
    if (!std::equal(writtenItems.begin(), writtenItems.end(), readItems.begin(), readItems.end(), sameItem))
    {
        reason = "metadata differ";
        return false;
    }
    if (std::memcmp(expected.getDataPtr(), loaded.getDataPtr(), expected.getDataSize()) != 0)
    {
        reason = "pixel data differ";
        return false;
    }
    return true;
}

// Reads a written foreign or legacy file back by name and compares what the
// container keeps: sizes and pixel data (of the first surface only for .astc).
// Such containers may describe the format by other codes, and keep little or
// no metadata, so neither is compared.
bool SurfacesLoadBack(const std::string& path, const CORBTexture& expected, bool firstSurfaceOnly,
                      std::string& reason)
{
    const CORBTexture loaded = [&] {
        const UnlimitedLoads unlimited;
        return CORBTexture(path.c_str());
    }();
    if (!loaded.getDataPtr())
    {
        reason = ORBTGetLastError();
        return false;
    }
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
    PendingOutput output(path);
    const CORBTString temporary(output.TemporaryPath().c_str());
    errno = 0;
    bool saved = false;
    switch (kind)
    {
    case OutputKind::Legacy:
        saved = texture.saveFileLegacyORB(temporary, orbtexture::ELegacyApi(options.legacyApi));
        break;
    case OutputKind::ASTC: saved = texture.saveASTCFile(temporary); break;
    case OutputKind::CHeader:
        saved = texture.saveCHeaderFile(temporary, CORBTString(CSymbolName(path).c_str()));
        break;
    default: saved = texture.saveFile(temporary); break; // native, DDS and KTX by extension
    }
    if (!saved)
    {
        reason = std::string("cannot write file") + (errno ? ": " + std::string(std::strerror(errno)) : "");
        return false;
    }
    PauseBeforeCommit();
    bool loadsBack = true;
    if (kind == OutputKind::Native)
        loadsBack = LoadsBack(output.TemporaryPath(), texture, reason);
    else if (kind != OutputKind::CHeader)
        loadsBack = SurfacesLoadBack(output.TemporaryPath(), texture, kind == OutputKind::ASTC, reason);
    if (!loadsBack)
    {
        reason = "written file does not load back: " + reason;
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
