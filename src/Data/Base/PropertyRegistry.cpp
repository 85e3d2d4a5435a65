#include "Data/Base/PropertyRegistry.h"

#include <algorithm>
#include <atomic>
#include <mutex>

namespace Kivo::Data::Base {

namespace {

// The distance of a key without property: no property lies at its object's own address.
constexpr std::uintptr_t ABSENT = 0;
// Member properties lie within this many bytes after their object's start. A property farther
// away, or before it, is not a member, and a layout with it would serve that object alone.
constexpr std::uintptr_t MAX_DISTANCE = std::uintptr_t(1) << 16;

std::uintptr_t addressOf(const void* pointer) { return reinterpret_cast<std::uintptr_t>(pointer); }

// std::string::compare's order, byte-wise. An object's keys mostly differ in their first byte,
// which settles the order without the library's call; a string's terminating zero stands in
// for the first byte of the empty text.
int compareKeys(const std::string& a, const std::string& b) {
    const auto first = static_cast<unsigned char>(a[0]);
    const auto other = static_cast<unsigned char>(b[0]);
    if (first != other) return first < other ? -1 : 1;
    return a.compare(b);
}

}  // namespace

// A key and its property: in an object's own list the property's address, in a layout its
// distance from the object (ABSENT for none).
struct PropertyRegistry::Slot {
    const std::string* key;
    std::uintptr_t value;
};

// A run of slots in key order.
struct PropertyRegistry::Slots {
    const Slot* first;
    std::size_t size;

    // A binary search written out: every property look-up of an object comes here, and
    // std::lower_bound with a comparator was not inlined, costing more than its comparisons.
    std::size_t find(const std::string& key) const {
        std::size_t low = 0;
        std::size_t high = size;
        while (low < high) {
            const std::size_t middle = (low + high) / 2;
            const int order = compareKeys(*first[middle].key, key);
            if (order == 0) return middle;
            if (order < 0) {
                low = middle + 1;
            } else {
                high = middle;
            }
        }
        return npos;
    }
};

// Keys with the distances of their properties, and the changes that lead on to other layouts.
struct PropertyRegistry::Layout {
    // A change made to a layout, and the layout it gives.
    struct Step {
        const std::string* key;
        std::uintptr_t distance;
        const Layout* to;
        const Step* next;
    };

    // The layout `key` at `distance` gives, if that change has been made before.
    static const Layout* after(const Step* step, const std::string& key, std::uintptr_t distance) {
        for (; step != nullptr; step = step->next) {
            if (step->key == &key && step->distance == distance) return step->to;
        }
        return nullptr;
    }

    std::vector<Slot> slots;
    // The changes made so far, latest first: each is added under the table's mutex and read
    // without it, as a step is never changed or freed once added.
    mutable std::atomic<const Step*> steps{nullptr};
};

namespace {

// Sets `key` to `value` in slots ordered by key, adding the key in its place if unknown.
template <class Slot>
void setIn(std::vector<Slot>& slots, const std::string& key, std::uintptr_t value) {
    auto at = std::lower_bound(slots.begin(), slots.end(), key,
                               [](const Slot& slot, const std::string& k) { return *slot.key < k; });
    if (at != slots.end() && *at->key == key) {
        at->value = value;
    } else {
        slots.insert(at, Slot{&key, value});
    }
}

// Layouts are made under this mutex, and counted; they are never freed, so the objects that
// share one need not count their uses. The steps from the registry without key start at
// `first`.
template <class Step>
struct LayoutTable {
    std::mutex mutex;
    std::size_t made = 0;
    std::atomic<const Step*> first{nullptr};
};

template <class Step>
LayoutTable<Step>& layoutTable() {
    // Never destroyed: objects of static storage may go after any static table would.
    static LayoutTable<Step>* const table = new LayoutTable<Step>;
    return *table;
}

}  // namespace

PropertyRegistry::Slots PropertyRegistry::slots() const {
    if (m_word == 0) return Slots{nullptr, 0};
    const std::vector<Slot>& list =
        isOwn() ? own() : reinterpret_cast<const Layout*>(m_word)->slots;
    return Slots{list.data(), list.size()};
}

std::vector<PropertyRegistry::Slot>& PropertyRegistry::own() const {
    return *reinterpret_cast<std::vector<Slot>*>(m_word & ~OWN);
}

std::size_t PropertyRegistry::size() const { return slots().size; }

std::size_t PropertyRegistry::find(const std::string& key) const {
    return slots().find(key);
}

const std::string& PropertyRegistry::keyAt(std::size_t at) const { return *slots().first[at].key; }

PropertyBase* PropertyRegistry::propertyAt(const Object& owner, std::size_t at) const {
    const std::uintptr_t value = slots().first[at].value;
    if (isOwn()) return reinterpret_cast<PropertyBase*>(value);
    return value == ABSENT ? nullptr : reinterpret_cast<PropertyBase*>(addressOf(&owner) + value);
}

void PropertyRegistry::set(const Object& owner, const std::string& key, PropertyBase* property) {
    if (!isOwn()) {
        const std::uintptr_t distance =
            property == nullptr ? ABSENT : addressOf(property) - addressOf(&owner);
        if (property == nullptr || (distance != ABSENT && distance < MAX_DISTANCE)) {
            const Layout* from = m_word == 0 ? nullptr : reinterpret_cast<const Layout*>(m_word);
            if (const Layout* to = step(from, key, distance)) {
                m_word = addressOf(to);
                return;
            }
        }
        makeOwn(owner);
    }
    setIn(own(), key, addressOf(property));
}

const PropertyRegistry::Layout* PropertyRegistry::step(const Layout* from, const std::string& key,
                                                       std::uintptr_t distance) {
    LayoutTable<Layout::Step>& table = layoutTable<Layout::Step>();
    std::atomic<const Layout::Step*>& steps = from == nullptr ? table.first : from->steps;
    if (const Layout* to = Layout::after(steps.load(std::memory_order_acquire), key, distance)) {
        return to;
    }
    std::lock_guard<std::mutex> lock(table.mutex);
    const Layout::Step* const known = steps.load(std::memory_order_relaxed);
    if (const Layout* to = Layout::after(known, key, distance)) return to;
    if (table.made == MAX_LAYOUTS) return nullptr;
    ++table.made;
    Layout* made = new Layout;
    if (from != nullptr) made->slots = from->slots;
    setIn(made->slots, key, distance);
    steps.store(new Layout::Step{&key, distance, made, known}, std::memory_order_release);
    return made;
}

void PropertyRegistry::makeOwn(const Object& owner) {
    const std::size_t count = size();
    std::vector<Slot>* list = new std::vector<Slot>;
    list->reserve(count + 1);
    for (std::size_t at = 0; at < count; ++at) {
        list->push_back(Slot{&keyAt(at), addressOf(propertyAt(owner, at))});
    }
    m_word = addressOf(list) | OWN;
}

void PropertyRegistry::clear() {
    if (isOwn()) delete &own();
    m_word = 0;
}

}  // namespace Kivo::Data::Base
