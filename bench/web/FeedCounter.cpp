// The load benchmark's feed subscriber (tools/run-web-bench.sh): subscribes to a service's
// change feed over WebSocket from the current revision and counts the events it receives until
// SIGINT or SIGTERM, then waits until the feed has been quiet for a second and prints
//
//   events <n> resyncs <r> first <revision> last <revision> gaps <g>
//
// where a gap is an event whose revision is not one after the one before (outside a resync).
// Zero resyncs and zero gaps with n equal to the writes made mean no event was lost.
//
//   qes-web-feed-counter <port> <service> [token]

#include <atomic>
#include <csignal>
#include <iostream>
#include <string>

#include <Poco/Buffer.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/WebSocket.h>
#include <Poco/NumberParser.h>

namespace {

std::atomic<bool> g_stopping{false};

void onSignal(int) { g_stopping = true; }

}  // namespace

int main(int argc, char** argv) {
    unsigned port = 0;
    if (argc < 3 || argc > 4 || !Poco::NumberParser::tryParseUnsigned(argv[1], port)) {
        std::cerr << "usage: qes-web-feed-counter <port> <service> [token]\n";
        return 2;
    }
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    Poco::Net::HTTPClientSession session("127.0.0.1", static_cast<Poco::UInt16>(port));
    std::string path = std::string("/api/") + argv[2] + "/events";
    if (argc == 4) path += std::string("?access_token=") + argv[3];
    Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, path,
                                   Poco::Net::HTTPMessage::HTTP_1_1);
    Poco::Net::HTTPResponse response;
    Poco::Net::WebSocket socket(session, request, response);
    const std::string subscribe = R"({"subscribe": {}})";
    socket.sendFrame(subscribe.data(), static_cast<int>(subscribe.size()));
    socket.setReceiveTimeout(Poco::Timespan(0, 200000));

    unsigned long events = 0, resyncs = 0, gaps = 0;
    Poco::UInt64 first = 0, last = 0;
    int quietPolls = 0;
    // After the signal, the events still under way are counted until a second passes quietly.
    while (!g_stopping || quietPolls < 5) {
        Poco::Buffer<char> buffer(0);
        int flags = 0;
        try {
            if (socket.receiveFrame(buffer, flags) == 0 && flags == 0) break;
        } catch (const Poco::TimeoutException&) {
            if (g_stopping) ++quietPolls;
            continue;
        }
        quietPolls = 0;
        if ((flags & Poco::Net::WebSocket::FRAME_OP_BITMASK) != Poco::Net::WebSocket::FRAME_OP_TEXT) {
            continue;
        }
        const auto json = Poco::JSON::Parser()
                              .parse(std::string(buffer.begin(), buffer.size()))
                              .extract<Poco::JSON::Object::Ptr>();
        const std::string event = json->getValue<std::string>("event");
        const Poco::UInt64 revision = json->getValue<Poco::UInt64>("revision");
        if (event == "subscribed") {
            last = revision;
        } else if (event == "resync") {
            ++resyncs;
            last = revision;
        } else {
            if (events == 0) first = revision;
            if (revision != last + 1) ++gaps;
            ++events;
            last = revision;
        }
    }
    std::cout << "events " << events << " resyncs " << resyncs << " first " << first << " last "
              << last << " gaps " << gaps << std::endl;
    return 0;
}
