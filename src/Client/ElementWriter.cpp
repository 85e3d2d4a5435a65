#include "Client/ElementWriter.h"

#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <Poco/UUIDGenerator.h>

#include "Client/ChangeFeed.h"
#include "Data/AbstractResource.h"
#include "Data/OptionalProperty.h"
#include "Logging/Log.h"
#include "MemberCheck.h"

namespace Kivo::Client {

using Data::AbstractResource;
using Data::Element;
using Data::OperationResult;
using Data::Base::PropertyKey;

namespace {

// What a checked request does besides writing its values.
struct Plan {
    // How many members carry a value (not null).
    std::size_t values = 0;
    // The optional properties that a null removes.
    std::vector<PropertyKey> removals;
    // Whether the client's object cannot go to the core as it is: it holds a null, or a
    // number the core would not read as the integer it stands for.
    bool rewrite = false;

    // The members for the core's JSON operations: the client's own object, or in `rewritten`
    // its values without nulls and with integral numbers as integers. Every number left after
    // the type checks belongs to an integer property.
    const Poco::JSON::Object* forCore(const Poco::JSON::Object& client,
                                      std::optional<Poco::JSON::Object>& rewritten) const {
        if (!rewrite) return &client;
        rewritten.emplace();
        for (const std::string& key : client.getNames()) {
            const Poco::Dynamic::Var& member = client.get(key);
            if (member.isEmpty()) continue;
            const bool integral = member.isNumeric() && !member.isInteger();
            rewritten->set(key, integral ? Poco::Dynamic::Var(
                                               static_cast<Poco::Int64>(member.convert<double>()))
                                         : member);
        }
        return &*rewritten;
    }
};

// Calls `check(name, value)` for the members of `json` in the order of its names until one
// refuses, and answers that refusal (OK when none does). A lone member is read in place: the
// order of one needs no list of names, and the value no copy.
template <typename Check>
OperationResult firstRefusal(const Poco::JSON::Object& json, Check check) {
    if (json.size() == 1) return check(json.begin()->first, json.begin()->second);
    for (const std::string& name : json.getNames()) {
        const OperationResult checked = check(name, json.get(name));
        if (!checked.isSuccess()) return checked;
    }
    return OperationResult(OperationResult::OK);
}

OperationResult logged(OperationResult::Value code, const std::string& message) {
    QES_LOG_DEBUG("ElementWriter: " << message);
    return OperationResult(code, message);
}

OperationResult logged(const OperationResult& result) {
    return logged(result.value(), result.toString());
}

OperationResult noSuchElement(const std::string& id) {
    return logged(OperationResult::NOT_FOUND, "id " + id + ": no such element");
}

// The check of a non-null member against what the element holds under `key` (known), or
// none when `key` has no property after all.
std::optional<MemberCheck> checkOf(const Element& element, const PropertyKey& key) {
    std::optional<MemberCheck> check;
    const Data::OptionalPropertyBase* optional = element.getOptionalProperty(key);
    if (optional != nullptr && optional->isNull()) {
        check.emplace(key, *optional);
    } else if (const Data::Base::PropertyBase* property = element.getProperty(key)) {
        check.emplace(key, property->getPropertyValueBase());
    }
    return check;
}

// One member's first round: name, gate, null and JSON type. `gated` asks the element's per-key
// gate. REQUIRES: the element's read lock.
OperationResult checkMember(const Element& element, const PropertyKey& key,
                            const Poco::Dynamic::Var& member, bool gated, Plan& plan) {
    // A present property answers most members in one lookup; an unset optional one is not
    // among the element's properties.
    const Data::Base::PropertyBase* property = element.getProperty(key);
    const Data::OptionalPropertyBase* optional =
        property == nullptr ? element.getOptionalProperty(key) : nullptr;
    if (property == nullptr && optional == nullptr && !element.knowsProperty(key)) {
        return logged(OperationResult::UNKNOWN_PROPERTY, key + ": no such property");
    }
    if (gated && !element.isPostAllowed(key)) {
        return logged(OperationResult::FORBIDDEN, key + ": clients may not write it");
    }
    if (member.isEmpty()) {
        if (optional == nullptr) optional = element.getOptionalProperty(key);
        if (optional == nullptr) {
            return logged(OperationResult::INVALID_VALUE,
                          key + ": is not optional, so null cannot remove it");
        }
        if (!optional->isNull()) plan.removals.push_back(key);
        plan.rewrite = true;
        return OperationResult(OperationResult::OK);
    }
    std::optional<MemberCheck> check;
    if (optional != nullptr && optional->isNull()) {
        check.emplace(key, *optional);
    } else if (property != nullptr) {
        check.emplace(key, property->getPropertyValueBase());
    } else {
        return logged(OperationResult::UNKNOWN_PROPERTY, key + ": no such property");
    }
    const OperationResult checked = check->checkType(member);
    if (!checked.isSuccess()) return logged(checked);
    if (member.isNumeric() && !member.isInteger()) plan.rewrite = true;
    ++plan.values;
    return checked;
}

// The first round over every member, in the object's order; the first refusal answers.
OperationResult checkMembers(const Element& element, const Poco::JSON::Object& json, bool gated,
                             Plan& plan) {
    return firstRefusal(json, [&](const PropertyKey& key, const Poco::Dynamic::Var& member) {
        return checkMember(element, key, member, gated, plan);
    });
}

// The second round over members that passed the first: the first member whose property
// refuses its value, or OK. REQUIRES: the read lock.
OperationResult checkValues(const Element& element, const Poco::JSON::Object& json) {
    for (const std::string& key : json.getNames()) {
        const Poco::Dynamic::Var& member = json.get(key);
        if (member.isEmpty()) continue;
        const std::optional<MemberCheck> check = checkOf(element, key);
        if (!check) continue;
        const OperationResult explained = check->explain(member);
        if (!explained.isSuccess()) return logged(explained);
    }
    return OperationResult(OperationResult::OK);
}

// Why the element (or, for a new element, its prototype) refused a value of `json` that
// passed the first round. REQUIRES: the read lock.
OperationResult explainRefusal(const Element& element, const Poco::JSON::Object& json,
                               const OperationResult& refusal) {
    const OperationResult explained = checkValues(element, json);
    if (!explained.isSuccess()) return explained;
    // The core's own refusals carry no message; their code's string stands in for it.
    const std::string reason = refusal.toString().empty()
                                   ? OperationResult::valueToString(refusal.value())
                                   : refusal.toString();
    return logged(refusal.value(), element.getType().name + ": refused (" + reason + ")");
}

OperationResult duplicateId(const std::string& id) {
    return logged(OperationResult::DUPLICATE,
                  "id " + id + ": an element with this id exists already");
}

OperationResult missingRequired(const AbstractResource& resource, const Poco::JSON::Object& json) {
    for (const PropertyKey& key : resource.getRequiredProperties()) {
        if (!json.has(key) || json.get(key).isEmpty()) {
            return logged(OperationResult::INVALID_OBJECT, key + ": is required");
        }
    }
    return OperationResult(OperationResult::OK);
}

// The first round for a new element: the resource holds elements, the required keys are
// there, and every member passes against `prototype`, a fresh element of the resource.
OperationResult checkNewMembers(const AbstractResource& resource, const Poco::JSON::Object& element,
                                AbstractResource::Ptr& prototype, Plan& plan) {
    prototype = resource.createDetachedElement();
    if (prototype.isNull()) {
        return logged(OperationResult::INVALID_OPERATION,
                      resource.getType().name + ": holds no elements");
    }
    const OperationResult required = missingRequired(resource, element);
    if (!required.isSuccess()) return required;
    // Nobody else knows the prototype; its lock is taken for the contract's sake.
    Util::ScopedRecursiveReadLock lock(*prototype->getLock());
    return checkMembers(*prototype, element, false, plan);
}

// Writes and removes as `plan` says, raising one DataChanged for all of it. The core update
// goes first: it is the only step that can refuse, and it changes nothing when it does. Without
// removals it raises its one event itself.
OperationResult apply(Element& element, const Poco::JSON::Object& values, const Plan& plan) {
    std::optional<Poco::JSON::Object> rewritten;
    const Poco::JSON::Object* forCore = plan.forCore(values, rewritten);
    if (plan.removals.empty()) return element.updateByJSON(forCore);
    OperationResult result(OperationResult::OK);
    element.changeAsOne([&] {
        if (plan.values != 0) {
            result = element.updateByJSON(forCore);
            if (!result.isSuccess()) return;
        }
        for (const PropertyKey& key : plan.removals) element.removeProperty(key);
        result = OperationResult(OperationResult::OK);
    });
    return result;
}

}  // namespace

OperationResult ElementWriter::forbiddenToAdd() const {
    return logged(OperationResult::FORBIDDEN,
                  m_resource.getType().name + ": clients may not add or change elements");
}

OperationResult ElementWriter::add(const Poco::JSON::Object& element, Poco::UUID* added) {
    if (!m_resource.isPostAllowed()) return forbiddenToAdd();
    try {
        if (element.has(Data::XObject::KEY_ID)) {
            const OperationResult result = addChecked(element);
            // Accepted, so the member is a UUID's text.
            if (result.isSuccess() && added != nullptr) {
                *added = Poco::UUID(element.getValue<std::string>(Data::XObject::KEY_ID));
            }
            return result;
        }
        const Poco::UUID id = Poco::UUIDGenerator::defaultGenerator().createRandom();
        Poco::JSON::Object withId(element);
        withId.set(Data::XObject::KEY_ID, id.toString());
        const OperationResult result = addChecked(withId);
        if (result.isSuccess() && added != nullptr) *added = id;
        return result;
    } catch (const std::exception& error) {
        return logged(
            OperationResult::PROCESSING_ERROR,
            m_resource.getType().name + ": the element could not be added: " + error.what());
    }
}

OperationResult ElementWriter::addChecked(const Poco::JSON::Object& element) {
    AbstractResource::Ptr prototype;
    Plan plan;
    const OperationResult checked = checkNewMembers(m_resource, element, prototype, plan);
    if (!checked.isSuccess()) return checked;
    std::optional<Poco::JSON::Object> rewritten;
    const OperationResult added = m_resource.addElement(plan.forCore(element, rewritten));
    if (added.isSuccess()) return added;
    if (added == OperationResult::DUPLICATE) {
        return duplicateId(element.getValue<std::string>(Data::XObject::KEY_ID));
    }
    Util::ScopedRecursiveReadLock lock(*prototype->getLock());
    return explainRefusal(*prototype, element, added);
}

OperationResult ElementWriter::check(const Poco::JSON::Object& element) const {
    if (!m_resource.isPostAllowed()) return forbiddenToAdd();
    try {
        return checkNew(element);
    } catch (const std::exception& error) {
        return logged(
            OperationResult::PROCESSING_ERROR,
            m_resource.getType().name + ": the element could not be checked: " + error.what());
    }
}

OperationResult ElementWriter::checkNew(const Poco::JSON::Object& element) const {
    AbstractResource::Ptr prototype;
    Plan plan;
    OperationResult checked = checkNewMembers(m_resource, element, prototype, plan);
    if (!checked.isSuccess()) return checked;
    {
        Util::ScopedRecursiveReadLock lock(*prototype->getLock());
        checked = checkValues(*prototype, element);
        if (!checked.isSuccess()) return checked;
    }
    // Without an "id" the new element draws a fresh one, which nothing holds; a present one
    // passed the checks above as a UUID text.
    if (!element.has(Data::XObject::KEY_ID)) return checked;
    const std::string id = element.getValue<std::string>(Data::XObject::KEY_ID);
    if (m_resource.hasElement(Poco::UUID(id))) return duplicateId(id);
    return checked;
}

OperationResult ElementWriter::update(const Poco::UUID& id, const Poco::JSON::Object& values) {
    return updateChecked(id, values, std::nullopt);
}

OperationResult ElementWriter::update(const Poco::UUID& id, const Poco::JSON::Object& values,
                                      ChangeEvent::Revision expected) {
    if (m_feed == nullptr) {
        return logged(OperationResult::INVALID_OPERATION,
                      "id " + id.toString() + ": conditional updates need the change feed");
    }
    return updateChecked(id, values, expected);
}

OperationResult ElementWriter::updateChecked(const Poco::UUID& id, const Poco::JSON::Object& values,
                                             std::optional<ChangeEvent::Revision> expected) {
    if (!m_resource.isPostAllowed()) {
        return logged(OperationResult::FORBIDDEN,
                      m_resource.getType().name + ": clients may not add or change elements");
    }
    try {
        return updateLocked(id, values, expected);
    } catch (const std::exception& error) {
        return logged(
            OperationResult::PROCESSING_ERROR,
            "id " + id.toString() + ": the update could not be carried out: " + error.what());
    }
}

OperationResult ElementWriter::updateLocked(const Poco::UUID& id, const Poco::JSON::Object& values,
                                            std::optional<ChangeEvent::Revision> expected) {
    // Checks and writes in one step under the tree's write lock, so nothing changes between
    // them; the resource files what the update created, as its own update does.
    bool reached = false;
    const OperationResult result = m_resource.modifyElement(id, [&](Element& element) {
        reached = true;
        if (expected) {
            // Revisions are recorded under the write lock held here: this one stays current.
            const ChangeEvent::Revision now = m_feed->revisionOf(id);
            if (now != *expected) {
                return logged(OperationResult::INVALID_OPERATION,
                              "id " + id.toString() + ": changed since revision " +
                                  std::to_string(*expected) + " (now " + std::to_string(now) + ")");
            }
        }
        Plan plan;
        const OperationResult checked = checkMembers(element, values, true, plan);
        if (!checked.isSuccess()) return checked;
        if (plan.values == 0 && plan.removals.empty()) {
            return OperationResult(OperationResult::NO_UPDATE);
        }
        const OperationResult applied = apply(element, values, plan);
        if (applied.isSuccess()) return applied;
        return explainRefusal(element, values, applied);
    });
    if (reached) return result;
    if (result == OperationResult::NOT_FOUND) return noSuchElement(id.toString());
    return logged(result.value(), m_resource.getType().name + ": holds no elements");
}

OperationResult ElementWriter::set(const Poco::UUID& id, const PropertyKey& key,
                                   const Poco::Dynamic::Var& value) {
    Poco::JSON::Object values;
    values.set(key, value);
    return update(id, values);
}

OperationResult ElementWriter::remove(const Poco::UUID& id) {
    if (!m_resource.isDeleteAllowed()) {
        return logged(OperationResult::FORBIDDEN,
                      m_resource.getType().name + ": clients may not remove elements");
    }
    try {
        const OperationResult removed = m_resource.removeElement(id);
        if (removed == OperationResult::NOT_FOUND) return noSuchElement(id.toString());
        if (!removed.isSuccess()) {
            return logged(removed.value(), m_resource.getType().name + ": holds no elements");
        }
        return removed;
    } catch (const std::exception& error) {
        return logged(
            OperationResult::PROCESSING_ERROR,
            "id " + id.toString() + ": the element could not be removed: " + error.what());
    }
}

}  // namespace Kivo::Client
