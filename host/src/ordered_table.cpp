// ordered_table: the insertion-ordered hash table under HashMap and HashSet.
#include "container_objects.h"

#include <bit>

namespace tesk::internal {

namespace {

// Kinds whose equality compare_objects decides without calling out.
bool is_plain(Any const& v) {
    if (is_scalar_kind(v.kind())) return true;
    if (v.kind() != Kind::Tuple) return false;
    for (Any const& item : Tuple::unsafe(v).items())
        if (!is_plain(item)) return false;
    return true;
}

} // namespace

std::optional<bool> plain_key_equality(Any const& a, Any const& b) {
    bool a_plain = is_plain(a), b_plain = is_plain(b);
    if (!a_plain || !b_plain) return std::nullopt; // a class override may decide
    // Text keys are the common case: a String equals only a String.
    if (a.kind() == Kind::String) return b.kind() == Kind::String && bytes_of(a)->view() == bytes_of(b)->view();
    return equals(a, b);
}

// Fibonacci hashing: the top bits of hash × 2^64/φ, so that even poor hashes
// (small integers from a class override) spread over the slots.
std::size_t ordered_table::home(std::uint64_t hash) const noexcept {
    return static_cast<std::size_t>((hash * 0x9E3779B97F4A7C15ull) >> shift_);
}

std::ptrdiff_t ordered_table::probe(Any const& key, std::uint64_t hash, std::vector<candidate>& undecided) const {
    if (slots_.empty()) return -1;
    std::size_t mask = slots_.size() - 1;
    for (std::size_t i = home(hash);; i = (i + 1) & mask) {
        std::int32_t slot = slots_[i];
        if (slot == empty_slot) return -1;
        if (slot < 0) continue;
        entry const& e = entries_[static_cast<std::size_t>(slot)];
        if (e.hash != hash) continue;
        if (e.key.get() == key.get()) return slot;
        if (auto same = plain_key_equality(key, e.key)) {
            if (*same) return slot;
        } else {
            undecided.push_back({slot, e.key});
        }
    }
}

std::ptrdiff_t ordered_table::insert(Any key, Any value, std::uint64_t hash) {
    // Every entry, erased or not, holds a slot until the next rebuild; keep
    // at least a quarter of the slots empty so that probes stay short.
    if ((entries_.size() + 1) * 4 > slots_.size() * 3) rebuild(std::bit_ceil(std::max<std::size_t>(8, (live_ + 1) * 2)));
    auto position = static_cast<std::int32_t>(entries_.size());
    entries_.push_back({std::move(key), std::move(value), hash, false});
    std::size_t mask = slots_.size() - 1;
    std::size_t i = home(hash);
    while (slots_[i] >= 0) i = (i + 1) & mask;
    slots_[i] = position;
    ++live_;
    ++version_;
    return position;
}

void ordered_table::erase(std::ptrdiff_t index, Any& key, Any& value) {
    entry& e = at(index);
    std::size_t mask = slots_.size() - 1;
    std::size_t i = home(e.hash);
    while (slots_[i] != index) i = (i + 1) & mask;
    slots_[i] = erased_slot;
    key = std::move(e.key);
    value = std::move(e.value);
    e.key.reset(); // moved-from handles are empty already; say so
    e.erased = true;
    --live_;
    ++version_;
    // Compact once erased entries outnumber live ones.
    if (entries_.size() - live_ > std::max<std::size_t>(8, live_)) rebuild(slots_.size());
}

std::vector<ordered_table::entry> ordered_table::take_all() noexcept {
    std::vector<entry> all;
    all.swap(entries_);
    slots_.clear();
    shift_ = 64;
    live_ = 0;
    ++version_;
    return all;
}

// Drops erased entries and re-indexes the rest into `slot_count` slots.
void ordered_table::rebuild(std::size_t slot_count) {
    std::vector<entry> kept;
    kept.reserve(std::max(live_ + 1, slot_count / 2));
    for (entry& e : entries_)
        if (!e.erased) kept.push_back(std::move(e));
    entries_.swap(kept);
    slots_.assign(slot_count, empty_slot);
    shift_ = 64 - static_cast<unsigned>(std::countr_zero(slot_count));
    std::size_t mask = slot_count - 1;
    for (std::size_t n = 0; n < entries_.size(); ++n) {
        std::size_t i = home(entries_[n].hash);
        while (slots_[i] != empty_slot) i = (i + 1) & mask;
        slots_[i] = static_cast<std::int32_t>(n);
    }
    ++version_;
}

} // namespace tesk::internal
