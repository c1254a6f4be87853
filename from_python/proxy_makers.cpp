#include "from_python/proxy_makers.h"

#include "from_python/python_object.h"

#include <array>
#include <atomic>

namespace tesk::cpython {
namespace {
std::array<std::atomic<proxy_maker>, static_cast<std::size_t>(proxy_kind::count_)> makers{};
} // namespace

void set_proxy_maker(proxy_kind kind, proxy_maker make) noexcept {
    makers[static_cast<std::size_t>(kind)].store(make, std::memory_order_release);
}

Any make_proxy(proxy_kind kind, PyObject* object) {
    proxy_maker make = makers[static_cast<std::size_t>(kind)].load(std::memory_order_acquire);
    return make != nullptr ? make(object) : object_proxy(object);
}

Any object_proxy(PyObject* object) { return make_python_object(cpython_object_class(), object); }

} // namespace tesk::cpython
