#include "CliSupport.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Codecs/ASTCCodec.h"
#include "ORBTextureInfo.h"

namespace cli
{

std::string ErrorLine(const std::string& subject, const std::string& message)
{
    return "orbtex: " + subject + ": " + message;
}

void PrintError(const std::string& subject, const std::string& message)
{
    std::cerr << ErrorLine(subject, message) << "\n";
}

int UsageError(const std::string& command, const std::string& message)
{
    std::cerr << "orbtex: " << message << " (see 'orbtex " << (command.empty() ? "" : command + " ")
              << "--help')\n";
    return kExitUsage;
}

bool IsHelpFlag(const std::string& argument) { return argument == "--help" || argument == "-h"; }

namespace
{

class FileDescriptor
{
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

std::string TooLarge(size_t maxBytes) { return "file too large: more than " + std::to_string(maxBytes) + " bytes"; }

} // namespace

bool ReadFileBytes(const std::string& path, std::vector<unsigned char>& bytes, std::string& reason, size_t maxBytes)
{
    bytes.clear();
    int fd;
    do
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    while (fd < 0 && errno == EINTR);
    if (fd < 0)
    {
        reason = std::string("cannot open file: ") + std::strerror(errno);
        return false;
    }
    const FileDescriptor file(fd);

    struct stat status;
    if (::fstat(fd, &status) != 0)
    {
        reason = std::string("read error: ") + std::strerror(errno);
        return false;
    }
    if (S_ISDIR(status.st_mode))
    {
        reason = "is a directory";
        return false;
    }
    size_t chunk = 1 << 16;
    if (S_ISREG(status.st_mode))
    {
        if (uint64_t(status.st_size) > maxBytes)
        {
            reason = TooLarge(maxBytes);
            return false;
        }
        // One read for the whole file, one more to see its end.
        chunk = std::max(chunk, size_t(status.st_size) + 1);
    }

    size_t size = 0;
    for (;;)
    {
        if (bytes.size() - size < chunk)
            bytes.resize(size + chunk);
        const ssize_t got = ::read(fd, bytes.data() + size, bytes.size() - size);
        if (got < 0)
        {
            if (errno == EINTR)
                continue;
            reason = std::string("read error: ") + std::strerror(errno);
            bytes.clear();
            return false;
        }
        if (got == 0)
            break;
        size += size_t(got);
        if (size > maxBytes)
        {
            reason = TooLarge(maxBytes);
            bytes.clear();
            return false;
        }
        chunk = std::max(chunk, size);
    }
    bytes.resize(size);
    return true;
}

namespace
{

using Node = PendingOutput::Node;

// Uncommitted outputs, newest first. Threads change the list one at a time
// under gListBusy, each change one atomic store, so a handler interrupting
// the holder finds a whole list; a handler on another thread takes the flag
// first, so no node it walks is freed under it.
std::atomic<Node*> gPending{nullptr};
std::atomic<bool> gListBusy{false};
thread_local bool tHoldsList = false;
static_assert(std::atomic<Node*>::is_always_lock_free, "the signal handler walks the list");
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler takes the flag");

constexpr int kCleanupSignals[] = {SIGINT, SIGTERM, SIGHUP};

// The first of those signals asks the work to stop: the flag cancels the
// library's long calls, which then return at once; the thread that sees it
// ends the process as the signal would have. Work the flag cannot stop
// (a resize, say) is ended by an alarm a second later, and a second signal
// ends the process at once.
std::atomic<bool> gCancel{false};
volatile std::sig_atomic_t gSignal = 0;
constexpr unsigned kGraceSeconds = 1;
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler sets the flag");

class ListHold
{
public:
    ListHold()
    {
        while (gListBusy.exchange(true))
            std::this_thread::yield();
        tHoldsList = true;
    }
    ~ListHold()
    {
        tHoldsList = false;
        gListBusy.store(false);
    }
    ListHold(const ListHold&) = delete;
    ListHold& operator=(const ListHold&) = delete;
};

void Register(Node& node)
{
    const ListHold hold;
    node.next.store(gPending.load());
    gPending.store(&node);
}

void Unregister(Node& node)
{
    const ListHold hold;
    std::atomic<Node*>* link = &gPending;
    for (Node* current = link->load(); current; current = link->load())
    {
        if (current == &node)
        {
            link->store(node.next.load());
            return;
        }
        link = &current->next;
    }
}

// Async-signal-safe: kill, waitpid, unlink, sigaction and raise only.
void RemovePendingAndDie(int signal)
{
    // The flag is never released: the process ends here.
    if (!tHoldsList)
        while (gListBusy.exchange(true))
            ;
    // The library's astcenc runs first, so that none writes a file after this.
    orbtexture::stopASTCEncRuns();
    for (Node* node = gPending.load(); node; node = node->next.load())
        ::unlink(node->path);
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
    // Blocked until the handler returns, then fatal.
    ::raise(signal);
}

// Async-signal-safe: atomics, alarm and what RemovePendingAndDie calls.
void CancelThenDie(int signal)
{
    if (signal == SIGALRM || gSignal != 0)
        RemovePendingAndDie(gSignal != 0 ? int(gSignal) : signal);
    gSignal = signal;
    gCancel.store(true);
    // The library's astcenc runs end now; their calls fail and see the flag.
    orbtexture::stopASTCEncRuns();
    ::alarm(kGraceSeconds);
}

} // namespace

const std::atomic<bool>& CancelFlag() { return gCancel; }

std::string LibraryReason()
{
    const std::string why = ORBTGetLastError();
    return why.empty() ? why : ": " + why;
}

void StopIfCancelled()
{
    if (gCancel.load())
        RemovePendingAndDie(int(gSignal));
}

void InstallSignalCleanup()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM})
    {
        struct sigaction current;
        if (::sigaction(signal, nullptr, &current) != 0 || current.sa_handler == SIG_IGN)
            continue;
        struct sigaction action;
        std::memset(&action, 0, sizeof action);
        action.sa_handler = CancelThenDie;
        sigemptyset(&action.sa_mask);
        for (const int other : kCleanupSignals)
            sigaddset(&action.sa_mask, other);
        sigaddset(&action.sa_mask, SIGALRM);
        ::sigaction(signal, &action, nullptr);
    }
}

PendingOutput::PendingOutput(const std::string& destination) : m_destination(destination)
{
    const std::filesystem::path path(destination);
    const std::string name =
        "." + path.stem().string() + ".orbtex-" + std::to_string(::getpid()) + path.extension().string();
    m_temporary = (path.parent_path() / name).string();
    m_node.path = m_temporary.c_str();
    Register(m_node);
}

PendingOutput::~PendingOutput()
{
    // Removed before it leaves the list, so a signal in between finds it.
    if (!m_committed)
        std::remove(m_temporary.c_str());
    Unregister(m_node);
}

bool PendingOutput::Commit(std::string& reason)
{
    if (std::rename(m_temporary.c_str(), m_destination.c_str()) != 0)
    {
        reason = std::string("cannot replace file: ") + std::strerror(errno);
        return false;
    }
    m_committed = true;
    Unregister(m_node);
    return true;
}

} // namespace cli
