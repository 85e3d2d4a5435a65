#include "Data/Service.h"

#include <Poco/String.h>

#include "Data/AbstractResource.h"
#include "Logging/Log.h"

namespace Kivo::Data {

using Util::ScopedRecursiveReadLock;
using Util::ScopedRecursiveWriteLock;

const std::string Service::KEY_DESCRIPTION = "description";
const std::string Service::KEY_PORT = "port";

Service::Service(const std::string& name, const std::string& description, std::uint16_t port,
                 const Base::PropertyValueUuid& id)
    : XObject(Type(name), Base::PropertyValueString(name), id),
      m_description(KEY_DESCRIPTION, this, Base::PropertyValueString(description)),
      m_port(KEY_PORT, this, Base::PropertyValueNumberBase<long>(port, {}, {}, {})) {
    registerProperty(KEY_DESCRIPTION, &m_description);
    registerProperty(KEY_PORT, &m_port);
    setUri(Base::PropertyValueUri("/" + name));
}

Service::~Service() {
    if (!m_resources.empty()) {
        QES_LOG_CRITICAL("Service object " << getName().getValue()
                                           << " is destroyed before all dependent resource "
                                              "objects have been deleted!");
    }
}

Service::ResourceMap::const_iterator Service::findResource(const std::string& name) const {
    const std::string wanted = Poco::toLower(name);
    for (auto entry = m_resources.begin(); entry != m_resources.end(); ++entry) {
        if (Poco::toLower(entry->first) == wanted) return entry;
    }
    return m_resources.end();
}

AbstractResource* Service::getResource(const std::string& name) const {
    ScopedRecursiveReadLock lock(lockRef());
    const auto entry = findResource(name);
    return entry == m_resources.end() ? nullptr : entry->second;
}

bool Service::registerResource(AbstractResource* resource) {
    ScopedRecursiveWriteLock lock(lockRef());
    const std::string& name = resource->getName().getValue();
    if (!m_resources.emplace(name, resource).second) {
        QES_LOG_ERROR("Failed to register resource " << name
                                                     << ". Resource name is already in use.");
        return false;
    }
    return true;
}

bool Service::unregisterResource(AbstractResource* resource) {
    ScopedRecursiveWriteLock lock(lockRef());
    const auto entry = findResource(resource->getName().getValue());
    if (entry == m_resources.end() || entry->second != resource) return false;
    m_resources.erase(entry);
    return true;
}

}  // namespace Kivo::Data
