#ifndef QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H
#define QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/SharedPtr.h>
#include <Poco/UUID.h>

#include "Data/Base/Property.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/Base/PropertyIndexUser.h"
#include "Data/Element.h"
#include "Data/OperationResult.h"
#include "Data/XObject.h"
#include "Util/AbstractQuery.h"

namespace Kivo::Data {

class Service;
class ElementWatch;

/// The container face shared by services and resources: their data as JSON, and a
/// description of what their elements look like.
class IContainerObject {
public:
    virtual ~IContainerObject() = default;

    /// The container's data (for a resource: its elements) at the given depth.
    virtual Poco::JSON::Object::Ptr getDataAsJSON(int depth) const = 0;
    /// What the container's elements carry; an empty object where there is nothing to say.
    virtual Poco::JSON::Object::Ptr getSpecificationAsJSON() const;
};

/// A resource of a service: an XObject whose type lies under its service's type, holding the
/// service's elements of one kind. The service does not own it; a concrete resource calls
/// init() once it is fully built, which registers it at the service under its name, and the
/// destructor unregisters it. The service must outlive the resource.
///
/// The resource shares its service's lock from construction on. It keeps property indexes over
/// its elements (PropertyIndexUser, guarded by the index mutex) and observes its elements'
/// events once registerElementEvents was called for them. ElementContainer<E> is a ready
/// implementation of the element container operations.
class AbstractResource : public XObject, public Base::PropertyIndexUser, public IContainerObject {
public:
    /// An element, shared: a container and its callers hold elements by it.
    typedef Poco::SharedPtr<Element> Ptr;
    /// The elements an operation found or listed, in that operation's order.
    typedef std::vector<Ptr> ElementQueryResult;

    /// "description": the key of the resource's description text.
    static const std::string KEY_DESCRIPTION;

    AbstractResource(const AbstractResource&) = delete;
    AbstractResource& operator=(const AbstractResource&) = delete;
    /// Unregisters from the service; a failure is logged.
    ~AbstractResource() override;

    /// The service the resource belongs to; not owned, never null.
    Service* getService() const { return &m_service; }
    /// The "description" property; empty until the resource description sets it.
    const Base::PropertyString& getDescription() const { return m_description; }

    /// @name Element container
    /// A resource that does not hold elements of its own keeps these base answers: no
    /// elements, and INVALID_OPERATION for every operation on them. ElementContainer<E>
    /// implements them.
    ///@{

    /// The number of elements held; 0 in the base.
    virtual std::size_t size() const;
    /// Removes every element; does nothing in the base.
    virtual void clear();
    /// Creates an element from its JSON form and adds it: OK, or the refusal's code with
    /// nothing added.
    virtual OperationResult addElement(const Poco::JSON::Object* json);
    /// Whether an element with `id` is held; false in the base.
    virtual bool hasElement(const Poco::UUID& id) const;
    /// OK with `element` set, or a failure code with `element` left empty.
    virtual OperationResult getElement(const Poco::UUID& id, Ptr& element) const;
    /// Up to `count` elements from position `offset`, in the container's order; `result` is
    /// replaced on success only.
    virtual OperationResult getElements(ElementQueryResult& result, int offset, int count) const;
    /// Removes the element with `id`: OK, or the refusal's code with nothing removed.
    virtual OperationResult removeElement(const Poco::UUID& id);
    /// The owner's removal of the element with `id`: as removeElement, but not gated by
    /// isDeleteAllowed(), which is the clients' gate. A load that must take back what it added
    /// uses it. INVALID_OPERATION in the base.
    virtual OperationResult withdrawElement(const Poco::UUID& id);
    /// Runs an index query over the resource's indexes; `result` receives the elements found.
    virtual OperationResult findElements(const Base::PropertyIndexQuery& query,
                                         ElementQueryResult& result) const;
    /// Applies a client's partial update (Element::updateByJSON) to the element with `id`.
    virtual OperationResult updateElementFromJSON(const Poco::UUID& id,
                                                  const Poco::JSON::Object* json);
    /// A change made to one element by modifyElement, answering the change's result.
    typedef std::function<OperationResult(Element&)> Modification;
    /// The owner's way to change the element with `id` in one step: runs `modify` on it under
    /// the tree's write lock and files the properties it created (first values of optional
    /// properties) at the indexes before the lock goes, as updateElementFromJSON does for its
    /// update. Answers what `modify` answers; NOT_FOUND, without calling it, for an unknown id.
    /// No access gate is asked: gating is the caller's business. INVALID_OPERATION in the base.
    virtual OperationResult modifyElement(const Poco::UUID& id, const Modification& modify);
    /// Adds the elements of a JSON array of element objects (their JSON form).
    virtual OperationResult initResourceDataFromJSON(const Poco::JSON::Array* elements);
    /// A new element of the kind the resource holds that does not join it: not held, indexed
    /// or observed, with a lock of its own. It shows what an element carries before one exists
    /// (a client's new element is checked against it). Null in the base.
    virtual Ptr createDetachedElement() const;
    ///@}

    /// The resource's own property keys (Object's); getElementPropertyKeys lists the indexed
    /// element keys.
    using XObject::getPropertyKeys;
    /// Every element property key the resource keeps an index for, ascending.
    std::vector<Base::PropertyKey> getElementPropertyKeys() const;

    /// The resource description: id, name, uri and description (the shape
    /// initResourceFromJSON reads), whatever the depth.
    Poco::JSON::Object::Ptr toJSON(int depth) const override;
    /// The description, plus "elements" (as getDataAsJSON(depth) lists them) when asked.
    virtual Poco::JSON::Object::Ptr toJSON(bool withElements, int depth) const;
    /// {"elements": [...]}: every element (getElements from 0 to size()) at `depth`.
    Poco::JSON::Object::Ptr getDataAsJSON(int depth) const override;
    /// {"elements": [...]}: every element with the keys in `expand` expanded
    /// (Element::toJSON(expand)).
    virtual Poco::JSON::Object::Ptr getDataAsJSON(const std::vector<std::string>& expand) const;
    /// Reads the resource description: every registered property ("id", "name", "uri",
    /// "description" and any the concrete resource adds) is required. Stops at the first
    /// failure with its code (UNKNOWN_PROPERTY, INVALID_VALUE), keeping what was set before it.
    virtual OperationResult initResourceFromJSON(const Poco::JSON::Object* json);

    /// Keys a new element must carry; none in the base.
    virtual std::set<Base::PropertyKey> getRequiredProperties() const;

    /// @name Client access gates
    /// The base allows reading only.
    ///@{

    /// Whether clients may search the elements (findElements); true in the base.
    virtual bool isGetAllowed() const;
    /// Whether clients may add and update elements (addElement, updateElementFromJSON); false
    /// in the base.
    virtual bool isPostAllowed() const;
    /// Whether clients may write the element property `key`; false in the base. The library
    /// itself asks the element's own gate (Element::isPostAllowed) before a write.
    virtual bool isPostAllowed(const Base::PropertyKey& key) const;
    /// Whether clients may remove elements (removeElement); false in the base.
    virtual bool isDeleteAllowed() const;
    ///@}

    /// Called on a pool thread for every DataChanged of an element whose events the resource
    /// observes (registerElementEvents); does nothing in the base.
    virtual void onElementDataChanged(Element::DataChangedEventPayload& payload);

    /// Registers at the service. Throws Poco::AssertionViolationException("Failed to register
    /// resource <name> to parent service <service>") when the name is taken.
    void init();

protected:
    /// Type `typeName` under the service's type; no name, the null id. The URI is the type's
    /// path followed by its name ("/<service>/<typeName>"), the prefix of its elements' URIs.
    AbstractResource(Service& service, const std::string& typeName);
    /// The given name and id, and the URI as above.
    AbstractResource(Service& service, const std::string& typeName, const std::string& name,
                     const Base::PropertyValueUuid& id);

    /// Observe / stop observing an element's DataChanged and OptionalPropertySet events. A
    /// concrete resource calls these as it adds and removes elements of its own (constructed
    /// with it); stop observing before the element is destroyed.
    ///
    /// The resource observes without subscribing: it is not among the events' delegates
    /// (empty() and clear() do not see it) and is called before them, on the same terms. A
    /// DataChanged raise reaches onElementDataChanged when the element was observed as it was
    /// raised; disabling an event stops the resource's calls as it stops the delegates'.
    /// Throws Poco::InvalidArgumentException("Element of another resource") for an element
    /// constructed with another resource.
    void registerElementEvents(Element& element);
    /// Stops observing `element`'s events. A delivery to the resource that is running now is
    /// waited for; none follows once this returns.
    void unregisterElementEvents(Element& element);
    /// Runs `build`, which constructs one element of this resource, and holds what it made.
    /// When `json` carries a valid "id" text, the element starts with that id instead of a
    /// random one its JSON initialisation would replace; nothing else about it changes.
    static Ptr buildElement(const Poco::JSON::Object& json, const std::function<Element*()>& build);
    /// Lets `element` read its JSON (Element::initElementFromJSON, which containers may call).
    static OperationResult initElement(Element& element, const Poco::JSON::Object* json);
    /// Files every present property of `element` that yields an index at the index of its
    /// key (created on first use); a property filed already stays as it is.
    void indexElementProperties(Element& element);
    /// Drops `element` from every index of the resource.
    void unindexElementProperties(Element& element);
    /// Marks `element` as held by the resource and tells the service's element observer, if
    /// any, that it was added. A container calls it under the write lock once the element has
    /// joined it; from then on the element's changes reach the observer.
    void announceAdded(Element& element);
    /// Tells the service's element observer, if any, that `element` leaves the resource, and
    /// marks it as no longer held. A container calls it under the write lock as it takes the
    /// element out.
    void announceRemoved(Element& element);
    /// Records where the container keeps `element`'s Ptr (null as it takes it out), so that
    /// heldEntry maps an indexed object back to it without a lookup by id. The Ptr must stay
    /// at that address while recorded (a map entry does). REQUIRES: the write lock.
    static void setHeldEntry(Element& element, const Ptr* entry);
    /// The Ptr this resource recorded for `element`, or null when the resource does not hold
    /// it. REQUIRES: the read lock.
    const Ptr* heldEntry(const Element& element) const;
    /// The description of a resource whose elements look like `prototype` (a fresh element,
    /// whose unset optional properties are given their initial values here):
    ///
    ///     {"element": <type name>, "required": [<key>, ...],
    ///      "properties": {<key>: {"kind": <kind>, "default": <value>, "optional": <bool>,
    ///                             "writable": <isPostAllowed(key) of the element>, ...}}}
    ///
    /// where `<kind>` is "boolean", "integer" (with "minimum", "maximum", "resolution" where
    /// set), "string" (with "format": "text", "date", "time", "date-time", "language",
    /// "service-category", "version", "custom", "point", "rectangle"), "enum" (with
    /// "values"), "uri", "uuid", "array" or "reference"; "value" for any other kind.
    Poco::JSON::Object::Ptr specificationOf(Element& prototype) const;

    /// Files an element's optional property at the index of its key, if the resource keeps
    /// one, when the property receives its first value. Runs on the writing thread with the
    /// element's write lock held; notifications from unknown elements are dropped with a
    /// warning.
    void onOptionalPropertyChanged(Element::OptionalPropertySetEventPayload& payload);

private:
    friend class Element;
    friend class ElementWatch;

    void registerOwnProperties();
    void onDataChanged(Element::DataChangedEventPayload& payload);
    // Files `property` at the index of its key if the resource keeps one; false if filing
    // fails.
    bool indexNewProperty(Base::PropertyBase& property);
    Poco::JSON::Object::Ptr elementsAsJSON(
        const std::function<Poco::JSON::Object::Ptr(const Element&)>& render) const;

    Service& m_service;
    Base::PropertyString m_description;
    // The observation of the resource's elements; DataChanged deliveries queued for the
    // resource share it, so it outlives them.
    const std::shared_ptr<ElementWatch> m_watch;
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H
