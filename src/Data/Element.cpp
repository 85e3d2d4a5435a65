#include "Data/Element.h"

#include <algorithm>
#include <typeinfo>

#include <Poco/Bugcheck.h>
#include <Poco/Exception.h>

#include "Data/AbstractResource.h"
#include "Data/OptionalProperty.h"
#include "Data/Service.h"
#include "Data/XObjectReference.h"
#include "DataChangedDispatcher.h"
#include "ElementWatch.h"
#include "Logging/Log.h"

namespace Kivo::Data {

using Base::PropertyBase;
using Base::PropertyEventPayload;
using Base::PropertyKey;
using Util::ScopedRecursiveReadLock;
using Util::ScopedRecursiveWriteLock;

namespace {

const char* const INIT_FAILED = "Failed to initialise element from JSON: ";

// Disables an event for a scope, enabling it again on every exit.
class EventDisabled {
public:
    explicit EventDisabled(Util::Event<IElementDataChangedSource::DataChangedEventPayload>& event)
        : m_event(event) {
        m_event.disable();
    }
    EventDisabled(const EventDisabled&) = delete;
    EventDisabled& operator=(const EventDisabled&) = delete;
    ~EventDisabled() { m_event.enable(); }

private:
    Util::Event<IElementDataChangedSource::DataChangedEventPayload>& m_event;
};

}  // namespace

IElementDataChangedSource::DataChangedEventPayload::DataChangedEventPayload(
    const Element& element, const std::string& key)
    : sourceElementId(element.getIdentification()) {
    if (!key.empty()) sourcePropertyKeys.insert(key);
}

void IElementDataChangedSource::DataChangedEventPayload::addSourcePropertyKeys(
    const KeyCollection& keys) {
    sourcePropertyKeys.insert(keys.begin(), keys.end());
}

namespace {

// The id AbstractResource::buildElement read from the JSON of the element being built on this
// thread, until that element's constructor takes it.
thread_local const Poco::UUID* nextId = nullptr;

// A random UUID costs a read of the system's random source: draw one only for an element
// whose JSON brings no id to replace it.
Base::PropertyValueUuid initialId() {
    if (nextId == nullptr) return Base::PropertyValueUuid();
    const Base::PropertyValueUuid id(*nextId);
    nextId = nullptr;
    return id;
}

}  // namespace

void Element::presetNextId(const Poco::UUID* id) { nextId = id; }

namespace {

// The name of an element built from JSON until its JSON names it: one value copied into each.
// Never destroyed, as elements may be built while statics are torn down.
const Base::PropertyValueString& noName() {
    static const Base::PropertyValueString* const name =
        new Base::PropertyValueString(std::string());
    return *name;
}

}  // namespace

Element::Element(const std::string& typeName, AbstractResource& resource)
    : XObject(childType(resource, typeName), noName(), initialId()),
      m_resource(&resource) {}

Element::Element(const std::string& typeName, AbstractResource& resource,
                 const Base::PropertyValueString& name, const Base::PropertyValueUuid& id)
    : XObject(childType(resource, typeName), name, id),
      m_resource(&resource) {
    if (!adjustElementUri()) {
        QES_LOG_ERROR("Failed to initalise Element!");
        throw Poco::DataException("Failed to initalise Element!");
    }
}

Element::Element(const Element& other)
    : XObject(other),
      IElementDataChangedSource(),
      m_resource(other.m_resource) {}

Element::~Element() {
    try {
        unregisterAllProperties();
        {
            ScopedRecursiveWriteLock lock(lockRef());
            m_optionalProperties = nullptr;
        }
        // DataChanged is not cleared: clearing would disable the delegates that queued
        // deliveries, the destructor's own among them, hold.
        OptionalPropertySet.clear();
    } catch (...) {
        poco_unexpected();
    }
}

Poco::JSON::Object::Ptr Element::toJSON(int depth) const {
    return depth < 0 ? XObject::toJSON(0) : Object::toJSON(depth);
}

Poco::JSON::Object::Ptr Element::toJSON(const std::vector<std::string>& expand) const {
    ScopedRecursiveReadLock lock(lockRef());
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object();
    for (PropertyBase* property : getProperties()) {
        const bool expanded =
            std::find(expand.begin(), expand.end(), property->getKey()) != expand.end();
        json->set(property->getKey(), property->toJSON(expanded ? 1 : 0));
    }
    return json;
}

bool Element::isGetAllowed() const { return true; }

bool Element::isPostAllowed(const PropertyKey&) const { return false; }

bool Element::checkWriteAccess(const PropertyKey& key) const {
    return isChangedByOwner(key) || isPostAllowed(key);
}

OptionalPropertyBase* Element::findOptional(const PropertyKey& key) const {
    for (OptionalPropertyBase* optional = m_optionalProperties; optional != nullptr;
         optional = optional->m_nextOptional) {
        if (optional->key == key) return optional;
    }
    return nullptr;
}

OperationResult Element::setProperty(const PropertyKey& key, const std::string& value) {
    if (!isPostAllowed(key)) {
        QES_LOG_ERROR("Element::setProperty: no write access for property " << key);
        return OperationResult(OperationResult::FORBIDDEN);
    }
    ScopedRecursiveWriteLock lock(lockRef());
    // A property found is known: the second look-up is only needed for the rest.
    PropertyBase* property = findProperty(key);
    if (property == nullptr && !knowsProperty(key)) {
        QES_LOG_ERROR(getType().name << "::setProperty: request with unknown property " << key);
        return OperationResult(OperationResult::UNKNOWN_PROPERTY);
    }
    bool accepted = false;
    if (property != nullptr) {
        accepted = property->setValueFromString(value);
    } else {
        OptionalPropertyBase* optional = findOptional(key);
        if (optional == nullptr || !optional->isNull()) {
            const std::string message = getType().name + "::setProperty: optional property " +
                                        key + " was not properly registered!";
            poco_bugcheck_msg(message.c_str());
        }
        accepted = optional->setValueFromString(value);
    }
    return OperationResult(accepted ? OperationResult::OK : OperationResult::INVALID_VALUE);
}

OperationResult Element::removeProperty(const PropertyKey& key) {
    ScopedRecursiveWriteLock lock(lockRef());
    if (OptionalPropertyBase* optional = findOptional(key)) {
        optional->clear();
        QES_LOG_TRACE(getType().name << "::removeProperty: deleted property " << key);
        return OperationResult(OperationResult::OK);
    }
    if (!knowsProperty(key)) {
        QES_LOG_ERROR(getType().name << "::removeProperty: request for unknown property " << key);
        return OperationResult(OperationResult::UNKNOWN_PROPERTY);
    }
    PropertyBase* property = findProperty(key);
    if (property == nullptr) {
        QES_LOG_WARNING(getType().name << "::removeProperty: tried to delete non-existing property "
                                       << key);
        return OperationResult(OperationResult::NOT_FOUND);
    }
    // Removal is the owner's operation: it does not depend on client write access.
    OwnerWrite ownerWrite(*this, key);
    if (!property->clear()) {
        QES_LOG_ERROR(getType().name << "::removeProperty: action is not available for property "
                                     << key);
        return OperationResult(OperationResult::PROCESSING_ERROR);
    }
    QES_LOG_TRACE(getType().name << "::removeProperty: deleted property " << key);
    return OperationResult(OperationResult::OK);
}

OperationResult Element::updateByJSON(const Poco::JSON::Object* json) {
    ScopedRecursiveWriteLock lock(lockRef());
    if (json == nullptr) {
        QES_LOG_ERROR(getType().name << "::updateByJSON: JSON object is null pointer");
        return OperationResult(OperationResult::PROCESSING_ERROR);
    }
    KeyCollection changed;
    const OperationResult checked = validateUpdate(*json, changed);
    if (!checked.isSuccess()) return checked;
    if (changed.empty()) {
        QES_LOG_DEBUG(getType().name
                      << "::updateByJSON: element is identical. No change required.");
        return OperationResult(OperationResult::NO_UPDATE);
    }
    applyUpdate(*json, changed);
    return OperationResult(OperationResult::OK);
}

OperationResult Element::validateUpdate(const Poco::JSON::Object& json,
                                        KeyCollection& changed) const {
    const std::string& typeName = getType().name;
    for (const std::string& key : json.getNames()) {
        if (!knowsProperty(key)) {
            QES_LOG_ERROR(typeName << "::updateByJSON: property " << key << " is not known for "
                                   << typeName);
            return OperationResult(OperationResult::NOT_FOUND);
        }
        if (!isPostAllowed(key)) {
            QES_LOG_ERROR(typeName << "::updateByJSON: update of property " << key
                                   << " is not allowed");
            return OperationResult(OperationResult::FORBIDDEN);
        }
        const std::string text = memberText(json.get(key));
        bool valid = false;
        if (const PropertyBase* property = findProperty(key)) {
            const Base::PropertyValueBase& value = property->getPropertyValueBase();
            if (value.toString() == text) {
                QES_LOG_TRACE(typeName << "::updateByJSON: value of property " << key
                                       << " does not change");
                continue;
            }
            valid = value.isValidStringValue(text);
        } else {
            const OptionalPropertyBase* optional = findOptional(key);
            if (optional == nullptr || !optional->isNull()) {
                QES_LOG_ERROR(typeName << "::updateByJSON: property " << key << " is unknown");
                return OperationResult(OperationResult::UNKNOWN_PROPERTY,
                                       "property " + key + " is unknown");
            }
            valid = optional->isValidValue(text);
        }
        if (!valid) {
            QES_LOG_ERROR(typeName << "::updateByJSON: property " << key
                                   << " has an invalid value");
            return OperationResult(OperationResult::INVALID_VALUE);
        }
        changed.insert(key);
    }
    return OperationResult(OperationResult::OK);
}

void Element::applyUpdate(const Poco::JSON::Object& json, const KeyCollection& changed) {
    {
        // Each write would raise its own DataChanged; one event lists them all instead.
        EventDisabled disabled(DataChanged);
        for (const std::string& key : changed) {
            if (!setProperty(key, memberText(json.get(key))).isSuccess()) {
                throw Poco::BugcheckException("Failed to post property " + key + " for element " +
                                              getType().name + " besides successful type-check!");
            }
        }
    }
    DataChangedEventPayload payload(*this, std::string());
    payload.setSourcePropertyKeys(changed);
    raiseDataChanged(payload);
}

namespace {

// Logs the first member of `json` that names no property `element` knows, in the JSON object's
// own order (which may be the order its members were set in), and refuses the object.
OperationResult refuseUnknownMember(const Element& element, const Poco::JSON::Object& json) {
    for (const std::string& name : json.getNames()) {
        if (!element.knowsProperty(name)) {
            QES_LOG_ERROR(INIT_FAILED << " JSON object for " << element.getType().name
                                      << " has unknown property " << name);
            break;
        }
    }
    return OperationResult(OperationResult::UNKNOWN_PROPERTY);
}

}  // namespace

OperationResult Element::initElementFromJSON(const Poco::JSON::Object* json) {
    if (json == nullptr) {
        QES_LOG_ERROR(INIT_FAILED << " JSON object is null pointer");
        return OperationResult(OperationResult::PROCESSING_ERROR);
    }
    {
        ScopedRecursiveWriteLock lock(lockRef());
        // Every member's key is looked up once, before anything is written: one unknown member
        // refuses the whole object. Most objects have a few members, whose positions fit on
        // the stack.
        constexpr std::size_t INLINE_MEMBERS = 8;
        std::size_t inlinePositions[INLINE_MEMBERS];
        std::vector<std::size_t> morePositions;
        std::size_t* positions = inlinePositions;
        if (json->size() > INLINE_MEMBERS) {
            morePositions.resize(json->size());
            positions = morePositions.data();
        }
        std::size_t at = 0;
        for (const auto& member : *json) {
            positions[at] = findKnownKey(member.first);
            if (positions[at++] == Base::PropertyRegistry::npos) {
                return refuseUnknownMember(*this, *json);
            }
        }
        // The members come ordered by key, byte-wise, as the known keys do: every member being
        // known, visiting the members is visiting the known keys that have one.
        at = 0;
        for (const auto& member : *json) {
            // The property is taken at the time of its write: handlers of earlier writes may
            // have changed it.
            PropertyBase* property = findKnownProperty(member.first, positions[at++]);
            const Poco::Dynamic::Var& value = member.second;
            if (value.isEmpty()) continue;
            // A text member is read in place; other members are written out as text.
            std::string written;
            const std::string& text =
                value.isString() ? value.extract<std::string>() : (written = memberText(value));
            const OperationResult::Value result =
                initPropertyFromMember(member.first, property, text);
            if (result != OperationResult::OK) return OperationResult(result);
        }
    }
    // Outside the element's lock: the resource's lock is taken before the element's.
    if (!adjustElementUri()) {
        QES_LOG_ERROR("Failed to adjust Element uri!");
        return OperationResult(OperationResult::PROCESSING_ERROR);
    }
    return OperationResult(OperationResult::OK);
}

OperationResult::Value Element::initPropertyFromMember(const PropertyKey& key,
                                                       PropertyBase* property,
                                                       const std::string& text) {
    if (property != nullptr) {
        if (setOwnPropertyValueFromString(text, *property)) return OperationResult::OK;
        QES_LOG_ERROR(INIT_FAILED << key << " property has invalid value");
        return OperationResult::INVALID_VALUE;
    }
    OptionalPropertyBase* optional = findOptional(key);
    if (optional == nullptr) {
        throw Poco::AssertionViolationException(
            "Undefined property is not found in list of optional properties!");
    }
    if (!setOwnPropertyValueFromString(text, *optional)) {
        QES_LOG_ERROR(INIT_FAILED << key << ": could not be initalised");
        return OperationResult::INVALID_VALUE;
    }
    return OperationResult::OK;
}

bool Element::registerOptionalProperty(OptionalPropertyBase* optional) {
    ScopedRecursiveWriteLock lock(lockRef());
    OptionalPropertyBase** link = &m_optionalProperties;
    while (*link != nullptr && (*link)->key < optional->key) link = &(*link)->m_nextOptional;
    if (*link != nullptr && (*link)->key == optional->key) return false;
    if (!registerProperty(optional->key, nullptr)) return false;
    optional->m_nextOptional = *link;
    *link = optional;
    return true;
}

void Element::unregisterOptionalProperty(const OptionalPropertyBase* optional) {
    ScopedRecursiveWriteLock lock(lockRef());
    for (OptionalPropertyBase** link = &m_optionalProperties; *link != nullptr;
         link = &(*link)->m_nextOptional) {
        if (*link == optional) {
            *link = optional->m_nextOptional;
            return;
        }
    }
}

bool Element::setOwnPropertyValueFromString(const std::string& text,
                                            OptionalPropertyBase& optional) {
    ScopedRecursiveWriteLock lock(lockRef());
    OwnerWrite ownerWrite(*this, optional.key);
    return optional.setValueFromString(text);
}

bool Element::adjustElementUri() {
    if (m_resource == nullptr) return false;
    std::string uri;
    {
        Base::PropertyLockGuard guard(m_resource->getUri(), false);
        if (m_resource->getUri().getValue().empty()) return false;
        // The value's text is the URI library's text of the URI, kept: no need to write it again.
        uri = m_resource->getUri().getPropertyValue().toString();
    }
    // "/" and the id's 36 characters follow: one allocation holds the whole text.
    uri.reserve(uri.size() + 37);
    uri += '/';
    Base::PropertyValueUuid::appendTextOf(getIdentification(), uri);
    {
        // The constructor gave most elements this very URI already. Equal texts are equal URIs,
        // which setUri leaves as they are (checking write access only): reading the text again
        // is all it would cost.
        ScopedRecursiveWriteLock lock(lockRef());
        const Base::PropertyValueUri& current = getUri().getPropertyValue();
        if (current.toString() == uri) return setUri(current);
    }
    try {
        return setUri(Base::PropertyValueUri(uri));
    } catch (const Poco::SyntaxException&) {
        return false;
    }
}

namespace {

bool isEmptyText(const Poco::Dynamic::Var& value) {
    return value.isString() && value.extract<std::string>().empty();
}

bool isJSONObject(const Poco::Dynamic::Var& value) {
    return value.type() == typeid(Poco::JSON::Object::Ptr) &&
           !value.extract<Poco::JSON::Object::Ptr>().isNull();
}

// The inequality of two generic values, as the Var inequality answers it (by their texts),
// without writing a text that cannot matter: that of a JSON object (a reference's value) set
// against the empty text (a null reference's), which it never equals.
bool differs(const Poco::Dynamic::Var& before, const Poco::Dynamic::Var& after) {
    if (before.isString() && after.isString()) {
        return before.extract<std::string>() != after.extract<std::string>();
    }
    // An integer has one text per value: two texts differ where the integers do.
    if (before.type() == typeid(long) && after.type() == typeid(long)) {
        return before.extract<long>() != after.extract<long>();
    }
    if ((isJSONObject(before) && isEmptyText(after)) ||
        (isEmptyText(before) && isJSONObject(after))) {
        return true;
    }
    return before != after;
}

// Whether `now` differs from the generic value `before`. A reference holding its live target
// has that target's JSON object as its generic value, which differs from the empty text without
// being built; asking for it would not resolve anything either.
bool differsFrom(const Poco::Dynamic::Var& before, const Base::PropertyValueBase& now) {
    if (now.isReference() && isEmptyText(before)) {
        const auto* reference = dynamic_cast<const XObjectReference*>(&now);
        if (reference != nullptr && reference->isResolvedReference()) return true;
    }
    return differs(before, now.getGenericValue());
}

}  // namespace

void Element::onPropertyUpdate(const PropertyEventPayload& payload) {
    const PropertyBase* source = payload.getSourceProperty();
    if (source == nullptr) {
        QES_LOG_ERROR(getType().name << "::onPropertyValueChanged: source property is nullptr");
        return;
    }
    ScopedRecursiveWriteLock lock(lockRef());
    const PropertyKey& key = source->getKey();
    if (!DataChanged.isEnabled()) {
        QES_LOG_TRACE(getType().name << " - property '" << key << "': notification disabled");
        return;
    }
    bool changed = false;
    if (payload.getEvent() == PropertyEventPayload::PROPERTY_VALUE_CHANGED) {
        OptionalPropertyBase* optional = findOptional(key);
        if (optional != nullptr && !optional->isNull() && optional->isInitialValue()) {
            OptionalPropertySetEventPayload setPayload(*payload.getSourceProperty());
            OptionalPropertySet.notify(this, setPayload, [&] {
                m_resource->m_watch->notifyOptionalSet(*this, setPayload);
            });
        }
        // Comparing writes out both values (a UUID as text, for one): spare it when neither a
        // DataChanged raised now nor the verdict's trace line would reach anybody.
        const bool observed = m_combined != nullptr || m_held ||
                              m_observed.load(std::memory_order_relaxed) || !DataChanged.empty() ||
                              Logging::Log::IsLogLevelActive(Poco::Message::PRIO_TRACE);
        if (!observed) return;
        changed = differsFrom(payload.getPreviousValue(), source->getPropertyValueBase());
    } else if (payload.getEvent() == PropertyEventPayload::PROPERTY_OWNER_CHANGED) {
        changed = source->getParent() != this;
    }
    if (changed) {
        QES_LOG_TRACE(getType().name << "::onPropertyValueChanged: property '" << key
                                     << "' has changed");
        raiseDataChanged(DataChangedEventPayload(*this, key));
    } else {
        QES_LOG_TRACE(getType().name << "::onPropertyValueChanged: property '" << key
                                     << "' is unchanged");
    }
}

void Element::onPropertyDestroyed(const PropertyEventPayload& payload) {
    const PropertyBase* source = payload.getSourceProperty();
    if (source == nullptr) {
        QES_LOG_ERROR(getType().name << "::onPropertyDestroyed: source property is nullptr");
        return;
    }
    ScopedRecursiveReadLock lock(lockRef());
    const PropertyKey& key = source->getKey();
    if (!DataChanged.isEnabled()) {
        QES_LOG_TRACE(getType().name << " - property '" << key << "': notification disabled");
        return;
    }
    if (payload.getEvent() != PropertyEventPayload::PROPERTY_DESTROYED) poco_bugcheck();
    QES_LOG_TRACE(getType().name << "::onPropertyDestroyed: property '" << key << "'");
    raiseDataChanged(DataChangedEventPayload(*this, key));
}

void Element::changeAsOne(const std::function<void()>& changes) {
    ScopedRecursiveWriteLock lock(lockRef());
    if (m_combined != nullptr) {
        changes();
        return;
    }
    Combined combined;
    m_combined = &combined;
    try {
        changes();
    } catch (...) {
        raiseCombined();
        throw;
    }
    raiseCombined();
}

void Element::raiseCombined() {
    const Combined* combined = m_combined;
    m_combined = nullptr;
    if (!combined->raised) return;
    DataChangedEventPayload payload(*this, std::string());
    payload.setSourcePropertyKeys(combined->keys);
    raiseDataChanged(payload);
}

void Element::raiseDataChanged(const DataChangedEventPayload& payload) {
    if (!DataChanged.isEnabled()) return;
    // Only the thread inside changeAsOne can get here while it runs: it holds the write lock.
    if (m_combined != nullptr) {
        m_combined->keys.insert(payload.getSourcePropertyKeys().begin(),
                                payload.getSourcePropertyKeys().end());
        m_combined->raised = true;
        return;
    }
    if (m_held) announceChanged(payload.getSourcePropertyKeys());
    auto delegates = DataChanged.copyDelegates();
    const std::shared_ptr<ElementWatch>& watch = m_resource->m_watch;
    // Without observer or subscribers there is nobody to deliver to, now or later.
    const bool booked = watch->book(*this);
    if (!booked && delegates.empty()) return;
    DataChangedDispatcher::instance().post(std::move(delegates), booked ? watch : nullptr, this,
                                           payload);
}

void Element::announceChanged(const KeyCollection& keys) const {
    if (IElementObserver* observer = m_resource->getService()->getElementObserver()) {
        observer->elementChanged(*this, keys);
    }
}

}  // namespace Kivo::Data
