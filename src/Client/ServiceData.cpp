#include "Client/ServiceData.h"

#include <set>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

#include "Data/AbstractResource.h"
#include "Data/Service.h"
#include "Data/XObjectReference.h"
#include "ElementBatch.h"
#include "Logging/Log.h"
#include "Util/RecursiveRWLock.h"

namespace Kivo::Client {

using Data::AbstractResource;
using Data::OperationResult;

namespace {

const char* const KEY_NAME = "name";
const char* const KEY_ELEMENTS = "elements";

OperationResult logged(const OperationResult& result) {
    QES_LOG_DEBUG("ServiceData: " << result.toString());
    return result;
}

OperationResult logged(OperationResult::Value code, const std::string& message) {
    return logged(OperationResult(code, message));
}

// The element as save writes it: references by their target's URI, null ones left out.
// REQUIRES: the tree's read lock.
Poco::JSON::Object::Ptr elementData(const Data::Element& element) {
    Poco::JSON::Object::Ptr json = element.toJSON(0);
    for (const Data::Base::PropertyBase* property : element.getProperties()) {
        const auto* reference =
            dynamic_cast<const Data::XObjectReference*>(&property->getPropertyValueBase());
        if (reference == nullptr) continue;
        if (reference->isNull()) {
            json->remove(property->getKey());
            continue;
        }
        const Data::XObject* target = reference->getValue();
        // The target may belong to another tree; its URI is read under that tree's lock.
        const Data::Base::PropertyLockGuard guard(target->getUri(), false);
        json->set(property->getKey(), target->getUri().getPropertyValue().toString());
    }
    return json;
}

// Every element of `resource`; false for a resource without elements of its own.
// REQUIRES: the tree's read lock.
bool elementsOf(const AbstractResource& resource, AbstractResource::ElementQueryResult& elements) {
    return resource.getElements(elements, 0, static_cast<int>(resource.size())).isSuccess();
}

Poco::JSON::Array::Ptr dataOf(const AbstractResource::ElementQueryResult& elements) {
    Poco::JSON::Array::Ptr data = new Poco::JSON::Array;
    for (const AbstractResource::Ptr& element : elements) data->add(elementData(*element));
    return data;
}

// Checks every batch, then adds every batch, under the tree's write lock. When an add fails,
// what every batch added is taken back once the lock is released.
OperationResult checkAndAdd(Util::RecursiveRWLock& treeLock, std::vector<ElementBatch>& batches) {
    OperationResult result(OperationResult::OK);
    {
        Util::ScopedRecursiveWriteLock lock(treeLock);
        for (ElementBatch& batch : batches) {
            result = batch.check();
            if (!result.isSuccess()) return logged(result);
        }
        for (ElementBatch& batch : batches) {
            result = batch.add();
            if (!result.isSuccess()) break;
        }
    }
    if (result.isSuccess()) return result;
    std::string message = result.toString();
    for (ElementBatch& batch : batches) {
        const OperationResult takenBack = batch.takeBack();
        if (!takenBack.isSuccess()) message += "; " + takenBack.toString();
    }
    return logged(result.value(), message);
}

}  // namespace

Poco::JSON::Array::Ptr ServiceData::save(const Data::Service& service) {
    Util::ScopedRecursiveReadLock lock(*service.getLock());
    Poco::JSON::Array::Ptr data = new Poco::JSON::Array;
    for (const auto& entry : service.getResources()) {
        AbstractResource::ElementQueryResult elements;
        if (!elementsOf(*entry.second, elements)) continue;
        Poco::JSON::Object::Ptr resource = new Poco::JSON::Object;
        resource->set(KEY_NAME, entry.first);
        resource->set(KEY_ELEMENTS, dataOf(elements));
        data->add(resource);
    }
    return data;
}

Poco::JSON::Array::Ptr ServiceData::saveResource(const AbstractResource& resource) {
    Util::ScopedRecursiveReadLock lock(*resource.getLock());
    AbstractResource::ElementQueryResult elements;
    elementsOf(resource, elements);
    return dataOf(elements);
}

OperationResult ServiceData::load(Data::Service& service, const Poco::JSON::Array& data) {
    std::vector<Poco::JSON::Array::Ptr> arrays;  // keeps every batch's array alive
    std::vector<ElementBatch> batches;
    std::set<const AbstractResource*> named;
    for (std::size_t i = 0; i < data.size(); ++i) {
        const std::string entryName = "entry " + std::to_string(i) + ": ";
        const Poco::JSON::Object::Ptr entry = data.getObject(i);
        const Poco::JSON::Array::Ptr elements =
            entry.isNull() ? Poco::JSON::Array::Ptr() : entry->getArray(KEY_ELEMENTS);
        if (elements.isNull() || !entry->has(KEY_NAME) || !entry->get(KEY_NAME).isString()) {
            return logged(OperationResult::INVALID_OBJECT,
                          entryName +
                              "expects an object with a string \"name\" and an array "
                              "\"elements\"");
        }
        const std::string name = entry->getValue<std::string>(KEY_NAME);
        AbstractResource* resource = service.getResource(name);
        if (resource == nullptr) {
            return logged(OperationResult::NOT_FOUND, entryName + name + ": no such resource");
        }
        if (!named.insert(resource).second) {
            return logged(OperationResult::DUPLICATE, entryName + name + ": named twice");
        }
        arrays.push_back(elements);
        batches.emplace_back(*resource, *elements, name + ": ");
    }
    return checkAndAdd(*service.getLock(), batches);
}

OperationResult ServiceData::loadResource(AbstractResource& resource,
                                          const Poco::JSON::Array& elements) {
    std::vector<ElementBatch> batches{ElementBatch(resource, elements, std::string())};
    return checkAndAdd(*resource.getLock(), batches);
}

}  // namespace Kivo::Client
