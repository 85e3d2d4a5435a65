#ifndef QESSERVICEDATALIB_WEB_WEBEXCHANGE_H
#define QESSERVICEDATALIB_WEB_WEBEXCHANGE_H

#include <string>
#include <utility>
#include <vector>

namespace Kivo::Web {

/// One HTTP request as the router reads it: what the socket layer (or a test, or a fuzzer)
/// took off the wire, with the body read completely. Texts are as received, undecoded.
struct WebRequest {
    /// "GET", "POST", ...
    std::string method;
    /// The path, still percent-encoded ("/api/Media/Albums").
    std::string path;
    /// The query without its "?", still percent-encoded.
    std::string query;
    /// The Content-Type header; empty when absent.
    std::string contentType;
    /// The Authorization header; empty when absent.
    std::string authorization;
    /// The If-Match header; empty when absent.
    std::string ifMatch;
    /// The body, whole.
    std::string body;
};

/// The router's answer: status, body and the headers beyond Content-Type and Content-Length.
struct WebResponse {
    /// The HTTP status.
    int status = 200;
    /// The Content-Type header.
    std::string contentType = "application/json; charset=utf-8";
    /// The body.
    std::string body;
    /// Further headers, in order (Location, ETag, Allow, WWW-Authenticate).
    std::vector<std::pair<std::string, std::string>> headers;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_WEBEXCHANGE_H
