#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXQUERY_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXQUERY_H

#include <set>
#include <string>
#include <vector>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyIndex.h"
#include "Util/AbstractQuery.h"

namespace Kivo::Data::Base {

/// @name Query wildcard
/// The wildcard of query texts, as typed and as it arrives percent-encoded in a URL, and the
/// expression it stands for.
///@{

/// "%": any text, the empty text included.
extern const std::string QUERY_WILDCARD;
/// "%25": the wildcard percent-encoded, as it arrives in a URL.
extern const std::string QUERY_WILDCARD_URL;
/// ".*": the expression each wildcard becomes.
extern const std::string QUERY_WILDCARD_REGEX;
///@}

/// A search over a resource's indexes (property key to index), answering the owning objects.
typedef Util::AbstractQuery<PropertyIndexReferenceMap, std::vector<Object*>> PropertyIndexQuery;

/// The common part of the text queries. A text without "%" is an exact search: it is parsed
/// as the index's value kind and compared (an ordered lookup). A text with "%" is a pattern:
/// "^" + text + "$" with every "%" (or "%25") turned into ".*", matched case-sensitively
/// against the whole text form of each value; nothing else in the text is escaped, so pattern
/// syntax keeps its meaning, and a text that does not compile throws Poco's
/// RegularExpressionException out of the query.
///
/// Results are grouped by text in ascending order, then by index (ascending key), then in each
/// index's value order; each object is listed once, at its first place. Queries keep no state
/// between runs; run them under the index owner's mutex (PropertyIndexUser::find).
class IndexTextQueryBase : public PropertyIndexQuery {
public:
    /// The expression text for a wildcard text: "ab%25" gives "^ab.*25$", since "%" is tried
    /// before "%25".
    std::string createRegEx(const std::string& text) const;

protected:
    /// Adds to `result` the objects of `index` for one text. `re` is the compiled expression
    /// of a wildcard text and null for an exact text.
    static void collect(const PropertyIndexBase& index, const std::string& text,
                        const Poco::RegularExpression* re, std::vector<Object*>& result);
    /// Keeps the first place of each object in `objects` and drops its later ones.
    static void keepFirst(std::vector<Object*>& objects);
    /// Whether `text` holds a "%", which makes it a pattern rather than an exact text.
    static bool hasWildcard(const std::string& text);
};

/// Searches every text of `values` in every index. An entry with an empty index pointer throws
/// Poco::NullPointerException.
class IndexFreeTextQuery : public IndexTextQueryBase {
public:
    /// The objects holding any text of `values` under any key, in the order IndexTextQueryBase
    /// describes. A pattern that does not compile throws Poco::RegularExpressionException.
    std::vector<Object*> operator()(const PropertyIndexReferenceMap& indexes) const override;

    /// The texts to search for; exact texts and patterns may be mixed. None finds nothing.
    std::set<std::string> values;
};

/// Searches every text of `values` in the index of `key` (exact key); an unknown key or an
/// empty index pointer finds nothing.
class IndexGenericValueQuery : public IndexTextQueryBase {
public:
    /// The objects whose property under `key` holds any text of `values`, in the order
    /// IndexTextQueryBase describes. A pattern that does not compile throws
    /// Poco::RegularExpressionException.
    std::vector<Object*> operator()(const PropertyIndexReferenceMap& indexes) const override;

    /// The key of the one index searched.
    PropertyKey key;
    /// The texts to search for; exact texts and patterns may be mixed. None finds nothing.
    std::set<std::string> values;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYINDEXQUERY_H
