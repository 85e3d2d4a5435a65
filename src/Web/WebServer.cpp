#include "Web/WebServer.h"

#include "ServerCore.h"

namespace Kivo::Web {

WebServer::WebServer(const WebServerOptions& options, const std::vector<Data::Service*>& services)
    : m_core(std::make_unique<ServerCore>(options, services)) {}

WebServer::~WebServer() { stop(); }

void WebServer::start() { m_core->start(); }

void WebServer::stop() { m_core->stop(); }

std::uint16_t WebServer::port() const { return m_core->port(); }

Poco::Logger& WebServer::logger() { return Poco::Logger::get("QesServiceDataWeb"); }

}  // namespace Kivo::Web
