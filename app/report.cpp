#include "app/report.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

namespace brimora {

int report_error(tesk::Error const& error) {
    std::cerr << "error: " << error.message().trimmed().asChars() << '\n';
    if (auto evaluationError = tesk::EvaluationError::cast(error)) {
        if (auto line = evaluationError.value().line()) {
            std::cerr << "at line " << line.value().value();
            if (auto column = evaluationError.value().column()) std::cerr << ", column " << column.value().value();
            std::cerr << '\n';
        }
    }
    return 1;
}

int report_result(Python const& python, tesk::Any const& result, tesk::EvaluationScope const& scope) {
    std::cout << python.to_code(result).asChars() << '\n';
    if (auto outLocals = tesk::HashMap::cast(scope.outLocals())) {
        for (auto const& [name, value] : outLocals.value().items())
            std::cout << tesk::display(name).asChars() << " = " << python.to_code(value).asChars() << '\n';
    }
    return 0;
}

tesk::Any flush_output() {
    errno = 0;
    std::cout.flush();
    bool const failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout;
    if (!failed) return tesk::None();
    int const reason = errno;
    return tesk::Error(tesk::String("Cannot write the output: {}.")
                           .arg(tesk::String(reason != 0 ? std::strerror(reason) : "write error")));
}

} // namespace brimora
