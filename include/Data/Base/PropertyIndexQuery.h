#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXQUERY_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXQUERY_H

#include <set>
#include <string>
#include <vector>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyIndex.h"
#include "Util/AbstractQuery.h"

namespace Kivo::Data::Base {

// The wildcard of query texts, as typed and as it arrives percent-encoded in a URL, and the
// expression it stands for.
extern const std::string QUERY_WILDCARD;
extern const std::string QUERY_WILDCARD_URL;
extern const std::string QUERY_WILDCARD_REGEX;

// A search over a resource's indexes (property key to index), answering the owning objects.
typedef Util::AbstractQuery<PropertyIndexReferenceMap, std::vector<Object*>> PropertyIndexQuery;

// The common part of the text queries. A text without "%" is an exact search: it is parsed
// as the index's value kind and compared (an ordered lookup). A text with "%" is a pattern:
// "^" + text + "$" with every "%" (or "%25") turned into ".*", matched case-sensitively
// against the whole text form of each value; nothing else in the text is escaped, so pattern
// syntax keeps its meaning, and a text that does not compile throws Poco's
// RegularExpressionException out of the query.
//
// Results are grouped by text in ascending order, then by index (ascending key), then in each
// index's value order; each object is listed once, at its first place. Queries keep no state
// between runs; run them under the index owner's mutex (PropertyIndexUser::find).
class IndexTextQueryBase : public PropertyIndexQuery {
public:
    // The expression text for a wildcard text: "ab%25" gives "^ab.*25$", since "%" is tried
    // before "%25".
    std::string createRegEx(const std::string& text) const;

protected:
    // Adds to `result` the objects of `index` for one text, skipping those in `seen`. `re` is
    // the compiled expression of a wildcard text and null for an exact text.
    static void collect(const PropertyIndexBase& index, const std::string& text,
                        const Poco::RegularExpression* re, std::set<Object*>& seen,
                        std::vector<Object*>& result);
    static bool hasWildcard(const std::string& text);
};

// Searches every text of `values` in every index. An entry with an empty index pointer throws
// Poco::NullPointerException.
class IndexFreeTextQuery : public IndexTextQueryBase {
public:
    std::vector<Object*> operator()(const PropertyIndexReferenceMap& indexes) const override;

    std::set<std::string> values;
};

// Searches every text of `values` in the index of `key` (exact key); an unknown key or an
// empty index pointer finds nothing.
class IndexGenericValueQuery : public IndexTextQueryBase {
public:
    std::vector<Object*> operator()(const PropertyIndexReferenceMap& indexes) const override;

    PropertyKey key;
    std::set<std::string> values;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXQUERY_H
