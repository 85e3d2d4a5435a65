#include "ListQuery.h"

#include <algorithm>
#include <set>

#include "QueryParameters.h"
#include "Web/Router.h"

namespace Kivo::Web {

using Data::AbstractResource;
using Data::OperationResult;

OperationResult ListQuery::read(const QueryParameters& query, ListQuery& list) {
    list.offset = 0;
    list.count = Router::DEFAULT_COUNT;
    if (!query.integer("offset", list.offset) || list.offset < 0) {
        return OperationResult(OperationResult::INVALID_VALUE,
                               "offset: a whole number from 0 is expected");
    }
    if (!query.integer("count", list.count) || list.count < 0) {
        return OperationResult(OperationResult::INVALID_VALUE,
                               "count: a whole number from 0 is expected");
    }
    list.count = std::min(list.count, Router::MAX_COUNT);
    for (const std::string& where : query.all("where")) {
        const std::size_t equals = where.find('=');
        if (equals == std::string::npos || equals == 0) {
            return OperationResult(OperationResult::INVALID_VALUE,
                                   "where: <key>=<text> is expected");
        }
        list.criteria.push_back({where.substr(0, equals), where.substr(equals + 1)});
    }
    list.freeText = query.has("q");
    list.text = query.first("q");
    list.sensitivity = query.first("ci") == "1" ? Client::CASE_INSENSITIVE : Client::CASE_SENSITIVE;
    return OperationResult(OperationResult::OK);
}

OperationResult ListQuery::select(const AbstractResource& resource,
                                  AbstractResource::ElementQueryResult& page,
                                  std::size_t& total) const {
    if (criteria.empty() && !freeText) {
        // The container lists by id itself; only the page is read.
        total = resource.size();
        page.clear();
        if (count == 0 || static_cast<std::size_t>(offset) >= total) {
            return OperationResult(OperationResult::OK);
        }
        const OperationResult result = resource.getElements(page, offset, count);
        return result.isSuccess() ? result : OperationResult(OperationResult::OK);
    }
    AbstractResource::ElementQueryResult found;
    const OperationResult result = matches(resource, found);
    if (!result.isSuccess()) return result;
    total = found.size();
    const std::size_t first = std::min(found.size(), static_cast<std::size_t>(offset));
    const std::size_t last = std::min(found.size(), first + static_cast<std::size_t>(count));
    page.assign(found.begin() + static_cast<std::ptrdiff_t>(first),
                found.begin() + static_cast<std::ptrdiff_t>(last));
    return OperationResult(OperationResult::OK);
}

OperationResult ListQuery::matches(const AbstractResource& resource,
                                   AbstractResource::ElementQueryResult& found) const {
    const Client::ElementSearch search(resource);
    if (!criteria.empty()) {
        const OperationResult result = search.find(criteria, found, sensitivity);
        if (!result.isSuccess()) return result;
    }
    if (freeText) {
        AbstractResource::ElementQueryResult texts;
        const OperationResult result = search.search(text, texts, sensitivity);
        if (!result.isSuccess()) return result;
        if (criteria.empty()) {
            found = texts;
        } else {
            std::set<Poco::UUID> ids;
            for (const auto& element : texts) ids.insert(element->getIdentification());
            found.erase(std::remove_if(found.begin(), found.end(),
                                       [&](const AbstractResource::Ptr& element) {
                                           return ids.count(element->getIdentification()) == 0;
                                       }),
                        found.end());
        }
    }
    std::sort(found.begin(), found.end(),
              [](const AbstractResource::Ptr& a, const AbstractResource::Ptr& b) {
                  return a->getIdentification() < b->getIdentification();
              });
    return OperationResult(OperationResult::OK);
}

}  // namespace Kivo::Web
