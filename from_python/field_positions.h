// Remembering where the instances of a class keep two of their fields.
#pragma once

#include <tesk/tesk.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>

namespace tesk::cpython {

struct field_positions {
    std::size_t first = 0;
    std::size_t second = 0;
};

// The positions for a few classes, each found once and kept until some class
// is edited (the host's class_publication_count moves): an edit may add a field to
// a base class, which moves the fields of every class below it. Lock-free:
// a reader never waits, and a writer that finds its slot being written does
// not remember.
class field_positions_cache {
public:
    // The positions remembered for `cls` in the current generation.
    std::optional<field_positions> find(internal::object_value_class const* cls) const noexcept;
    // `generation` is the one read before the positions were looked up.
    void remember(internal::object_value_class const* cls, std::uint64_t generation,
                  field_positions positions) noexcept;

private:
    // A sequence lock: odd while being written.
    struct slot {
        std::atomic<std::uint64_t> sequence{0};
        std::atomic<internal::object_value_class const*> record{nullptr};
        std::atomic<std::uint64_t> generation{0};
        std::atomic<std::size_t> first{0};
        std::atomic<std::size_t> second{0};
    };
    static constexpr std::size_t slot_count = 8;

    static std::size_t index_for(internal::object_value_class const* cls) noexcept;

    std::array<slot, slot_count> slots_;
};

} // namespace tesk::cpython
