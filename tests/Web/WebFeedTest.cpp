#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Buffer.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/WebSocket.h>
#include <gtest/gtest.h>

#include <Client/ElementWriter.h>

#include "WebFixture.h"

namespace Kivo::Web::Test {
namespace {

using Poco::Net::WebSocket;

// A WebSocket client of the fixture's server.
class FeedClient {
public:
    FeedClient(std::uint16_t port, const std::string& path = "/api/Media/events")
        : m_session("127.0.0.1", port),
          m_request(Poco::Net::HTTPRequest::HTTP_GET, path, Poco::Net::HTTPMessage::HTTP_1_1),
          m_socket(m_session, m_request, m_response) {
        m_socket.setReceiveTimeout(Poco::Timespan(10, 0));
    }

    void send(const std::string& text, int flags = WebSocket::FRAME_TEXT) {
        m_socket.sendFrame(text.data(), static_cast<int>(text.size()), flags);
    }

    // The next frame; its opcode in `opcode`.
    std::string receive(int* opcode = nullptr) {
        Poco::Buffer<char> buffer(0);
        int flags = 0;
        m_socket.receiveFrame(buffer, flags);
        if (opcode != nullptr) *opcode = flags & WebSocket::FRAME_OP_BITMASK;
        return std::string(buffer.begin(), buffer.size());
    }

    Poco::JSON::Object::Ptr receiveJSON() {
        return Poco::JSON::Parser().parse(receive()).extract<Poco::JSON::Object::Ptr>();
    }

    // The status code of the close frame that ends the session (0 for none).
    int closeCode() {
        for (int frames = 0; frames < 100000; ++frames) {
            int opcode = 0;
            const std::string payload = receive(&opcode);
            if (opcode == WebSocket::FRAME_OP_CLOSE) {
                return payload.size() >= 2 ? (static_cast<unsigned char>(payload[0]) << 8) |
                                                 static_cast<unsigned char>(payload[1])
                                           : 0;
            }
        }
        return -1;
    }

    // Subscribes with `filter` (JSON object text); the server's confirmation.
    Poco::JSON::Object::Ptr subscribe(const std::string& filter) {
        send(R"({"subscribe": )" + filter + "}");
        return receiveJSON();
    }

private:
    Poco::Net::HTTPClientSession m_session;
    Poco::Net::HTTPRequest m_request;
    Poco::Net::HTTPResponse m_response;
    WebSocket m_socket;
};

class WebFeed : public WebFixture {
protected:
    std::vector<Poco::UUID> trackIds(std::size_t count) {
        Data::AbstractResource::ElementQueryResult tracks;
        EXPECT_TRUE(m_service.tracks.getElements(tracks, 0, static_cast<int>(count)).isSuccess());
        std::vector<Poco::UUID> out;
        for (const auto& track : tracks) out.push_back(track->getIdentification());
        return out;
    }
    void rename(const Poco::UUID& id, const std::string& name) {
        ASSERT_TRUE(Client::ElementWriter(m_service.tracks).set(id, "name", name).isSuccess());
    }
};

TEST_F(WebFeed, TenThousandWritesArriveOnceAndInOrder) {
    WebServerOptions options;
    options.feedQueueLimit = 20000;
    start(options);
    FeedClient client(m_server->port());
    const auto subscribed = client.subscribe(R"({"resources": ["Tracks"], "keys": ["name"]})");
    ASSERT_EQ("subscribed", subscribed->getValue<std::string>("event"));
    ASSERT_EQ(0u, subscribed->getValue<Poco::UInt64>("revision"));
    const std::vector<Poco::UUID> tracks = trackIds(7);
    const int writes = 10000;
    std::thread writer([&] {
        for (int i = 1; i <= writes; ++i) rename(tracks[i % tracks.size()], "n" + std::to_string(i));
    });
    for (int i = 1; i <= writes; ++i) {
        const auto event = client.receiveJSON();
        ASSERT_EQ("changed", event->getValue<std::string>("event")) << i;
        ASSERT_EQ(static_cast<Poco::UInt64>(i), event->getValue<Poco::UInt64>("revision"));
        ASSERT_EQ(tracks[i % tracks.size()].toString(), event->getValue<std::string>("id"));
        ASSERT_EQ("n" + std::to_string(i),
                  event->getObject("values")->getValue<std::string>("name"));
    }
    writer.join();
}

TEST_F(WebFeed, SubscribersResumeFiltersAndResync) {
    start();
    const std::vector<Poco::UUID> tracks = trackIds(2);
    for (int i = 1; i <= 5; ++i) rename(tracks[0], "early " + std::to_string(i));
    Client::ElementWriter(m_service.albums).set(
        Poco::UUID(ids("Albums").front()), "genre", "jazz");  // revision 6, another resource
    struct Case {
        std::string subscribe;
        std::vector<std::string> expected;  // "<event> <revision>"
    };
    for (const Case& c : std::vector<Case>{
             {R"({"since": 3})", {"changed 4", "changed 5", "changed 6"}},
             {R"({"since": 3, "resources": ["Tracks"]})", {"changed 4", "changed 5"}},
             {R"({"since": 0, "resources": ["Albums"]})", {"changed 6"}},
             {R"({"since": 999999})", {"resync 6"}},
         }) {
        FeedClient client(m_server->port());
        EXPECT_EQ(6, client.subscribe(c.subscribe)->getValue<int>("revision"));
        std::vector<std::string> got;
        for (std::size_t i = 0; i < c.expected.size(); ++i) {
            const auto event = client.receiveJSON();
            got.push_back(event->getValue<std::string>("event") + " " +
                          std::to_string(event->getValue<int>("revision")));
        }
        EXPECT_EQ(c.expected, got) << c.subscribe;
    }
    // From now: only what follows.
    FeedClient client(m_server->port());
    EXPECT_EQ(6, client.subscribe("{}")->getValue<int>("revision"));
    rename(tracks[1], "later");
    const auto event = client.receiveJSON();
    EXPECT_EQ(7, event->getValue<int>("revision"));
    EXPECT_EQ("later", event->getObject("values")->getValue<std::string>("name"));
}

TEST_F(WebFeed, AnOverflowingClientGetsAResyncAndThenTheEventsAfterIt) {
    WebServerOptions options;
    options.feedQueueLimit = 2;
    start(options);
    FeedClient client(m_server->port());
    client.subscribe(R"({"resources": ["Tracks"]})");
    const std::vector<Poco::UUID> tracks = trackIds(3);
    const int writes = 3000;
    for (int i = 1; i <= writes; ++i) rename(tracks[i % tracks.size()], "w" + std::to_string(i));
    // Whatever the client's pace, the revisions climb, every gap follows a resync, and the
    // last write arrives.
    Poco::UInt64 last = 0;
    bool resynced = false;
    while (last < writes) {
        const auto event = client.receiveJSON();
        const Poco::UInt64 revision = event->getValue<Poco::UInt64>("revision");
        if (event->getValue<std::string>("event") == "resync") {
            EXPECT_GE(revision, last);
            resynced = true;
        } else {
            ASSERT_TRUE(revision == last + 1 || resynced) << revision << " after " << last;
            ASSERT_GT(revision, last);
            resynced = false;
        }
        last = revision;
    }
    EXPECT_EQ(static_cast<Poco::UInt64>(writes), last);
}

TEST_F(WebFeed, ThrottledChangesLoseNothingAndKeepTheLatestValues) {
    start();
    FeedClient client(m_server->port());
    client.subscribe(R"({"resources": ["Tracks"], "minInterval": 200})");
    const Poco::UUID track = trackIds(1).front();
    for (int i = 1; i <= 50; ++i) {
        ASSERT_TRUE(Client::ElementWriter(m_service.tracks)
                        .set(track, i % 2 ? "name" : "rating", i % 2 ? Poco::Dynamic::Var("t" + std::to_string(i))
                                                                     : Poco::Dynamic::Var(1 + i % 5))
                        .isSuccess());
    }
    // The first change goes at once; the rest are merged into the next interval's event.
    std::map<std::string, std::string> values;
    Poco::UInt64 revision = 0;
    int frames = 0;
    while (revision < 50) {
        const auto event = client.receiveJSON();
        ++frames;
        revision = event->getValue<Poco::UInt64>("revision");
        const auto changed = event->getObject("values");
        for (const auto& member : *changed) values[member.first] = member.second.toString();
    }
    EXPECT_LE(frames, 3);
    EXPECT_EQ("t49", values["name"]);
    EXPECT_EQ("1", values["rating"]);  // 1 + 50 % 5
}

TEST_F(WebFeed, BadFramesCloseWithTheirCodeAndTheServerCarriesOn) {
    WebServerOptions options;
    options.maxFrameSize = 1024;
    start(options);
    struct Case {
        std::string payload;
        int flags;
        int code;
    };
    for (const Case& c : std::vector<Case>{
             {"{\"subscribe\": 1}", WebSocket::FRAME_TEXT, WebSocket::WS_POLICY_VIOLATION},
             {"not json", WebSocket::FRAME_TEXT, WebSocket::WS_POLICY_VIOLATION},
             {R"({"subscribe": {"since": -1}})", WebSocket::FRAME_TEXT,
              WebSocket::WS_POLICY_VIOLATION},
             {R"({"subscribe": {"resources": [1]}})", WebSocket::FRAME_TEXT,
              WebSocket::WS_POLICY_VIOLATION},
             {std::string(100000, '['), WebSocket::FRAME_TEXT, WebSocket::WS_PAYLOAD_TOO_BIG},
             {"\x01\x02", WebSocket::FRAME_BINARY, WebSocket::WS_PAYLOAD_NOT_ACCEPTABLE},
             {"{\"subscribe\"", WebSocket::FRAME_OP_TEXT, WebSocket::WS_PAYLOAD_NOT_ACCEPTABLE},
         }) {
        FeedClient client(m_server->port());
        client.send(c.payload, c.flags);
        EXPECT_EQ(c.code, client.closeCode()) << c.payload.substr(0, 30);
    }
    FeedClient client(m_server->port());
    client.send("ping", WebSocket::FRAME_FLAG_FIN | WebSocket::FRAME_OP_PING);
    int opcode = 0;
    EXPECT_EQ("ping", client.receive(&opcode));
    EXPECT_EQ(WebSocket::FRAME_OP_PONG, opcode);
    EXPECT_EQ(200, call("GET", "/api").status);
}

TEST_F(WebFeed, StoppingClosesWebSocketsWithGoingAwayAndEndsIdleConnections) {
    start();
    FeedClient subscribed(m_server->port());
    subscribed.subscribe("{}");
    FeedClient silent(m_server->port());
    Poco::Net::HTTPClientSession idle("127.0.0.1", m_server->port());
    Poco::Net::HTTPRequest request("GET", "/api", Poco::Net::HTTPMessage::HTTP_1_1);
    idle.sendRequest(request);
    Poco::Net::HTTPResponse response;
    idle.receiveResponse(response).ignore(1 << 20);
    ASSERT_EQ(200, response.getStatus());
    const std::uint16_t port = m_server->port();
    const auto began = std::chrono::steady_clock::now();
    std::thread stopper([&] { m_server->stop(); });
    EXPECT_EQ(WebSocket::WS_ENDPOINT_GOING_AWAY, subscribed.closeCode());
    EXPECT_EQ(WebSocket::WS_ENDPOINT_GOING_AWAY, silent.closeCode());
    stopper.join();
    // Bounded by the poll interval and the keep-alive shutdown, far below the timeouts.
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5));
    Poco::Net::HTTPClientSession after("127.0.0.1", port);
    EXPECT_THROW(after.sendRequest(request), Poco::Net::ConnectionRefusedException);
}

TEST_F(WebFeed, TokensGuardTheFeedAndFilterItsResources) {
    auto tokens = std::make_shared<TokenTable>();
    tokens->grant("playlists-reader-0001", TokenTable::ACCESS_READ, "Media", "Playlists");
    WebServerOptions options;
    options.tokens = tokens;
    start(options);
    struct Case {
        std::string path;
        int status;
    };
    for (const Case& c : std::vector<Case>{{"/api/Media/events", 401},
                                           {"/api/Media/events?access_token=wrong-token-000001", 401},
                                           {"/api/Nope/events?access_token=playlists-reader-0001", 404}}) {
        Poco::Net::HTTPClientSession session("127.0.0.1", m_server->port());
        Poco::Net::HTTPRequest request("GET", c.path, Poco::Net::HTTPMessage::HTTP_1_1);
        Poco::Net::HTTPResponse response;
        EXPECT_THROW(WebSocket(session, request, response), Poco::Net::WebSocketException) << c.path;
        EXPECT_EQ(c.status, response.getStatus()) << c.path;
    }
    FeedClient client(m_server->port(), "/api/Media/events?access_token=playlists-reader-0001");
    client.subscribe("{}");
    rename(trackIds(1).front(), "unseen");
    Data::AbstractResource::ElementQueryResult playlists;
    ASSERT_TRUE(m_service.playlists.getElements(playlists, 0, 1).isSuccess());
    ASSERT_TRUE(Client::ElementWriter(m_service.playlists)
                    .set(playlists.front()->getIdentification(), "name", "seen")
                    .isSuccess());
    const auto event = client.receiveJSON();
    EXPECT_EQ("Playlists", event->getValue<std::string>("resource"));
    EXPECT_EQ(2, event->getValue<int>("revision"));
}

}  // namespace
}  // namespace Kivo::Web::Test
