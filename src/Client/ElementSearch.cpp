#include "Client/ElementSearch.h"

#include <set>
#include <unordered_set>
#include <utility>

#include <Poco/JSON/Object.h>

#include "IndexMatcher.h"

namespace Kivo::Client {

namespace {

using Data::OperationResult;
using Data::Base::Object;
using Data::Base::PropertyIndexReferenceMap;
using Data::Base::PropertyKey;

// Every criterion must hold; the first criterion's index decides the order. Keys without index
// are collected in `unindexed` and make the query find nothing.
class CriteriaQuery : public Data::Base::PropertyIndexQuery {
public:
    CriteriaQuery(const ElementSearch::Criteria& criteria, Case sensitivity,
                  std::vector<PropertyKey>& unindexed)
        : m_criteria(criteria), m_sensitivity(sensitivity), m_unindexed(unindexed) {}

    std::vector<Object*> operator()(const PropertyIndexReferenceMap& indexes) const override {
        std::vector<Object*> candidates;
        bool first = true;
        for (const ElementSearch::Criterion& criterion : m_criteria) {
            const auto entry = indexes.find(criterion.key);
            if (entry == indexes.end() || entry->second.isNull()) {
                m_unindexed.push_back(criterion.key);
            } else if (first || !candidates.empty()) {
                std::vector<Object*> found =
                    IndexMatcher(*entry->second).find(TextPattern(criterion.text, m_sensitivity));
                candidates = first ? distinct(std::move(found)) : keepFound(candidates, found);
                first = false;
            }
        }
        return m_unindexed.empty() ? candidates : std::vector<Object*>();
    }

private:
    static std::vector<Object*> distinct(std::vector<Object*> objects) {
        if (objects.size() < 2) return objects;
        std::unordered_set<Object*> seen(objects.size());
        std::vector<Object*> result;
        for (Object* object : objects) {
            if (seen.insert(object).second) result.push_back(object);
        }
        return result;
    }

    static std::vector<Object*> keepFound(const std::vector<Object*>& candidates,
                                          const std::vector<Object*>& found) {
        const std::unordered_set<Object*> matched(found.begin(), found.end());
        std::vector<Object*> result;
        for (Object* object : candidates) {
            if (matched.count(object) != 0) result.push_back(object);
        }
        return result;
    }

    const ElementSearch::Criteria& m_criteria;
    const Case m_sensitivity;
    std::vector<PropertyKey>& m_unindexed;
};

// One pattern over every index, keys ascending; each object at its first place.
class FreeTextQuery : public Data::Base::PropertyIndexQuery {
public:
    explicit FreeTextQuery(const TextPattern& pattern) : m_pattern(pattern) {}

    std::vector<Object*> operator()(const PropertyIndexReferenceMap& indexes) const override {
        std::set<Object*> seen;
        std::vector<Object*> result;
        for (const auto& entry : indexes) {
            if (entry.second.isNull()) continue;
            for (Object* object : IndexMatcher(*entry.second).find(m_pattern)) {
                if (seen.insert(object).second) result.push_back(object);
            }
        }
        return result;
    }

private:
    const TextPattern& m_pattern;
};

OperationResult forbidden() {
    return OperationResult(OperationResult::FORBIDDEN, "search is not allowed on this resource");
}

}  // namespace

OperationResult ElementSearch::find(const Criteria& criteria,
                                    Data::AbstractResource::ElementQueryResult& result,
                                    Case sensitivity) const {
    if (!m_resource.isGetAllowed()) return forbidden();
    if (criteria.empty()) {
        return OperationResult(OperationResult::INVALID_VALUE, "no search criteria");
    }
    std::vector<PropertyKey> unindexed;
    CriteriaQuery query(criteria, sensitivity, unindexed);
    Data::AbstractResource::ElementQueryResult found;
    const OperationResult outcome = m_resource.findElements(query, found);
    if (!outcome.isSuccess()) return outcome;
    for (const PropertyKey& key : unindexed) {
        const OperationResult refusal = refusalFor(key);
        if (!refusal.isSuccess()) return refusal;
    }
    result.swap(found);
    return outcome;
}

OperationResult ElementSearch::search(const std::string& text,
                                      Data::AbstractResource::ElementQueryResult& result,
                                      Case sensitivity) const {
    if (!m_resource.isGetAllowed()) return forbidden();
    const TextPattern pattern = TextPattern::containing(text, sensitivity);
    FreeTextQuery query(pattern);
    Data::AbstractResource::ElementQueryResult found;
    const OperationResult outcome = m_resource.findElements(query, found);
    if (outcome.isSuccess()) result.swap(found);
    return outcome;
}

OperationResult ElementSearch::refusalFor(const PropertyKey& key) const {
    const Poco::JSON::Object::Ptr description = m_resource.getSpecificationAsJSON();
    const Poco::JSON::Object::Ptr properties =
        description.isNull() ? nullptr : description->getObject("properties");
    if (properties.isNull() || !properties->has(key)) {
        return OperationResult(OperationResult::UNKNOWN_PROPERTY, key + ": no such property");
    }
    const Poco::JSON::Object::Ptr property = properties->getObject(key);
    if (!property.isNull() && property->optValue<std::string>("kind", "") == "boolean") {
        return OperationResult(OperationResult::INVALID_VALUE, key + ": cannot be searched");
    }
    return OperationResult(OperationResult::OK);
}

}  // namespace Kivo::Client
