#include "Client/ChangeEvent.h"

#include <utility>

namespace Kivo::Client {

ChangeEvent::ChangeEvent(Kind kind, Revision revision, std::string resource, const Poco::UUID& id,
                         Poco::JSON::Object::Ptr values, Poco::JSON::Object::Ptr element)
    : m_kind(kind),
      m_revision(revision),
      m_resource(std::move(resource)),
      m_id(id),
      m_values(std::move(values)),
      m_element(std::move(element)) {}

const char* ChangeEvent::kindName(Kind kind) {
    switch (kind) {
        case ADDED:
            return "added";
        case CHANGED:
            return "changed";
        case REMOVED:
            return "removed";
        case RESYNC:
            return "resync";
    }
    return "unknown";
}

bool ChangeEvent::touchesAny(const std::set<std::string>& keys) const {
    if (m_kind != CHANGED || m_values.isNull()) return false;
    for (const std::string& key : keys) {
        if (m_values->has(key)) return true;
    }
    return false;
}

ChangeEvent ChangeEvent::restrictedTo(const std::set<std::string>& keys) const {
    if (m_kind != CHANGED || m_values.isNull()) return *this;
    Poco::JSON::Object::Ptr values = new Poco::JSON::Object();
    for (const std::string& key : keys) {
        if (m_values->has(key)) values->set(key, m_values->get(key));
    }
    return ChangeEvent(m_kind, m_revision, m_resource, m_id, values, m_element);
}

Poco::JSON::Object::Ptr ChangeEvent::toJSON() const {
    Poco::JSON::Object::Ptr json = new Poco::JSON::Object();
    json->set("event", std::string(kindName(m_kind)));
    json->set("revision", static_cast<Poco::UInt64>(m_revision));
    if (m_kind == RESYNC) return json;
    json->set("resource", m_resource);
    json->set("id", m_id.toString());
    if (m_kind == CHANGED) json->set("values", m_values);
    if (m_kind == ADDED) json->set("element", m_element);
    return json;
}

}  // namespace Kivo::Client
