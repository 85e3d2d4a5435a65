#include "Data/Service.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <vector>

#include <Poco/Bugcheck.h>
#include <Poco/String.h>
#include <Poco/URI.h>

#include "Data/DataChangedDelivery.h"
#include "Logging/Log.h"

namespace Kivo::Data {

using Base::PropertyValueArray;
using Base::PropertyValueFormatedString;
using Base::PropertyValueNumberBase;
using Base::PropertyValueString;
using Util::ScopedRecursiveReadLock;
using Util::ScopedRecursiveWriteLock;

const std::string Service::KEY_DESCRIPTION = "description";
const std::string Service::KEY_PORT = "port";
const std::string Service::KEY_SERVICE_CATEGORIES = "serviceCategories";
const std::string Service::KEY_PRIVILEGES = "privileges";
const std::string Service::KEY_VERSIONS = "versions";

namespace {

const char* const NULL_JSON = "Tried to create service object from NULL-Pointer";

// Services alive in the process; the last one to go drains DataChanged delivery.
std::atomic<unsigned> g_liveServices{0};

typedef PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY> Category;
typedef PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION> Version;

// Files a resource in a resolver when the scope ends, however it is left; nothing for null.
class RefileAtScopeEnd {
public:
    RefileAtScopeEnd(LocalReferenceResolver& resolver, AbstractResource* resource)
        : m_resolver(resolver), m_resource(resource) {}
    RefileAtScopeEnd(const RefileAtScopeEnd&) = delete;
    RefileAtScopeEnd& operator=(const RefileAtScopeEnd&) = delete;
    ~RefileAtScopeEnd() {
        try {
            m_resolver.addSource(m_resource);
        } catch (...) {
            poco_unexpected();
        }
    }

private:
    LocalReferenceResolver& m_resolver;
    AbstractResource* m_resource;  // not owned; may be null
};

}  // namespace

Service::Service(const std::string& name, const std::string& description, std::uint16_t port,
                 const Base::PropertyValueUuid& id)
    : XObject(Type(name), PropertyValueString(name), id),
      m_description(KEY_DESCRIPTION, this, PropertyValueString(description)),
      m_port(KEY_PORT, this, PropertyValueNumberBase<long>(port, 0L, 65535L, {})),
      m_serviceCategories(KEY_SERVICE_CATEGORIES, this, PropertyValueArray<Category>(Category())),
      m_privileges(KEY_PRIVILEGES, this,
                   PropertyValueArray<PropertyValueString>(PropertyValueString(""))),
      m_versions(KEY_VERSIONS, this, PropertyValueArray<Version>(Version())) {
    for (Base::PropertyBase* property :
         std::vector<Base::PropertyBase*>{&m_description, &m_port, &m_serviceCategories,
                                          &m_privileges, &m_versions}) {
        property->registerAtOwner();
    }
    setUri(Base::PropertyValueUri("/" + name));
    addReferenceResolver(&m_localResolver);
    ++g_liveServices;
}

Service::~Service() {
    if (!m_resources.empty()) {
        QES_LOG_CRITICAL("Service object " << getName().getValue()
                                           << " is destroyed before all dependent resource "
                                              "objects have been deleted!");
    }
    // A subscriber's own thread cannot wait for the queue, and one holding a tree lock might wait
    // for a subscriber that waits for that lock: both leave the queue as it is.
    if (--g_liveServices == 0 && !Util::RecursiveRWLock::isAnyHeldByCallingThread()) {
        DataChangedDelivery::drain();
    }
}

bool Service::isInitialisedFromJSON() const {
    ScopedRecursiveReadLock lock(lockRef());
    return m_isInitialisedFromJSON;
}

void Service::setElementObserver(IElementObserver* observer) {
    ScopedRecursiveWriteLock lock(lockRef());
    m_elementObserver = observer;
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

bool Service::initFromJSON(const Poco::JSON::Object* json) {
    if (json == nullptr) {
        QES_LOG_ERROR(NULL_JSON);
        return false;
    }
    try {
        ScopedRecursiveWriteLock lock(lockRef());
        if (!initAllPropertiesFromJSON(*json) || !hasValidNameAndUri()) return false;
        m_isInitialisedFromJSON = true;
        return true;
    } catch (const std::exception& error) {
        QES_LOG_ERROR("Failed to create Service from JSON: " << error.what());
        throw;
    }
}

bool Service::initAllPropertiesFromJSON(const Poco::JSON::Object& json) {
    for (const Base::PropertyKey& key : getKnownPropertyKeys()) {
        Base::PropertyBase* property = findProperty(key);
        if (property == nullptr) {
            QES_LOG_ERROR("Failed to initialise service object from JSON: property "
                          << key << " is not properly registered for Service " << getType().name);
            return false;
        }
        if (!initPropertyFromJSON(&json, *property).isSuccess()) return false;
    }
    return true;
}

bool Service::hasValidNameAndUri() const {
    const std::string& name = getName().getValue();
    if (name != getType().name) {
        QES_LOG_ERROR("Error while parsing service properties from JSON object: Service name is "
                      "different to Service type name!");
        return false;
    }
    std::vector<std::string> segments;
    getUri().getValue().getPathSegments(segments);
    if (segments.size() != 1 || segments.front() != name) {
        QES_LOG_ERROR("Error while parsing service properties from JSON object: Service URI is "
                      "invalid!");
        return false;
    }
    return true;
}

bool Service::initResourcesFromJSON(const Poco::JSON::Array* resources) {
    return forEachResourceEntry(resources, [this](const Poco::JSON::Object::Ptr& entry) {
        return initResourceFromJSON(entry.get());
    });
}

bool Service::initServiceResourcesfromJSON(const Poco::JSON::Array* resources) {
    return forEachResourceEntry(resources, [this](const Poco::JSON::Object::Ptr& entry) {
        if (entry.isNull()) return initResourceDataFromJSON(std::string(), nullptr);
        return initResourceDataFromJSON(entry->optValue(KEY_NAME, std::string()),
                                        entry->getArray("elements").get());
    });
}

bool Service::forEachResourceEntry(
    const Poco::JSON::Array* resources,
    const std::function<bool(const Poco::JSON::Object::Ptr&)>& initialise) {
    if (resources == nullptr) {
        QES_LOG_ERROR(NULL_JSON);
        return false;
    }
    try {
        ScopedRecursiveWriteLock lock(lockRef());
        for (std::size_t i = 0; i < resources->size(); ++i) {
            if (!initialise(resources->getObject(i))) {
                QES_LOG_ERROR("Failed to initialise a service resource from JSON.");
                return false;
            }
        }
        return true;
    } catch (const std::exception& error) {
        QES_LOG_ERROR("Failed to initialise service resources from JSON: " << error.what());
        return false;
    }
}

AbstractResource* Service::findOrCreateResource(const std::string& name) {
    AbstractResource* resource = getResource(name);
    if (resource == nullptr) resource = createOptionalResource(name);
    if (resource == nullptr) {
        QES_LOG_ERROR("Failed to parse Service resource from JSON: Resource name '"
                      << name << "' is unknown");
    }
    return resource;
}

bool Service::initResourceFromJSON(const Poco::JSON::Object* json) {
    if (json == nullptr || !json->has(KEY_NAME) || json->get(KEY_NAME).isEmpty()) {
        QES_LOG_ERROR("Failed to init service resource from JSON: Invalid JSON data. Could not "
                      "find property 'name'.");
        return false;
    }
    const std::string name = memberText(json->get(KEY_NAME));
    ScopedRecursiveWriteLock lock(lockRef());
    AbstractResource* resource = findOrCreateResource(name);
    if (resource == nullptr) return false;
    // The description may change the resource's URI, its key in the local resolver: it is filed
    // again under the URI it has afterwards, also when initialisation throws.
    AbstractResource* const source = isResolverSource(resource) ? resource : nullptr;
    if (source != nullptr) dropResolverSource(source);
    RefileAtScopeEnd refile(m_localResolver, source);
    if (!resource->initResourceFromJSON(json).isSuccess()) {
        QES_LOG_ERROR("Failed to parse resource " << name << "of service " << getName().getValue());
        return false;
    }
    QES_LOG_TRACE("Successfully parsed resource " << resource->getType().name);
    return true;
}

bool Service::initResourceDataFromJSON(const std::string& name,
                                       const Poco::JSON::Array* elements) {
    ScopedRecursiveWriteLock lock(lockRef());
    AbstractResource* resource = findOrCreateResource(name);
    if (resource == nullptr) return false;
    if (elements == nullptr || !resource->initResourceDataFromJSON(elements).isSuccess()) {
        QES_LOG_ERROR("Failed to parse resource " << name << "of service " << getName().getValue());
        return false;
    }
    QES_LOG_TRACE("Successfully parsed resource " << resource->getType().name);
    return true;
}

AbstractResource* Service::createOptionalResource(const std::string&) { return nullptr; }

bool Service::registerResource(AbstractResource* resource) {
    ScopedRecursiveWriteLock lock(lockRef());
    const std::string& name = resource->getName().getValue();
    if (!m_resources.emplace(name, resource).second) {
        QES_LOG_ERROR("Failed to register resource " << name
                                                     << ". Resource name is already in use.");
        return false;
    }
    m_localResolver.addSource(resource);
    return true;
}

bool Service::unregisterResource(AbstractResource* resource) {
    ScopedRecursiveWriteLock lock(lockRef());
    // By identity: names may differ only in case, and the resource's name may have changed
    // since it was filed.
    const auto entry =
        std::find_if(m_resources.begin(), m_resources.end(),
                     [resource](const auto& item) { return item.second == resource; });
    if (entry == m_resources.end()) return false;
    if (isResolverSource(resource)) dropResolverSource(resource);
    m_resources.erase(entry);
    return true;
}

bool Service::isResolverSource(const AbstractResource* resource) const {
    const auto sources = m_localResolver.getSources();
    return std::find(sources.begin(), sources.end(), resource) != sources.end();
}

void Service::dropResolverSource(const AbstractResource* resource) {
    // Rebuilt rather than erased by key: the resource's URI may have changed since it was filed
    // (its own initResourceFromJSON, called directly), and its current key may be another
    // resource's. The others are filed again under their current URIs.
    LocalReferenceResolver::SourceList kept = m_localResolver.getSources();
    kept.erase(std::remove(kept.begin(), kept.end(), resource), kept.end());
    m_localResolver = LocalReferenceResolver(kept);
}

bool Service::addServiceCategory(const std::string& category) {
    ScopedRecursiveWriteLock lock(lockRef());
    OwnerWrite ownerWrite(*this, KEY_SERVICE_CATEGORIES);
    return m_serviceCategories.addElement(category);
}

bool Service::addPrivilege(const std::string& privilege) {
    ScopedRecursiveWriteLock lock(lockRef());
    OwnerWrite ownerWrite(*this, KEY_PRIVILEGES);
    return m_privileges.addElement(privilege);
}

bool Service::addVersion(const std::string& version) {
    ScopedRecursiveWriteLock lock(lockRef());
    OwnerWrite ownerWrite(*this, KEY_VERSIONS);
    return m_versions.addElement(version);
}

void Service::updateServiceId(const Poco::UUID& id) { setId(Base::PropertyValueUuid(id)); }

Poco::JSON::Object::Ptr Service::toJSON(int depth) const { return Object::toJSON(depth); }

Poco::JSON::Object::Ptr Service::getDataAsJSON(bool withElements, int depth) const {
    ScopedRecursiveReadLock lock(lockRef());
    Poco::JSON::Object::Ptr json = toJSON(depth);
    Poco::JSON::Array::Ptr resources = new Poco::JSON::Array();
    for (const auto& entry : m_resources) {
        resources->add(entry.second->toJSON(withElements, depth));
    }
    json->set("resources", resources);
    return json;
}

Poco::JSON::Object::Ptr Service::getDataAsJSON(int depth) const {
    return getDataAsJSON(false, depth);
}

}  // namespace Kivo::Data
