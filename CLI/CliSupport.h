#ifndef ORBTEX_CLI_SUPPORT_H
#define ORBTEX_CLI_SUPPORT_H

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

namespace cli
{

// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// "orbtex: <subject>: <message>", the form of every error line.
std::string ErrorLine(const std::string& subject, const std::string& message);

// Prints ErrorLine to standard error.
void PrintError(const std::string& subject, const std::string& message);

// Prints "orbtex: <message>" and a pointer to the help to standard error;
// returns kExitUsage.
int UsageError(const std::string& command, const std::string& message);

bool IsHelpFlag(const std::string& argument);

// Reads a whole file, opening it once (pipes and FIFOs included); false with
// a one-line reason on failure, in the library's wording ("is a directory",
// "cannot open file: ...", "read error: ..."). A file of more than maxBytes
// bytes is refused.
bool ReadFileBytes(const std::string& path, std::vector<unsigned char>& bytes, std::string& reason,
                   size_t maxBytes = size_t(-1));

// Makes SIGINT, SIGTERM and SIGHUP cancel the library's running calls and
// then remove every uncommitted PendingOutput's temporary file before the
// process dies of the signal: as soon as a cancelled call returns, within a
// second if none does, at once on a second signal. Signals that were ignored
// when the program started stay ignored.
void InstallSignalCleanup();

// ": " and the library's reason for the call that just failed, or "".
std::string LibraryReason();

// Set by SIGINT, SIGTERM or SIGHUP: the cancel flag of the library calls that
// can stop (see InstallSignalCleanup).
const std::atomic<bool>& CancelFlag();
// After such a signal: removes pending outputs and ends the process as the
// signal would have. Returns only when no signal came.
void StopIfCancelled();

// A file written under a temporary name beside its destination and renamed
// into place by Commit, so that a failed or interrupted command leaves no
// partial output. The temporary name keeps the destination's extension.
// Removed on destruction unless committed.
class PendingOutput
{
public:
    explicit PendingOutput(const std::string& destination);
    ~PendingOutput();
    PendingOutput(const PendingOutput&) = delete;
    PendingOutput& operator=(const PendingOutput&) = delete;

    const std::string& TemporaryPath() const { return m_temporary; }
    const std::string& Destination() const { return m_destination; }
    bool Commit(std::string& reason);

    // Link of the list the signal handler walks; the handler reads only
    // 'path' and 'next'.
    struct Node
    {
        const char* path = nullptr;
        std::atomic<Node*> next{nullptr};
    };

private:
    std::string m_destination;
    std::string m_temporary;
    Node m_node;
    bool m_committed = false;
};

} // namespace cli

#endif
