// Requests through the web interface's router (Kivo::Web::Router::handle, as the server calls
// it for every request but the WebSocket upgrade) over the example media service loaded with
// the shipped data (once), with its change feed.
//
// Whatever the request: handle returns (no exception, no crash, bounded time); the status is
// one the interface answers; the body is JSON, and every failure's is {"result": <code
// string>, "message": <non-empty reason>}; 500 (an exception escaping a handler) never comes;
// a 201 names the new element's Location, which answers 200, and the element is removed again
// so inputs do not pile up elements.
//
// Input: a byte choosing the method ('g' GET, 'p' POST, 'a' PATCH, 'd' DELETE, 'u' PUT; any
// other byte picks one by its value), then lines: the path, the query, the If-Match header,
// and the rest is the body (sent as application/json).

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include <Poco/JSON/Object.h>

#include "Client/ChangeFeed.h"
#include "FuzzSupport.h"
#include "MediaData.h"
#include "MediaService.h"
#include "Web/Router.h"

namespace {

using Kivo::Fuzz::InputReader;
using Kivo::Web::WebRequest;
using Kivo::Web::WebResponse;

struct Served {
    Served() {
        QES_FUZZ_CHECK(Media::MediaData::read(QES_MEDIA_DATA_DIR).loadInto(service), "load");
    }
    Media::MediaService service;
    Kivo::Client::ChangeFeed feed{service};
    Kivo::Web::Router router{{{service, feed}}, nullptr, Kivo::Web::PageFiles("")};
};

Served& served() {
    static Served* instance = new Served;  // never destroyed: the process ends with the fuzzer
    return *instance;
}

std::string methodOf(char letter) {
    switch (letter) {
        case 'p': return "POST";
        case 'a': return "PATCH";
        case 'd': return "DELETE";
        case 'u': return "PUT";
        default: return "GET";
    }
}

Poco::JSON::Object::Ptr bodyOf(const WebResponse& response) {
    const Poco::Dynamic::Var json = Kivo::Fuzz::parseJson(response.body);
    QES_FUZZ_CHECK(json.type() == typeid(Poco::JSON::Object::Ptr), "a JSON object body");
    return json.extract<Poco::JSON::Object::Ptr>();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    Kivo::Fuzz::silenceLog();
    served();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::set<int> STATUSES = {200, 201, 400, 403, 404, 405, 409, 412, 415};
    InputReader input(data, size);
    WebRequest request;
    request.method = methodOf(input.choice("gpadu"));
    request.path = input.line();
    request.query = input.line();
    request.ifMatch = input.line();
    request.body = input.rest();
    request.contentType = "application/json";
    const WebResponse response = served().router.handle(request);
    QES_FUZZ_CHECK(STATUSES.count(response.status) == 1,
                   "status " + std::to_string(response.status) + ": " + response.body);
    const Poco::JSON::Object::Ptr body = bodyOf(response);
    if (response.status >= 400) {
        QES_FUZZ_CHECK(body->has("result") && !body->getValue<std::string>("message").empty(),
                       "a failure body");
    }
    if (response.status == 201) {
        QES_FUZZ_CHECK(response.headers.size() == 1 && response.headers[0].first == "Location",
                       "a Location");
        WebRequest follow;
        follow.method = "GET";
        follow.path = response.headers[0].second;
        QES_FUZZ_CHECK(served().router.handle(follow).status == 200, "the new element is there");
        follow.method = "DELETE";
        served().router.handle(follow);
    }
    return 0;
}
