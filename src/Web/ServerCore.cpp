#include "ServerCore.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/Net/SocketAddress.h>

#include "RequestHandlers.h"

namespace Kivo::Web {

namespace {

Poco::Timespan timespanOf(std::chrono::milliseconds duration) {
    return Poco::Timespan(static_cast<Poco::Timespan::TimeDiff>(duration.count()) * 1000);
}

}  // namespace

ServerCore::ServerCore(const WebServerOptions& options,
                       const std::vector<Data::Service*>& services)
    : m_options(options),
      m_router(served(services, m_feeds), options.tokens.get(), PageFiles(options.pageDirectory)),
      m_pool("QesWeb", 2, std::max(options.maxThreads, 1)) {}

std::vector<ServedService> ServerCore::served(
    const std::vector<Data::Service*>& services,
    std::vector<std::unique_ptr<Client::ChangeFeed>>& feeds) {
    std::vector<ServedService> served;
    for (Data::Service* service : services) {
        poco_check_ptr(service);
        feeds.push_back(std::make_unique<Client::ChangeFeed>(*service));
        served.push_back({*service, *feeds.back()});
    }
    return served;
}

void ServerCore::start() {
    if (m_server) throw Poco::InvalidAccessException("the web server was started already");
    m_socket.bind(Poco::Net::SocketAddress(m_options.bindAddress, m_options.port), true);
    m_socket.listen(std::max(m_options.maxQueued, 1));
    Poco::Net::HTTPServerParams::Ptr params = new Poco::Net::HTTPServerParams;
    params->setMaxThreads(std::max(m_options.maxThreads, 1));
    params->setMaxQueued(std::max(m_options.maxQueued, 1));
    params->setTimeout(timespanOf(m_options.requestTimeout));
    params->setKeepAlive(true);
    params->setKeepAliveTimeout(timespanOf(m_options.keepAliveTimeout));
    m_server = std::make_unique<Poco::Net::HTTPServer>(new RequestHandlerFactory(*this), m_pool,
                                                       m_socket, params);
    m_server->start();
    m_port = m_socket.address().port();
}

void ServerCore::stop() {
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_stopping) return;
        m_stopping = true;
        for (FeedSession* session : m_sessions) session->stop();
        m_sessionsEnded.wait(lock, [this] { return m_sessions.empty(); });
    }
    if (m_server) {
        // Running requests finish; idle keep-alive connections are shut.
        m_server->stopAll(false);
        m_pool.joinAll();
        // Connections that the backlog still holds are refused from now on.
        m_socket.close();
    }
}

bool ServerCore::addSession(FeedSession* session) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_stopping) return false;
    m_sessions.insert(session);
    return true;
}

void ServerCore::removeSession(FeedSession* session) {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_sessions.erase(session);
    }
    m_sessionsEnded.notify_all();
}

}  // namespace Kivo::Web
