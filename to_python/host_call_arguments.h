// Calling the host with arguments that come from Python: each converted on
// the caller's stack (a vector only past a few), and the host not called at
// all when one of them has no host form.
#pragma once

#include "to_python/python_to_host.h"
#include "to_python/slot_result.h"

#include <Python.h>

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace tesk::cpython {

// Calls of up to this many arguments, a receiver included, keep them on the stack.
constexpr std::size_t inline_host_arguments = 8;

// Calls `call` with `receiver` (when not null) followed by the items of the
// argument tuple `args` (null for none) converted for the host: the result
// for Python, or null with the exception raised when an argument has no host
// form.
template <class Call> PyObject* call_with_python_arguments(Call const& call, PyObject* args, Any const* receiver = nullptr) {
    std::size_t const first = receiver ? 1 : 0;
    std::size_t const n = args ? static_cast<std::size_t>(PyTuple_GET_SIZE(args)) : 0;
    std::size_t const count = first + n;
    auto convert_into = [&](Any* out) {
        if (receiver) out[0] = *receiver;
        for (std::size_t i = 0; i < n; ++i)
            if (!python_to_host_value(PyTuple_GET_ITEM(args, static_cast<Py_ssize_t>(i)), out[first + i])) return false;
        return true;
    };
    if (count <= inline_host_arguments) {
        std::array<Any, inline_host_arguments> all;
        if (!convert_into(all.data())) return nullptr;
        return slot_result(call(std::span<Any const>(all.data(), count)));
    }
    std::vector<Any> all(count);
    if (!convert_into(all.data())) return nullptr;
    return slot_result(call(std::span<Any const>(all)));
}

} // namespace tesk::cpython
