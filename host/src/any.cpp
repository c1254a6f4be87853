// Any: error tests, deferred and indirect values, the undefined value.
#include "value_objects.h"

namespace tesk {

bool Any::isError() const noexcept {
    return p_ != nullptr && p_->kind() == Kind::Instance && p_->class_value() != nullptr &&
           (p_->class_value()->traits() & traits::error) != 0;
}

Error Any::error() const { return isError() ? Error::unsafe(*this) : Error(); }

String Any::toDisplayString() const { return display(*this); }

namespace internal {

object_value_computed::object_value_computed(std::function<Any()> producer) noexcept
    : object_value_indirect(Kind::Computed, builtin_class(builtin::computed)), producer_(std::move(producer)) {}

// The producer runs once whichever thread asks first; the others wait for it.
// A producer that throws gives its exception as an Error, which is kept like
// any other result.
Any object_value_computed::target() const {
    std::call_once(once_, [this] {
        try {
            result_ = producer_ ? producer_() : Any();
        } catch (...) {
            result_ = Error::fromCurrentException();
        }
        producer_ = nullptr; // release what the producer captured
    });
    return result_;
}

object_value_external::object_value_external(object_value_class const* cls, std::function<Any()> loader) noexcept
    : object_value_indirect(Kind::External, cls), loader_(std::move(loader)) {}

Any object_value_external::target() const {
    std::call_once(once_, [this] {
        try {
            value_ = loader_ ? loader_() : Any();
        } catch (...) {
            value_ = Error::fromCurrentException();
        }
        loader_ = nullptr;
    });
    return value_;
}

namespace {
bool is_indirect(Kind k) noexcept { return k == Kind::Computed || k == Kind::Weak || k == Kind::External; }

// Follows indirect values of the given kinds until another kind is reached.
template <class Pred> Any follow(Any v, Pred pred) {
    while (pred(v.kind())) v = static_cast<object_value_indirect const*>(v.get())->target();
    return v;
}
} // namespace

Any result_unwrap_lazy(Any const& v) {
    return follow(v, [](Kind k) { return k == Kind::Computed; });
}

Any unwrap(Any const& v) { return follow(v, is_indirect); }

} // namespace internal

Computed_Generic Computed_Generic::make(std::function<Any()> producer) {
    return unsafe(Any::adopt(new internal::object_value_computed(std::move(producer))));
}

Any Computed_Generic::resolve() const { return internal::result_unwrap_lazy(*this); }

namespace {
std::atomic<internal::object_value const*> g_undefined{nullptr};

internal::object_value const* undefined_record() {
    return internal::shared_value(g_undefined, [] {
        return new internal::object_value(Kind::Undefined, internal::builtin_class(internal::builtin::undefined));
    });
}
} // namespace

Undefined::Undefined() : Any(Any::borrow(undefined_record())) {}

} // namespace tesk
