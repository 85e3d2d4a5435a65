#ifndef QESSERVICEDATALIB_CLIENT_RESOURCEDESCRIPTION_H
#define QESSERVICEDATALIB_CLIENT_RESOURCEDESCRIPTION_H

#include <Poco/JSON/Object.h>

namespace Kivo::Data {
class AbstractResource;
}  // namespace Kivo::Data

namespace Kivo::Client {

/// What clients are told about the elements of a resource: the resource's own description
/// (AbstractResource::getSpecificationAsJSON, whose shape AbstractResource::specificationOf
/// documents) with what it cannot say as it stands put right and added:
///
/// - "id" and "uri" carry no "default". A new element draws a fresh random id, and its URI
///   follows from it, so the value a fresh element shows is one no element will have; the
///   resource's own description shows such a value, a new one on each call. Every other
///   default stays.
/// - An enum's "values" come in the order the property declares its words
///   (PropertyValueEnum::getDeclaredEnumValues), whose first is the default; the resource's
///   own description lists them byte-wise.
/// - Every property has "searchable": whether ElementSearch finds elements by that key. Every
///   kind has an index but booleans, so it is false for booleans only.
/// - A reference has "targets": the type identifiers (Object::Type::identifier, such as
///   "Media.Albums.AlbumObject") of the elements it may point at, ascending; empty when it
///   may point at elements of any type.
///
/// The description is built from a fresh element each time, so two calls give the same JSON
/// while the element class and the resource's gates stay as they are. The resource's own
/// getSpecificationAsJSON keeps its output unchanged.
class ResourceDescription {
public:
    ResourceDescription() = delete;

    /// The description of `resource`'s elements; for a resource without elements of its own,
    /// its own description (the empty object in the base).
    static Poco::JSON::Object::Ptr of(const Data::AbstractResource& resource);
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_RESOURCEDESCRIPTION_H
