#include "Binding.h"

namespace orbtex_python
{

namespace
{

struct ErrorClass
{
    EORBTErrorKind kind;
    const char* name;
    PyObject* builtin; // a second base, so that callers can catch it as usual
    const char* doc;
};

// Filled by RegisterErrors, indexed by kind; the module keeps them alive.
PyObject* gClasses[eORBTNumErrorKinds] = {};

} // namespace

void ThrowFailure(EORBTErrorKind kind, const std::string& reason)
{
    throw LibraryFailure{kind, reason, 0};
}

LibraryFailure LastError(const std::string& fallback, EORBTErrorKind kind)
{
    const char* text = ORBTGetLastError();
    if (text && *text)
        return LibraryFailure{ORBTGetLastErrorKind(), text, ORBTGetLastErrno()};
    return LibraryFailure{kind, fallback, 0};
}

void ThrowLastError(const std::string& fallback, EORBTErrorKind kind)
{
    throw LastError(fallback, kind);
}

void RegisterErrors(py::module_& module)
{
    const ErrorClass classes[] = {
        {eORBTErrorBadFile, "BadFileError", PyExc_ValueError, "A file or image whose contents the library refuses."},
        {eORBTErrorIO, "FileError", PyExc_OSError, "A file that could not be opened, read or written."},
        {eORBTErrorArgument, "ArgumentError", PyExc_ValueError, "An argument the call does not take."},
        {eORBTErrorUnsupported, "UnsupportedError", PyExc_ValueError,
         "A format, layout or quality this build has no code for."},
        {eORBTErrorSize, "SizeError", PyExc_ValueError, "A size the call or its codec cannot take."},
        {eORBTErrorMemory, "OutOfMemoryError", PyExc_MemoryError, "An allocation failed."},
        {eORBTErrorCancelled, "CancelledError", nullptr, "The call was cancelled through its cancel event."},
        {eORBTErrorTool, "ToolError", PyExc_RuntimeError, "The external ASTC encoder is missing or failed."},
    };
    py::object base = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "orbtex.Error",
        "Base of the errors of orbtex. str() is the library's reason; the attributes reason, kind "
        "(the class name) and errno (of a failed system call, else 0) tell the same.",
        nullptr, nullptr));
    module.attr("Error") = base;
    gClasses[eORBTErrorNone] = base.ptr();
    for (const ErrorClass& entry : classes)
    {
        py::tuple bases = entry.builtin ? py::make_tuple(base, py::handle(entry.builtin)) : py::make_tuple(base);
        const std::string name = std::string("orbtex.") + entry.name;
        py::object cls = py::reinterpret_steal<py::object>(
            PyErr_NewExceptionWithDoc(name.c_str(), entry.doc, bases.ptr(), nullptr));
        module.attr(entry.name) = cls;
        gClasses[entry.kind] = cls.ptr();
    }

    py::register_exception_translator([](std::exception_ptr pointer) {
        try
        {
            if (pointer)
                std::rethrow_exception(pointer);
        }
        catch (const LibraryFailure& failure)
        {
            PyObject* cls = failure.kind < eORBTNumErrorKinds && gClasses[failure.kind] ? gClasses[failure.kind]
                                                                                       : gClasses[eORBTErrorNone];
            py::object error = py::reinterpret_borrow<py::object>(cls)(failure.reason);
            error.attr("reason") = failure.reason;
            error.attr("kind") = py::reinterpret_borrow<py::object>(cls).attr("__name__");
            error.attr("errno") = failure.error;
            PyErr_SetObject(cls, error.ptr());
        }
    });
}

} // namespace orbtex_python
