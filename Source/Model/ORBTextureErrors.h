#ifndef ORBTEXTUREERRORS_H
#define ORBTEXTUREERRORS_H

// Internal: why a load failed, the thread's last-error text, and the load limit.

#include <cstdint>

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

// Sets the thread's last-error text as given; "" clears it.
void SetLastErrorText(const char* text);

// Bytes of pixel data the last load or header read of this thread found missing.
void SetLastLoadShortfall(uint64_t bytes);

} // namespace orbtexture

#endif
