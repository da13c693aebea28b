#ifndef ORBTCALLCONTEXT_H
#define ORBTCALLCONTEXT_H

// The settings of one long call (compression, Transcode): its threads, a
// progress callback, a cancel flag and a debug stream. The overloads of
// ETCCompress, ORBTCCompress, ORBTCCompressTexture and Transcode that take a
// context use it for that call only; a field left at its default falls back
// to the process-wide setting (ETCSetThreadCountOverride, the machine's cores,
// GlobDebugOutput).

#include <atomic>
#include <cstdio>

#include "Tools/ORBTDefines.h"

namespace orbtexture
{

struct ORBTCallContext
{
    // Threads to use; 0 for the process-wide setting. The output never
    // depends on it except where the codec says so.
    unsigned int threads = 0;
    // Called on the calling thread with the fraction done, 0 to 1, rising.
    void (*progress)(float fraction, void* user) = nullptr;
    void* progressUser = nullptr;
    // Setting it from any thread makes the call stop promptly and fail with
    // the reason "cancelled" (kind eORBTErrorCancelled).
    const std::atomic<bool>* cancel = nullptr;
    // Informational messages of the codecs; null for the process-wide stream.
    FILE* debug = nullptr;

    bool Cancelled() const { return cancel && cancel->load(std::memory_order_relaxed); }
    void Report(float fraction) const
    {
        if (progress)
            progress(fraction < 0.f ? 0.f : fraction > 1.f ? 1.f : fraction, progressUser);
    }
};

// The context of the call running on this thread: the one an overload was
// given, or an empty context.
ORBT_API const ORBTCallContext& CurrentCallContext();

// Makes 'context' the current one of this thread for its lifetime; nests.
class ORBT_API CScopedCallContext
{
public:
    explicit CScopedCallContext(const ORBTCallContext& context);
    ~CScopedCallContext();
    CScopedCallContext(const CScopedCallContext&) = delete;
    CScopedCallContext& operator=(const CScopedCallContext&) = delete;

private:
    const ORBTCallContext* m_previous;
};

} // namespace orbtexture

#endif
