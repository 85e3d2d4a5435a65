#include "Data/Base/PropertyIndexQuery.h"

#include <algorithm>
#include <memory>

#include <Poco/Exception.h>
#include <Poco/RegularExpression.h>

namespace Kivo::Data::Base {

const std::string QUERY_WILDCARD = "%";
const std::string QUERY_WILDCARD_URL = "%25";
const std::string QUERY_WILDCARD_REGEX = ".*";

namespace {

// A text whose one wildcard is trailing and whose prefix is literal compiles to the same
// expression as a PrefixRegularExpression, which lets a text index answer with a range.
std::shared_ptr<const Poco::RegularExpression> compile(const IndexTextQueryBase& query,
                                                       const std::string& text) {
    const std::string prefix = text.substr(0, text.size() - 1);
    if (text.find('%') == prefix.size() && PrefixRegularExpression::isLiteral(prefix)) {
        return std::make_shared<const PrefixRegularExpression>(prefix);
    }
    return std::make_shared<const Poco::RegularExpression>(query.createRegEx(text), 0, true);
}

}  // namespace

std::string IndexTextQueryBase::createRegEx(const std::string& text) const {
    static const Poco::RegularExpression wildcard("%|%25", 0, true);
    std::string result = "^" + text + "$";
    wildcard.subst(result, QUERY_WILDCARD_REGEX, Poco::RegularExpression::RE_GLOBAL);
    return result;
}

bool IndexTextQueryBase::hasWildcard(const std::string& text) {
    return text.find(QUERY_WILDCARD) != std::string::npos;
}

void IndexTextQueryBase::collect(const PropertyIndexBase& index, const std::string& text,
                                 const Poco::RegularExpression* re, std::vector<Object*>& result) {
    const std::vector<Object*> found = re == nullptr ? index.find(text) : index.find(*re);
    result.insert(result.end(), found.begin(), found.end());
}

void IndexTextQueryBase::keepFirst(std::vector<Object*>& objects) {
    if (objects.size() < 2) return;
    // Repeats are rare (an object found by two texts or keys, or a property moved onto a filed
    // object): a sorted copy tells whether there are any without a node per object.
    std::vector<Object*> sorted(objects);
    std::sort(sorted.begin(), sorted.end());
    if (std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end()) return;
    std::set<Object*> seen;
    objects.erase(std::remove_if(objects.begin(), objects.end(),
                                 [&seen](Object* object) { return !seen.insert(object).second; }),
                  objects.end());
}

std::vector<Object*> IndexFreeTextQuery::operator()(
    const PropertyIndexReferenceMap& indexes) const {
    std::vector<Object*> result;
    for (const std::string& text : values) {
        // One expression per text serves every index.
        const auto re = hasWildcard(text) ? compile(*this, text) : nullptr;
        for (const auto& entry : indexes) {
            if (entry.second.isNull()) throw Poco::NullPointerException();
            collect(*entry.second, text, re.get(), result);
        }
    }
    keepFirst(result);
    return result;
}

std::vector<Object*> IndexGenericValueQuery::operator()(
    const PropertyIndexReferenceMap& indexes) const {
    std::vector<Object*> result;
    const auto entry = indexes.find(key);
    if (entry == indexes.end() || entry->second.isNull()) return result;
    for (const std::string& text : values) {
        const auto re = hasWildcard(text) ? compile(*this, text) : nullptr;
        collect(*entry->second, text, re.get(), result);
    }
    keepFirst(result);
    return result;
}

}  // namespace Kivo::Data::Base
