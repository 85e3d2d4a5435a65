#ifndef QESSERVICEDATALIB_DATA_SERVICE_H
#define QESSERVICEDATALIB_DATA_SERVICE_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

#include "Data/AbstractResource.h"
#include "Data/Base/Property.h"
#include "Data/ElementObserver.h"
#include "Data/ReferenceResolver.h"
#include "Data/XObject.h"

namespace Kivo::Data {

/// The root object of one service: an XObject whose type is the service name (so its URI is
/// "/" + name), with its descriptive properties ("description", "port", "serviceCategories",
/// "privileges", "versions"; with "id", "name" and "uri" eight in all) and the map of its
/// resources by name.
///
/// The service does not own its resources: they register themselves (AbstractResource::init)
/// and unregister when destroyed, and must be destroyed before the service. Lookups take the
/// service's read lock, initialisation and registration its write lock. Lock order in a tree
/// whose objects do not share one lock: service, then resource, then element.
///
/// The service is also the resolver of references into it: its chain starts with its own
/// LocalReferenceResolver, which holds every registered resource under its URI, so resolve()
/// finds the elements of the service's resources. Further resolvers (other services) may be
/// appended with addReferenceResolver. A resource's entry follows its URI when
/// initResourceFromJSON changes it, and stays when that initialisation fails or throws.
/// Resolution takes no lock of the service: resolve under the tree's read lock while other
/// threads may register, unregister or initialise resources.
///
/// Initialisation from JSON reports failure as false with one error line. What the JSON or
/// value libraries throw (a member that cannot be read as text) passes through: initFromJSON
/// logs and rethrows it, initResourceFromJSON passes it on, and the array forms log it and
/// answer false.
class Service : public XObject, public IContainerObject, public CombinedReferenceResolver {
public:
    /// Resource name to resource; the resources are not owned.
    typedef std::map<std::string, AbstractResource*> ResourceMap;

    /// "description": the key of the service's description text.
    static const std::string KEY_DESCRIPTION;
    /// "port": the key of the service's port number, 0 to 65535.
    static const std::string KEY_PORT;
    /// "serviceCategories": the key of the service's categories.
    static const std::string KEY_SERVICE_CATEGORIES;
    /// "privileges": the key of the service's privileges, free texts.
    static const std::string KEY_PRIVILEGES;
    /// "versions": the key of the service's version numbers.
    static const std::string KEY_VERSIONS;

    /// `name` is the service's type name, its name and its URI's one segment. The port accepts
    /// 0 to 65535 later on too.
    Service(const std::string& name, const std::string& description, std::uint16_t port,
            const Base::PropertyValueUuid& id);
    /// Not copyable: resources register with one service by its address.
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    /// Logs a critical line when resources are still registered; deletes none of them. The
    /// last service alive in the process waits until every queued DataChanged has been
    /// delivered (DataChangedDelivery::drain), unless it is destroyed by a DataChanged
    /// subscriber or while the destroying thread holds a tree lock: do not destroy it while
    /// holding anything else a subscriber waits for.
    ~Service() override;

    /// The "description" property: the constructor's text until initFromJSON replaces it.
    const Base::PropertyString& getDescription() const { return m_description; }
    /// The "port" property, limited to 0 to 65535.
    const Base::PropertyInteger& getPort() const { return m_port; }
    /// The "privileges" property; empty until initFromJSON or addPrivilege fills it.
    const Base::PropertyStringArray& getPrivileges() const { return m_privileges; }
    /// The "versions" property; empty until initFromJSON or addVersion fills it.
    const Base::PropertyVersionArray& getVersions() const { return m_versions; }
    /// The "serviceCategories" property; empty until initFromJSON or addServiceCategory fills
    /// it.
    const Base::PropertyServiceCategoryArray& getServiceCategories() const {
        return m_serviceCategories;
    }
    /// REQUIRES: the read lock while other threads register resources.
    const ResourceMap& getResources() const { return m_resources; }
    /// Whether initFromJSON has succeeded once.
    bool isInitialisedFromJSON() const;

    /// The resource registered under `name`, compared case-insensitively, or null.
    AbstractResource* getResource(const std::string& name) const;

    /// Reads the service description: every one of the eight properties is required and must
    /// be valid; the name must equal the service's type name and the URI must be "/" + name.
    /// On false the properties set before the failure keep their new values.
    bool initFromJSON(const Poco::JSON::Object* json);
    /// Initialises each resource of `resources` (resource descriptions, see
    /// initResourceFromJSON) in order, stopping at the first failure.
    bool initResourcesFromJSON(const Poco::JSON::Array* resources);
    /// Loads the elements of several resources: each entry is
    /// `{"name": <resource name>, "elements": [<element JSON>, ...]}`; stops at the first
    /// failure.
    bool initServiceResourcesfromJSON(const Poco::JSON::Array* resources);
    /// Initialises the resource named by the object's "name" member (looked up
    /// case-insensitively, else made by createOptionalResource) from the object.
    bool initResourceFromJSON(const Poco::JSON::Object* resource);
    /// Loads `elements` into the resource named `name` (AbstractResource::
    /// initResourceDataFromJSON).
    bool initResourceDataFromJSON(const std::string& name, const Poco::JSON::Array* elements);

    /// Called by AbstractResource: files `resource` under its name (case-sensitive) and adds it
    /// to the service's local resolver (where the first resource with a given URI stays). False,
    /// with an error line, when the name is taken.
    bool registerResource(AbstractResource* resource);
    /// Removes the entry that holds `resource` itself, whatever its name is now, and takes the
    /// resource out of the local resolver (under whatever URI it was filed); false when no entry
    /// holds it, so a resource whose registration failed can remove neither the resource that
    /// holds its name nor the one that holds its URI.
    bool unregisterResource(AbstractResource* resource);
    /// The resolver that holds the registered resources; first in the service's chain.
    const LocalReferenceResolver& getLocalResolver() const { return m_localResolver; }

    /// Installs `observer` (null: none) as the one observer of the elements the service's
    /// containers hold, replacing the previous one; takes the write lock, so no write is halfway
    /// through when the observer changes. The service does not own it: clear it before the
    /// observer goes.
    void setElementObserver(IElementObserver* observer);
    /// The installed observer, or null. REQUIRES: the lock.
    IElementObserver* getElementObserver() const { return m_elementObserver; }

    /// Owner-side additions to the array properties: false when the text fails the array's
    /// element format (service categories, versions).
    bool addServiceCategory(const std::string& category);
    /// The owner-side addition of a privilege, free text: always accepted.
    bool addPrivilege(const std::string& privilege);
    /// The owner-side addition of a version: false when `version` fails the version format.
    bool addVersion(const std::string& version);
    /// Replaces the id through the owner-side write.
    void updateServiceId(const Poco::UUID& id);

    /// The service description: every property at `depth`, the shape initFromJSON reads.
    Poco::JSON::Object::Ptr toJSON(int depth) const override;
    /// The description plus "resources": each resource's AbstractResource::toJSON(
    /// withElements, depth), in resource name order.
    Poco::JSON::Object::Ptr getDataAsJSON(bool withElements, int depth) const;
    /// getDataAsJSON(false, depth).
    Poco::JSON::Object::Ptr getDataAsJSON(int depth) const override;

protected:
    /// Makes a resource that exists only on demand, or answers null (the base answer). The
    /// derived service owns what it makes; the resource registers itself with init().
    virtual AbstractResource* createOptionalResource(const std::string& name);

private:
    ResourceMap::const_iterator findResource(const std::string& name) const;
    AbstractResource* findOrCreateResource(const std::string& name);
    // Calls `initialise` for each entry of `resources` under the write lock, stopping at the
    // first false; logs a null array, a failure and an exception on the way.
    bool forEachResourceEntry(const Poco::JSON::Array* resources,
                              const std::function<bool(const Poco::JSON::Object::Ptr&)>& initialise);
    bool initAllPropertiesFromJSON(const Poco::JSON::Object& json);
    bool hasValidNameAndUri() const;
    // Whether the local resolver holds `resource` itself. REQUIRES: the lock.
    bool isResolverSource(const AbstractResource* resource) const;
    // Takes `resource` itself out of the local resolver. REQUIRES: the write lock.
    void dropResolverSource(const AbstractResource* resource);

    ResourceMap m_resources;  // guarded by the lock; not owned
    Base::PropertyString m_description;
    Base::PropertyInteger m_port;
    Base::PropertyServiceCategoryArray m_serviceCategories;
    Base::PropertyStringArray m_privileges;
    Base::PropertyVersionArray m_versions;
    bool m_isInitialisedFromJSON = false;  // guarded by the lock
    LocalReferenceResolver m_localResolver;  // guarded by the lock
    IElementObserver* m_elementObserver = nullptr;  // guarded by the lock; not owned
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_SERVICE_H
