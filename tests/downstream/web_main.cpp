// A client of the installed web interface: it serves a service of its own on an ephemeral
// loopback port with a few lines, asks it for the list of services over HTTP, and exits
// non-zero, naming the failed check on stderr, unless the service is listed.
#include <iostream>
#include <sstream>
#include <string>

#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>

#include <Data/Service.h>
#include <Web/WebServer.h>

int main() {
    Kivo::Data::Service service("Demo", "A service of the client's own", 0,
                                Kivo::Data::Base::PropertyValueUuid());
    Kivo::Web::WebServerOptions options;
    options.port = 0;
    Kivo::Web::WebServer server(options, {&service});
    server.start();

    Poco::Net::HTTPClientSession session("127.0.0.1", server.port());
    Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, "/api",
                                   Poco::Net::HTTPMessage::HTTP_1_1);
    session.sendRequest(request);
    Poco::Net::HTTPResponse response;
    std::string body;
    Poco::StreamCopier::copyToString(session.receiveResponse(response), body);
    server.stop();

    if (response.getStatus() != Poco::Net::HTTPResponse::HTTP_OK ||
        body.find("\"name\":\"Demo\"") == std::string::npos) {
        std::cerr << "web client: FAILED: GET /api answered " << response.getStatus() << " "
                  << body << '\n';
        return 1;
    }
    std::cout << "web client: GET /api lists the service\n";
    return 0;
}
