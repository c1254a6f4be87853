// The parts that every wrapper type shares, for the files that build them.
#pragma once

#include "python/python_ref.h"

namespace tesk::cpython {

// The one name and doc of the base type and the shared variants.
inline constexpr char wrapper_type_name[] = ">TeskObject";
inline constexpr char wrapper_type_doc[] = "Wrapper around of a Tesk object";

// A zero-filled type block with the slots that every wrapper type shares.
// Type blocks are never freed: wrappers of them may live as long as the
// process, so each keeps one reference that Python never drops.
PyTypeObject* new_wrapper_type_block(char const* name, char const* doc);

// Readies a type; a type that cannot be readied is null, with no Python error
// left behind (the callers report the missing type themselves).
PyTypeObject* ready_or_null(PyTypeObject* type) noexcept;

// The slot tables, one each per process (Python keeps pointers to them).
PySequenceMethods* sequence_methods_concat() noexcept;   // +, +=
PySequenceMethods* sequence_methods_contains() noexcept; // +, +=, in
PySequenceMethods* sequence_methods_sized() noexcept;    // +, +=, len(), in (sets)
PySequenceMethods* sequence_methods_full() noexcept;     // the whole sequence protocol
PyMappingMethods* mapping_methods() noexcept;           // len(), w[k], w[k] = v, del w[k]
PyNumberMethods* number_methods() noexcept;             // -, /, &, |, ^, ~ and their in-place forms

} // namespace tesk::cpython
