// A hash map of many entries that no insertion holds up for long: it is spread over small ones, each of which
// moves its entries by itself when it grows, and no two at the same time. A large one moves a hundred
// thousand entries at once, some 10 ms.
//
// As the library's: of its interface, what is needed here. An insertion or an erasure leaves the iterators of
// other entries as they are, as long as nothing is inserted.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <unordered_map>
#include <utility>

template <typename Key, typename Value, typename Hash = std::hash<Key>>
struct SpreadMap {
    static constexpr size_t PARTS = 64;
    using Part = std::unordered_map<Key, Value, Hash>;

    template <bool CONST>
    struct Iterator {
        using Parts = std::conditional_t<CONST, const SpreadMap, SpreadMap>;
        using Inner = std::conditional_t<CONST, typename Part::const_iterator, typename Part::iterator>;
        using iterator_category = std::forward_iterator_tag;
        using value_type = typename Part::value_type;
        using difference_type = std::ptrdiff_t;
        using reference = std::conditional_t<CONST, const value_type&, value_type&>;
        using pointer = std::remove_reference_t<reference>*;

        Parts* map = nullptr;
        size_t part = PARTS;  // PARTS: behind the last entry
        Inner inner = {};

        reference operator*() const { return *inner; }
        pointer operator->() const { return &*inner; }
        Iterator& operator++() {
            ++inner;
            return skipEmpty();
        }
        bool operator==(const Iterator& other) const {
            return part == other.part && (part == PARTS || inner == other.inner);
        }
        // On to the next part that has an entry, where this one is at its end.
        Iterator& skipEmpty() {
            while (part < PARTS && inner == map->parts[part].end()) {
                if (++part < PARTS) inner = map->parts[part].begin();
            }
            return *this;
        }
        operator Iterator<true>() const {  // NOLINT(google-explicit-constructor): as the library's
            return {map, part, inner};
        }
    };
    using iterator = Iterator<false>;
    using const_iterator = Iterator<true>;

    std::array<Part, PARTS> parts = staggered();

    // Parts of different sizes, each to grow at a time of its own.
    static std::array<Part, PARTS> staggered() {
        std::array<Part, PARTS> parts;
        for (size_t part = 0; part < PARTS; ++part) parts[part].rehash((PARTS + part) / 4);
        return parts;
    }
    static size_t partOf(const Key& key) {
        constexpr uint64_t MIX = 0x9e3779b97f4a7c15;  // spreads hashes that are mere numbers
        return static_cast<size_t>(Hash{}(key)*MIX >> (64 - std::bit_width(PARTS - 1)));
    }

    iterator begin() { return iterator{this, 0, parts[0].begin()}.skipEmpty(); }
    iterator end() { return {}; }
    const_iterator begin() const { return const_iterator{this, 0, parts[0].begin()}.skipEmpty(); }
    const_iterator end() const { return {}; }
    iterator find(const Key& key) {
        const size_t part = partOf(key);
        const auto found = parts[part].find(key);
        return found == parts[part].end() ? end() : iterator{this, part, found};
    }
    const_iterator find(const Key& key) const {
        const size_t part = partOf(key);
        const auto found = parts[part].find(key);
        return found == parts[part].end() ? end() : const_iterator{this, part, found};
    }
    bool contains(const Key& key) const { return parts[partOf(key)].contains(key); }
    const Value& at(const Key& key) const { return parts[partOf(key)].at(key); }
    Value& operator[](const Key& key) { return parts[partOf(key)][key]; }
    std::pair<iterator, bool> try_emplace(const Key& key) {
        const size_t part = partOf(key);
        const auto [entry, added] = parts[part].try_emplace(key);
        return {{this, part, entry}, added};
    }
    size_t erase(const Key& key) { return parts[partOf(key)].erase(key); }
    void erase(const_iterator entry) { parts[entry.part].erase(entry.inner); }
    void clear() {
        for (Part& part : parts) part.clear();
    }
    size_t size() const {
        size_t count = 0;
        for (const Part& part : parts) count += part.size();
        return count;
    }
};
