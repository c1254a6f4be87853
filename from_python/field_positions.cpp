#include "from_python/field_positions.h"

#include <cstdint>

namespace tesk::cpython {

std::size_t field_positions_cache::index_for(internal::object_value_class const* cls) noexcept {
    // Records are allocated objects: the low bits carry no information.
    return (reinterpret_cast<std::uintptr_t>(cls) >> 6) % slot_count;
}

std::optional<field_positions> field_positions_cache::find(internal::object_value_class const* cls) const noexcept {
    slot const& s = slots_[index_for(cls)];
    std::uint64_t const before = s.sequence.load(std::memory_order_acquire);
    if (before & 1) return std::nullopt;
    auto const* record = s.record.load(std::memory_order_relaxed);
    std::uint64_t const generation = s.generation.load(std::memory_order_relaxed);
    field_positions const positions{s.first.load(std::memory_order_relaxed), s.second.load(std::memory_order_relaxed)};
    std::atomic_thread_fence(std::memory_order_acquire);
    if (s.sequence.load(std::memory_order_relaxed) != before) return std::nullopt; // written meanwhile
    if (record != cls || generation != internal::class_publication_count()) return std::nullopt;
    return positions;
}

void field_positions_cache::remember(internal::object_value_class const* cls, std::uint64_t generation,
                                     field_positions positions) noexcept {
    slot& s = slots_[index_for(cls)];
    std::uint64_t sequence = s.sequence.load(std::memory_order_relaxed);
    if ((sequence & 1) || !s.sequence.compare_exchange_strong(sequence, sequence + 1, std::memory_order_relaxed))
        return;
    std::atomic_thread_fence(std::memory_order_release);
    s.record.store(cls, std::memory_order_relaxed);
    s.generation.store(generation, std::memory_order_relaxed);
    s.first.store(positions.first, std::memory_order_relaxed);
    s.second.store(positions.second, std::memory_order_relaxed);
    s.sequence.store(sequence + 2, std::memory_order_release);
}

} // namespace tesk::cpython
