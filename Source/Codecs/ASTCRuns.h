#ifndef ASTCRUNS_H
#define ASTCRUNS_H

// Internal: what stopASTCEncRuns() must undo of the bridge calls under way,
// the astcenc children running and the temporary files they use. Kept in
// fixed slots of static storage, written with atomics only, so that a signal
// handler can read them. A call that finds every slot taken runs unregistered.

#include <sys/types.h>

namespace orbtexture
{

// How many times stopASTCEncRuns has begun: a call that sees the count change
// while it runs was stopped.
unsigned ASTCStopCount();

// A temporary file's path, registered for the object's life.
class CRegisteredPath
{
public:
    explicit CRegisteredPath(const char* path);
    ~CRegisteredPath();
    CRegisteredPath(const CRegisteredPath&) = delete;
    CRegisteredPath& operator=(const CRegisteredPath&) = delete;

private:
    int m_slot = -1;
};

// A running child, registered for the object's life.
class CRegisteredChild
{
public:
    explicit CRegisteredChild(pid_t child);
    ~CRegisteredChild();
    CRegisteredChild(const CRegisteredChild&) = delete;
    CRegisteredChild& operator=(const CRegisteredChild&) = delete;

private:
    int m_slot = -1;
};

} // namespace orbtexture

#endif
