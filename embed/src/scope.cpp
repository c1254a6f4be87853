#include "brimora/scope.h"

namespace brimora {
namespace {

void put(std::optional<tesk::HashMap>& map, tesk::String const& name, tesk::Any const& value) {
    if (!map) map.emplace();
    (void)map->set(name, value);
}

tesk::Any map_or_none(std::optional<tesk::HashMap> const& map) { return map ? tesk::Any(*map) : tesk::Any(); }

} // namespace

Scope& Scope::self(tesk::Any const& value) {
    self_ = value;
    return *this;
}

Scope& Scope::local(tesk::String const& name, tesk::Any const& value) {
    put(locals_, name, value);
    return *this;
}

Scope& Scope::global(tesk::String const& name, tesk::Any const& value) {
    put(globals_, name, value);
    return *this;
}

Scope& Scope::out(tesk::String const& name, tesk::Any const& initial) {
    put(outLocals_, name, initial);
    return *this;
}

tesk::Any Scope::out_value(tesk::String const& name) const {
    if (!outLocals_) return {};
    return outLocals_->find(name); // none when absent
}

Scope::operator tesk::EvaluationScope() const {
    return tesk::EvaluationScope(self_, map_or_none(locals_), map_or_none(globals_), map_or_none(outLocals_));
}

} // namespace brimora
