#ifndef QESSERVICEDATALIB_WEB_REQUESTHANDLERS_H
#define QESSERVICEDATALIB_WEB_REQUESTHANDLERS_H

#include <Poco/Net/HTTPRequestHandlerFactory.h>

namespace Kivo::Web {

class ServerCore;

// Hands a WebSocket upgrade to a FeedSession and every other request to the router, logging
// one line per request.
class RequestHandlerFactory : public Poco::Net::HTTPRequestHandlerFactory {
public:
    explicit RequestHandlerFactory(ServerCore& core) : m_core(core) {}
    Poco::Net::HTTPRequestHandler* createRequestHandler(
        const Poco::Net::HTTPServerRequest& request) override;

private:
    ServerCore& m_core;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_REQUESTHANDLERS_H
