#ifndef QESSERVICEDATALIB_WEB_SERVERCORE_H
#define QESSERVICEDATALIB_WEB_SERVERCORE_H

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/ThreadPool.h>

#include "Client/ChangeFeed.h"
#include "Web/FeedSession.h"
#include "Web/Router.h"
#include "Web/WebServer.h"

namespace Kivo::Web {

// What a WebServer holds: the feeds, the router, the HTTP server and its thread pool, and the
// running WebSocket sessions. Members are declared in the order they may be built and are
// destroyed in reverse: the server before its pool, the router before the feeds.
class ServerCore {
public:
    ServerCore(const WebServerOptions& options, const std::vector<Data::Service*>& services);
    ServerCore(const ServerCore&) = delete;
    ServerCore& operator=(const ServerCore&) = delete;

    void start();
    void stop();
    std::uint16_t port() const { return m_port; }

    const WebServerOptions& options() const { return m_options; }
    const Router& router() const { return m_router; }
    // Files a session for stop(); false (and not filed) once stop() has begun.
    bool addSession(FeedSession* session);
    void removeSession(FeedSession* session);

private:
    static std::vector<ServedService> served(const std::vector<Data::Service*>& services,
                                             std::vector<std::unique_ptr<Client::ChangeFeed>>& feeds);

    const WebServerOptions m_options;
    std::vector<std::unique_ptr<Client::ChangeFeed>> m_feeds;
    Router m_router;
    Poco::ThreadPool m_pool;
    Poco::Net::ServerSocket m_socket;
    std::unique_ptr<Poco::Net::HTTPServer> m_server;
    std::uint16_t m_port = 0;

    std::mutex m_mutex;
    std::condition_variable m_sessionsEnded;
    std::set<FeedSession*> m_sessions;  // guarded by m_mutex; not owned
    bool m_stopping = false;            // guarded by m_mutex
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_SERVERCORE_H
