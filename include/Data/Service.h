#ifndef QESSERVICEDATALIB_DATA_SERVICE_H
#define QESSERVICEDATALIB_DATA_SERVICE_H

#include <cstdint>
#include <map>
#include <string>

#include "Data/Base/Property.h"
#include "Data/XObject.h"

namespace Kivo::Data {

class AbstractResource;

// The root object of one service: an XObject whose type is the service name (so its URI is
// "/" + name), with its descriptive properties and the map of its resources by name. The
// service does not own its resources; they register and unregister themselves and must be
// destroyed before it.
class Service : public XObject {
public:
    typedef std::map<std::string, AbstractResource*> ResourceMap;

    static const std::string KEY_DESCRIPTION;
    static const std::string KEY_PORT;

    Service(const std::string& name, const std::string& description, std::uint16_t port,
            const Base::PropertyValueUuid& id);
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    // Logs a critical line when resources are still registered.
    ~Service() override;

    const Base::PropertyString& getDescription() const { return m_description; }
    const Base::PropertyInteger& getPort() const { return m_port; }

    // The resource registered under `name`, compared case-insensitively, or null.
    AbstractResource* getResource(const std::string& name) const;
    // Registers `resource` under its name (case-sensitive); false, with an error line, when
    // the name is taken.
    bool registerResource(AbstractResource* resource);
    // Removes `resource` if it is the one registered under its name; false otherwise.
    bool unregisterResource(AbstractResource* resource);

private:
    ResourceMap::const_iterator findResource(const std::string& name) const;

    ResourceMap m_resources;  // guarded by the write lock; not owned
    Base::PropertyString m_description;
    Base::PropertyInteger m_port;
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_SERVICE_H
