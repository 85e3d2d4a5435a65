#ifndef QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H
#define QESSERVICEDATALIB_DATA_ABSTRACTRESOURCE_H

#include <set>
#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/SharedPtr.h>
#include <Poco/UUID.h>

#include "Data/Base/Property.h"
#include "Data/Element.h"
#include "Data/OperationResult.h"
#include "Data/XObject.h"
#include "Util/AbstractQuery.h"

namespace Kivo::Data {

class Service;

// The container face shared by services and resources: their data as JSON, and a
// description of what their elements look like.
class IContainerObject {
public:
    virtual ~IContainerObject() = default;

    // The container's data (for a resource: its elements) at the given depth.
    virtual Poco::JSON::Object::Ptr getDataAsJSON(int depth) const = 0;
    // What the container's elements carry; an empty object where there is nothing to say.
    virtual Poco::JSON::Object::Ptr getSpecificationAsJSON() const;
};

// A resource of a service: an XObject whose type lies under its service's type, holding the
// service's elements of one kind. The service does not own it; a concrete resource calls
// init() once it is fully built, which registers it at the service under its name, and the
// destructor unregisters it. The service must outlive the resource.
class AbstractResource : public XObject, public IContainerObject {
public:
    typedef Poco::SharedPtr<Element> Ptr;
    typedef std::vector<Ptr> ElementQueryResult;

    static const std::string KEY_DESCRIPTION;

    AbstractResource(const AbstractResource&) = delete;
    AbstractResource& operator=(const AbstractResource&) = delete;
    // Unregisters from the service; a failure is logged.
    ~AbstractResource() override;

    Service* getService() const { return &m_service; }
    const Base::PropertyString& getDescription() const { return m_description; }

    // The element container. A resource that does not hold elements of its own keeps these base
    // answers: no elements, and INVALID_OPERATION for every operation on them.
    virtual std::size_t size() const;
    virtual void clear();
    virtual OperationResult addElement(const Poco::JSON::Object* json);
    virtual bool hasElement(const Poco::UUID& id) const;
    // OK with `element` set, or a failure code with `element` left empty.
    virtual OperationResult getElement(const Poco::UUID& id, Ptr& element) const;
    virtual OperationResult getElements(ElementQueryResult& result, int offset, int count) const;
    virtual OperationResult removeElement(const Poco::UUID& id);
    virtual OperationResult updateElementFromJSON(const Poco::UUID& id,
                                                  const Poco::JSON::Object* json);
    virtual OperationResult initResourceDataFromJSON(const Poco::JSON::Array* elements);
    // {"elements": [...]}: every element (getElements from 0 to size()) at `depth`.
    Poco::JSON::Object::Ptr getDataAsJSON(int depth) const override;

    // Keys a new element must carry; none in the base.
    virtual std::set<Base::PropertyKey> getRequiredProperties() const;

    // Client access gates; the base allows reading only.
    virtual bool isGetAllowed() const;
    virtual bool isPostAllowed() const;
    virtual bool isPostAllowed(const Base::PropertyKey& key) const;
    virtual bool isDeleteAllowed() const;

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
