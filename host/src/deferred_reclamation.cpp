// Deferred reclamation by epochs: the reader slots, the retired list and the
// reclaimer (the scheme is described in deferred_reclamation.h).
#include "deferred_reclamation.h"

#include <linux/membarrier.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <mutex>
#include <vector>

namespace tesk::internal {

__thread reader_state t_reader __attribute__((tls_model("initial-exec"))) = {nullptr, 0, false};

std::atomic<std::uint64_t> g_reclamation_epoch{1};
std::atomic<bool> g_readers_skip_fence{false};

namespace {

// Every reader slot ever made, newest first; pushed with a compare-exchange,
// never unlinked or freed.
std::atomic<reader_slot*> g_slots{nullptr};

// Objects retired and not yet freed, with the epoch they were retired in.
// Guarded by its spinlock; the objects are destroyed outside it.
struct retired_object {
    void const* object;
    void (*destroy)(void const*);
    std::uint64_t epoch;
};
struct retired_list {
    spinlock lock;
    std::vector<retired_object> objects;
};
retired_list& retired() {
    static auto* list = new retired_list(); // never destroyed: threads may retire during exit
    return *list;
}

bool register_membarrier() noexcept {
    return syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
}

// Registered while the library loads, before any reader can skip its fence.
bool const g_membarrier = [] {
    bool ok = register_membarrier();
    g_readers_skip_fence.store(ok, std::memory_order_relaxed);
    return ok;
}();

// A full fence on every running thread of the process (or, without
// membarrier, on this one: the readers then fence themselves).
void heavy_fence() noexcept {
    if (g_readers_skip_fence.load(std::memory_order_relaxed) &&
        syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0)
        return;
#if !defined(__SANITIZE_THREAD__)
    std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}

// Hands the thread's slot back when the thread ends.
struct slot_owner {
    ~slot_owner() {
        t_reader.exiting = true;
        if (t_reader.slot && t_reader.depth == 0) hand_back_reader_slot();
    }
};

} // namespace

reader_slot* claim_reader_slot() {
    reader_slot* slot = nullptr;
    for (reader_slot* s = g_slots.load(std::memory_order_acquire); s && !slot; s = s->next) {
        bool owned = false;
        if (s->owned.compare_exchange_strong(owned, true, std::memory_order_acquire)) slot = s;
    }
    if (!slot) {
        slot = new reader_slot();
        slot->next = g_slots.load(std::memory_order_relaxed);
        while (!g_slots.compare_exchange_weak(slot->next, slot, std::memory_order_release, std::memory_order_relaxed)) {
        }
    }
    t_reader.slot = slot;
    if (!t_reader.exiting) {
        // Made on the first claim only; a thread that reads again while it
        // exits hands its slot back after every section instead.
        static thread_local slot_owner owner;
        (void)owner;
    }
    return slot;
}

void hand_back_reader_slot() noexcept {
    t_reader.slot->owned.store(false, std::memory_order_release);
    t_reader.slot = nullptr;
}

void retire(void const* object, void (*destroy)(void const*)) {
    auto& list = retired();
    std::lock_guard guard(list.lock);
    // Tagged with the epoch before the increment: readers that announce a
    // later one started after the pointer was swapped.
    std::uint64_t epoch = g_reclamation_epoch.fetch_add(1, std::memory_order_acq_rel);
    list.objects.push_back({object, destroy, epoch});
}

void reclaim() {
    TESK_LOCK_ASSERT(spinlock_depth() == 0, "values released under a spinlock");
    std::uint64_t oldest = g_reclamation_epoch.load(std::memory_order_seq_cst);
    heavy_fence();
    for (reader_slot const* s = g_slots.load(std::memory_order_acquire); s; s = s->next) {
        std::uint64_t announced = s->epoch.load(std::memory_order_seq_cst);
        if (announced != 0 && announced < oldest) oldest = announced;
    }
    std::vector<retired_object> ready;
    {
        auto& list = retired();
        std::lock_guard guard(list.lock);
        auto keep = list.objects.begin();
        for (auto& r : list.objects) {
            if (r.epoch < oldest) ready.push_back(r);
            else *keep++ = r;
        }
        list.objects.erase(keep, list.objects.end());
    }
    for (auto const& r : ready) r.destroy(r.object);
}

} // namespace tesk::internal
