#include "to_python/attribute_name.h"

#include <array>
#include <cstdint>

namespace tesk::cpython {

namespace {

// Python str → its host text, direct-mapped by the object's address. Each
// entry keeps its str alive, so an address stands for the same text while it
// is cached. Read and written only with the interpreter lock held, which is
// the cache's lock; a replaced str is released under it. Never destroyed:
// nothing touches Python at exit.
struct name_cache_entry {
    PyObject* name = nullptr;
    String text;
};
constexpr std::size_t cache_size = 256;

std::array<name_cache_entry, cache_size>& cache() {
    static auto* entries = new std::array<name_cache_entry, cache_size>();
    return *entries;
}

} // namespace

std::optional<String> attribute_name(PyObject* name) {
    auto slot = (reinterpret_cast<std::uintptr_t>(name) >> 4) % cache_size;
    name_cache_entry& entry = cache()[slot];
    if (entry.name == name) return entry.text;
    Py_ssize_t size = 0;
    char const* chars = PyUnicode_AsUTF8AndSize(name, &size);
    if (!chars) return std::nullopt;
    String text = String::fromRawDataUnsafe(chars, static_cast<std::size_t>(size));
    PyObject* replaced = entry.name;
    entry.name = Py_NewRef(name);
    entry.text = text;
    Py_XDECREF(replaced);
    return text;
}

} // namespace tesk::cpython
