#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXOWNERTABLE_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXOWNERTABLE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kivo::Data::Base {

class Object;

/// The records of an index, found by the object each is filed for: a hash set of pointers to
/// records that carry that object themselves, in a member `Object* key`. It costs one pointer
/// per slot, between 8/7 and 16/7 slots per record while it grows (linear probing, at most
/// seven eighths full), where a tree map would take a node of 48 bytes per record. A slot also
/// keeps three bits of its key's hash in the pointer's alignment bits, so a lookup reads the
/// record (likely a cache miss in a large index) for one in eight of the other keys it probes.
///
/// A record's key must not change while the record is in the table, and no two records in it
/// may share a key. Not thread-safe: its index's owner serialises every call.
template <class Record>
class PropertyIndexOwnerTable {
public:
    /// An empty table, without slots.
    PropertyIndexOwnerTable() = default;
    PropertyIndexOwnerTable(const PropertyIndexOwnerTable&) = delete;
    PropertyIndexOwnerTable& operator=(const PropertyIndexOwnerTable&) = delete;

    /// The record filed for `owner`, or null (always null for a null owner).
    Record* find(const Object* owner) const {
        if (m_size == 0 || owner == nullptr) return nullptr;
        const std::uintptr_t tag = tagOf(owner);
        for (std::size_t slot = home(owner);; slot = (slot + 1) & mask()) {
            const std::uintptr_t held = m_slots[slot];
            if (held == 0) return nullptr;
            if ((held & TAG_BITS) == tag && recordOf(held)->key == owner) return recordOf(held);
        }
    }
    /// Adds `record` under its key. REQUIRES: a non-null key no record in the table has.
    void insert(Record* record) {
        if ((m_size + 1) * 8 > m_slots.size() * 7)
            rehash(m_slots.empty() ? 16 : m_slots.size() * 2);
        place(record);
        ++m_size;
    }
    /// Removes the record filed for `owner`; nothing when there is none.
    void erase(const Object* owner) {
        if (m_size == 0 || owner == nullptr) return;
        const std::uintptr_t tag = tagOf(owner);
        std::size_t hole = home(owner);
        while (m_slots[hole] != 0 &&
               ((m_slots[hole] & TAG_BITS) != tag || recordOf(m_slots[hole])->key != owner)) {
            hole = (hole + 1) & mask();
        }
        if (m_slots[hole] == 0) return;
        m_slots[hole] = 0;
        --m_size;
        // Moves back every later record of the run that the hole would hide from its home.
        for (std::size_t slot = (hole + 1) & mask(); m_slots[slot] != 0;
             slot = (slot + 1) & mask()) {
            const std::size_t wanted = home(recordOf(m_slots[slot])->key);
            if (((slot - wanted) & mask()) >= ((slot - hole) & mask())) {
                m_slots[hole] = m_slots[slot];
                m_slots[slot] = 0;
                hole = slot;
            }
        }
        if (m_slots.size() > 64 && m_size * 8 < m_slots.size()) rehash(m_slots.size() / 2);
    }
    /// Removes every record and frees the slots.
    void clear() {
        std::vector<std::uintptr_t>().swap(m_slots);
        m_size = 0;
    }

private:
    static constexpr std::uintptr_t TAG_BITS = 7;
    static_assert(alignof(Record) > TAG_BITS, "a record's address leaves room for the tag");

    std::size_t mask() const { return m_slots.size() - 1; }
    // Fibonacci hashing: the multiplication spreads the aligned pointer's bits to the top.
    static std::uint64_t mix(const Object* owner) {
        return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(owner)) *
               0x9E3779B97F4A7C15ULL;
    }
    std::size_t home(const Object* owner) const {
        return static_cast<std::size_t>(mix(owner) >> 32) & mask();
    }
    // The top bits of the hash: independent of the home slot for any table below 2^29 slots.
    static std::uintptr_t tagOf(const Object* owner) {
        return static_cast<std::uintptr_t>(mix(owner) >> 61);
    }
    static Record* recordOf(std::uintptr_t held) {
        return reinterpret_cast<Record*>(held & ~TAG_BITS);
    }
    void place(Record* record) {
        std::size_t slot = home(record->key);
        while (m_slots[slot] != 0) slot = (slot + 1) & mask();
        m_slots[slot] = reinterpret_cast<std::uintptr_t>(record) | tagOf(record->key);
    }
    void rehash(std::size_t slots) {
        std::vector<std::uintptr_t> old(slots, 0);
        old.swap(m_slots);
        for (const std::uintptr_t held : old) {
            if (held != 0) place(recordOf(held));
        }
    }

    // Record addresses with their key's tag, a power of two of them, or none; 0 is empty.
    std::vector<std::uintptr_t> m_slots;
    std::size_t m_size = 0;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXOWNERTABLE_H
