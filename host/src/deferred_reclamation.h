// Internal: deferred reclamation of the tables that readers follow through
// one atomic pointer without a lock (class tables, resolved-member snapshots).
//
// The scheme is epoch based:
// - A process-wide epoch starts at 1 and grows by one at every retirement.
// - A reader brackets its use of such tables with a read_section: it writes
//   the epoch it saw into a slot of its own on entry and 0 on exit. Sections
//   nest; only the outermost one writes.
// - A writer first swaps the new table in, then retires the old one: the
//   retirement takes the current epoch r as the object's tag and moves the
//   epoch to r + 1. A reader that announced r + 1 or more read the epoch after
//   the swap, so it sees the new table; only readers that announced r or less
//   can still hold the old one.
// - reclaim() frees every retired object whose tag is below both the epoch it
//   read on entry and every epoch announced at that moment. What is still
//   visible stays listed for a later reclaim(): writers never wait for readers.
//
// The announcement must be visible before the reader loads a table pointer
// (a store followed by a load: a full fence). Readers do not pay for it:
// reclaim() runs membarrier(), which acts as a full fence on every running
// thread of the process, before it reads the slots. Where the kernel lacks
// membarrier, readers fall back to a full fence of their own.
//
// Locks: the retired list has a spinlock of its own, held only to add or take
// entries; objects are destroyed after it is released (destroying releases
// values, whose finalisers may need the interpreter lock). reclaim() must be
// called with no spinlock held; checked builds assert it.
#pragma once

#include "tesk/object.h"

#include <atomic>
#include <cstdint>

namespace tesk::internal {

// One slot per reading thread; slots are never freed, a thread's slot is
// reused by another thread once the first one has exited.
struct reader_slot {
    std::atomic<std::uint64_t> epoch{0}; // 0: outside any read section
    std::atomic<bool> owned{true};
    reader_slot* next = nullptr;
};

// The per-thread state (plain data, read straight from the thread pointer).
struct reader_state {
    reader_slot* slot;
    unsigned depth;
    bool exiting; // the thread's slot was handed back: hand it back after each section
};
extern __thread reader_state t_reader __attribute__((tls_model("initial-exec")));

extern std::atomic<std::uint64_t> g_reclamation_epoch;
extern std::atomic<bool> g_readers_skip_fence; // membarrier gives writers the fence

reader_slot* claim_reader_slot();
void hand_back_reader_slot() noexcept;

// Brackets reads of tables published through atomic pointers: nothing
// retired after the section started is freed before it ends.
class read_section {
public:
    read_section() noexcept {
        if (t_reader.depth++ != 0) return;
        reader_slot* slot = t_reader.slot ? t_reader.slot : claim_reader_slot();
        std::uint64_t epoch = g_reclamation_epoch.load(std::memory_order_acquire);
#if defined(__SANITIZE_THREAD__)
        // ThreadSanitizer does not model fences; an exchange orders as well.
        slot->epoch.exchange(epoch, std::memory_order_seq_cst);
#else
        slot->epoch.store(epoch, std::memory_order_release);
        if (g_readers_skip_fence.load(std::memory_order_relaxed)) [[likely]]
            std::atomic_signal_fence(std::memory_order_seq_cst);
        else
            std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
    }
    ~read_section() {
        if (--t_reader.depth != 0) return;
        t_reader.slot->epoch.store(0, std::memory_order_release);
        if (t_reader.exiting) [[unlikely]]
            hand_back_reader_slot();
    }
    read_section(read_section const&) = delete;
    read_section& operator=(read_section const&) = delete;
};

// Hands an object that is no longer reachable through its pointer to the
// reclaimer, which calls `destroy` once no reader can hold it.
void retire(void const* object, void (*destroy)(void const*));
template <class T> void retire(T const* object) {
    retire(static_cast<void const*>(object), [](void const* p) { delete static_cast<T const*>(p); });
}

// Frees what no reader can still see. Never with a spinlock held.
void reclaim();

} // namespace tesk::internal
