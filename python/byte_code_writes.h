// Turning Python's byte-code writing off for a while.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// While alive, sys.dont_write_bytecode is True (process-wide: no thread
// writes byte-code files); at the end it is put back as it was found, and a
// Python exception pending then stays pending. The interpreter lock is held
// from construction to destruction.
class byte_code_writes_off {
public:
    byte_code_writes_off() noexcept : saved_(PyObjectPtr::borrow(PySys_GetObject("dont_write_bytecode"))) {
        (void)PySys_SetObject("dont_write_bytecode", Py_True);
    }
    ~byte_code_writes_off() {
        PyObject* pending = PyErr_GetRaisedException();
        (void)PySys_SetObject("dont_write_bytecode", saved_ ? saved_.get() : Py_False);
        PyErr_SetRaisedException(pending);
    }
    byte_code_writes_off(byte_code_writes_off const&) = delete;
    byte_code_writes_off& operator=(byte_code_writes_off const&) = delete;

private:
    PyObjectPtr saved_;
};

} // namespace tesk::cpython
