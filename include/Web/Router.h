#ifndef QESSERVICEDATALIB_WEB_ROUTER_H
#define QESSERVICEDATALIB_WEB_ROUTER_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

#include "Client/ChangeFeed.h"
#include "Data/AbstractResource.h"
#include "Web/PageFiles.h"
#include "Web/TokenTable.h"
#include "Web/WebExchange.h"

namespace Kivo::Data {
class Service;
}  // namespace Kivo::Data

namespace Kivo::Web {

/// A service the router serves, with the change feed that numbers its revisions. Neither is
/// owned; both must outlive the router.
struct ServedService {
    /// The service.
    Data::Service& service;
    /// The service's change feed.
    Client::ChangeFeed& feed;
};

/// The REST routes of the web interface over a set of services, as a function from a whole
/// request to a whole response, with no socket in sight (the server, the tests and the fuzzer
/// all call handle()).
///
/// Routes (README "Web interface" lists them with examples): `GET /api`; `GET /api/<service>`;
/// `GET` and `POST /api/<service>/<resource>`; `GET /api/<service>/<resource>/_description`;
/// `GET`, `PATCH` and `DELETE /api/<service>/<resource>/<id>`. Anything outside /api is a page
/// file.
/// Services and resources are found by name, case-insensitively. Reads and writes go through
/// the client layer (ElementSearch, ElementWriter, ChangeFeed::toJSONWithRevision), so the
/// data's gates always apply; with a token table, every /api request also needs a bearer token
/// whose grants cover it (401 without a known one, 403 when it covers too little).
///
/// The router keeps no state between requests and takes no lock of its own; each request takes
/// the tree's locks through the client layer. Any thread may call it, concurrently.
class Router {
public:
    /// Who may read the events of which resource: the feed of a WebSocket request, and the
    /// filter its session applies on top of the subscriber's own.
    struct FeedAccess {
        /// The feed of the service named.
        Client::ChangeFeed* feed = nullptr;
        /// Whether the caller may read the events of a resource (by its name).
        std::function<bool(const std::string&)> mayRead;
    };
    /// The largest page a list request returns.
    static constexpr int MAX_COUNT = 500;
    /// The page size of a list request without "count".
    static constexpr int DEFAULT_COUNT = 50;

    /// Routes over `services`; `tokens` null means open access (not owned; must outlive the
    /// router); `page` serves what lies outside /api.
    Router(std::vector<ServedService> services, const TokenTable* tokens, PageFiles page);
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    /// The answer to `request`. Never throws: an exception escaping a handler becomes 500
    /// processing_error with its text.
    WebResponse handle(const WebRequest& request) const noexcept;
    /// For `GET /api/<service>/events`: the feed and the caller's read filter, or nothing with
    /// `refusal` set (404 for another path or an unknown service, 401/403 for tokens). With
    /// tokens on, the token may also come as the query parameter "access_token".
    std::optional<FeedAccess> openFeed(const WebRequest& request, WebResponse& refusal) const;
    /// The services served, in the order given.
    const std::vector<ServedService>& services() const { return m_services; }

private:
    struct Caller;
    struct Target;

    WebResponse route(const WebRequest& request) const;
    WebResponse routeApi(const WebRequest& request, const std::vector<std::string>& segments,
                         const Caller& caller) const;
    WebResponse listServices(const Caller& caller) const;
    WebResponse describeService(const ServedService& served, const Caller& caller) const;
    WebResponse listElements(const Target& target, const WebRequest& request) const;
    WebResponse describeResource(const Target& target) const;
    WebResponse getElement(const Target& target, const WebRequest& request) const;
    WebResponse addElement(const Target& target, const WebRequest& request) const;
    WebResponse patchElement(const Target& target, const WebRequest& request) const;
    WebResponse deleteElement(const Target& target) const;
    // Whether the caller passes the token check; `refusal` is set when it does not.
    bool authenticate(const std::string& token, Caller& caller, WebResponse& refusal) const;
    TokenTable::Access accessOf(const Caller& caller, const std::string& service,
                                const std::string& resource) const;
    const ServedService* findService(const std::string& name) const;

    std::vector<ServedService> m_services;
    const TokenTable* m_tokens;  // not owned; null: open access
    PageFiles m_page;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_ROUTER_H
