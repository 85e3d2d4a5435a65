#ifndef QESSERVICEDATALIB_CLIENT_ELEMENTBATCH_H
#define QESSERVICEDATALIB_CLIENT_ELEMENTBATCH_H

#include <string>
#include <vector>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/UUID.h>

#include "Data/AbstractResource.h"
#include "Data/OperationResult.h"

namespace Kivo::Client {

/// The elements one load brings to one resource, in three steps: check all of them, add all
/// of them, and take back what was added when a later step of the load fails.
///
/// A refusal names the element by its position in the array (from 0) and its "id" text:
/// "<context>element 3 (id <uuid>): <reason>", or "(no id)" for an element without one. The
/// reason is ElementWriter's; besides, an id given twice in the batch is DUPLICATE "the id of
/// element <earlier position> again", and a member that is no JSON object is INVALID_OBJECT.
///
/// An element without "id" is given a fresh random one before it is checked, as the container
/// would give it, so that it can be taken back.
class ElementBatch {
public:
    /// A batch of `elements` for `resource`; `context` starts every refusal's message (empty,
    /// or "<resource>: " when a load spans resources). Resource and array are not owned and
    /// must outlive the batch.
    ElementBatch(Data::AbstractResource& resource, const Poco::JSON::Array& elements,
                 const std::string& context);

    /// OK when every element would be added; otherwise the first refusal, in array order.
    /// REQUIRES: the tree's write lock, held until add() has run.
    Data::OperationResult check();
    /// Adds the checked elements in order and stops at the first failure, with its message
    /// worded as check's. REQUIRES: check() answered OK, under the same write lock.
    Data::OperationResult add();
    /// Removes every element add() added, by the owner's removal (AbstractResource::
    /// withdrawElement, which the clients' delete gate does not stop); one gone meanwhile
    /// counts as removed. OK, or the first removal the resource refused (the others are still
    /// removed). REQUIRES: the tree's lock is not held (see ElementContainer::removeElement).
    Data::OperationResult takeBack();

private:
    Data::OperationResult refusal(std::size_t position, const Data::OperationResult& reason) const;
    Data::OperationResult refusal(std::size_t position, Data::OperationResult::Value code,
                                  const std::string& reason) const;

    Data::AbstractResource& m_resource;
    const Poco::JSON::Array& m_elements;
    const std::string m_context;
    // The elements as check() found them, each with an "id"; their ids in the same order.
    std::vector<Poco::JSON::Object::Ptr> m_checked;
    std::vector<Poco::UUID> m_ids;
    std::size_t m_added = 0;  // how many of m_checked add() has added
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_ELEMENTBATCH_H
