// The assertion log: misuse of builders is recorded here (and printed), not
// returned to the caller.
#include "tesk/module.h"

#include <cstdio>
#include <mutex>

namespace tesk {

namespace {
// Messages in report order, guarded by the spinlock; never destroyed.
struct assertion_log {
    spinlock lock;
    std::vector<String> messages;
};
assertion_log& log() {
    static auto* l = new assertion_log();
    return *l;
}
} // namespace

void report_assertion(String const& message) {
    {
        std::lock_guard guard(log().lock);
        log().messages.push_back(message);
    }
    std::fprintf(stderr, "assertion: %s\n", message.c_str());
}

std::vector<String> assertion_messages() {
    std::lock_guard guard(log().lock);
    return log().messages;
}

void clear_assertion_messages() {
    std::vector<String> dropped;
    std::lock_guard guard(log().lock);
    dropped.swap(log().messages);
}

} // namespace tesk
