#ifndef ORBTEX_PYTHON_BINDING_H
#define ORBTEX_PYTHON_BINDING_H

// Shared pieces of the orbtex extension: the texture object Python sees, the
// failure that becomes an orbtex.Error, and the per-call context.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <atomic>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ORBTexture.h"
#include "ORBTextureInfo.h"
#include "Tools/ORBTCallContext.h"

namespace orbtex_python
{

namespace py = pybind11;
using orbtexture::CORBTexture;

// A failed library call: the thread's last error at the time it failed.
struct LibraryFailure
{
    EORBTErrorKind kind;
    std::string reason;
    int error;
};

// The calling thread's last library error, 'fallback' if it has none.
LibraryFailure LastError(const std::string& fallback, EORBTErrorKind kind = eORBTErrorArgument);
// Throws the calling thread's last library error, 'fallback' if it has none.
[[noreturn]] void ThrowLastError(const std::string& fallback, EORBTErrorKind kind = eORBTErrorArgument);
[[noreturn]] void ThrowFailure(EORBTErrorKind kind, const std::string& reason);

// Creates orbtex.Error and its subclasses in 'module' and turns a
// LibraryFailure into the matching one.
void RegisterErrors(py::module_& module);

// The texture behind a Python Texture. Arrays from to_numpy share 'texture',
// so an operation that changes the texture works on a copy while any array is
// alive and leaves their data as they were.
struct PyTexture
{
    std::shared_ptr<CORBTexture> texture = std::make_shared<CORBTexture>();
    // Set when the texture was loaded from a file and is unchanged since.
    std::string file;
    std::string container;
    std::vector<std::string> containerFields; // "name: value"
    uint64_t shortData = 0;
    // Held without the GIL, around every library call on this texture.
    std::mutex lock;
};

// Runs 'work' on the texture without the GIL, copying it first while arrays
// share its block. The file details are dropped: the texture no longer is
// what the file holds.
template <typename Work>
void Mutate(PyTexture& self, Work&& work)
{
    self.file.clear();
    self.container.clear();
    self.containerFields.clear();
    self.shortData = 0;
    py::gil_scoped_release release;
    std::lock_guard<std::mutex> guard(self.lock);
    if (self.texture.use_count() > 1)
        self.texture = std::make_shared<CORBTexture>(*self.texture);
    work(*self.texture);
}

// Runs 'work' on the texture without the GIL, reading only.
template <typename Work>
void Read(PyTexture& self, Work&& work)
{
    py::gil_scoped_release release;
    std::lock_guard<std::mutex> guard(self.lock);
    work(static_cast<const CORBTexture&>(*self.texture));
}

// The context of one long call: threads, a Python progress callable and a
// cancel event (anything with is_set()). Construct and destroy it with the
// GIL held; the library call runs without it. While a Running lives, a
// watcher polls the event, so that a call without progress reports still
// stops promptly.
class CallScope
{
public:
    CallScope(py::object threads, py::object progress, py::object cancel);
    ~CallScope();

    const orbtexture::ORBTCallContext& Context() const { return m_context; }

    // Polls the cancel event for as long as it lives; made without the GIL,
    // around the library call.
    class Running
    {
    public:
        explicit Running(CallScope& scope) : m_scope(scope) { m_scope.StartWatcher(); }
        ~Running() { m_scope.StopWatcher(); }
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;

    private:
        CallScope& m_scope;
    };

    // With the GIL: raises what the progress callable or the event raised.
    void Finish();

private:
    static void Progress(float fraction, void* user);
    bool Poll();
    void StartWatcher();
    void StopWatcher();

    py::object m_progress;
    py::object m_cancel;
    std::atomic<bool> m_cancelled{false};
    orbtexture::ORBTCallContext m_context;
    std::exception_ptr m_error;
    struct Watcher;
    std::unique_ptr<Watcher> m_watcher;
};

std::string FormatName(uint64_t pixelFormat);
std::string ChannelTypeName(uint32_t channelType);
std::string ColourSpaceName(uint32_t colourSpace);

// The texture's dictionary of 'orbtex info --json' fields.
py::dict Describe(const PyTexture& self, const CORBTexture& texture);

// The texture as it stands, kept alive for the caller.
std::shared_ptr<CORBTexture> Snapshot(PyTexture& self);

// Views and wrappers between numpy arrays and textures.
py::array ToNumpy(PyTexture& self, uint32_t level, uint32_t member, uint32_t face);
std::unique_ptr<PyTexture> FromNumpy(py::array array, py::object format, const std::string& colourSpace,
                                     py::object type);

} // namespace orbtex_python

#endif
