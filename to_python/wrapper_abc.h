// Host containers as Python containers: each wrapper type that stands for a
// host sequence, map, set or iterator is registered once, when the type is
// made, with the matching abstract class of collections.abc, and takes that
// class's mixin methods (index, count, keys, items, get, ...) into its own
// dictionary, so that Python code and libraries that ask isinstance() or call
// those methods work on host containers.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

#include <string_view>

namespace tesk::cpython {

enum class container_protocol { none, sequence, mutable_sequence, mapping, mutable_mapping, set, iterator };

// The protocol the instances of a class follow, from its traits and its
// ancestry (lists and maps are mutable, tuples not).
container_protocol container_protocol_of(Class_Generic const& cls) noexcept;

// Registers `type` with the protocol's abstract class and copies the mixins
// in. A failure is cleared: the type then works without them. The caller
// holds the interpreter lock.
void register_container_type(PyTypeObject* type, container_protocol protocol) noexcept;

// Whether `name` is one of the mapping methods that Python's protocol calls
// by name (dict(m), m.items()): on a host map these are Python's, in front of
// the host's members of the same name.
bool is_mapping_protocol_name(std::string_view name) noexcept;

} // namespace tesk::cpython
