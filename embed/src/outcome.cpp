#include "brimora/outcome.h"

namespace brimora {
namespace {

std::optional<std::int64_t> number_of(tesk::Union<tesk::Integer, tesk::None> const& n) {
    if (!n) return std::nullopt;
    return n.value().value();
}

} // namespace

Outcome::Outcome(tesk::Any result) : result_(tesk::internal::result_unwrap_lazy(result)) {}

tesk::Error Outcome::error() const { return ok() ? tesk::Error() : result_.error(); }

std::string Outcome::message() const { return ok() ? std::string() : error().message().trimmed().toUtf8(); }

std::optional<std::int64_t> Outcome::line() const {
    if (auto positioned = tesk::EvaluationError::cast(result_)) return number_of(positioned.value().line());
    return std::nullopt;
}

std::optional<std::int64_t> Outcome::column() const {
    if (auto positioned = tesk::EvaluationError::cast(result_)) return number_of(positioned.value().column());
    return std::nullopt;
}

} // namespace brimora
