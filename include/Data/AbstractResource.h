#ifndef QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H
#define QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H

#include <string>

#include "Data/Base/Property.h"
#include "Data/XObject.h"

namespace Kivo::Data {

class Service;

// A resource of a service: an XObject whose type lies under its service's type, holding the
// service's elements of one kind. The service does not own it; a concrete resource calls
// init() once it is fully built, which registers it at the service under its name, and the
// destructor unregisters it. The service must outlive the resource.
class AbstractResource : public XObject {
public:
    static const std::string KEY_DESCRIPTION;

    AbstractResource(const AbstractResource&) = delete;
    AbstractResource& operator=(const AbstractResource&) = delete;
    // Unregisters from the service; a failure is logged.
    ~AbstractResource() override;

    Service* getService() const { return &m_service; }
    const Base::PropertyString& getDescription() const { return m_description; }

    // Registers at the service. Throws Poco::AssertionViolationException("Failed to register
    // resource <name> to parent service <service>") when the name is taken.
    void init();

protected:
    // Type `typeName` under the service's type; no name, the null id. The URI is the type's
    // path followed by its name ("/<service>/<typeName>"), the prefix of its elements' URIs.
    AbstractResource(Service& service, const std::string& typeName);
    // The given name and id, and the URI as above.
    AbstractResource(Service& service, const std::string& typeName, const std::string& name,
                     const Base::PropertyValueUuid& id);

private:
    void registerOwnProperties();

    Service& m_service;
    Base::PropertyString m_description;
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H
