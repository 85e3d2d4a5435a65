#ifndef QESSERVICEDATALIB_DATA_ELEMENTCONTAINER_H
#define QESSERVICEDATALIB_DATA_ELEMENTCONTAINER_H

#include <map>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

#include "Data/AbstractResource.h"
#include "Data/Base/PropertyUuid.h"
#include "Data/Element.h"
#include "Data/OperationResult.h"

namespace Kivo::Data {

/// A ready resource that holds elements of class E, so that a concrete resource is a few
/// lines: derive from ElementContainer<E>, pass service and names, call init(), and override
/// the access gates and getRequiredProperties as the resource needs.
///
/// E must be an Element with a constructor E(AbstractResource&); elements are created by the
/// container, share the resource's lock (which the resource shares with its service: one lock
/// per tree) and are kept by Ptr, ordered by id.
///
/// Contract of the container operations:
/// - addElement(json): FORBIDDEN unless isPostAllowed(); INVALID_OBJECT when a key of
///   getRequiredProperties() is missing or null; the element's own code when its JSON
///   initialisation refuses the object; DUPLICATE when an element with that id is present.
///   On refusal nothing stays behind (no element, no index entry).
/// - getElements(result, offset, count): `count` elements from position `offset` in id order
///   (fewer at the end); INVALID_VALUE for a negative offset or count or an offset past the
///   end. `result` is replaced on success only.
/// - findElements(query, result): FORBIDDEN unless isGetAllowed(); the index query's objects
///   mapped back to elements, in the query's order.
/// - updateElementFromJSON(id, json): FORBIDDEN unless isPostAllowed(); NOT_FOUND for an
///   unknown id; otherwise Element::updateByJSON's result. Properties an update creates (first
///   values of optional properties) are indexed before it returns.
/// - removeElement(id): FORBIDDEN unless isDeleteAllowed(); NOT_FOUND for an unknown id. The
///   element leaves the container and every index, then stops being observed; the container's
///   Ptr goes under the tree's write lock. The element is destroyed when the last Ptr to it
///   goes (a caller still holding one must drop it before the resource goes).
/// - withdrawElement(id): removeElement without its gate, for the owner; NOT_FOUND for an
///   unknown id.
/// - clear() and the destructor remove every element the same way.
/// - The service's element observer (IElementObserver), if any, is told of every element that
///   joins (after it is held and indexed) and leaves (before it is dropped), under the write
///   lock; refused additions are never reported.
///
/// Destruction: a class deriving from ElementContainer calls clear() first thing in its
/// destructor. DataChanged deliveries run on pool threads and reach the resource through its
/// virtual onElementDataChanged; the container's own destructor runs only after the derived
/// part is gone, too late to stop a delivery from calling into it. clear() stops observing
/// every element and waits for a delivery already running.
///
/// removeElement, clear and the destructor stop observing without holding the tree's lock, so
/// onElementDataChanged may take it; call them without holding it either, or a delivery
/// waiting for the lock and the removal waiting for that delivery block each other.
///
/// Every element property that yields an index is indexed under its key; optional properties
/// once they are set. Thread safety: the container's operations take the tree's lock; queries
/// take the index mutex as well (lock order: tree lock, then index mutex).
template <class E>
class ElementContainer : public AbstractResource {
public:
    ~ElementContainer() override;

    std::size_t size() const override;
    void clear() override;
    OperationResult addElement(const Poco::JSON::Object* json) override;
    bool hasElement(const Poco::UUID& id) const override;
    OperationResult getElement(const Poco::UUID& id, Ptr& element) const override;
    OperationResult getElements(ElementQueryResult& result, int offset, int count) const override;
    OperationResult removeElement(const Poco::UUID& id) override;
    OperationResult withdrawElement(const Poco::UUID& id) override;
    OperationResult findElements(const Base::PropertyIndexQuery& query,
                                 ElementQueryResult& result) const override;
    OperationResult updateElementFromJSON(const Poco::UUID& id,
                                          const Poco::JSON::Object* json) override;
    OperationResult modifyElement(const Poco::UUID& id, const Modification& modify) override;
    /// Adds every object of `elements` in order; stops at the first refusal with its code
    /// (the elements added before it stay).
    OperationResult initResourceDataFromJSON(const Poco::JSON::Array* elements) override;
    /// What an element of this resource carries, read from a fresh E (see
    /// AbstractResource::specificationOf for the shape).
    Poco::JSON::Object::Ptr getSpecificationAsJSON() const override;
    /// A fresh E built under this resource, which it does not join.
    Ptr createDetachedElement() const override;

    /// The container allows reading, writing and deleting; override to restrict clients.
    bool isPostAllowed() const override { return true; }
    /// True for every key; override to restrict clients.
    bool isPostAllowed(const Base::PropertyKey&) const override { return true; }
    /// True; override to restrict clients.
    bool isDeleteAllowed() const override { return true; }

protected:
    /// An empty resource of `service` whose type is `typeName` under the service's type; it
    /// registers at the service when the derived constructor calls init().
    ElementContainer(Service& service, const std::string& typeName)
        : AbstractResource(service, typeName) {}
    /// The same with the given name and id.
    ElementContainer(Service& service, const std::string& typeName, const std::string& name,
                     const Base::PropertyValueUuid& id)
        : AbstractResource(service, typeName, name, id) {}

private:
    // Keyed by UuidKey, which orders as Poco::UUID does: elements stay listed in id order.
    typedef std::map<Base::UuidKey, Ptr> ElementMap;

    bool hasRequiredProperties(const Poco::JSON::Object& json) const;
    // modifyElement for any callable, so the container's own update pays no indirection.
    template <typename Modify>
    OperationResult modifyHeld(const Poco::UUID& id, const Modify& modify);
    // Removes a held element, ungated; see removeElement.
    OperationResult removeHeld(const Poco::UUID& id);
    // Starts observing and indexing a held element.
    void attach(Element& element);
    // Stops observing elements taken out of the container and out of the indexes, then drops
    // them. REQUIRES: the tree's lock is not held.
    void release(ElementMap& removed);

    ElementMap m_elements;  // guarded by the tree's lock
};

template <class E>
Poco::JSON::Object::Ptr ElementContainer<E>::getSpecificationAsJSON() const {
    // The prototype never joins the resource; it only needs a resource to be built under.
    E prototype(const_cast<ElementContainer&>(*this));
    return specificationOf(prototype);
}

template <class E>
AbstractResource::Ptr ElementContainer<E>::createDetachedElement() const {
    // As for the prototype above: the element only needs a resource to be built under.
    return Ptr(new E(const_cast<ElementContainer&>(*this)));
}

template <class E>
ElementContainer<E>::~ElementContainer() {
    clear();
}

template <class E>
std::size_t ElementContainer<E>::size() const {
    Util::ScopedRecursiveReadLock lock(lockRef());
    return m_elements.size();
}

template <class E>
void ElementContainer<E>::clear() {
    ElementMap removed;
    {
        Util::ScopedRecursiveWriteLock lock(lockRef());
        for (auto& entry : m_elements) {
            unindexElementProperties(*entry.second);
            announceRemoved(*entry.second);
            setHeldEntry(*entry.second, nullptr);
        }
        removed.swap(m_elements);
    }
    release(removed);
}

template <class E>
bool ElementContainer<E>::hasRequiredProperties(const Poco::JSON::Object& json) const {
    for (const Base::PropertyKey& key : getRequiredProperties()) {
        if (!json.has(key) || json.get(key).isEmpty()) return false;
    }
    return true;
}

template <class E>
OperationResult ElementContainer<E>::addElement(const Poco::JSON::Object* json) {
    if (!isPostAllowed()) return OperationResult(OperationResult::FORBIDDEN);
    if (json == nullptr || !hasRequiredProperties(*json)) {
        return OperationResult(OperationResult::INVALID_OBJECT);
    }
    Util::ScopedRecursiveWriteLock lock(lockRef());
    Ptr element = buildElement(*json, [this] { return new E(*this); });
    element->adoptPropertyLock(*this);
    const OperationResult initialised = initElement(*element, json);
    if (!initialised.isSuccess()) return initialised;
    const Base::UuidKey id(element->getIdentification());
    // One search of the map serves both the duplicate check and the insertion.
    const auto next = m_elements.lower_bound(id);
    if (next != m_elements.end() && next->first == id) {
        return OperationResult(OperationResult::DUPLICATE);
    }
    setHeldEntry(*element, &m_elements.emplace_hint(next, id, element)->second);
    attach(*element);
    announceAdded(*element);
    return OperationResult(OperationResult::OK);
}

template <class E>
bool ElementContainer<E>::hasElement(const Poco::UUID& id) const {
    Util::ScopedRecursiveReadLock lock(lockRef());
    return m_elements.count(Base::UuidKey(id)) != 0;
}

template <class E>
OperationResult ElementContainer<E>::getElement(const Poco::UUID& id, Ptr& element) const {
    Util::ScopedRecursiveReadLock lock(lockRef());
    const auto entry = m_elements.find(Base::UuidKey(id));
    if (entry == m_elements.end()) return OperationResult(OperationResult::NOT_FOUND);
    element = entry->second;
    return OperationResult(OperationResult::OK);
}

template <class E>
OperationResult ElementContainer<E>::getElements(ElementQueryResult& result, int offset,
                                                 int count) const {
    Util::ScopedRecursiveReadLock lock(lockRef());
    if (offset < 0 || count < 0 || static_cast<std::size_t>(offset) > m_elements.size()) {
        return OperationResult(OperationResult::INVALID_VALUE);
    }
    ElementQueryResult page;
    auto entry = m_elements.begin();
    std::advance(entry, offset);
    for (; entry != m_elements.end() && page.size() < static_cast<std::size_t>(count); ++entry) {
        page.push_back(entry->second);
    }
    result.swap(page);
    return OperationResult(OperationResult::OK);
}

template <class E>
OperationResult ElementContainer<E>::removeElement(const Poco::UUID& id) {
    if (!isDeleteAllowed()) return OperationResult(OperationResult::FORBIDDEN);
    return removeHeld(id);
}

template <class E>
OperationResult ElementContainer<E>::withdrawElement(const Poco::UUID& id) {
    return removeHeld(id);
}

template <class E>
OperationResult ElementContainer<E>::removeHeld(const Poco::UUID& id) {
    ElementMap removed;
    {
        Util::ScopedRecursiveWriteLock lock(lockRef());
        const auto entry = m_elements.find(Base::UuidKey(id));
        if (entry == m_elements.end()) return OperationResult(OperationResult::NOT_FOUND);
        unindexElementProperties(*entry->second);
        announceRemoved(*entry->second);
        setHeldEntry(*entry->second, nullptr);
        removed.insert(m_elements.extract(entry));
    }
    release(removed);
    return OperationResult(OperationResult::OK);
}

template <class E>
OperationResult ElementContainer<E>::findElements(const Base::PropertyIndexQuery& query,
                                                  ElementQueryResult& result) const {
    if (!isGetAllowed()) return OperationResult(OperationResult::FORBIDDEN);
    Util::ScopedRecursiveReadLock lock(lockRef());
    ElementQueryResult found;
    for (Base::Object* object : find(query)) {
        // The container makes exactly E's: checking the type spares the general cast. Any
        // other owner is there only when a filed property moved to it.
        const Element* element = typeid(*object) == typeid(E) ? static_cast<const E*>(object)
                                                               : dynamic_cast<const Element*>(object);
        if (element == nullptr) continue;
        if (const Ptr* entry = heldEntry(*element)) found.push_back(*entry);
    }
    result.swap(found);
    return OperationResult(OperationResult::OK);
}

template <class E>
OperationResult ElementContainer<E>::updateElementFromJSON(const Poco::UUID& id,
                                                           const Poco::JSON::Object* json) {
    if (!isPostAllowed()) return OperationResult(OperationResult::FORBIDDEN);
    return modifyHeld(id, [json](Element& element) { return element.updateByJSON(json); });
}

template <class E>
OperationResult ElementContainer<E>::modifyElement(const Poco::UUID& id,
                                                   const Modification& modify) {
    return modifyHeld(id, modify);
}

template <class E>
template <typename Modify>
OperationResult ElementContainer<E>::modifyHeld(const Poco::UUID& id, const Modify& modify) {
    Util::ScopedRecursiveWriteLock lock(lockRef());
    const auto entry = m_elements.find(Base::UuidKey(id));
    if (entry == m_elements.end()) return OperationResult(OperationResult::NOT_FOUND);
    const OperationResult result = modify(*entry->second);
    // An update suppresses OptionalPropertySet: index what it created here.
    indexElementProperties(*entry->second);
    return result;
}

template <class E>
OperationResult ElementContainer<E>::initResourceDataFromJSON(const Poco::JSON::Array* elements) {
    if (elements == nullptr) return OperationResult(OperationResult::PROCESSING_ERROR);
    for (std::size_t i = 0; i < elements->size(); ++i) {
        const OperationResult result = addElement(elements->getObject(i).get());
        if (!result.isSuccess()) return result;
    }
    return OperationResult(OperationResult::OK);
}

template <class E>
void ElementContainer<E>::attach(Element& element) {
    registerElementEvents(element);
    indexElementProperties(element);
}

template <class E>
void ElementContainer<E>::release(ElementMap& removed) {
    // Ending the observation waits for a delivery to the resource that is running now, and
    // that delivery may be waiting for the tree's lock in onElementDataChanged.
    for (auto& entry : removed) unregisterElementEvents(*entry.second);
    // References into the tree are read under its read lock: a target must not go meanwhile.
    Util::ScopedRecursiveWriteLock lock(lockRef());
    removed.clear();
}

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_ELEMENTCONTAINER_H
