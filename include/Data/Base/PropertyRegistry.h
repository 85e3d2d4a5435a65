#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYREGISTRY_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYREGISTRY_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Kivo::Data::Base {

class Object;
class PropertyBase;

/// The registry of one object: its property keys in byte-wise order, each with the property
/// registered under it or none (a key known but absent). It costs the object one word.
///
/// The objects of one class register the same member properties under the same keys, each at
/// the same distance from its object. Such a registry is a pointer to a layout those objects
/// share: the list of keys and distances, immutable, made once per process and found again
/// through the change that leads to it from the layout before. An object whose property lies
/// outside it (an optional property, say), or one of a process that has made MAX_LAYOUTS
/// layouts already, keeps a list of key and property pointers of its own instead.
///
/// Keys are pooled: equal keys are passed as the same object, which outlives every registry.
/// Not thread-safe: the object's lock serialises the calls on one registry. Layouts are made
/// and found under a mutex of their own, from any thread.
class PropertyRegistry {
public:
    /// What find() answers for an unknown key.
    static constexpr std::size_t npos = SIZE_MAX;
    /// How many layouts a process makes at most; each stays until the process ends.
    static constexpr std::size_t MAX_LAYOUTS = 4096;

    /// No key.
    PropertyRegistry() = default;
    PropertyRegistry(const PropertyRegistry&) = delete;
    PropertyRegistry& operator=(const PropertyRegistry&) = delete;
    ~PropertyRegistry() { clear(); }

    /// How many keys are known, present or absent.
    std::size_t size() const;
    /// The position of `key`, or npos.
    std::size_t find(const std::string& key) const;
    /// The pooled key at `at` (less than size()).
    const std::string& keyAt(std::size_t at) const;
    /// The property at `at` (less than size()) of `owner`, the object holding this registry;
    /// null for an absent key.
    PropertyBase* propertyAt(const Object& owner, std::size_t at) const;
    /// Puts `property` (or none) under the pooled `key` of `owner`, the object holding this
    /// registry; an unknown key is added in its place. REQUIRES: `property` is not what
    /// the key holds already; layouts remember every change made to them, and one that
    /// changes nothing would make a second copy of a layout.
    void set(const Object& owner, const std::string& key, PropertyBase* property);
    /// Forgets every key.
    void clear();

private:
    struct Slot;
    struct Layout;
    struct Slots;

    bool isOwn() const { return (m_word & OWN) != 0; }
    // The keys with their properties (own list) or distances (layout).
    Slots slots() const;
    // The object's own list.
    std::vector<Slot>& own() const;
    // Makes the object's own list from its layout.
    void makeOwn(const Object& owner);
    // The layout `from` (null: the one without key) gives with `key` at `distance`, made now
    // if no object has made it before; null when the process has made MAX_LAYOUTS.
    static const Layout* step(const Layout* from, const std::string& key, std::uintptr_t distance);

    static constexpr std::uintptr_t OWN = 1;
    // A Layout, 0 for the one without key, or a list of the object's own tagged with OWN.
    std::uintptr_t m_word = 0;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYREGISTRY_H
