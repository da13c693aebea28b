#ifndef ORBTEXTUREERRORS_H
#define ORBTEXTUREERRORS_H

// Internal: the thread's last error (kind, text, errno), why a load failed,
// and the load limit.

#include <cstdint>

#include "ORBTextureInfo.h"

namespace orbtexture
{

// Reasons a texture file or image is refused. Each has one message in the
// table of ORBTextureErrors.cpp; some take details (printf arguments).
enum ELoadReason : uint32_t
{
    eLoadOK = 0,
    eLoadCannotOpen,           // errno text
    eLoadIsDirectory,
    eLoadReadError,            // errno text
    eLoadTooShort,
    eLoadNotATexture,          // first word
    eLoadTruncatedHeader,
    eLoadOversizedChannel,
    eLoadNoSurfaces,
    eLoadUnknownSize,          // format name
    eLoadTooLarge,
    eLoadOverLimit,            // bytes needed, limit
    eLoadMetaDataTruncated,
    eLoadMetaDataEmpty,        // fourCC, key
    eLoadMetaDataPastEnd,      // fourCC, key
    eLoadNoPixelData,
    eLoadShortPixelData,       // missing bytes
    eLoadBadSignature,         // container name
    eLoadBadHeader,            // container name, what is wrong
    eLoadNoPixelFormat,        // container name, the container's format code
    eLoadTooManyMIPLevels,     // levels, largest side, levels allowed
    eNumLoadReasons
};

// Sets the thread's last-error text from a reason's message and returns the
// reason. The arguments fill the message's conversions.
ELoadReason SetLoadError(unsigned reason, ...);

// Sets the thread's last-error text as given; "" clears it (and the kind).
void SetLastErrorText(const char* text);

// Sets the thread's last error: its kind and text (a printf format and its
// arguments). Returns false, so that a failing call can return it.
bool SetError(EORBTErrorKind kind, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;

// The same for a failed system call: "what: error text", errno kept.
bool SetSystemError(const char* what, int error);

// Clears the thread's last error (text, kind and errno).
inline void ClearLastError() { SetLastErrorText(""); }

// Keeps 'error' as the errno of the last error (after SetLoadError).
void SetLastErrno(int error);

// True when the thread's last error is of this kind.
inline bool LastErrorIs(EORBTErrorKind kind) { return ORBTGetLastErrorKind() == kind; }

// Bytes of pixel data the last load or header read of this thread found missing.
void SetLastLoadShortfall(uint64_t bytes);

} // namespace orbtexture

#endif
