// The cache of compiled evaluation code.
#pragma once

#include "language/code_compiler.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace tesk::cpython {

// The compiled program for a statement block with these out-local names, or
// for an expression; from the cache when the same code was compiled before,
// else compiled now and kept. Null with a Python exception set when the code
// does not compile (failures are not cached). The caller holds the
// interpreter lock.
std::shared_ptr<compiled_code const> cached_block(String const& code, std::vector<String> const& outLocalNames);
std::shared_ptr<compiled_code const> cached_expression(String const& code);

// How many distinct codes the cache keeps (the least recently used one goes
// first); 0 turns caching off. Takes effect at once.
inline constexpr std::size_t default_code_cache_capacity = 256;
void set_code_cache_capacity(std::size_t entries);
std::size_t code_cache_capacity();

// What the cache has done since the process started.
struct code_cache_counters {
    std::uint64_t hits = 0;
    std::uint64_t compilations = 0;
    std::size_t entries = 0;
};
code_cache_counters code_cache_statistics();

} // namespace tesk::cpython
