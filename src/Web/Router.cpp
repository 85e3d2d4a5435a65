#include "Web/Router.h"

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/JSON/Array.h>
#include <Poco/NumberParser.h>
#include <Poco/String.h>
#include <Poco/UUID.h>

#include "Client/ElementSearch.h"
#include "Client/ElementWriter.h"
#include "Client/ResourceDescription.h"
#include "Data/Base/PropertyBase.h"
#include "Data/Service.h"
#include "Data/XObjectReference.h"
#include "Util/RecursiveRWLock.h"
#include "Web/JsonBody.h"
#include "Web/JsonReply.h"
#include "ListQuery.h"
#include "PathSegments.h"
#include "QueryParameters.h"

namespace Kivo::Web {

using Data::AbstractResource;
using Data::OperationResult;

/// Who is asking: with tokens on, the holder of the token presented.
struct Router::Caller {
    std::optional<std::size_t> holder;
};

/// The resource (and element id, where the path names one) a request is about.
struct Router::Target {
    const ServedService& served;
    AbstractResource& resource;
    const Caller& caller;
    Poco::UUID id;
};

namespace {

const char* const JSON_TYPE = "application/json";

WebResponse notFound(const std::string& message) {
    return JsonReply::failure(404, OperationResult::NOT_FOUND, message);
}

WebResponse badValue(const std::string& message) {
    return JsonReply::failure(400, OperationResult::INVALID_VALUE, message);
}

WebResponse methodNotAllowed(const std::string& allowed) {
    WebResponse response = JsonReply::failure(405, OperationResult::INVALID_OPERATION,
                                              "method not allowed here; allowed: " + allowed);
    response.headers.emplace_back("Allow", allowed);
    return response;
}

// The decoded path segments after the leading "/"; false for a bad percent-encoding or a
// segment that is not valid UTF-8.
bool splitPath(const std::string& path, std::vector<std::string>& segments) {
    segments = decodedSegments(path);
    if (!segments.empty() && segments.back().empty()) segments.pop_back();
    for (const std::string& segment : segments) {
        if (!JsonBody::isValidUtf8(segment)) return false;
    }
    return true;
}

std::string nameOf(const Data::XObject& object) {
    const Data::Base::PropertyLockGuard guard(object.getName(), false);
    return object.getName().getValue();
}

bool isJsonContent(const std::string& contentType) {
    const std::string type = Poco::toLower(Poco::trim(contentType.substr(0, contentType.find(';'))));
    return type == JSON_TYPE;
}

// The revision of an If-Match header ("<n>", W/"<n>" or <n>), or nothing for "*" and absent.
// False for anything else.
bool parseIfMatch(const std::string& header, std::optional<Client::ChangeEvent::Revision>& out) {
    std::string text = Poco::trim(header);
    if (text.empty() || text == "*") return true;
    if (text.rfind("W/", 0) == 0) text = text.substr(2);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    Poco::UInt64 revision = 0;
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
        !Poco::NumberParser::tryParseUnsigned64(text, revision)) {
        return false;
    }
    out = revision;
    return true;
}

// The element as clients see it: its JSON with its revision, and each reference as the
// target's URI text (the text a client writes back), where the element's JSON shows the
// target's compact object.
Poco::JSON::Object::Ptr elementJSON(const Client::ChangeFeed& feed, const Data::Element& element) {
    Poco::JSON::Object::Ptr json = feed.toJSONWithRevision(element, 0);
    Util::ScopedRecursiveReadLock lock(*element.getLock());
    for (auto& member : *json) {
        if (member.second.type() != typeid(Poco::JSON::Object::Ptr) ||
            dynamic_cast<const Data::PropertyXObjectReference*>(
                element.getProperty(member.first)) == nullptr) {
            continue;
        }
        member.second =
            member.second.extract<Poco::JSON::Object::Ptr>()->optValue<std::string>("uri", "");
    }
    return json;
}

Poco::JSON::Array::Ptr elementsOf(const Client::ChangeFeed& feed,
                                  const AbstractResource::ElementQueryResult& elements) {
    Poco::JSON::Array::Ptr array = new Poco::JSON::Array;
    for (const auto& element : elements) array->add(elementJSON(feed, *element));
    return array;
}

}  // namespace

Router::Router(std::vector<ServedService> services, const TokenTable* tokens, PageFiles page)
    : m_services(std::move(services)), m_tokens(tokens), m_page(std::move(page)) {}

WebResponse Router::handle(const WebRequest& request) const noexcept {
    try {
        return route(request);
    } catch (const Poco::Exception& error) {
        return JsonReply::failure(500, OperationResult::PROCESSING_ERROR, error.displayText());
    } catch (const std::exception& error) {
        return JsonReply::failure(500, OperationResult::PROCESSING_ERROR, error.what());
    } catch (...) {
        return JsonReply::failure(500, OperationResult::PROCESSING_ERROR, "unknown exception");
    }
}

WebResponse Router::route(const WebRequest& request) const {
    std::vector<std::string> segments;
    if (request.path.empty() || request.path[0] != '/') return badValue("path must start with /");
    try {
        if (!splitPath(request.path, segments)) return badValue("path is not valid UTF-8");
    } catch (const Poco::SyntaxException&) {
        return badValue("bad percent-encoding in the path");
    }
    if (segments.empty() || segments[0] != "api") {
        if (request.method != "GET" && request.method != "HEAD") return methodNotAllowed("GET");
        return m_page.get(request.path);
    }
    Caller caller;
    WebResponse refusal;
    if (!authenticate(TokenTable::bearerOf(request.authorization), caller, refusal)) {
        return refusal;
    }
    segments.erase(segments.begin());
    return routeApi(request, segments, caller);
}

WebResponse Router::routeApi(const WebRequest& request, const std::vector<std::string>& segments,
                             const Caller& caller) const {
    const std::string& method = request.method;
    if (segments.empty()) {
        return method == "GET" ? listServices(caller) : methodNotAllowed("GET");
    }
    const ServedService* served = findService(segments[0]);
    if (served == nullptr) return notFound("no service '" + segments[0] + "'");
    const std::string serviceName = nameOf(served->service);
    if (accessOf(caller, serviceName, std::string()) == TokenTable::ACCESS_NONE) {
        return JsonReply::failure(403, OperationResult::FORBIDDEN,
                                  "the token grants nothing in " + serviceName);
    }
    if (segments.size() == 1) {
        return method == "GET" ? describeService(*served, caller) : methodNotAllowed("GET");
    }
    if (segments.size() == 2 && segments[1] == "events") {
        return JsonReply::failure(400, OperationResult::INVALID_OPERATION,
                                  "the events route needs a WebSocket upgrade");
    }
    AbstractResource* resource = served->service.getResource(segments[1]);
    if (resource == nullptr || segments.size() > 3) {
        return notFound("no resource '" + segments[1] + "' in " + serviceName);
    }
    const bool writing = method != "GET" && method != "HEAD";
    const TokenTable::Access needed = writing ? TokenTable::ACCESS_WRITE : TokenTable::ACCESS_READ;
    if (accessOf(caller, serviceName, nameOf(*resource)) < needed) {
        return JsonReply::failure(403, OperationResult::FORBIDDEN,
                                  std::string("the token may not ") + (writing ? "write" : "read") +
                                      " " + serviceName + "/" + nameOf(*resource));
    }
    Target target{*served, *resource, caller, Poco::UUID()};
    if (segments.size() == 2) {
        if (method == "GET") return listElements(target, request);
        if (method == "POST") return addElement(target, request);
        return methodNotAllowed("GET, POST");
    }
    if (segments[2] == "_description") {
        return method == "GET" ? describeResource(target) : methodNotAllowed("GET");
    }
    if (!target.id.tryParse(segments[2])) return notFound("no element '" + segments[2] + "'");
    if (method == "GET") return getElement(target, request);
    if (method == "PATCH") return patchElement(target, request);
    if (method == "DELETE") return deleteElement(target);
    return methodNotAllowed("GET, PATCH, DELETE");
}

std::optional<Router::FeedAccess> Router::openFeed(const WebRequest& request,
                                                   WebResponse& refusal) const {
    std::vector<std::string> segments;
    QueryParameters query;
    try {
        if (!splitPath(request.path, segments)) segments.clear();
        query = QueryParameters::parse(request.query);
    } catch (const Poco::SyntaxException&) {
        refusal = badValue("bad percent-encoding");
        return std::nullopt;
    }
    const ServedService* served = segments.size() == 3 && segments[0] == "api" &&
                                          segments[2] == "events"
                                      ? findService(segments[1])
                                      : nullptr;
    if (served == nullptr) {
        refusal = notFound("no event feed at " + request.path);
        return std::nullopt;
    }
    std::string token = TokenTable::bearerOf(request.authorization);
    if (token.empty()) token = query.first("access_token");
    Caller caller;
    if (!authenticate(token, caller, refusal)) return std::nullopt;
    const std::string serviceName = nameOf(served->service);
    if (accessOf(caller, serviceName, std::string()) == TokenTable::ACCESS_NONE) {
        refusal = JsonReply::failure(403, OperationResult::FORBIDDEN,
                                     "the token grants nothing in " + serviceName);
        return std::nullopt;
    }
    FeedAccess access;
    access.feed = &served->feed;
    access.mayRead = [this, caller, serviceName](const std::string& resource) {
        return accessOf(caller, serviceName, resource) >= TokenTable::ACCESS_READ;
    };
    return access;
}

bool Router::authenticate(const std::string& token, Caller& caller, WebResponse& refusal) const {
    if (m_tokens == nullptr) return true;
    caller.holder = token.empty() ? std::nullopt : m_tokens->find(token);
    if (caller.holder) return true;
    refusal = JsonReply::failure(401, OperationResult::FORBIDDEN,
                                 token.empty() ? "a bearer token is required" : "unknown token");
    refusal.headers.emplace_back("WWW-Authenticate", "Bearer");
    return false;
}

TokenTable::Access Router::accessOf(const Caller& caller, const std::string& service,
                                    const std::string& resource) const {
    if (m_tokens == nullptr) return TokenTable::ACCESS_WRITE;
    return caller.holder ? m_tokens->access(*caller.holder, service, resource)
                         : TokenTable::ACCESS_NONE;
}

const ServedService* Router::findService(const std::string& name) const {
    for (const ServedService& served : m_services) {
        if (Poco::icompare(nameOf(served.service), name) == 0) return &served;
    }
    return nullptr;
}

WebResponse Router::listServices(const Caller& caller) const {
    Poco::JSON::Array::Ptr services = new Poco::JSON::Array;
    for (const ServedService& served : m_services) {
        const Poco::JSON::Object::Ptr json = served.service.toJSON(0);
        const std::string name = json->optValue<std::string>("name", "");
        if (accessOf(caller, name, std::string()) == TokenTable::ACCESS_NONE) continue;
        Poco::JSON::Object::Ptr entry = new Poco::JSON::Object;
        entry->set("name", name);
        entry->set("description", json->get("description"));
        entry->set("uri", json->get("uri"));
        services->add(entry);
    }
    Poco::JSON::Object::Ptr body = new Poco::JSON::Object;
    body->set("services", services);
    return JsonReply::json(200, body);
}

WebResponse Router::describeService(const ServedService& served, const Caller& caller) const {
    const Poco::JSON::Object::Ptr json = served.service.toJSON(0);
    const std::string serviceName = json->optValue<std::string>("name", "");
    std::vector<AbstractResource*> resources;
    {
        // The map of resources changes only under the write lock.
        Util::ScopedRecursiveReadLock lock(*served.service.getLock());
        for (const auto& entry : served.service.getResources()) resources.push_back(entry.second);
    }
    Poco::JSON::Array::Ptr list = new Poco::JSON::Array;
    for (AbstractResource* resource : resources) {
        const Poco::JSON::Object::Ptr description = resource->toJSON(0);
        const std::string name = description->optValue<std::string>("name", "");
        // Every resource is listed; the flags say what this caller may do with it.
        const TokenTable::Access access = accessOf(caller, serviceName, name);
        const bool mayWrite = access == TokenTable::ACCESS_WRITE;
        Poco::JSON::Object::Ptr entry = new Poco::JSON::Object;
        entry->set("name", name);
        entry->set("description", description->get("description"));
        entry->set("uri", description->get("uri"));
        entry->set("total", resource->size());
        entry->set("get", access != TokenTable::ACCESS_NONE && resource->isGetAllowed());
        entry->set("post", mayWrite && resource->isPostAllowed());
        entry->set("delete", mayWrite && resource->isDeleteAllowed());
        list->add(entry);
    }
    Poco::JSON::Object::Ptr body = new Poco::JSON::Object;
    body->set("name", serviceName);
    body->set("description", json->get("description"));
    body->set("uri", json->get("uri"));
    body->set("revision", served.feed.currentRevision());
    body->set("resources", list);
    return JsonReply::json(200, body);
}

WebResponse Router::listElements(const Target& target, const WebRequest& request) const {
    ListQuery list;
    const OperationResult read = ListQuery::read(QueryParameters::parse(request.query), list);
    if (!read.isSuccess()) return JsonReply::of(read);
    if (!target.resource.isGetAllowed()) {
        return JsonReply::failure(403, OperationResult::FORBIDDEN,
                                  "reading is not allowed on this resource");
    }
    AbstractResource::ElementQueryResult page;
    std::size_t total = 0;
    const OperationResult result = list.select(target.resource, page, total);
    if (!result.isSuccess()) return JsonReply::of(result);
    Poco::JSON::Object::Ptr body = new Poco::JSON::Object;
    body->set("total", total);
    body->set("offset", list.offset);
    body->set("elements", elementsOf(target.served.feed, page));
    return JsonReply::json(200, body);
}

WebResponse Router::describeResource(const Target& target) const {
    return JsonReply::json(200, Client::ResourceDescription::of(target.resource));
}

WebResponse Router::getElement(const Target& target, const WebRequest& request) const {
    AbstractResource::Ptr element;
    if (!target.resource.getElement(target.id, element).isSuccess() || element.isNull()) {
        return notFound("id " + target.id.toString() + ": no such element");
    }
    if (!target.resource.isGetAllowed() || !element->isGetAllowed()) {
        return JsonReply::failure(403, OperationResult::FORBIDDEN,
                                  "reading is not allowed on this element");
    }
    Poco::JSON::Object::Ptr json = elementJSON(target.served.feed, *element);
    const std::vector<std::string> expand = QueryParameters::parse(request.query).all("expand");
    if (!expand.empty()) {
        const Poco::JSON::Object::Ptr expanded = element->toJSON(expand);
        for (const std::string& key : expand) {
            if (!json->has(key)) continue;
            const Poco::Dynamic::Var value = expanded->get(key);
            json->set(key, value.type() == typeid(Poco::JSON::Object::Ptr) ? value
                                                                            : Poco::Dynamic::Var());
        }
    }
    WebResponse response = JsonReply::json(200, json);
    response.headers.emplace_back(
        "ETag", "\"" + std::to_string(json->optValue<Poco::UInt64>("revision", 0)) + "\"");
    return response;
}

WebResponse Router::addElement(const Target& target, const WebRequest& request) const {
    if (!isJsonContent(request.contentType)) {
        return JsonReply::failure(415, OperationResult::INVALID_VALUE,
                                  "the body must be application/json");
    }
    Poco::JSON::Object::Ptr json;
    const OperationResult parsed = JsonBody::parseObject(request.body, json);
    if (!parsed.isSuccess()) return JsonReply::of(parsed);
    Poco::UUID id;
    const OperationResult result =
        Client::ElementWriter(target.resource, &target.served.feed).add(*json, &id);
    if (!result.isSuccess()) return JsonReply::of(result);
    const std::string service = nameOf(target.served.service);
    Poco::JSON::Object::Ptr body = new Poco::JSON::Object;
    body->set("result", OperationResult::valueToString(result.value()));
    body->set("message", "");
    body->set("id", id.toString());
    WebResponse response = JsonReply::json(201, body);
    response.headers.emplace_back(
        "Location", "/api/" + service + "/" + nameOf(target.resource) + "/" + id.toString());
    return response;
}

WebResponse Router::patchElement(const Target& target, const WebRequest& request) const {
    if (!isJsonContent(request.contentType)) {
        return JsonReply::failure(415, OperationResult::INVALID_VALUE,
                                  "the body must be application/json");
    }
    std::optional<Client::ChangeEvent::Revision> expected;
    if (!parseIfMatch(request.ifMatch, expected)) {
        return badValue("If-Match: a revision \"<n>\" is expected");
    }
    Poco::JSON::Object::Ptr json;
    const OperationResult parsed = JsonBody::parseObject(request.body, json);
    if (!parsed.isSuccess()) return JsonReply::of(parsed);
    Client::ElementWriter writer(target.resource, &target.served.feed);
    const OperationResult result =
        expected ? writer.update(target.id, *json, *expected) : writer.update(target.id, *json);
    if (!result.isSuccess()) {
        WebResponse response = JsonReply::of(result);
        if (expected && result.value() == OperationResult::INVALID_OPERATION) {
            response.status = 412;
        }
        return response;
    }
    Poco::JSON::Object::Ptr body = new Poco::JSON::Object;
    body->set("result", OperationResult::valueToString(result.value()));
    body->set("message", "");
    body->set("revision", target.served.feed.revisionOf(target.id));
    return JsonReply::json(200, body);
}

WebResponse Router::deleteElement(const Target& target) const {
    return JsonReply::of(Client::ElementWriter(target.resource, &target.served.feed).remove(target.id));
}

}  // namespace Kivo::Web
