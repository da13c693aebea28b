#include "Codecs/ASTCRuns.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

#include "Codecs/ASTCCodec.h"

namespace orbtexture
{

namespace
{

constexpr int kSlots = 64;
constexpr size_t kPathSize = 4096;

// A path slot is free (0), being written (1) or holds a path (2).
struct PathSlot
{
    std::atomic<int> state{0};
    char path[kPathSize];
};

PathSlot gPaths[kSlots];
std::atomic<pid_t> gChildren[kSlots];
std::atomic<unsigned> gStops{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<pid_t>::is_always_lock_free &&
                  std::atomic<unsigned>::is_always_lock_free,
              "a signal handler reads the slots");

} // namespace

unsigned ASTCStopCount() { return gStops.load(); }

CRegisteredPath::CRegisteredPath(const char* path)
{
    const size_t length = std::strlen(path);
    if (length >= kPathSize)
        return;
    for (int i = 0; i < kSlots; ++i)
    {
        int expected = 0;
        if (gPaths[i].state.compare_exchange_strong(expected, 1))
        {
            std::memcpy(gPaths[i].path, path, length + 1);
            gPaths[i].state.store(2);
            m_slot = i;
            return;
        }
    }
}

CRegisteredPath::~CRegisteredPath()
{
    if (m_slot >= 0)
        gPaths[m_slot].state.store(0);
}

CRegisteredChild::CRegisteredChild(pid_t child)
{
    for (int i = 0; i < kSlots; ++i)
    {
        pid_t expected = 0;
        if (gChildren[i].compare_exchange_strong(expected, child))
        {
            m_slot = i;
            return;
        }
    }
}

CRegisteredChild::~CRegisteredChild()
{
    if (m_slot >= 0)
        gChildren[m_slot].store(0);
}

void stopASTCEncRuns()
{
    const int savedErrno = errno;
    // Counted first: a call whose tool dies from here on removes its own
    // files, also those it would keep and that leave the slots before the
    // walk below.
    gStops.fetch_add(1);
    for (std::atomic<pid_t>& child : gChildren)
        if (const pid_t pid = child.load(); pid > 0)
            ::kill(pid, SIGKILL);
    // Reaped here or by the waiting call, whichever comes first; either way
    // the child can no longer create a file once this returns.
    for (std::atomic<pid_t>& child : gChildren)
        if (const pid_t pid = child.load(); pid > 0)
            while (::waitpid(pid, nullptr, 0) == -1 && errno == EINTR)
                ;
    for (PathSlot& slot : gPaths)
        if (slot.state.load() == 2)
            ::unlink(slot.path);
    errno = savedErrno;
}

} // namespace orbtexture
