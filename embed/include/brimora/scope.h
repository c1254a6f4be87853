// The variables that evaluated code sees and assigns.
#pragma once

#include "brimora/export.h"

#include <tesk/tesk.h>

#include <optional>

namespace brimora {

// Builds the scope of an evaluation: `self`, locals, globals and out-locals
// (the variables a block may assign, read back after it ran). Maps that
// are never given stay none: without globals the code sees the host's
// global names. Copies share their maps.
class BRIMORA_EMBED_API Scope {
public:
    Scope& self(tesk::Any const& value);
    Scope& local(tesk::String const& name, tesk::Any const& value);
    Scope& global(tesk::String const& name, tesk::Any const& value);
    // A variable the block may assign, with its value before the block runs.
    Scope& out(tesk::String const& name, tesk::Any const& initial);

    // An out-local's value after the evaluation; none when there is no such out-local.
    tesk::Any out_value(tesk::String const& name) const;

    // The host's own form, which the language takes.
    operator tesk::EvaluationScope() const;

private:
    tesk::Any self_;
    std::optional<tesk::HashMap> locals_;
    std::optional<tesk::HashMap> globals_;
    std::optional<tesk::HashMap> outLocals_;
};

} // namespace brimora
