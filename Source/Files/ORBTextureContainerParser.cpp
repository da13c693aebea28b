#include "Files/ORBTextureContainerParser.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "Model/ORBTextureFormatFacts.h"
#include "Model/ORBTextureSizeRules.h"
#include "ORBTextureFormat.h"

namespace orbtexture
{

CContainerParser::CContainerParser(CByteSource& source) : m_source(source)
{
    SetLastErrorText("");
    SetLastLoadShortfall(0);
}

ELoadReason CContainerParser::LoadData(uint8_t* block, uint64_t& missing)
{
    m_dataLeft = StoredDataSize();
    missing = 0;
    return ReadData(block, missing);
}

ELoadReason CContainerParser::ReadFailure(ELoadReason atEnd)
{
    if (m_source.Error() == EISDIR)
    {
        SetLoadError(eLoadIsDirectory);
        SetLastErrno(EISDIR);
        return eLoadIsDirectory;
    }
    if (m_source.Failed())
    {
        SetLoadError(eLoadReadError, std::strerror(m_source.Error()));
        SetLastErrno(m_source.Error());
        return eLoadReadError;
    }
    return SetLoadError(atEnd);
}

ELoadReason CContainerParser::TakeData(uint8_t* destination, uint64_t size)
{
    const uint64_t taken = destination ? m_source.Read(destination, size_t(size)) : m_source.Skip(size);
    m_dataLeft -= std::min(m_dataLeft, taken);
    if (taken == size)
        return eLoadOK;
    if (m_source.Failed())
        return ReadFailure(eLoadReadError);
    if (m_dataLeft == 0)
        m_dataLeft = size - taken;
    return SetLoadError(eLoadShortPixelData, (unsigned long long)m_dataLeft);
}

ELoadReason CContainerParser::CheckHeader(const CORBTextureHeader& header, bool limitMIPLevels)
{
    const ORBTextureHeaderV3 record = header.getFileHeader();
    if (HasOversizedChannel(PixelType(record.pixelFormat)))
        return SetLoadError(eLoadOversizedChannel);
    if (record.numMIPMaps == 0 || record.numSurfaces == 0 || record.numFaces == 0)
        return SetLoadError(eLoadNoSurfaces);
    const uint32_t largest = std::max({record.width, record.height, record.depth, 1u});
    uint32_t allowed = 1;
    while (allowed < 32 && (largest >> allowed) != 0)
        ++allowed;
    if (limitMIPLevels && record.numMIPMaps > allowed)
        return SetLoadError(eLoadTooManyMIPLevels, record.numMIPMaps, largest, allowed);
    if (!CheckedTotalDataSize(record, m_dataSize))
    {
        // A deep chain that overflows is named by its MIP count.
        if (record.numMIPMaps > allowed)
            return SetLoadError(eLoadTooManyMIPLevels, record.numMIPMaps, largest, allowed);
        return SetLoadError(eLoadTooLarge);
    }
    if (m_dataSize == 0)
        return SetLoadError(eLoadUnknownSize, ORBTGetPixelFormatName(record.pixelFormat).c_str());
    return eLoadOK;
}

void CContainerParser::AddField(const char* name, const char* format, ...)
{
    char value[160];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(value, sizeof value, format, arguments);
    va_end(arguments);
    CORBTString line(name);
    line += ": ";
    line += value;
    m_fields.Append(line);
}

ELoadReason CContainerParser::RefuseWith(ELoadReason reason, const char* container, const char* format, ...)
{
    char detail[160];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(detail, sizeof detail, format, arguments);
    va_end(arguments);
    return SetLoadError(reason, container, detail);
}

bool LoadWithParser(CContainerParser& parser, CByteSource& source, CORBTextureHeader& header,
                    std::unique_ptr<uint8_t[]>& data, uint64_t& size, bool acceptShortData)
{
    if (parser.ReadHeader(header) != eLoadOK)
        return false;
    size = parser.DataSize();
    const uint64_t limit = ORBTGetLoadLimit();
    const uint64_t needed = size + parser.ExtraBytes();
    if (needed > limit)
    {
        SetLoadError(eLoadOverLimit, (unsigned long long)needed, (unsigned long long)limit);
        return false;
    }
    // Data the source cannot hold are refused before the block exists.
    const bool acceptsShort = acceptShortData && parser.AcceptsShortData();
    const uint64_t remaining = source.Remaining();
    const uint64_t stored = parser.StoredDataSize();
    if (remaining != CByteSource::kUnknown && remaining < stored && (remaining == 0 || !acceptsShort))
    {
        if (remaining == 0)
            SetLoadError(eLoadNoPixelData);
        else
            SetLoadError(eLoadShortPixelData, (unsigned long long)(stored - remaining));
        return false;
    }
    data.reset(new uint8_t[size_t(size)]);
    uint64_t missing = 0;
    if (parser.LoadData(data.get(), missing) != eLoadOK)
        return false;
    // A pipe tells its end only now.
    if (missing && !acceptShortData)
    {
        data.reset();
        SetLoadError(eLoadShortPixelData, (unsigned long long)missing);
        return false;
    }
    SetLastLoadShortfall(missing);
    return true;
}

bool ReadHeaderWithParser(CContainerParser& parser, CORBTextureHeader& header)
{
    uint64_t missing = 0;
    if (parser.ReadHeader(header) != eLoadOK || parser.LoadData(nullptr, missing) != eLoadOK)
        return false;
    SetLastLoadShortfall(missing);
    return true;
}

} // namespace orbtexture
