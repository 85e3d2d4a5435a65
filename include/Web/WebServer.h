#ifndef QESSERVICEDATALIB_WEB_WEBSERVER_H
#define QESSERVICEDATALIB_WEB_WEBSERVER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <Poco/Logger.h>

#include "Web/TokenTable.h"

namespace Kivo::Data {
class Service;
}  // namespace Kivo::Data

namespace Kivo::Web {

class ServerCore;

/// The limits and places of a WebServer. The defaults are safe for a device on a network.
struct WebServerOptions {
    /// The address to listen on.
    std::string bindAddress = "127.0.0.1";
    /// The port; 0 picks a free one (WebServer::port() tells which).
    std::uint16_t port = 8080;
    /// Connection threads: the most connections served at once (each WebSocket holds one).
    int maxThreads = 64;
    /// Connections accepted and waiting for a thread; further ones are refused.
    int maxQueued = 64;
    /// The largest request body; a bigger one answers 413.
    std::size_t maxBodySize = 1024 * 1024;
    /// How long a request may take to arrive, and a send to a client to go out.
    std::chrono::milliseconds requestTimeout{10000};
    /// How long an idle keep-alive connection stays open.
    std::chrono::milliseconds keepAliveTimeout{5000};
    /// The directory of the browser page; empty serves no page.
    std::string pageDirectory;
    /// The bearer tokens required on /api; null leaves the interface open.
    std::shared_ptr<const TokenTable> tokens;
    /// The events a WebSocket client may have waiting before it gets a resync.
    std::size_t feedQueueLimit = 4096;
    /// The largest WebSocket frame a client may send.
    int maxFrameSize = 64 * 1024;
};

/// The web interface of one or more services: REST routes (Router), the change feed over
/// WebSocket (FeedSession) and the browser page (PageFiles), on Poco's HTTP server.
///
///     Kivo::Web::WebServerOptions options;
///     options.port = 8080;
///     Kivo::Web::WebServer server(options, {&service});
///     server.start();
///     ...  // until asked to stop
///     server.stop();
///
/// The server makes the ChangeFeed of each service, so a service must have no element observer
/// yet, and the services must outlive the server. Every request is logged as one information
/// line to logger(): method, path, the names (never the values) of its query parameters,
/// status and duration. See doc/THREADS.md for its threads and locks.
class WebServer {
public:
    /// A server of `services` (not owned; none null) under `options`; does not listen yet.
    /// Throws Poco::ExistsException when a service has an element observer already.
    WebServer(const WebServerOptions& options, const std::vector<Data::Service*>& services);
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;
    /// stop(), then ends the feeds.
    ~WebServer();

    /// Binds and starts serving. Throws Poco::Net::NetException when the address cannot be
    /// bound, Poco::InvalidAccessException when called twice.
    void start();
    /// Stops accepting, closes every WebSocket with 1001 (going away), lets the running
    /// requests finish and waits for the connection threads. Idempotent; call it holding no
    /// lock of the services.
    void stop();
    /// The port listened on (the one picked for port 0); 0 before start().
    std::uint16_t port() const;
    /// The logger of the web library, "QesServiceDataWeb".
    static Poco::Logger& logger();

private:
    std::unique_ptr<ServerCore> m_core;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_WEBSERVER_H
