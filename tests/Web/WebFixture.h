#ifndef QESSERVICEDATALIB_TESTS_WEB_WEBFIXTURE_H
#define QESSERVICEDATALIB_TESTS_WEB_WEBFIXTURE_H

#include <atomic>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/StreamCopier.h>
#include <gtest/gtest.h>

#include <Web/WebServer.h>

#include "MediaData.h"
#include "MediaService.h"

namespace Kivo::Web::Test {

// A media resource whose clients may neither add nor delete (the resource's gates), once
// sealed.
class SealedResource : public Media::MediaResource<Media::Playlist> {
public:
    explicit SealedResource(Media::MediaService& service)
        : Media::MediaResource<Media::Playlist>(service, "Sealed", false) {}
    bool isPostAllowed() const override { return !m_sealed; }
    void seal() { m_sealed = true; }

private:
    std::atomic<bool> m_sealed{false};
};

// A media resource whose clients may not read.
class HiddenResource : public Media::MediaResource<Media::Playlist> {
public:
    explicit HiddenResource(Media::MediaService& service)
        : Media::MediaResource<Media::Playlist>(service, "Hidden", true) {}
    bool isGetAllowed() const override { return false; }
};

// One HTTP answer, whole.
struct Answer {
    int status = 0;
    std::string body;
    std::map<std::string, std::string> headers;

    Poco::JSON::Object::Ptr object() const {
        return Poco::JSON::Parser().parse(body).extract<Poco::JSON::Object::Ptr>();
    }
    std::string header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? std::string() : found->second;
    }
    std::string result() const { return object()->optValue<std::string>("result", ""); }
};

// A generated media service (600 tracks, so pages can be clamped) with the two gated test
// resources, served on an ephemeral loopback port once a test calls start().
class WebFixture : public ::testing::Test {
protected:
    WebFixture() {
        EXPECT_TRUE(Media::generateMediaData(60, 10, 12, 7).loadInto(m_service));
        Poco::JSON::Object::Ptr sealed = new Poco::JSON::Object;
        sealed->set("name", "Kept");
        EXPECT_TRUE(m_sealed.addElement(sealed.get()).isSuccess());
        m_sealed.seal();
        WebServer::logger().setLevel(Poco::Message::PRIO_WARNING);
    }
    ~WebFixture() override {
        if (m_server) m_server->stop();
        m_server.reset();
    }

    void start(WebServerOptions options = WebServerOptions()) {
        options.port = 0;
        m_server = std::make_unique<WebServer>(options, std::vector<Data::Service*>{&m_service});
        m_server->start();
    }

    Answer call(const std::string& method, const std::string& path,
                const std::string& body = std::string(),
                const std::map<std::string, std::string>& headers = {}) {
        Poco::Net::HTTPClientSession session("127.0.0.1", m_server->port());
        session.setTimeout(Poco::Timespan(10, 0));
        Poco::Net::HTTPRequest request(method, path, Poco::Net::HTTPMessage::HTTP_1_1);
        if (!body.empty() || method == "POST" || method == "PATCH") {
            request.setContentType("application/json");
            request.setContentLength64(static_cast<Poco::Int64>(body.size()));
        }
        for (const auto& header : headers) request.set(header.first, header.second);
        session.sendRequest(request) << body;
        Poco::Net::HTTPResponse response;
        std::istream& in = session.receiveResponse(response);
        Answer answer;
        answer.status = response.getStatus();
        Poco::StreamCopier::copyToString(in, answer.body);
        for (const auto& header : response) answer.headers[header.first] = header.second;
        return answer;
    }

    // The ids of a resource's elements, in the order the server lists them.
    std::vector<std::string> ids(const std::string& resource) {
        std::vector<std::string> out;
        const Poco::JSON::Array::Ptr elements =
            call("GET", "/api/Media/" + resource + "?count=500").object()->getArray("elements");
        for (std::size_t i = 0; i < elements->size(); ++i) {
            out.push_back(elements->getObject(static_cast<unsigned>(i))->getValue<std::string>("id"));
        }
        return out;
    }

    Media::MediaService m_service;
    SealedResource m_sealed{m_service};
    HiddenResource m_hidden{m_service};
    std::unique_ptr<WebServer> m_server;
};

}  // namespace Kivo::Web::Test

#endif  // QESSERVICEDATALIB_TESTS_WEB_WEBFIXTURE_H
