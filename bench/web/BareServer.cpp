// The load benchmark's baseline (tools/run-web-bench.sh): a bare Poco HTTP server whose one
// handler answers every request with the same small JSON body, configured as qes-registryd
// configures its server (threads, queue, keep-alive), so that the ratio of the two shows what
// the web interface itself costs.
//
//   qes-web-bare-server <port> [threads]
//
// Prints "listening on <port>" once it serves; stops on SIGINT or SIGTERM.

#include <csignal>
#include <iostream>
#include <string>

#include <Poco/Net/HTTPRequestHandler.h>
#include <Poco/Net/HTTPRequestHandlerFactory.h>
#include <Poco/Net/HTTPServer.h>
#include <Poco/Net/HTTPServerParams.h>
#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/ServerSocket.h>
#include <Poco/NumberParser.h>
#include <Poco/ThreadPool.h>
#include <pthread.h>

namespace {

const std::string BODY =
    R"({"id":"88cf598e-df9d-429c-8dea-20fc3456fb8b","name":"Broken Lantern","revision":0})";

class ConstantHandler : public Poco::Net::HTTPRequestHandler {
public:
    void handleRequest(Poco::Net::HTTPServerRequest& request,
                       Poco::Net::HTTPServerResponse& response) override {
        request.stream().ignore(1 << 20);
        response.setContentType("application/json; charset=utf-8");
        response.setContentLength64(static_cast<Poco::Int64>(BODY.size()));
        response.send() << BODY;
    }
};

class Factory : public Poco::Net::HTTPRequestHandlerFactory {
public:
    Poco::Net::HTTPRequestHandler* createRequestHandler(
        const Poco::Net::HTTPServerRequest&) override {
        return new ConstantHandler;
    }
};

}  // namespace

int main(int argc, char** argv) {
    unsigned port = 0;
    unsigned threads = 64;
    if (argc < 2 || argc > 3 || !Poco::NumberParser::tryParseUnsigned(argv[1], port) ||
        port > 65535 || (argc == 3 && !Poco::NumberParser::tryParseUnsigned(argv[2], threads))) {
        std::cerr << "usage: qes-web-bare-server <port> [threads]\n";
        return 2;
    }
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    Poco::Net::ServerSocket socket(Poco::Net::SocketAddress("127.0.0.1", static_cast<Poco::UInt16>(port)), 64);
    Poco::Net::HTTPServerParams::Ptr params = new Poco::Net::HTTPServerParams;
    params->setMaxThreads(static_cast<int>(threads));
    params->setMaxQueued(64);
    params->setKeepAlive(true);
    Poco::ThreadPool pool("Bare", 2, static_cast<int>(threads));
    Poco::Net::HTTPServer server(new Factory, pool, socket, params);
    server.start();
    std::cout << "listening on " << socket.address().port() << std::endl;
    int signal = 0;
    sigwait(&stopSignals, &signal);
    server.stopAll(false);
    pool.joinAll();
    return 0;
}
