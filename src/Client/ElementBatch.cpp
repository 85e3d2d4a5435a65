#include "ElementBatch.h"

#include <map>

#include <Poco/UUIDGenerator.h>

#include "Client/ElementWriter.h"
#include "Data/XObject.h"

namespace Kivo::Client {

using Data::OperationResult;

namespace {

const std::string& KEY_ID = Data::XObject::KEY_ID;

// How a refusal names the element: its "id" as given, whatever its type.
std::string idOf(const Poco::JSON::Object::Ptr& element) {
    if (element.isNull() || !element->has(KEY_ID)) return "no id";
    const Poco::Dynamic::Var& id = element->get(KEY_ID);
    if (id.isEmpty()) return "no id";
    return "id " + (id.isString() ? id.extract<std::string>() : id.toString());
}

}  // namespace

ElementBatch::ElementBatch(Data::AbstractResource& resource, const Poco::JSON::Array& elements,
                           const std::string& context)
    : m_resource(resource), m_elements(elements), m_context(context) {}

OperationResult ElementBatch::refusal(std::size_t position, OperationResult::Value code,
                                      const std::string& reason) const {
    return OperationResult(code, m_context + "element " + std::to_string(position) + " (" +
                                     idOf(m_elements.getObject(position)) + "): " + reason);
}

OperationResult ElementBatch::refusal(std::size_t position, const OperationResult& reason) const {
    return refusal(position, reason.value(), reason.toString());
}

OperationResult ElementBatch::check() {
    m_checked.clear();
    m_ids.clear();
    const ElementWriter writer(m_resource);
    std::map<Poco::UUID, std::size_t> positions;
    for (std::size_t i = 0; i < m_elements.size(); ++i) {
        const Poco::JSON::Object::Ptr given = m_elements.getObject(i);
        if (given.isNull()) {
            return refusal(i, OperationResult::INVALID_OBJECT, "is not a JSON object");
        }
        const OperationResult checked = writer.check(*given);
        if (checked == OperationResult::DUPLICATE) {
            return refusal(i, OperationResult::DUPLICATE, "an element with this id exists already");
        }
        if (!checked.isSuccess()) return refusal(i, checked);
        Poco::JSON::Object::Ptr element = given;
        if (!given->has(KEY_ID)) {
            element = new Poco::JSON::Object(*given);
            element->set(KEY_ID, Poco::UUIDGenerator::defaultGenerator().createRandom().toString());
        }
        // The check accepted the id, so it is a UUID's text.
        const Poco::UUID id(element->getValue<std::string>(KEY_ID));
        const auto earlier = positions.emplace(id, i);
        if (!earlier.second) {
            return refusal(i, OperationResult::DUPLICATE,
                           "the id of element " + std::to_string(earlier.first->second) + " again");
        }
        m_checked.push_back(element);
        m_ids.push_back(id);
    }
    return OperationResult(OperationResult::OK);
}

OperationResult ElementBatch::add() {
    ElementWriter writer(m_resource);
    for (; m_added < m_checked.size(); ++m_added) {
        const OperationResult added = writer.add(*m_checked[m_added]);
        if (!added.isSuccess()) return refusal(m_added, added);
    }
    return OperationResult(OperationResult::OK);
}

OperationResult ElementBatch::takeBack() {
    OperationResult result(OperationResult::OK);
    for (; m_added > 0; --m_added) {
        const Poco::UUID& id = m_ids[m_added - 1];
        const OperationResult removed = m_resource.withdrawElement(id);
        // NOT_FOUND: somebody removed it since the load's lock was released.
        if (removed.isSuccess() || removed == OperationResult::NOT_FOUND) continue;
        if (result.isSuccess()) {
            result = OperationResult(
                removed.value(), m_context + "id " + id.toString() + ": could not be taken back (" +
                                     OperationResult::valueToString(removed.value()) + ")");
        }
    }
    return result;
}

}  // namespace Kivo::Client
