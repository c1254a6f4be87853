// The cache of compiled evaluation code: hosts evaluate the same formula
// thousands of times, and compiling it is most of an evaluation's cost.
#include "language/code_cache.h"

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>

namespace tesk::cpython {
namespace {

// Maps the key of a program (its kind, its out-local names and its text:
// everything that changes what is compiled) to the compiled program, and
// keeps the keys in the order of their last use. Guarded by `lock`, which is
// taken after the interpreter lock; no Python code runs while it is held,
// and programs that leave the cache are released after it is let go (their
// release calls Python). Entries are shared with the evaluations running
// them, so one may outlive its eviction.
class code_cache {
public:
    using program = std::shared_ptr<compiled_code const>;

    program find(std::string const& key) {
        std::lock_guard<spinlock> guard(lock_);
        auto found = entries_.find(key);
        if (found == entries_.end()) return {};
        order_.splice(order_.begin(), order_, found->second.position);
        ++hits_;
        return found->second.compiled;
    }

    // Keeps `compiled` under `key`; a program that another thread stored
    // meanwhile wins, so that every evaluation of the code shares one.
    program keep(std::string key, program compiled) {
        std::vector<program> dropped;
        program kept;
        {
            std::lock_guard<spinlock> guard(lock_);
            ++compilations_;
            if (capacity_ == 0) return compiled;
            auto [found, inserted] = entries_.try_emplace(std::move(key));
            if (inserted) {
                order_.push_front(&found->first);
                found->second = {compiled, order_.begin()};
            }
            kept = found->second.compiled;
            trim(dropped);
        }
        return kept;
        // `dropped` is released here, after the lock (and `compiled`, if it lost).
    }

    void set_capacity(std::size_t entries) {
        std::vector<program> dropped;
        std::lock_guard<spinlock> guard(lock_);
        capacity_ = entries;
        trim(dropped);
        // The guard is destroyed before `dropped` (declared first).
    }
    std::size_t capacity() {
        std::lock_guard<spinlock> guard(lock_);
        return capacity_;
    }
    code_cache_counters counters() {
        std::lock_guard<spinlock> guard(lock_);
        return {hits_, compilations_, entries_.size()};
    }

private:
    struct entry {
        program compiled;
        std::list<std::string const*>::iterator position;
    };

    // Evicts the least recently used entries beyond the capacity into `dropped`.
    void trim(std::vector<program>& dropped) {
        while (entries_.size() > capacity_) {
            auto found = entries_.find(*order_.back());
            dropped.push_back(std::move(found->second.compiled));
            order_.pop_back();
            entries_.erase(found);
        }
    }

    spinlock lock_;
    std::unordered_map<std::string, entry> entries_;
    std::list<std::string const*> order_; // most recently used first; points at the map's keys
    std::size_t capacity_ = default_code_cache_capacity;
    std::uint64_t hits_ = 0;
    std::uint64_t compilations_ = 0;
};

code_cache& cache() {
    // Never destroyed: its programs must not be released at exit.
    static auto* const instance = new code_cache;
    return *instance;
}

// The kind of program, then the out-local names, then the code. Names are
// identifiers, so the separators cannot occur in them.
std::string key_of(char kind, std::vector<String> const& names, String const& code) {
    std::string key(1, kind);
    for (String const& name : names) {
        key += name.asChars();
        key += ',';
    }
    key += '\n';
    key += code.asChars();
    return key;
}

template <class Compile>
std::shared_ptr<compiled_code const> cached(std::string key, Compile&& compile) {
    if (auto found = cache().find(key)) return found;
    auto compiled = compile();
    if (!compiled) return {};
    return cache().keep(std::move(key), std::move(compiled));
}

} // namespace

std::shared_ptr<compiled_code const> cached_block(String const& code, std::vector<String> const& outLocalNames) {
    return cached(key_of('b', outLocalNames, code), [&] { return compile_block(code, outLocalNames); });
}

std::shared_ptr<compiled_code const> cached_expression(String const& code) {
    return cached(key_of('e', {}, code), [&] { return compile_expression(code); });
}

void set_code_cache_capacity(std::size_t entries) { cache().set_capacity(entries); }
std::size_t code_cache_capacity() { return cache().capacity(); }
code_cache_counters code_cache_statistics() { return cache().counters(); }

} // namespace tesk::cpython
