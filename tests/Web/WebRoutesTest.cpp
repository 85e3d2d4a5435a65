#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <Poco/File.h>
#include <Poco/FileStream.h>
#include <Poco/Path.h>
#include <Poco/TemporaryFile.h>
#include <gtest/gtest.h>

#include "WebFixture.h"

namespace Kivo::Web::Test {
namespace {

const std::string UNKNOWN_ID = "00000000-0000-4000-8000-000000000001";

class WebRoutes : public WebFixture {};

TEST_F(WebRoutes, EveryRouteAnswersTheStatusAndResultOfItsCase) {
    start();
    const std::string album = ids("Albums").front();
    const std::string sealed = ids("Sealed").front();
    const std::string albumPath = "/api/Media/Albums/" + album;
    struct Case {
        std::string method;
        std::string path;
        std::string body;
        int status;
        std::string result;  // empty: a success body that is no result
    };
    const std::vector<Case> cases = {
        {"GET", "/api", "", 200, ""},
        {"GET", "/api/Media", "", 200, ""},
        {"GET", "/api/media", "", 200, ""},
        {"GET", "/api/Media/Albums/_description", "", 200, ""},
        {"GET", albumPath, "", 200, ""},
        {"GET", "/api/Nope", "", 404, "not_found"},
        {"GET", "/api/Media/Nope", "", 404, "not_found"},
        {"GET", "/api/Media/Albums/not-a-uuid", "", 404, "not_found"},
        {"GET", "/api/Media/Albums/" + UNKNOWN_ID, "", 404, "not_found"},
        {"GET", albumPath + "/more", "", 404, "not_found"},
        {"GET", "/api/Media/Albums%ZZ", "", 400, "invalid_value"},
        {"GET", "/api/Media/%C3%28", "", 400, "invalid_value"},
        {"PUT", "/api/Media/Albums", "{}", 405, "invalid_operation"},
        {"POST", "/api/Media/Albums/_description", "{}", 405, "invalid_operation"},
        {"POST", "/api", "{}", 405, "invalid_operation"},
        {"GET", "/api/Media/events", "", 400, "invalid_operation"},
        {"GET", "/api/Media/Albums?offset=-1", "", 400, "invalid_value"},
        {"GET", "/api/Media/Albums?where=name=%25a%*5", "", 400, "invalid_value"},
        {"GET", albumPath + "?expand=%G1", "", 400, "invalid_value"},
        {"GET", "/api/Media/Albums?where=name%B7=x", "", 400, "invalid_value"},
        {"GET", "/api/Media/Albums?count=x", "", 400, "invalid_value"},
        {"GET", "/api/Media/Albums?offset=1e3", "", 400, "invalid_value"},
        {"GET", "/api/Media/Albums?offset=99999999999", "", 400, "invalid_value"},
        {"GET", "/api/Media/Albums?where=genre", "", 400, "invalid_value"},
        {"GET", "/api/Media/Albums?where=colour=red", "", 400, "unknown_property"},
        {"GET", "/api/Media/Hidden", "", 403, "forbidden"},
        {"POST", "/api/Media/Sealed", R"({"name": "x"})", 403, "forbidden"},
        {"DELETE", "/api/Media/Sealed/" + sealed, "", 403, "forbidden"},
        {"DELETE", albumPath, "", 403, "forbidden"},
        {"DELETE", "/api/Media/Playlists/" + UNKNOWN_ID, "", 404, "not_found"},
        {"POST", "/api/Media/Albums", "{", 400, "invalid_value"},
        {"POST", "/api/Media/Albums", "[1]", 400, "invalid_value"},
        {"POST", "/api/Media/Albums", "{\"name\": \"\xC3\x28\"}", 400, "invalid_value"},
        {"POST", "/api/Media/Albums", std::string(100000, '['), 400, "invalid_value"},
        {"POST", "/api/Media/Albums", R"({"name": "A", "colour": "red"})", 400,
         "unknown_property"},
        {"POST", "/api/Media/Albums", R"({"genre": "jazz"})", 400, "invalid_object"},
        {"POST", "/api/Media/Albums", R"({"name": "Twice", "id": ")" + album + "\"}", 409,
         "duplicate"},
        {"PATCH", albumPath, R"({"artist": "Someone"})", 403, "forbidden"},
        {"PATCH", "/api/Media/Albums/" + UNKNOWN_ID, R"({"genre": "jazz"})", 404, "not_found"},
        {"GET", "/../../etc/passwd", "", 404, "not_found"},
    };
    for (const Case& c : cases) {
        const Answer answer = call(c.method, c.path, c.body);
        EXPECT_EQ(c.status, answer.status) << c.method << " " << c.path << " " << answer.body;
        EXPECT_EQ("application/json; charset=utf-8", answer.header("Content-Type")) << c.path;
        if (!c.result.empty()) {
            EXPECT_EQ(c.result, answer.result()) << c.method << " " << c.path;
            EXPECT_FALSE(answer.object()->getValue<std::string>("message").empty()) << c.path;
        }
    }
    EXPECT_EQ("GET, POST", call("PUT", "/api/Media/Albums", "{}").header("Allow"));
    // A refused write changed nothing.
    EXPECT_EQ(60u, m_service.albums.size());
    EXPECT_EQ(1u, m_sealed.size());
}

TEST_F(WebRoutes, DescriptionsCombineTheResourceGatesAndPagesStayInBounds) {
    start();
    const Poco::JSON::Object::Ptr services = call("GET", "/api").object();
    EXPECT_EQ("Media", services->getArray("services")->getObject(0)->getValue<std::string>("name"));
    EXPECT_EQ("/Media", services->getArray("services")->getObject(0)->getValue<std::string>("uri"));
    const Poco::JSON::Object::Ptr media = call("GET", "/api/Media").object();
    EXPECT_EQ(0u, media->getValue<Poco::UInt64>("revision"));
    std::map<std::string, std::string> gates;
    const Poco::JSON::Array::Ptr resources = media->getArray("resources");
    for (std::size_t i = 0; i < resources->size(); ++i) {
        const auto resource = resources->getObject(static_cast<unsigned>(i));
        gates[resource->getValue<std::string>("name")] =
            std::to_string(resource->getValue<int>("total")) +
            (resource->getValue<bool>("get") ? " get" : "") +
            (resource->getValue<bool>("post") ? " post" : "") +
            (resource->getValue<bool>("delete") ? " delete" : "");
    }
    EXPECT_EQ((std::map<std::string, std::string>{{"Albums", "60 get post"},
                                                  {"Hidden", "0 post delete"},
                                                  {"Playlists", "12 get post delete"},
                                                  {"Sealed", "1 get"},
                                                  {"Tracks", "600 get post delete"}}),
              gates);

    // Pages cover every element once, in id order, within the bounds.
    const std::vector<std::string> all = ids("Tracks");
    ASSERT_EQ(500u, all.size());  // count is clamped at 500
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    struct Case {
        std::string query;
        std::size_t offset;
        std::size_t returned;
    };
    for (const Case& c : std::vector<Case>{{"", 0, 50},
                                           {"?count=0", 0, 0},
                                           {"?offset=590&count=50", 590, 10},
                                           {"?offset=600", 600, 0},
                                           {"?offset=100000", 100000, 0},
                                           {"?offset=450&count=100000", 450, 150},
                                           {"?offset=7&count=3", 7, 3}}) {
        const Poco::JSON::Object::Ptr page = call("GET", "/api/Media/Tracks" + c.query).object();
        EXPECT_EQ(600, page->getValue<int>("total")) << c.query;
        EXPECT_EQ(c.offset, page->getValue<std::size_t>("offset")) << c.query;
        const Poco::JSON::Array::Ptr elements = page->getArray("elements");
        ASSERT_EQ(c.returned, elements->size()) << c.query;
        for (std::size_t i = 0; i < elements->size() && c.offset + i < all.size(); ++i) {
            const auto element = elements->getObject(static_cast<unsigned>(i));
            EXPECT_EQ(all[c.offset + i], element->getValue<std::string>("id")) << c.query;
            EXPECT_EQ(0, element->getValue<int>("revision"));
        }
    }
}

TEST_F(WebRoutes, SearchesCountTheirMatchesAndSurviveHostileTexts) {
    start();
    // What the searches should find, read from the full list.
    const Poco::JSON::Array::Ptr albums =
        call("GET", "/api/Media/Albums?count=500").object()->getArray("elements");
    std::map<std::string, int> byGenre;
    std::string someName;
    for (std::size_t i = 0; i < albums->size(); ++i) {
        const auto album = albums->getObject(static_cast<unsigned>(i));
        ++byGenre[album->getValue<std::string>("genre")];
        someName = album->getValue<std::string>("name");
    }
    for (const auto& [genre, count] : byGenre) {
        const auto found = call("GET", "/api/Media/Albums?where=genre=" + genre).object();
        EXPECT_EQ(count, found->getValue<int>("total")) << genre;
        const auto upper = call("GET", "/api/Media/Albums?ci=1&where=genre=" + Poco::toUpper(genre));
        EXPECT_EQ(count, upper.object()->getValue<int>("total")) << genre;
        EXPECT_EQ(0, call("GET", "/api/Media/Albums?where=genre=" + Poco::toUpper(genre))
                         .object()->getValue<int>("total"));
    }
    const std::string word = someName.substr(0, someName.find(' '));
    const auto byName = call("GET", "/api/Media/Albums?q=" + word + "&count=500").object();
    ASSERT_GT(byName->getValue<int>("total"), 0);
    const auto combined =
        call("GET", "/api/Media/Albums?q=" + word + "&where=genre=jazz&count=500").object();
    EXPECT_LE(combined->getValue<int>("total"), byName->getValue<int>("total"));
    EXPECT_LE(combined->getValue<int>("total"), byGenre["jazz"]);
    // "+" is a blank; "%" is the one wildcard, also in bulk; regex syntax is plain text.
    const std::string spaced = someName;
    std::string plus = spaced;
    std::replace(plus.begin(), plus.end(), ' ', '+');
    EXPECT_LE(1, call("GET", "/api/Media/Albums?where=name=" + plus).object()->getValue<int>("total"));
    std::string percents;
    for (int i = 0; i < 2000; ++i) percents += "%25a";
    for (const std::string& hostile : {percents, std::string("%25%25%25%25"), std::string(".*"),
                                       std::string("%5B(%5C"), std::string("%00"),
                                       std::string(4000, 'x')}) {
        const Answer answer = call("GET", "/api/Media/Tracks?q=" + hostile);
        EXPECT_EQ(200, answer.status) << hostile.substr(0, 40);
    }
    EXPECT_EQ(600, call("GET", "/api/Media/Tracks?q=%25%25").object()->getValue<int>("total"));
}

TEST_F(WebRoutes, ElementsCarryTheirRevisionExpandReferencesAndRefuseStaleWrites) {
    start();
    const std::string path = "/api/Media/Tracks/" + ids("Tracks").front();
    const Answer plain = call("GET", path);
    ASSERT_EQ(200, plain.status);
    EXPECT_EQ("\"0\"", plain.header("ETag"));
    const std::string albumUri = plain.object()->getValue<std::string>("album");
    EXPECT_EQ(0u, albumUri.rfind("/Media/Albums/", 0)) << albumUri;
    const Poco::JSON::Object::Ptr expanded = call("GET", path + "?expand=album").object();
    ASSERT_FALSE(expanded->getObject("album").isNull()) << plain.body;
    EXPECT_EQ(albumUri, expanded->getObject("album")->getValue<std::string>("uri"));
    EXPECT_EQ(plain.object()->getValue<std::string>("name"),
              expanded->getValue<std::string>("name"));

    struct Case {
        std::string ifMatch;
        std::string body;
        int status;
        std::string result;
        int revision;  // of the answer; -1 where there is none
    };
    for (const Case& c : std::vector<Case>{
             {"\"0\"", R"({"rating": 3})", 200, "ok", 1},
             {"\"0\"", R"({"rating": 4})", 412, "invalid_operation", -1},
             {"W/\"1\"", R"({"rating": 4, "name": "Renamed"})", 200, "ok", 2},
             {"\"2\"", R"({"rating": 4})", 200, "ok", 2},  // no update: nothing differed
             {"*", R"({"rating": null})", 200, "ok", 3},
             {"", R"({"rating": 9})", 400, "invalid_value", -1},
             {"\"abc\"", R"({"rating": 2})", 400, "invalid_value", -1},
         }) {
        std::map<std::string, std::string> headers;
        if (!c.ifMatch.empty()) headers["If-Match"] = c.ifMatch;
        const Answer answer = call("PATCH", path, c.body, headers);
        EXPECT_EQ(c.status, answer.status) << c.ifMatch << " " << c.body << " " << answer.body;
        EXPECT_EQ(c.result, answer.result()) << c.body;
        if (c.revision >= 0) {
            EXPECT_EQ(c.revision, answer.object()->getValue<int>("revision"));
        }
    }
    const Answer now = call("GET", path);
    EXPECT_EQ("\"3\"", now.header("ETag"));
    EXPECT_EQ("Renamed", now.object()->getValue<std::string>("name"));
    EXPECT_FALSE(now.object()->has("rating"));
    EXPECT_EQ(3, call("GET", "/api/Media").object()->getValue<int>("revision"));
}

TEST_F(WebRoutes, AddsAndDeletesAtTheElementsLocationAndRefusesOversizedOrMistypedBodies) {
    WebServerOptions options;
    options.maxBodySize = 4096;
    start(options);
    const std::string path = "/api/Media/Playlists";
    const Answer added = call("POST", path, R"({"name": "Night drive"})");
    ASSERT_EQ(201, added.status) << added.body;
    EXPECT_EQ("ok", added.result());
    EXPECT_EQ("", added.object()->getValue<std::string>("message"));
    const std::string location = added.header("Location");
    EXPECT_EQ(path + "/" + added.object()->getValue<std::string>("id"), location);
    EXPECT_EQ("Night drive", call("GET", location).object()->getValue<std::string>("name"));
    const Answer withId = call("POST", path, R"({"name": "Chosen", "id": ")" + UNKNOWN_ID + "\"}");
    EXPECT_EQ(201, withId.status);
    EXPECT_EQ(path + "/" + UNKNOWN_ID, withId.header("Location"));
    const Answer removed = call("DELETE", location);
    EXPECT_EQ(200, removed.status);
    EXPECT_EQ("ok", removed.result());
    EXPECT_EQ(404, call("GET", location).status);
    EXPECT_EQ(404, call("DELETE", location).status);
    EXPECT_EQ(13u, m_service.playlists.size());

    // Bodies: up to the limit, and JSON only.
    EXPECT_EQ(413, call("POST", path, R"({"name": ")" + std::string(5000, 'a') + "\"}").status);
    EXPECT_EQ(201, call("POST", path, R"({"name": ")" + std::string(4000, 'a') + "\"}").status);
    for (const char* type : {"text/plain", "application/x-www-form-urlencoded", ""}) {
        const Answer answer =
            call("POST", path, R"({"name": "typed"})", {{"Content-Type", type}});
        EXPECT_EQ(415, answer.status) << type;
        EXPECT_EQ("invalid_value", answer.result());
    }
    EXPECT_EQ(201, call("POST", path, R"({"name": "typed"})",
                        {{"Content-Type", "Application/JSON; charset=utf-8"}}).status);
}

TEST_F(WebRoutes, PageFilesAreServedWithTheirTypesAndNothingOutside) {
    Poco::TemporaryFile directory;
    directory.createDirectories();
    const Poco::Path root(directory.path() + "/");
    Poco::File(Poco::Path(root, "sub/")).createDirectories();
    const std::map<std::string, std::string> files = {
        {"index.html", "<p>page</p>"}, {"app.js", "let x = 1;"}, {"sub/style.css", "p {}"},
        {"icon.svg", "<svg/>"}, {".secret.json", "{}"}, {"tool.exe", "MZ"}};
    for (const auto& [name, text] : files) {
        Poco::FileOutputStream out(Poco::Path(root, name).toString());
        out << text;
    }
    WebServerOptions options;
    options.pageDirectory = root.toString();
    start(options);
    struct Case {
        std::string path;
        int status;
        std::string type;
        std::string body;
    };
    for (const Case& c : std::vector<Case>{
             {"/", 200, "text/html; charset=utf-8", "<p>page</p>"},
             {"/index.html", 200, "text/html; charset=utf-8", "<p>page</p>"},
             {"/app.js", 200, "text/javascript; charset=utf-8", "let x = 1;"},
             {"/sub/style.css", 200, "text/css; charset=utf-8", "p {}"},
             {"/icon.svg", 200, "image/svg+xml", "<svg/>"},
             {"/sub", 404, "", ""},
             {"/missing.html", 404, "", ""},
             {"/.secret.json", 404, "", ""},
             {"/tool.exe", 404, "", ""},
             {"/sub/../index.html", 404, "", ""},
             {"/sub/%2e%2e/index.html", 404, "", ""},
             {"/sub%2f..%2findex.html", 404, "", ""},
             {"/index.html%00.js", 404, "", ""},
         }) {
        const Answer answer = call("GET", c.path);
        EXPECT_EQ(c.status, answer.status) << c.path;
        if (c.status == 200) {
            EXPECT_EQ(c.type, answer.header("Content-Type")) << c.path;
            EXPECT_EQ(c.body, answer.body) << c.path;
        }
    }
    EXPECT_EQ(405, call("POST", "/index.html", "{}").status);
}

}  // namespace
}  // namespace Kivo::Web::Test
