#ifndef QESSERVICEDATALIB_SRC_CLIENT_INDEXMATCHER_H
#define QESSERVICEDATALIB_SRC_CLIENT_INDEXMATCHER_H

#include <set>
#include <vector>

#include "Client/TextPattern.h"
#include "Data/Base/Object.h"
#include "Data/Base/PropertyBase.h"
#include "Data/Base/PropertyIndex.h"

namespace Kivo::Client {

/// Finds the owners of one property index whose values match a TextPattern, by the rules
/// ElementSearch documents: an ordered lookup or a range where the pattern allows one, else a
/// scan over the filed properties' current values. REQUIRES: the index owner's mutex and the
/// read side of the tree lock, for as long as the matcher is used.
class IndexMatcher {
public:
    /// A matcher over `index` (not owned).
    explicit IndexMatcher(const Data::Base::PropertyIndexBase& index);
    IndexMatcher(const IndexMatcher&) = delete;
    IndexMatcher& operator=(const IndexMatcher&) = delete;

    /// The owners whose value matches `pattern`, in the index's order; an owner may appear
    /// twice where the index files it twice.
    std::vector<Data::Base::Object*> find(const TextPattern& pattern) const;

private:
    enum Kind { KIND_NONE, KIND_TEXT, KIND_VALUE, KIND_ARRAY, KIND_REFERENCE };

    static Kind kindOf(const Data::Base::PropertyBase* property);
    static Kind kindOf(const Data::Base::PropertyIndexBase& index);
    bool allowsRange(const TextPattern& pattern) const;
    // The owners whose value matches `pattern` or who are among `also`, in the index's order.
    std::vector<Data::Base::Object*> scan(const TextPattern& pattern,
                                          const std::set<Data::Base::Object*>& also = {}) const;
    bool holds(const Data::Base::PropertyBase& property, const TextPattern& pattern) const;

    const Data::Base::PropertyIndexBase& m_index;  // not owned
    Kind m_kind;
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_SRC_CLIENT_INDEXMATCHER_H
