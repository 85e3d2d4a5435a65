#include "Data/Base/PropertyIndexQuery.h"

#include <memory>

#include <Poco/Exception.h>
#include <Poco/RegularExpression.h>

namespace Kivo::Data::Base {

const std::string QUERY_WILDCARD = "%";
const std::string QUERY_WILDCARD_URL = "%25";
const std::string QUERY_WILDCARD_REGEX = ".*";

namespace {

// The literal prefix of a text whose only wildcard is a trailing "%", if it has no pattern
// syntax: such a search is a range over an index ordered by text. The expression library
// compiles a pattern only up to its first NUL, so a text holding one is left to the
// expression, whose answer the range would not give.
bool isPlainPrefix(const std::string& text) {
    return !text.empty() && text.find('%') == text.size() - 1 &&
           text.find_first_of("\\^$.|?*+()[]{}") == std::string::npos &&
           text.find('\0') == std::string::npos;
}

std::unique_ptr<Poco::RegularExpression> compile(const IndexTextQueryBase& query,
                                                 const std::string& text) {
    return std::make_unique<Poco::RegularExpression>(query.createRegEx(text), 0, true);
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
                                 const Poco::RegularExpression* re, std::set<Object*>& seen,
                                 std::vector<Object*>& result) {
    std::vector<Object*> found;
    if (re == nullptr) {
        found = index.find(text);
    } else if (isPlainPrefix(text) && index.isOrderedByText()) {
        found = index.findByPrefix(text.substr(0, text.size() - 1));
    } else {
        found = index.find(*re);
    }
    for (Object* object : found) {
        if (seen.insert(object).second) result.push_back(object);
    }
}

std::vector<Object*> IndexFreeTextQuery::operator()(
    const PropertyIndexReferenceMap& indexes) const {
    std::vector<Object*> result;
    std::set<Object*> seen;
    for (const std::string& text : values) {
        // One expression per text serves every index.
        const auto re = hasWildcard(text) ? compile(*this, text) : nullptr;
        for (const auto& entry : indexes) {
            if (entry.second.isNull()) throw Poco::NullPointerException();
            collect(*entry.second, text, re.get(), seen, result);
        }
    }
    return result;
}

std::vector<Object*> IndexGenericValueQuery::operator()(
    const PropertyIndexReferenceMap& indexes) const {
    std::vector<Object*> result;
    const auto entry = indexes.find(key);
    if (entry == indexes.end() || entry->second.isNull()) return result;
    if (values.size() == 1 && !hasWildcard(*values.begin())) {
        // One exact text in one index: its objects are distinct already.
        return entry->second->find(*values.begin());
    }
    std::set<Object*> seen;
    for (const std::string& text : values) {
        const auto re = hasWildcard(text) ? compile(*this, text) : nullptr;
        collect(*entry->second, text, re.get(), seen, result);
    }
    return result;
}

}  // namespace Kivo::Data::Base
