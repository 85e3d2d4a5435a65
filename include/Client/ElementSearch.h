#ifndef QESSERVICEDATALIB_CLIENT_ELEMENTSEARCH_H
#define QESSERVICEDATALIB_CLIENT_ELEMENTSEARCH_H

#include <string>
#include <vector>

#include "Client/TextPattern.h"
#include "Data/AbstractResource.h"
#include "Data/Base/Object.h"
#include "Data/OperationResult.h"

namespace Kivo::Client {

/// The search that client requests go through: a resource's elements found by key or by free
/// text, where client text is never taken for expression syntax (see TextPattern) and a bad
/// request answers with a code and a reason instead of an exception.
///
/// What a value is matched as, by the kind of its property:
/// - text kinds (strings, formatted strings, enums): the text;
/// - numbers, URIs, UUIDs: their text form ("42", "/Media/Albums/<uuid>");
/// - arrays: each element's text; the array matches when any element does (never when empty);
/// - references: the target's URI, and the target's name while the reference holds the live
///   target. A reference whose target is gone keeps matching the URI it points at. Both are
///   read at search time, so renaming, removing and adding a target again are reflected at once;
/// - booleans have no index and cannot be searched: find refuses their key, search skips them.
///
/// Cost: an exact text (no "%", case-sensitive) on a text, number, URI or UUID key is one ordered
/// lookup, compared as a value of the key's kind (so "7" and "07" both find the number 7).
/// Case-insensitively, such a text on a number, URI or UUID key finds what that lookup of its
/// lower-case form finds and, by a scan, the values whose text form equals it in any case, so
/// ignoring case never finds less than heeding it. A text whose one "%" ends it, case-sensitive, on a text key is a range over the ordered index
/// (for prefixes up to 4 KiB; a longer one scans, refusing shorter values without reading them).
/// Everything else, and every array and reference key, scans the key's index: at most the
/// number of values times the text's length.
///
/// Results list each element once. find lists them in the order of the first criterion's index
/// (ascending value, equal values in the order they were filed; for references the index's own
/// order); search lists them key by key in ascending key order, each at its first place.
///
/// The search holds a reference to the resource (not owned), which must outlive it; it keeps no
/// other state, so any thread may use it. Each call takes the tree's read lock and, inside it,
/// the resource's index mutex, as AbstractResource::findElements does: do not call it while
/// holding the index mutex.
class ElementSearch {
public:
    /// One condition of find: the value under `key` (exact key) matches `text` as a TextPattern.
    struct Criterion {
        /// The element property key.
        Data::Base::PropertyKey key;
        /// The client text; "%" is the only wildcard.
        std::string text;
    };
    /// The conditions of find; all must hold.
    typedef std::vector<Criterion> Criteria;

    /// A search over `resource`'s elements.
    explicit ElementSearch(const Data::AbstractResource& resource) : m_resource(resource) {}
    ElementSearch(const ElementSearch&) = delete;
    ElementSearch& operator=(const ElementSearch&) = delete;

    /// The elements for which every criterion holds. On success `result` is replaced and the
    /// result is OK; otherwise `result` is left as it was and the code is:
    /// - FORBIDDEN "search is not allowed on this resource" when isGetAllowed() refuses;
    /// - INVALID_VALUE "no search criteria" for an empty `criteria`;
    /// - UNKNOWN_PROPERTY "<key>: no such property" for a key the resource's elements do not
    ///   know;
    /// - INVALID_VALUE "<key>: cannot be searched" for a boolean key;
    /// - the resource's own refusal of findElements (INVALID_OPERATION for a resource without
    ///   elements).
    /// A key its elements know but no element holds a value for yet (an unset optional
    /// property) finds nothing. The first refused criterion, in the given order, decides.
    Data::OperationResult find(const Criteria& criteria,
                               Data::AbstractResource::ElementQueryResult& result,
                               Case sensitivity = CASE_SENSITIVE) const;

    /// The elements holding `text` in any searchable value: those with a value under any
    /// indexed key (the elements' own "id" and "uri" included, booleans never) that
    /// TextPattern::containing(text) matches ("%" in `text` keeps its meaning, the empty
    /// text finds every element with a searchable value). Codes as for find, with FORBIDDEN and
    /// the resource's own refusal only.
    Data::OperationResult search(const std::string& text,
                                 Data::AbstractResource::ElementQueryResult& result,
                                 Case sensitivity = CASE_SENSITIVE) const;

private:
    // The refusal for a key that has no index, or OK where the key is merely unset everywhere.
    Data::OperationResult refusalFor(const Data::Base::PropertyKey& key) const;

    const Data::AbstractResource& m_resource;  // not owned
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_ELEMENTSEARCH_H
