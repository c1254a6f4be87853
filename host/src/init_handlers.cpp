// Init handlers: queued by libraries at load time, run by the host.
#include "tesk/module.h"

#include <mutex>

namespace tesk {

namespace {
// The queue of handlers not yet run, in registration order. Guarded by its
// spinlock in add_init_handler and run_init_handlers (never held while a
// handler runs, so handlers may queue more); init_handlers_unsafe hands it
// out without the lock. Never destroyed: libraries queue from their static
// initialisers, in any order with ours.
struct handler_queue {
    spinlock lock;
    std::vector<std::pair<int, init_handler>> handlers;
};
handler_queue& queue() {
    static auto* q = new handler_queue();
    return *q;
}
} // namespace

void add_init_handler(int level, init_handler handler) {
    auto& q = queue();
    std::lock_guard guard(q.lock);
    q.handlers.emplace_back(level, std::move(handler));
}

std::vector<std::pair<int, init_handler>>& init_handlers_unsafe() { return queue().handlers; }

int run_init_handlers() {
    auto& q = queue();
    int ran = 0;
    for (;;) {
        init_handler next;
        {
            std::lock_guard guard(q.lock);
            if (q.handlers.empty()) return ran;
            // The lowest level; the first registered among equals.
            auto pick = q.handlers.begin();
            for (auto it = q.handlers.begin(); it != q.handlers.end(); ++it)
                if (it->first < pick->first) pick = it;
            next = std::move(pick->second);
            q.handlers.erase(pick);
        }
        ++ran;
        if (next) next();
    }
}

} // namespace tesk
