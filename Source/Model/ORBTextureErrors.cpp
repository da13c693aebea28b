#include "Model/ORBTextureErrors.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "ORBTextureInfo.h"

namespace orbtexture
{

namespace
{

// Indexed by ELoadReason.
const char* const kLoadMessages[] = {
    "",
    "cannot open file: %s",
    "is a directory",
    "read error: %s",
    "file too short to be a texture",
    "not an .orb texture (first word 0x%08X)",
    "truncated header",
    "channel layout has a channel wider than 32 bits",
    "declares no surfaces",
    "pixel format %s has no known size",
    "texture too large: its data size does not fit in 32 bits",
    "texture needs %llu bytes, above the load limit of %llu bytes",
    "metadata runs past the end of the file",
    "empty metadata item (fourCC 0x%08X, key %u)",
    "metadata item (fourCC 0x%08X, key %u) runs past the end of the file",
    "pixel data missing",
    "pixel data short by %llu bytes",
    "not a %s file (wrong identifier)",
    "%s header: %s",
    "%s: no pixel format for %s",
    "%u MIP levels, but a largest side of %u allows at most %u",
};
static_assert(sizeof(kLoadMessages) / sizeof(kLoadMessages[0]) == eNumLoadReasons, "one message per reason");

thread_local std::string tLastError;
thread_local EORBTErrorKind tLastKind = eORBTErrorNone;
thread_local int tLastErrno = 0;
thread_local uint64_t tLastShortfall = 0;

constexpr uint64_t kDefaultLoadLimit = uint64_t(1) << 30;
std::atomic<uint64_t> gLoadLimit(kDefaultLoadLimit);

} // namespace

// The reason is a plain unsigned: va_start wants a parameter that needs no
// promotion.
ELoadReason SetLoadError(unsigned reason, ...)
{
    if (reason >= eNumLoadReasons)
        reason = eLoadReadError;
    char text[256];
    va_list arguments;
    va_start(arguments, reason);
    std::vsnprintf(text, sizeof(text), kLoadMessages[reason], arguments);
    va_end(arguments);
    tLastError = text;
    tLastErrno = 0;
    tLastKind = reason == eLoadOK                                        ? eORBTErrorNone
                : reason == eLoadCannotOpen || reason == eLoadReadError ? eORBTErrorIO
                : reason == eLoadOverLimit                              ? eORBTErrorSize
                                                                        : eORBTErrorBadFile;
    return ELoadReason(reason);
}

void SetLastErrorText(const char* text)
{
    tLastError = text ? text : "";
    tLastKind = tLastError.empty() ? eORBTErrorNone : tLastKind;
    tLastErrno = 0;
}

bool SetError(EORBTErrorKind kind, const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    tLastError = text;
    tLastKind = kind;
    tLastErrno = 0;
    return false;
}

void SetLastErrno(int error) { tLastErrno = error; }

bool SetSystemError(const char* what, int error)
{
    SetError(eORBTErrorIO, "%s: %s", what, error ? std::strerror(error) : "unknown error");
    tLastErrno = error;
    return false;
}

void SetLastLoadShortfall(uint64_t bytes) { tLastShortfall = bytes; }

} // namespace orbtexture

const char* ORBTGetLastError() { return orbtexture::tLastError.c_str(); }

EORBTErrorKind ORBTGetLastErrorKind() { return orbtexture::tLastKind; }

int ORBTGetLastErrno() { return orbtexture::tLastErrno; }

uint64_t ORBTGetLastLoadShortfall() { return orbtexture::tLastShortfall; }

void ORBTSetLoadLimit(uint64_t bytes) { orbtexture::gLoadLimit.store(bytes ? bytes : orbtexture::kDefaultLoadLimit); }

uint64_t ORBTGetLoadLimit() { return orbtexture::gLoadLimit.load(); }
