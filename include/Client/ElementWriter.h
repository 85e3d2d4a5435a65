#ifndef QESSERVICEDATALIB_CLIENT_ELEMENTWRITER_H
#define QESSERVICEDATALIB_CLIENT_ELEMENTWRITER_H

#include <optional>
#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

#include "Client/ChangeEvent.h"
#include "Data/Base/Object.h"
#include "Data/OperationResult.h"

namespace Kivo::Data {
class AbstractResource;
}  // namespace Kivo::Data

/// The client-facing layer: what remote clients may do with a service's data, checked and
/// explained in terms a client understands.
namespace Kivo::Client {

class ChangeFeed;

/// The way a remote client's writes reach the elements of one resource: every value of the
/// client's JSON is checked against the kind of the property it names before anything
/// changes, and every refusal explains itself.
///
/// Types. An integer property takes a JSON integer (or a number without fraction), a boolean
/// one `true` or `false`; text, formatted text, enum, URI, UUID and reference properties take
/// a JSON string; array properties a JSON array of strings; a property of any other kind its
/// text as a JSON string. Anything else is WRONG_PROPERTY_TYPE. `null` removes an optional
/// property (and is no change where it is unset) and is INVALID_VALUE for any other.
///
/// Results. The code's string is what the library's own operations answer ("wrong_type",
/// "forbidden", ...); the message names the key (or the id, or the resource) and the reason:
/// "rating: 7 is above the maximum 5", "colour: no such property", "artist: clients may not
/// write it", "id <uuid>: no such element". An unknown key is UNKNOWN_PROPERTY in every
/// operation. Checks run in the order of the JSON object's names and the first refusal
/// answers. No exception thrown for client input reaches the caller: one escaping the core
/// becomes PROCESSING_ERROR with its text. A refusal changes nothing (values, indexes, events)
/// and logs one debug line "ElementWriter: <message>".
///
/// Gates. add and update need the resource's isPostAllowed(), remove its isDeleteAllowed();
/// update and set need the element's isPostAllowed(key) for every key they name. add does not
/// ask the per-key gate: a client allowed to add elements chooses their first values, and a
/// resource typically requires keys (such as "name") that nobody may change later.
///
/// Events. An accepted update or set raises exactly one DataChanged listing every key it
/// changed or removed; NO_UPDATE (nothing differed) raises none. add raises none, as the
/// element has no subscribers before it exists.
///
/// Conditional updates. Given the service's ChangeFeed, the writer also updates an element
/// only if it is still at the revision a client read (ChangeFeed::revisionOf, the "revision"
/// of ChangeFeed::toJSONWithRevision): otherwise INVALID_OPERATION with "id <uuid>: changed
/// since revision <n> (now <m>)", and nothing changes. The check and the write happen under
/// one write lock, so no other write comes between them.
///
/// The writer keeps only a reference to the resource (and a pointer to the feed), which must
/// outlive it. It takes the
/// tree's lock itself (the write side for a check-and-write sequence); call it holding no lock
/// of the tree, from any thread, as the resource's own operations.
class ElementWriter {
public:
    /// A writer for the elements of `resource`; `feed`, the change feed of the resource's
    /// service, enables conditional updates.
    explicit ElementWriter(Data::AbstractResource& resource, const ChangeFeed* feed = nullptr)
        : m_resource(resource), m_feed(feed) {}

    /// Adds a new element from its JSON form (with "name" and the other keys the resource
    /// requires). OK; FORBIDDEN, INVALID_OPERATION (a resource without elements of its own),
    /// INVALID_OBJECT (a key of getRequiredProperties() missing or null), UNKNOWN_PROPERTY,
    /// WRONG_PROPERTY_TYPE, INVALID_VALUE or DUPLICATE, with nothing added. An element whose
    /// JSON names no "id" gets a fresh random one; on OK, `added` (where given) is the new
    /// element's id, so a client learns where its element went.
    Data::OperationResult add(const Poco::JSON::Object& element, Poco::UUID* added = nullptr);
    /// Runs add's checks on `element` without adding it: OK, or the refusal add would answer,
    /// with the same message. Every value is checked against the resource's kind of element
    /// (so a bad value answers here, not only once the core refuses it), and an "id" held
    /// already is DUPLICATE. Only a refusal that the core's own add makes and no member
    /// explains is not foreseen. The answer holds while nothing else changes the resource: a
    /// caller that checks several elements before adding them holds the tree's write lock
    /// throughout.
    Data::OperationResult check(const Poco::JSON::Object& element) const;
    /// Writes the members of `values` into the element `id`, all or nothing. OK; NO_UPDATE
    /// when no value differs and nothing is removed; FORBIDDEN, NOT_FOUND, UNKNOWN_PROPERTY,
    /// WRONG_PROPERTY_TYPE or INVALID_VALUE with nothing changed. Optional properties created
    /// are indexed before it returns.
    Data::OperationResult update(const Poco::UUID& id, const Poco::JSON::Object& values);
    /// update, refused as the class comment says unless the element is still at revision
    /// `expected`. INVALID_OPERATION as well for a writer without a feed.
    Data::OperationResult update(const Poco::UUID& id, const Poco::JSON::Object& values,
                                 ChangeEvent::Revision expected);
    /// update with the one member `key`: `value`.
    Data::OperationResult set(const Poco::UUID& id, const Data::Base::PropertyKey& key,
                              const Poco::Dynamic::Var& value);
    /// Removes the element `id`: OK, or FORBIDDEN or NOT_FOUND with nothing removed.
    Data::OperationResult remove(const Poco::UUID& id);

private:
    Data::OperationResult updateChecked(const Poco::UUID& id, const Poco::JSON::Object& values,
                                        std::optional<ChangeEvent::Revision> expected);
    Data::OperationResult updateLocked(const Poco::UUID& id, const Poco::JSON::Object& values,
                                       std::optional<ChangeEvent::Revision> expected);
    // REQUIRES: `element` names an "id".
    Data::OperationResult addChecked(const Poco::JSON::Object& element);
    Data::OperationResult checkNew(const Poco::JSON::Object& element) const;
    Data::OperationResult forbiddenToAdd() const;

    Data::AbstractResource& m_resource;
    const ChangeFeed* m_feed;  // not owned; may be null
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_ELEMENTWRITER_H
