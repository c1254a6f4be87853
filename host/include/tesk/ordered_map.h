// A small map from String to V that keeps insertion order.
#pragma once

#include "tesk/string.h"

#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tesk {

template <class V> class ordered_map {
public:
    using entry = std::pair<String, V>;

    // Inserts or replaces; a replaced entry keeps its position.
    void set(String const& key, V value) { (void)exchange(key, std::move(value)); }
    // The same, handing the replaced value back (nothing when the key is
    // new), so that a caller holding a lock releases it after unlocking.
    [[nodiscard]] std::optional<V> exchange(String const& key, V value) {
        auto [it, inserted] = index_.try_emplace(key, entries_.size());
        if (inserted) {
            entries_.emplace_back(key, std::move(value));
            return std::nullopt;
        }
        return std::exchange(entries_[it->second].second, std::move(value));
    }
    V const* find(String const& key) const {
        auto it = index_.find(key);
        return it == index_.end() ? nullptr : &entries_[it->second].second;
    }
    bool contains(String const& key) const { return index_.count(key) != 0; }
    bool erase(String const& key) {
        auto it = index_.find(key);
        if (it == index_.end()) return false;
        std::size_t pos = it->second;
        index_.erase(it);
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(pos));
        for (auto& [k, i] : index_)
            if (i > pos) --i;
        return true;
    }
    std::vector<entry> const& entries() const noexcept { return entries_; }
    std::size_t size() const noexcept { return entries_.size(); }
    bool empty() const noexcept { return entries_.empty(); }

private:
    std::vector<entry> entries_;
    std::unordered_map<String, std::size_t, StringHash> index_;
};

} // namespace tesk
