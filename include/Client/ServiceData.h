#ifndef QESSERVICEDATALIB_CLIENT_SERVICEDATA_H
#define QESSERVICEDATALIB_CLIENT_SERVICEDATA_H

#include <Poco/JSON/Array.h>

#include "Data/OperationResult.h"

namespace Kivo::Data {
class AbstractResource;
class Service;
}  // namespace Kivo::Data

namespace Kivo::Client {

/// The elements of a service's resources as one JSON document: written out by save, read
/// back by load, whole or not at all.
///
/// Shape. The document is the one the example data files use and Service::
/// initServiceResourcesfromJSON reads:
///
///     [{"name": <resource name>, "elements": [<element>, ...]}, ...]
///
/// save lists every resource that holds elements of its own (empty ones too), by name, and
/// each resource's elements in the resource's order (by id). An element is its
/// Element::toJSON(0) form (every present property; an unset optional property is absent)
/// except for references: a reference is written as its target's URI, the text clients write
/// and load reads back, and a null reference is left out. So what save writes, load reads
/// into an empty service of the same kind, and saving that service again gives the same
/// document.
///
/// Loads. load and loadResource check every element before adding any: each is judged as
/// ElementWriter::add judges a client's new element (keys, JSON types, values, required keys,
/// the resource's isPostAllowed), and an id that the resource holds already or that the input
/// gives twice is DUPLICATE. The first refusal answers, with nothing added, and its message
/// names the element's position in its array (from 0), its id and the reason:
///
///     "element 3 (id <uuid>): rating: 7 is above the maximum 5"
///
/// prefixed by "<resource name>: " in a service load. A service load also refuses an entry
/// that is no object with a string "name" and an array "elements" (INVALID_OBJECT "entry
/// <position>: ..."), a name no resource has (NOT_FOUND, names compared as Service::
/// getResource does) and a resource named twice (DUPLICATE); it checks the elements of every
/// resource before adding to any. Should an add fail after all (the checks are meant to rule
/// that out), the elements this load added are removed again by the owner's removal
/// (AbstractResource::withdrawElement, so also where clients may not delete) and the add's
/// refusal answers. Only a resource whose withdrawElement refuses would keep them; the
/// message then says so after the refusal ("; <resource>: id <uuid>: could not be taken back
/// (<code>)").
///
/// A reference whose target is not loaded yet holds a placeholder and resolves through the
/// service on a later read, so the order of resources and elements in the document does not
/// matter.
///
/// Locking. save takes the tree's read lock. A load takes the tree's write lock for its checks
/// and adds, so no other writer comes between them, and releases it before taking anything
/// back (ElementContainer's removals must not be called holding it). Call these holding
/// no lock of the tree.
class ServiceData {
public:
    ServiceData() = delete;

    /// Every resource's elements, in the shape above.
    static Poco::JSON::Array::Ptr save(const Data::Service& service);
    /// The elements of one resource, as they appear under "elements" above; empty for a
    /// resource without elements of its own.
    static Poco::JSON::Array::Ptr saveResource(const Data::AbstractResource& resource);
    /// Adds the elements of every entry of `data` to the resource it names, all or nothing.
    static Data::OperationResult load(Data::Service& service, const Poco::JSON::Array& data);
    /// Adds `elements` (element objects) to `resource`, all or nothing.
    static Data::OperationResult loadResource(Data::AbstractResource& resource,
                                              const Poco::JSON::Array& elements);
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_SERVICEDATA_H
