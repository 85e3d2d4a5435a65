#ifndef QESSERVICEDATALIB_CLIENT_CHANGEEVENT_H
#define QESSERVICEDATALIB_CLIENT_CHANGEEVENT_H

#include <cstdint>
#include <set>
#include <string>

#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

namespace Kivo::Client {

/// One entry of a service's change feed (ChangeFeed): what happened to which element, and the
/// revision it was given.
///
/// The JSON objects an event carries are shared by every subscriber it goes to and by the
/// feed's history: treat them as read-only (copy one to change or keep it beyond the call).
class ChangeEvent {
public:
    /// The feed's position: every event of a service is one revision after the one before.
    typedef std::uint64_t Revision;

    /// What happened.
    enum Kind {
        /// An element joined a resource; `element` is its JSON (Element::toJSON(0)).
        ADDED,
        /// Properties of an element changed; `values` maps each changed key to its new value
        /// (a property's toJSON(0)), or to null where the property is gone.
        CHANGED,
        /// An element left a resource.
        REMOVED,
        /// Not an element event: the subscriber asked for revisions the feed no longer keeps
        /// (or never had). It must re-read everything; the events that follow are those after
        /// `revision`.
        RESYNC
    };

    /// An event as the feed records it; `values` and `element` as their readers below say.
    ChangeEvent(Kind kind, Revision revision, std::string resource, const Poco::UUID& id,
                Poco::JSON::Object::Ptr values, Poco::JSON::Object::Ptr element);

    /// What happened.
    Kind kind() const { return m_kind; }
    /// The event's revision; for RESYNC, the revision the events that follow come after.
    Revision revision() const { return m_revision; }
    /// The name of the element's resource (empty for RESYNC).
    const std::string& resource() const { return m_resource; }
    /// The element's id (the null UUID for RESYNC).
    const Poco::UUID& id() const { return m_id; }
    /// CHANGED: key to new value (null where removed); null for the other kinds.
    const Poco::JSON::Object::Ptr& values() const { return m_values; }
    /// ADDED: the element's JSON; null for the other kinds.
    const Poco::JSON::Object::Ptr& element() const { return m_element; }

    /// "added", "changed", "removed" or "resync".
    static const char* kindName(Kind kind);

    /// Whether a CHANGED event names one of `keys`.
    bool touchesAny(const std::set<std::string>& keys) const;
    /// A CHANGED event reduced to the members of `keys` it names; the other kinds unchanged.
    ChangeEvent restrictedTo(const std::set<std::string>& keys) const;

    /// {"event": kindName(kind()), "revision": n, "resource": name, "id": uuid} with "values" for
    /// CHANGED and "element" for ADDED; RESYNC is {"event": "resync", "revision": n}.
    Poco::JSON::Object::Ptr toJSON() const;

private:
    Kind m_kind;
    Revision m_revision;
    std::string m_resource;
    Poco::UUID m_id;
    Poco::JSON::Object::Ptr m_values;
    Poco::JSON::Object::Ptr m_element;
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_CHANGEEVENT_H
