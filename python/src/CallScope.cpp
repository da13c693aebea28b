#include <chrono>
#include <condition_variable>
#include <thread>

#include "Binding.h"

namespace orbtex_python
{

struct CallScope::Watcher
{
    std::mutex mutex;
    std::condition_variable wake;
    bool done = false;
    std::thread thread;
};

CallScope::CallScope(py::object threads, py::object progress, py::object cancel)
    : m_progress(std::move(progress)), m_cancel(std::move(cancel))
{
    if (!threads.is_none())
    {
        const long count = threads.cast<long>();
        if (count < 1)
            ThrowFailure(eORBTErrorArgument, "threads must be at least 1");
        m_context.threads = unsigned(count);
    }
    if (!m_progress.is_none() && !PyCallable_Check(m_progress.ptr()))
        ThrowFailure(eORBTErrorArgument, "progress must be callable");
    if (!m_cancel.is_none() && !py::hasattr(m_cancel, "is_set"))
        ThrowFailure(eORBTErrorArgument, "cancel must have is_set(), as threading.Event has");
    if (!m_progress.is_none())
    {
        m_context.progress = &CallScope::Progress;
        m_context.progressUser = this;
    }
    // The flag makes the library work on a copy, so it is given only when
    // something can set it.
    if (!m_progress.is_none() || !m_cancel.is_none())
        m_context.cancel = &m_cancelled;
}

CallScope::~CallScope() = default;

// With the GIL held: whether the event is set.
bool CallScope::Poll()
{
    if (!m_cancel.is_none() && !m_cancelled.load())
    {
        try
        {
            if (m_cancel.attr("is_set")().cast<bool>())
                m_cancelled = true;
        }
        catch (...)
        {
            m_error = std::current_exception();
            m_cancelled = true;
        }
    }
    return m_cancelled.load();
}

void CallScope::Progress(float fraction, void* user)
{
    CallScope& self = *static_cast<CallScope*>(user);
    py::gil_scoped_acquire gil;
    if (self.m_error || self.Poll())
        return;
    try
    {
        self.m_progress(fraction);
    }
    catch (...)
    {
        self.m_error = std::current_exception();
        self.m_cancelled = true;
    }
}

void CallScope::StartWatcher()
{
    if (m_cancel.is_none())
        return;
    m_watcher = std::make_unique<Watcher>();
    Watcher& watcher = *m_watcher;
    watcher.thread = std::thread([this, &watcher] {
        std::unique_lock<std::mutex> lock(watcher.mutex);
        while (!watcher.wake.wait_for(lock, std::chrono::milliseconds(10), [&] { return watcher.done; }))
        {
            lock.unlock();
            bool stop;
            {
                py::gil_scoped_acquire gil;
                stop = Poll();
            }
            lock.lock();
            if (stop)
                return;
        }
    });
}

void CallScope::StopWatcher()
{
    if (!m_watcher)
        return;
    {
        std::lock_guard<std::mutex> lock(m_watcher->mutex);
        m_watcher->done = true;
    }
    m_watcher->wake.notify_one();
    m_watcher->thread.join();
    m_watcher.reset();
}

void CallScope::Finish()
{
    if (m_error)
    {
        std::exception_ptr error = m_error;
        m_error = nullptr;
        std::rethrow_exception(error);
    }
}

} // namespace orbtex_python
