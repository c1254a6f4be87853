// Callables: the native callable base, the callables the runtime makes
// (over a std::function, constant, abstract, bound), and the generic handle
// that calls native callables and instances of classes implementing I_Callable
// alike.
#include "class_internal.h"

#include "tesk/containers.h"

#include <array>

namespace tesk {
namespace internal {

object_value_callable::object_value_callable(Signature sig)
    : object_value(Kind::Callable, builtin_class(builtin::callable)), signature(std::move(sig)) {}

object_value_callable::~object_value_callable() = default;

Any object_value_callable::decorated(object_value_callable* copy) const {
    copy->name = name;
    copy->doc = doc;
    copy->signature = signature;
    copy->independent.store(independent.load(std::memory_order_relaxed), std::memory_order_relaxed);
    return Any::adopt(copy);
}

namespace {

// The callable record of a native callable (nullptr for any other value).
object_value_callable const* native(Any const& v) noexcept {
    return v.kind() == Kind::Callable ? static_cast<object_value_callable const*>(v.get()) : nullptr;
}

class object_value_function final : public object_value_callable {
public:
    object_value_function(std::function<Any(std::span<Any const>)> f, Signature sig)
        : object_value_callable(std::move(sig)), function_(std::move(f)) {}
    Any invoke(std::span<Any const> args) const override { return function_(args); }
    Any clone() const override { return decorated(new object_value_function(function_, signature)); }

private:
    std::function<Any(std::span<Any const>)> function_;
};

// One signature for every constant: a module mirrored from Python has a
// constant getter per member, and signatures are immutable values.
Signature const& constant_signature() {
    static Signature const* const shared = new Signature(Type::untyped(), {}); // outlives exit-time releases
    return *shared;
}

// Gives its value whatever it is called with, so that it serves as the
// getter of a value property whether or not the object is passed.
class object_value_constant final : public object_value_callable {
public:
    explicit object_value_constant(Any v) : object_value_callable(constant_signature()), value(std::move(v)) {
        independent.store(true, std::memory_order_relaxed);
    }
    Any invoke(std::span<Any const>) const override { return value; }
    Any clone() const override { return decorated(new object_value_constant(value)); }
    bool same_as(object_value_callable const& other) const override {
        auto const* o = dynamic_cast<object_value_constant const*>(&other);
        return o != nullptr && o->value.isSame(value);
    }
    Any value;
};

class object_value_abstract final : public object_value_callable {
public:
    using object_value_callable::object_value_callable;
    Any invoke(std::span<Any const>) const override { return Error(String("Abstract function: {}.").arg(name)); }
    Any clone() const override { return decorated(new object_value_abstract(signature)); }
};

// A callable with its first argument fixed.
class object_value_bound final : public object_value_callable {
public:
    object_value_bound(I_Callable_Generic t, Any i, Signature sig)
        : object_value_callable(std::move(sig)), target(std::move(t)), instance(std::move(i)) {
        independent.store(true, std::memory_order_relaxed);
    }
    Any invoke(std::span<Any const> args) const override {
        constexpr std::size_t inline_count = 8;
        if (args.size() < inline_count) {
            std::array<Any, inline_count> all;
            all[0] = instance;
            std::copy(args.begin(), args.end(), all.begin() + 1);
            return target.invoke(std::span<Any const>(all.data(), args.size() + 1));
        }
        std::vector<Any> all{instance};
        all.insert(all.end(), args.begin(), args.end());
        return target.invoke(all);
    }
    Any clone() const override { return decorated(new object_value_bound(target, instance, signature)); }
    bool same_as(object_value_callable const& other) const override {
        auto const* o = dynamic_cast<object_value_bound const*>(&other);
        return o != nullptr && o->instance.isSame(instance) && native(target) && native(o->target) &&
               native(target)->same_as(*native(o->target));
    }
    I_Callable_Generic target;
    Any instance;
};

// The signature without its first parameter.
Signature without_first(Signature const& sig) {
    if (!sig.hasValue() || sig.parameters().empty()) return sig;
    std::vector<Parameter> params(sig.parameters().begin() + 1, sig.parameters().end());
    std::vector<Any> defaults = sig.defaults();
    if (defaults.size() > params.size()) defaults.erase(defaults.begin());
    return Signature(sig.resultType(), std::move(params), std::move(defaults), sig.hasVariadicParameters());
}

// The value of a property of a non-native callable as T, if it is one.
template <class T> Union<T, None> callable_property(Any const& v, String const& name) {
    return T::cast(internal::result_unwrap_lazy(v.propertyValue(name)));
}

String independent_field_name() {
    static auto const* name = new String("_independent");
    return *name;
}

} // namespace

Any make_function_callable(std::function<Any(std::span<Any const>)> f, Signature signature, String const& name) {
    auto* c = new object_value_function(std::move(f), std::move(signature));
    c->name = name;
    return Any::adopt(c);
}

Any make_constant_callable(Any const& value) { return Any::adopt(new object_value_constant(value)); }

Union<Any, None> constant_callable_value(Any const& callable) {
    auto const* c = native(callable);
    auto const* k = c ? dynamic_cast<object_value_constant const*>(c) : nullptr;
    return k ? Union<Any, None>(k->value) : Union<Any, None>();
}

Any create_abstract_function(Signature signature) { return Any::adopt(new object_value_abstract(std::move(signature))); }

void decorate(Any const& callable, String const& name, String const& signatureText, String const& doc,
              std::vector<Any> defaults) {
    auto* c = const_cast<object_value_callable*>(native(callable));
    if (!c) return;
    TESK_LOCK_ASSERT(c->use_count() == 1, "a callable decorated while others may hold it");
    c->name = name;
    c->doc = doc;
    c->signature = c->signature.renamed(signatureText, std::move(defaults));
}

} // namespace internal

using internal::native;

bool I_Callable_Generic::test(Any const& v) noexcept {
    Kind k = v.kind();
    return k == Kind::Callable || (k == Kind::Instance && (v.get()->class_value()->traits() & traits::callable) != 0);
}

Any I_Callable_Generic::invoke(std::span<Any const> args) const {
    auto const* c = native(*this);
    if (!c) {
        if (!hasValue()) return Error(String("Unable to call None."));
        // A class may take its instances' calls directly (set_invoke_hook_unsafe).
        if (kind() == Kind::Instance) {
            if (internal::invoke_hook hook = get()->class_value()->invoke()) return hook(*this, args);
        }
        List list;
        for (Any const& a : args) list.append(a);
        Any const call_args[] = {list};
        return callMethod(String("call"), call_args);
    }
    Signature const& sig = c->signature;
    std::size_t count = sig.hasValue() ? sig.parameters().size() : args.size();
    if (args.size() >= count || sig.hasVariadicParameters()) return c->invoke(args);
    // Missing trailing arguments come from the defaults.
    auto const& defaults = sig.defaults();
    if (args.size() + defaults.size() < count) return c->invoke(args); // the callable reports the arity
    std::vector<Any> all(args.begin(), args.end());
    for (std::size_t i = args.size(); i < count; ++i) all.push_back(defaults[defaults.size() - (count - i)]);
    return c->invoke(all);
}

Any I_Callable_Generic::callWith(List const& args) const {
    std::vector<Any> items = args.copyItems();
    return invoke(items);
}

Any I_Callable_Generic::callWithNamed(HashMap const& named) const {
    auto sig = signature();
    if (sig.isError()) return sig;
    auto const& params = sig.as<Signature>().parameters();
    auto const& defaults = sig.as<Signature>().defaults();
    for (auto const& [key, value] : named.items()) {
        bool known = false;
        for (auto const& p : params) known = known || (String::test(key) && p.name() == String::unsafe(key));
        if (!known) return Error(String("Unknown argument: {}.").arg(key));
    }
    std::size_t first_default = params.size() - defaults.size();
    std::vector<Any> args;
    args.reserve(params.size());
    for (std::size_t i = 0; i < params.size(); ++i) {
        String pname = params[i].name();
        if (named.contains(pname)) args.push_back(named.find(pname));
        else if (i >= first_default) args.push_back(defaults[i - first_default]);
        else return Error(String("Missing argument: {}.").arg(pname));
    }
    return invoke(args);
}

I_Callable_Generic I_Callable_Generic::bindInstance(Any const& instance) const {
    Signature sig = native(*this) ? native(*this)->signature : Signature::unsafe(Any());
    if (!native(*this)) {
        if (auto s = signature(); s.is<Signature>()) sig = s.as<Signature>();
        else sig = Signature(resultType(), {});
    }
    auto* b = new internal::object_value_bound(*this, instance, internal::without_first(sig));
    b->name = name();
    b->doc = doc();
    return unsafe(Any::adopt(b));
}

String I_Callable_Generic::name() const {
    if (auto const* c = native(*this)) return c->name;
    auto n = internal::callable_property<String>(*this, String("name"));
    return n ? n.value() : String();
}

String I_Callable_Generic::doc() const {
    if (auto const* c = native(*this)) return c->doc;
    auto d = internal::callable_property<String>(*this, String("doc"));
    return d ? d.value() : String();
}

Union<Signature, Error> I_Callable_Generic::signature() const {
    if (auto const* c = native(*this)) return Union<Signature, Error>(c->signature);
    Any s = internal::result_unwrap_lazy(propertyValue(String("signature")));
    if (Signature::test(s) || s.isError()) return Union<Signature, Error>(s);
    return Error(String("The callable has no signature: {}.").arg(*this));
}

Type I_Callable_Generic::resultType() const {
    if (auto const* c = native(*this)) return c->signature.hasValue() ? c->signature.resultType() : Type::untyped();
    if (auto t = internal::callable_property<Type>(*this, String("resultType"))) return t.value();
    auto s = signature();
    return s.is<Signature>() ? s.as<Signature>().resultType() : Type::untyped();
}

bool I_Callable_Generic::isIndependent() const {
    if (auto const* c = native(*this)) return c->independent.load(std::memory_order_relaxed);
    Any v = fieldValue(internal::independent_field_name());
    return Boolean::test(v) && Boolean::unsafe(v).value();
}

void I_Callable_Generic::setIndependent(bool v) const {
    if (auto const* c = native(*this)) {
        const_cast<internal::object_value_callable*>(c)->independent.store(v, std::memory_order_relaxed);
        return;
    }
    setFieldValue(internal::independent_field_name(), Boolean(v));
}

} // namespace tesk
