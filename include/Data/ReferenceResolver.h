#ifndef QESSERVICEDATALIB_DATA_REFERENCERESOLVER_H
#define QESSERVICEDATALIB_DATA_REFERENCERESOLVER_H

#include <map>
#include <string>
#include <vector>

namespace Poco {
class UUID;
}

namespace Kivo::Data {

class AbstractResource;
class ElementLocation;
class XObject;

/// Turns a placeholder that carries a target's type and id into the live object. Resolvers
/// hold plain pointers and never learn of destruction by themselves: whoever registered a
/// resource or resolver removes it before destroying it.
///
/// Resolvers have no lock. Change their sources or chain only while no resolve runs; resolve
/// itself takes only the read locks of the properties it reads and the locks the resources'
/// getElement takes.
class IReferenceResolver {
public:
    virtual ~IReferenceResolver() = default;

    /// Sets `result` to the live object `reference` stands for and returns true, or returns
    /// false (see each resolver for what `result` holds then). The object found is not owned
    /// by the caller; the resource holding it keeps it alive.
    virtual bool resolve(XObject* reference, XObject*& result) const = 0;
    /// Answers as resolve() does for `location`'s placeholder. This default asks resolve() with
    /// that placeholder; a resolver that can find the element by type path and id alone
    /// overrides it, and one that overrides resolve() overrides this alike. References ask it
    /// for element URIs with a non-null id only.
    virtual bool resolveLocation(const ElementLocation& location, XObject*& result) const;
};

/// Resolves against the resources registered with it. A resource is filed under its URI text
/// followed by "/", which is the type path of its elements, so a placeholder is looked up by
/// its type path (exact, case-sensitive) and then asked of that resource by id. The resolver
/// does not own the resources. Copies share them.
class LocalReferenceResolver : public IReferenceResolver {
public:
    /// Key (a resource's URI text followed by "/") to resource; the resources are not owned.
    typedef std::map<std::string, AbstractResource*> SourceMap;
    /// Resources, not owned.
    typedef std::vector<AbstractResource*> SourceList;

    LocalReferenceResolver() = default;
    /// addSource for each entry of `sources`, in order.
    explicit LocalReferenceResolver(const SourceList& sources);

    /// Files `resource` under its URI text + "/" unless that key is filed already: the first
    /// resource with a given URI stays. Does nothing for null.
    void addSource(AbstractResource* resource);
    /// Erases whatever is filed under `resource`'s key, which need not be `resource` itself.
    /// Does nothing for null.
    void removeSource(AbstractResource* resource);
    /// Adds each non-null entry of `sources` in order. Additive on purpose: the sources filed
    /// already stay.
    void setSources(const SourceList& sources);
    /// The filed resources in ascending key order.
    SourceList getSources() const;

    /// Looks up `reference`'s type path and asks that resource for the element with
    /// `reference`'s id. Sets `result` to null first, so it is null whenever this fails.
    bool resolve(XObject* reference, XObject*& result) const override;
    /// As resolve(), by `location`'s type path and id; makes no placeholder.
    bool resolveLocation(const ElementLocation& location, XObject*& result) const override;

private:
    static std::string keyOf(const AbstractResource& resource);
    // The element `id` of the resource filed under `typePath`, or null.
    XObject* find(const std::string& typePath, const Poco::UUID& id) const;

    SourceMap m_sources;  // not owned
};

/// Asks a chain of resolvers in the order they were added; the first that resolves wins. The
/// chain does not own its resolvers. Copies share them.
class CombinedReferenceResolver : public IReferenceResolver {
public:
    /// The resolvers in the order they were added; not owned.
    typedef std::vector<IReferenceResolver*> ResolverContainer;

    /// Appends `resolver`; false for null and for a resolver in the chain already.
    bool addReferenceResolver(IReferenceResolver* resolver);
    /// Erases `resolver`, keeping the order of the rest; false for null or absent.
    bool removeReferenceResolver(IReferenceResolver* resolver);

    /// True at the first resolver that resolves, with its result. False when all fail, with
    /// `result` as the last one left it, or when the chain is empty, with `result` untouched.
    bool resolve(XObject* reference, XObject*& result) const override;
    /// As resolve(), asking each resolver's resolveLocation.
    bool resolveLocation(const ElementLocation& location, XObject*& result) const override;

private:
    ResolverContainer m_resolver;  // not owned
};

}  // namespace Kivo::Data

#endif  // QESSERVICEDATALIB_DATA_REFERENCERESOLVER_H
