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
/// seven eighths full), where a tree map would take a node of 48 bytes per record.
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
        for (std::size_t slot = home(owner);; slot = (slot + 1) & mask()) {
            Record* record = m_slots[slot];
            if (record == nullptr || record->key == owner) return record;
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
        std::size_t hole = home(owner);
        while (m_slots[hole] != nullptr && m_slots[hole]->key != owner) hole = (hole + 1) & mask();
        if (m_slots[hole] == nullptr) return;
        m_slots[hole] = nullptr;
        --m_size;
        // Moves back every later record of the run that the hole would hide from its home.
        for (std::size_t slot = (hole + 1) & mask(); m_slots[slot] != nullptr;
             slot = (slot + 1) & mask()) {
            const std::size_t wanted = home(m_slots[slot]->key);
            if (((slot - wanted) & mask()) >= ((slot - hole) & mask())) {
                m_slots[hole] = m_slots[slot];
                m_slots[slot] = nullptr;
                hole = slot;
            }
        }
        if (m_slots.size() > 64 && m_size * 8 < m_slots.size()) rehash(m_slots.size() / 2);
    }
    /// Removes every record and frees the slots.
    void clear() {
        std::vector<Record*>().swap(m_slots);
        m_size = 0;
    }

private:
    std::size_t mask() const { return m_slots.size() - 1; }
    // Fibonacci hashing: the multiplication spreads the aligned pointer's bits to the top.
    std::size_t home(const Object* owner) const {
        const std::uint64_t mixed =
            static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(owner)) *
            0x9E3779B97F4A7C15ULL;
        return static_cast<std::size_t>(mixed >> 32) & mask();
    }
    void place(Record* record) {
        std::size_t slot = home(record->key);
        while (m_slots[slot] != nullptr) slot = (slot + 1) & mask();
        m_slots[slot] = record;
    }
    void rehash(std::size_t slots) {
        std::vector<Record*> old(slots, nullptr);
        old.swap(m_slots);
        for (Record* record : old) {
            if (record != nullptr) place(record);
        }
    }

    std::vector<Record*> m_slots;  // a power of two of them, or none
    std::size_t m_size = 0;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXOWNERTABLE_H
