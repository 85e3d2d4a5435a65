#include "Data/ReferenceResolver.h"

#include <algorithm>

#include <Poco/UUID.h>

#include "Data/AbstractResource.h"
#include "Data/Base/PropertyBase.h"
#include "Data/XObject.h"
#include "Data/XObjectReference.h"

namespace Kivo::Data {

bool IReferenceResolver::resolveLocation(const ElementLocation& location,
                                         XObject*& result) const {
    return resolve(location.placeholder(), result);
}

LocalReferenceResolver::LocalReferenceResolver(const SourceList& sources) { setSources(sources); }

std::string LocalReferenceResolver::keyOf(const AbstractResource& resource) {
    Base::PropertyLockGuard guard(resource.getUri(), false);
    return resource.getUri().getPropertyValue().toString() + "/";
}

void LocalReferenceResolver::addSource(AbstractResource* resource) {
    if (resource == nullptr) return;
    m_sources.emplace(keyOf(*resource), resource);
}

void LocalReferenceResolver::removeSource(AbstractResource* resource) {
    if (resource == nullptr) return;
    m_sources.erase(keyOf(*resource));
}

void LocalReferenceResolver::setSources(const SourceList& sources) {
    for (AbstractResource* resource : sources) addSource(resource);
}

LocalReferenceResolver::SourceList LocalReferenceResolver::getSources() const {
    SourceList sources;
    sources.reserve(m_sources.size());
    for (const auto& entry : m_sources) sources.push_back(entry.second);
    return sources;
}

bool LocalReferenceResolver::resolve(XObject* reference, XObject*& result) const {
    result = nullptr;
    if (reference == nullptr || m_sources.empty()) return false;
    Poco::UUID id;
    {
        Base::PropertyLockGuard guard(reference->getId(), false);
        id = reference->getId().getValue();
    }
    result = find(reference->getType().path, id);
    return result != nullptr;
}

bool LocalReferenceResolver::resolveLocation(const ElementLocation& location,
                                             XObject*& result) const {
    result = m_sources.empty() ? nullptr : find(location.typePath(), location.id());
    return result != nullptr;
}

XObject* LocalReferenceResolver::find(const std::string& typePath, const Poco::UUID& id) const {
    const auto source = m_sources.find(typePath);
    if (source == m_sources.end() || source->second == nullptr) return nullptr;
    AbstractResource::Ptr element;
    if (!source->second->getElement(id, element).isSuccess()) return nullptr;
    // The resource keeps the element alive after this shared pointer goes.
    return element.get();
}

bool CombinedReferenceResolver::addReferenceResolver(IReferenceResolver* resolver) {
    if (resolver == nullptr) return false;
    if (std::find(m_resolver.begin(), m_resolver.end(), resolver) != m_resolver.end()) {
        return false;
    }
    m_resolver.push_back(resolver);
    return true;
}

bool CombinedReferenceResolver::removeReferenceResolver(IReferenceResolver* resolver) {
    if (resolver == nullptr) return false;
    const auto found = std::find(m_resolver.begin(), m_resolver.end(), resolver);
    if (found == m_resolver.end()) return false;
    m_resolver.erase(found);
    return true;
}

bool CombinedReferenceResolver::resolve(XObject* reference, XObject*& result) const {
    for (const IReferenceResolver* resolver : m_resolver) {
        if (resolver->resolve(reference, result)) return true;
    }
    return false;
}

bool CombinedReferenceResolver::resolveLocation(const ElementLocation& location,
                                                XObject*& result) const {
    for (const IReferenceResolver* resolver : m_resolver) {
        if (resolver->resolveLocation(location, result)) return true;
    }
    return false;
}

}  // namespace Kivo::Data
