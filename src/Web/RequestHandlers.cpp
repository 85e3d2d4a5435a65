#include "RequestHandlers.h"

#include <algorithm>
#include <cstdio>
#include <istream>
#include <ostream>

#include <Poco/Exception.h>
#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/WebSocket.h>
#include <Poco/Stopwatch.h>
#include <Poco/String.h>

#include "ServerCore.h"
#include "Web/JsonReply.h"

namespace Kivo::Web {

using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

namespace {

// The longest path a log line shows.
const std::size_t LOGGED_PATH_LENGTH = 200;

WebRequest webRequestOf(const HTTPServerRequest& request) {
    WebRequest web;
    web.method = request.getMethod();
    const std::string& uri = request.getURI();
    const std::size_t question = uri.find('?');
    web.path = uri.substr(0, question);
    if (question != std::string::npos) web.query = uri.substr(question + 1);
    web.contentType = request.get("Content-Type", "");
    web.authorization = request.get("Authorization", "");
    web.ifMatch = request.get("If-Match", "");
    return web;
}

// "<method> <path>[?<name>&<name>...] <status> <ms> ms": query values may hold tokens or
// search texts, so only the names are logged.
void logRequest(const WebRequest& request, int status, const Poco::Stopwatch& clock) {
    Poco::Logger& logger = WebServer::logger();
    if (!logger.information()) return;
    std::string line = request.method + " " + request.path.substr(0, LOGGED_PATH_LENGTH);
    char separator = '?';
    std::size_t start = 0;
    while (!request.query.empty() && start <= request.query.size()) {
        std::size_t end = request.query.find('&', start);
        if (end == std::string::npos) end = request.query.size();
        const std::string name = request.query.substr(start, end - start);
        line += separator + name.substr(0, std::min(name.find('='), std::size_t(40)));
        separator = '&';
        start = end + 1;
    }
    char duration[32];
    std::snprintf(duration, sizeof duration, " %d %.3f ms", status,
                  static_cast<double>(clock.elapsed()) / 1000.0);
    logger.information(line + duration);
}

void send(const WebResponse& web, const WebRequest& request, HTTPServerResponse& response) {
    response.setStatusAndReason(static_cast<Poco::Net::HTTPResponse::HTTPStatus>(web.status));
    response.setContentType(web.contentType);
    for (const auto& header : web.headers) response.set(header.first, header.second);
    response.setContentLength64(static_cast<Poco::Int64>(web.body.size()));
    std::ostream& out = response.send();
    if (request.method != "HEAD") out.write(web.body.data(), static_cast<std::streamsize>(web.body.size()));
}

enum BodyState { BODY_COMPLETE, BODY_TOO_LARGE, BODY_TRUNCATED };

// Reads the body into `body`. A body over `limit` is left unread from there on; one that ends
// (or times out: the stream reports that as its end) before its Content-Length is truncated.
BodyState readBody(HTTPServerRequest& request, std::size_t limit, std::string& body) {
    if (request.hasContentLength() &&
        request.getContentLength64() > static_cast<Poco::Int64>(limit)) {
        return BODY_TOO_LARGE;
    }
    std::istream& in = request.stream();
    char chunk[8192];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
        body.append(chunk, static_cast<std::size_t>(in.gcount()));
        if (body.size() > limit) return BODY_TOO_LARGE;
    }
    if (request.hasContentLength() &&
        static_cast<Poco::Int64>(body.size()) < request.getContentLength64()) {
        return BODY_TRUNCATED;
    }
    return BODY_COMPLETE;
}

class ApiHandler : public Poco::Net::HTTPRequestHandler {
public:
    explicit ApiHandler(ServerCore& core) : m_core(core) {}

    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        Poco::Stopwatch clock;
        clock.start();
        WebRequest web = webRequestOf(request);
        WebResponse answer;
        try {
            switch (readBody(request, m_core.options().maxBodySize, web.body)) {
                case BODY_COMPLETE:
                    answer = m_core.router().handle(web);
                    break;
                case BODY_TOO_LARGE:
                    answer = JsonReply::failure(413, Data::OperationResult::INVALID_VALUE,
                                                "the body is larger than " +
                                                    std::to_string(m_core.options().maxBodySize) +
                                                    " bytes");
                    // The rest of the body stays unread, so the connection cannot carry on.
                    response.setKeepAlive(false);
                    break;
                case BODY_TRUNCATED:
                    answer = JsonReply::failure(400, Data::OperationResult::INVALID_VALUE,
                                                "the body ended before its Content-Length");
                    response.setKeepAlive(false);
                    break;
            }
        } catch (const Poco::Exception& error) {
            answer = JsonReply::failure(400, Data::OperationResult::INVALID_VALUE,
                                        "the request could not be read: " + error.message());
            response.setKeepAlive(false);
        }
        try {
            send(answer, web, response);
        } catch (const Poco::Exception&) {
            // The client left before its answer went out.
        }
        logRequest(web, answer.status, clock);
    }

private:
    ServerCore& m_core;
};

class FeedHandler : public Poco::Net::HTTPRequestHandler {
public:
    explicit FeedHandler(ServerCore& core) : m_core(core) {}

    void handleRequest(HTTPServerRequest& request, HTTPServerResponse& response) override {
        Poco::Stopwatch clock;
        clock.start();
        const WebRequest web = webRequestOf(request);
        WebResponse refusal;
        const std::optional<Router::FeedAccess> access = m_core.router().openFeed(web, refusal);
        if (!access) {
            sendQuietly(refusal, web, response);
            logRequest(web, refusal.status, clock);
            return;
        }
        try {
            Poco::Net::WebSocket socket(request, response);
            // A client that stops reading, or sends half a frame, holds its session (and so
            // stop()) for one timeout at most.
            const Poco::Timespan timeout(
                static_cast<Poco::Timespan::TimeDiff>(m_core.options().requestTimeout.count()) *
                1000);
            socket.setSendTimeout(timeout);
            socket.setReceiveTimeout(timeout);
            FeedSession session(socket, *access, m_core.options().feedQueueLimit,
                                m_core.options().maxFrameSize);
            if (m_core.addSession(&session)) {
                session.run();
                m_core.removeSession(&session);
            } else {
                socket.shutdown(Poco::Net::WebSocket::WS_ENDPOINT_GOING_AWAY, "server stopping");
            }
            logRequest(web, 101, clock);
        } catch (const Poco::Net::WebSocketException& error) {
            const WebResponse bad = JsonReply::failure(
                400, Data::OperationResult::INVALID_VALUE, "WebSocket handshake: " + error.message());
            sendQuietly(bad, web, response);
            logRequest(web, bad.status, clock);
        } catch (const Poco::Exception&) {
            logRequest(web, 500, clock);
        }
    }

private:
    static void sendQuietly(const WebResponse& web, const WebRequest& request,
                            HTTPServerResponse& response) {
        try {
            if (!response.sent()) send(web, request, response);
        } catch (const Poco::Exception&) {
            // The client left.
        }
    }

    ServerCore& m_core;
};

}  // namespace

Poco::Net::HTTPRequestHandler* RequestHandlerFactory::createRequestHandler(
    const HTTPServerRequest& request) {
    if (Poco::icompare(request.get("Upgrade", ""), "websocket") == 0) {
        return new FeedHandler(m_core);
    }
    return new ApiHandler(m_core);
}

}  // namespace Kivo::Web
