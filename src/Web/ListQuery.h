#ifndef QESSERVICEDATALIB_WEB_LISTQUERY_H
#define QESSERVICEDATALIB_WEB_LISTQUERY_H

#include <cstddef>
#include <string>

#include "Client/ElementSearch.h"
#include "Data/AbstractResource.h"
#include "Data/OperationResult.h"

namespace Kivo::Web {

class QueryParameters;

// What a list request asks for: a page (offset, count clamped to Router::MAX_COUNT) of the
// elements that pass its criteria ("where=<key>=<text>", repeatable, all must hold; "q=<text>"
// over every searchable key; "ci=1" ignores case), in ascending id order.
struct ListQuery {
    int offset = 0;
    int count = 0;
    Client::ElementSearch::Criteria criteria;
    bool freeText = false;
    std::string text;
    Client::Case sensitivity = Client::CASE_SENSITIVE;

    // OK with `list` filled, or INVALID_VALUE for a bad offset, count or where.
    static Data::OperationResult read(const QueryParameters& query, ListQuery& list);
    // The page of `resource` and the number of all matches, or the search's refusal.
    Data::OperationResult select(const Data::AbstractResource& resource,
                                 Data::AbstractResource::ElementQueryResult& page,
                                 std::size_t& total) const;

private:
    // Every match, ascending by id.
    Data::OperationResult matches(const Data::AbstractResource& resource,
                                  Data::AbstractResource::ElementQueryResult& found) const;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_LISTQUERY_H
