#include "IndexMatcher.h"

#include <string>
#include <typeinfo>

#include <Poco/Dynamic/Var.h>
#include <Poco/JSON/Array.h>

#include "Data/Base/PropertyValue.h"
#include "Data/XObject.h"
#include "Data/XObjectReference.h"

namespace Kivo::Client {

namespace {

using Data::Base::Object;
using Data::Base::PrefixRegularExpression;
using Data::Base::PropertyBase;

// Longer prefixes scan instead: the escaped expression would outgrow what the expression library
// compiles, and a value shorter than the prefix is refused without reading it.
const std::size_t MAX_RANGE_PREFIX = 4096;

const std::size_t KNOWN_INDEX_TYPES = 32;

bool arrayHolds(const Data::Base::PropertyValueBase& value, const TextPattern& pattern) {
    const Poco::JSON::Array::Ptr items = value.toJSON(0).extract<Poco::JSON::Array::Ptr>();
    for (const Poco::Dynamic::Var& item : *items) {
        if (pattern.matches(item.toString())) return true;
    }
    return false;
}

bool referenceHolds(const Data::Base::PropertyValueBase& value, const TextPattern& pattern) {
    const auto& reference = dynamic_cast<const Data::XObjectReference&>(value);
    if (reference.isNull()) return false;
    const Data::XObject* target = reference.getValue();
    // The target may belong to another tree; its identity is read under that tree's lock.
    const Data::Base::PropertyLockGuard guard(target->getUri(), false);
    if (pattern.matches(target->getUri().getPropertyValue().toString())) return true;
    // A placeholder's name is a stale copy or "unidentified element", never the target's.
    return dynamic_cast<const Data::DummyObject*>(target) == nullptr &&
           pattern.matches(target->getName().getValue());
}

}  // namespace

IndexMatcher::IndexMatcher(const Data::Base::PropertyIndexBase& index)
    : m_index(index), m_kind(kindOf(index)) {}

IndexMatcher::Kind IndexMatcher::kindOf(const Data::Base::PropertyIndexBase& index) {
    // An index files properties of one class, whose value class decides the kind, so the kind
    // is that of the index's dynamic type. Learning it reads a filed property; the answer is
    // kept per thread, without a lock, in slots that need no destructor (searches may run while
    // static objects are destroyed). Beyond the slots, it is learnt again on every search.
    struct Known {
        const std::type_info* type;
        Kind kind;
    };
    thread_local Known known[KNOWN_INDEX_TYPES] = {};
    const std::type_info& type = typeid(index);
    std::size_t slot = 0;
    for (; slot < KNOWN_INDEX_TYPES && known[slot].type != nullptr; ++slot) {
        if (*known[slot].type == type) return known[slot].kind;
    }
    for (Object* owner : index.get()) {
        const Kind kind = kindOf(index.find(owner));
        if (kind == KIND_NONE) continue;
        if (slot < KNOWN_INDEX_TYPES) known[slot] = Known{&type, kind};
        return kind;
    }
    return KIND_NONE;
}

IndexMatcher::Kind IndexMatcher::kindOf(const PropertyBase* property) {
    if (property == nullptr) return KIND_NONE;
    const Data::Base::PropertyValueBase& value = property->getPropertyValueBase();
    if (value.isReference()) return KIND_REFERENCE;
    if (value.isArray()) return KIND_ARRAY;
    if (dynamic_cast<const Data::Base::PropertyValue<std::string>*>(&value) != nullptr) {
        return KIND_TEXT;
    }
    return KIND_VALUE;
}

bool IndexMatcher::allowsRange(const TextPattern& pattern) const {
    const std::string& text = pattern.getText();
    return m_kind == KIND_TEXT && pattern.getCase() == CASE_SENSITIVE && pattern.isPrefix() &&
           text.size() <= MAX_RANGE_PREFIX && text.find('\0') == std::string::npos;
}

std::vector<Object*> IndexMatcher::find(const TextPattern& pattern) const {
    if (m_kind == KIND_NONE) return {};
    const bool scalar = m_kind == KIND_TEXT || m_kind == KIND_VALUE;
    if (scalar && pattern.isExact()) {
        if (pattern.getCase() == CASE_SENSITIVE) return m_index.find(pattern.getText());
        // A value's text form need not be the only text that reads as it ("07" for 7).
        if (m_kind == KIND_VALUE) {
            const std::vector<Object*> equal = m_index.find(pattern.getText());
            return scan(pattern, std::set<Object*>(equal.begin(), equal.end()));
        }
    }
    if (allowsRange(pattern)) {
        return m_index.find(
            PrefixRegularExpression(pattern.getPrefix(), PrefixRegularExpression::PREFIX_TEXT));
    }
    return scan(pattern);
}

std::vector<Object*> IndexMatcher::scan(const TextPattern& pattern,
                                        const std::set<Object*>& also) const {
    std::vector<Object*> result;
    for (Object* owner : m_index.get()) {
        const PropertyBase* property = m_index.find(owner);
        if (also.count(owner) != 0 || (property != nullptr && holds(*property, pattern))) {
            result.push_back(owner);
        }
    }
    return result;
}

bool IndexMatcher::holds(const PropertyBase& property, const TextPattern& pattern) const {
    const Data::Base::PropertyValueBase& value = property.getPropertyValueBase();
    switch (m_kind) {
        case KIND_TEXT:
            // Every property of a text index holds a text value (see kindOf).
            return pattern.matches(
                static_cast<const Data::Base::PropertyValue<std::string>&>(value).getValue());
        case KIND_ARRAY:
            return arrayHolds(value, pattern);
        case KIND_REFERENCE:
            return referenceHolds(value, pattern);
        case KIND_VALUE:
        case KIND_NONE:
            break;
    }
    return pattern.matches(value.toString());
}

}  // namespace Kivo::Client
