#include <chrono>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include <Web/FeedQueue.h>
#include <Web/JsonBody.h>
#include <Web/JsonReply.h>
#include <Web/TokenTable.h>

namespace Kivo::Web {
namespace {

using Client::ChangeEvent;
using Data::OperationResult;
using std::chrono::milliseconds;

TEST(JsonBody, OnlyWellFormedUtf8ObjectsOfBoundedDepthAreRead) {
    struct Case {
        std::string text;
        std::string message;  // empty: accepted
    };
    const std::string deep = std::string(64, '[') + std::string(64, ']');
    for (const Case& c : std::vector<Case>{
             {R"({"name": "Grüße 😀"})", ""},
             {"{\"a\": [" + deep + "]}", "body nests deeper than 64 levels"},
             {"{\"a\": \"" + std::string(1000, '[') + "\"}", ""},  // brackets in a string
             {"{\"a\": \"\\\"[[[[\"}", ""},
             {"{\"a\": \"\xC3\x28\"}", "body is not valid UTF-8"},           // bad continuation
             {"{\"a\": \"\xC0\xAF\"}", "body is not valid UTF-8"},           // overlong "/"
             {"{\"a\": \"\xED\xA0\x80\"}", "body is not valid UTF-8"},       // surrogate
             {"{\"a\": \"\xF4\x90\x80\x80\"}", "body is not valid UTF-8"},   // above U+10FFFF
             {"{\"a\": \"\xE2\x82\"}", "body is not valid UTF-8"},           // truncated
             {"{\"a\": \"\xFF\"}", "body is not valid UTF-8"},
             {"[1, 2]", "body is not a JSON object"},
             {"", "malformed JSON"},
             {"{\"a\": }", "malformed JSON"},
             {"{\"a\": 1} trailing", "malformed JSON"},
         }) {
        Poco::JSON::Object::Ptr object;
        const OperationResult result = JsonBody::parseObject(c.text, object);
        if (c.message.empty()) {
            EXPECT_EQ(OperationResult::OK, result.value()) << c.text << ": " << result.toString();
            EXPECT_FALSE(object.isNull());
        } else {
            EXPECT_EQ(OperationResult::INVALID_VALUE, result.value()) << c.text;
            EXPECT_EQ(0u, result.toString().rfind(c.message, 0)) << result.toString();
            EXPECT_TRUE(object.isNull());
        }
    }
    EXPECT_TRUE(JsonBody::nestsWithin(deep, 64));
    EXPECT_FALSE(JsonBody::nestsWithin("[" + deep + "]", 64));
}

// The routes' cases pin the codes a route answers with; these are the others.
TEST(JsonReply, EveryResultCodeHasItsStatus) {
    const std::vector<std::pair<OperationResult::Value, int>> statuses = {
        {OperationResult::OK, 200},
        {OperationResult::NO_UPDATE, 200},
        {OperationResult::PROCESSING_ERROR, 500},
        {OperationResult::INVALID_OPERATION, 405},
        {OperationResult::WRONG_PROPERTY_TYPE, 400},
        {OperationResult::UNKNOWN_OBJECT, 404},
    };
    for (const auto& [code, status] : statuses) {
        const WebResponse response = JsonReply::of(OperationResult(code, "why"));
        EXPECT_EQ(status, response.status) << OperationResult::valueToString(code);
        const auto body = Poco::JSON::Parser().parse(response.body).extract<Poco::JSON::Object::Ptr>();
        EXPECT_EQ(OperationResult::valueToString(code), body->getValue<std::string>("result"));
        EXPECT_EQ(status == 200 ? "" : "why", body->getValue<std::string>("message"));
    }
    const WebResponse quoted =
        JsonReply::failure(400, OperationResult::INVALID_VALUE, "unexpected byte '\xFF' in \xC3\xA9");
    EXPECT_EQ(R"({"message":"unexpected byte '?' in ??","result":"invalid_value"})", quoted.body);
}

TEST(TokenTable, GrantsParseAndCoverTheirScopeOnly) {
    std::istringstream file(
        "  # comment\n"
        "all-reader-000000001 read *\n"
        "media-writer-0000001 write media\n"
        "albums-writer-000001 write Media/Albums\n"
        "albums-writer-000001 read Media\n");
    const TokenTable table = TokenTable::parse(file);
    struct Case {
        std::string token;
        std::string service;
        std::string resource;
        TokenTable::Access access;
    };
    for (const Case& c : std::vector<Case>{
             {"all-reader-000000001", "Media", "Tracks", TokenTable::ACCESS_READ},
             {"all-reader-000000001", "Other", "", TokenTable::ACCESS_READ},
             {"media-writer-0000001", "Media", "Tracks", TokenTable::ACCESS_WRITE},
             {"media-writer-0000001", "Other", "Tracks", TokenTable::ACCESS_NONE},
             {"albums-writer-000001", "Media", "Albums", TokenTable::ACCESS_WRITE},
             {"albums-writer-000001", "Media", "albums", TokenTable::ACCESS_WRITE},
             {"albums-writer-000001", "Media", "Tracks", TokenTable::ACCESS_READ},
             {"albums-writer-000001", "Media", "", TokenTable::ACCESS_WRITE},
         }) {
        const auto holder = table.find(c.token);
        ASSERT_TRUE(holder.has_value()) << c.token;
        EXPECT_EQ(c.access, table.access(*holder, c.service, c.resource))
            << c.token << " " << c.service << "/" << c.resource;
    }
    for (const std::string& unknown : {std::string(), std::string("all-reader-00000000"),
                                       std::string("all-reader-0000000011"),
                                       std::string("ALL-READER-000000001")}) {
        EXPECT_FALSE(table.find(unknown).has_value()) << unknown;
    }
    EXPECT_EQ("abc", TokenTable::bearerOf("Bearer abc"));
    EXPECT_EQ("abc", TokenTable::bearerOf("bearer  abc "));
    EXPECT_EQ("", TokenTable::bearerOf("Basic abc"));
    EXPECT_EQ("", TokenTable::bearerOf("Bearer"));
}

TEST(TokenTable, MalformedLinesAreRefusedWithoutShowingTheToken) {
    for (const std::string& line :
         {std::string("short read *"), std::string("long-enough-token-01 admin *"),
          std::string("long-enough-token-01 read"), std::string("long-enough-token-01 read * x"),
          std::string("long-enough-token-01 read Media/"),
          std::string("long-enough-token-01 read /Albums")}) {
        std::istringstream file("# first\n" + line + "\n");
        try {
            TokenTable::parse(file);
            ADD_FAILURE() << line;
        } catch (const Poco::SyntaxException& error) {
            EXPECT_EQ(0u, error.message().rfind("tokens line 2: ", 0)) << error.message();
            EXPECT_EQ(std::string::npos, error.message().find("long-enough-token-01"));
        }
    }
}

ChangeEvent changed(ChangeEvent::Revision revision, const Poco::UUID& id, const std::string& key,
                    const std::string& value) {
    Poco::JSON::Object::Ptr values = new Poco::JSON::Object;
    values->set(key, value);
    return ChangeEvent(ChangeEvent::CHANGED, revision, "Tracks", id, values, nullptr);
}

std::vector<std::string> summaries(const std::vector<std::string>& texts) {
    std::vector<std::string> out;
    for (const std::string& text : texts) {
        const auto json = Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
        std::string line = json->getValue<std::string>("event") + " " +
                           std::to_string(json->getValue<int>("revision"));
        if (json->has("values")) {
            for (const auto& member : *json->getObject("values")) {
                line += " " + member.first + "=" + member.second.toString();
            }
        }
        out.push_back(line);
    }
    return out;
}

TEST(FeedQueue, AnOverflowReplacesEverythingWaitingByOneResync) {
    FeedQueue queue(3, milliseconds(0));
    const Poco::UUID id("6f0c1a6e-8d6c-4b7e-9a51-3f3e2f8b1c01");
    for (int revision = 1; revision <= 3; ++revision) queue.push(changed(revision, id, "k", "v"));
    EXPECT_EQ(0u, queue.overflows());
    queue.push(changed(4, id, "k", "v4"));
    queue.push(changed(5, id, "k", "v5"));
    EXPECT_EQ(1u, queue.overflows());
    const auto now = std::chrono::steady_clock::now();
    EXPECT_EQ((std::vector<std::string>{"resync 4", "changed 5 k=v5"}), summaries(queue.take(now)));
    EXPECT_TRUE(queue.take(now).empty());
    EXPECT_FALSE(queue.waitReady(milliseconds(1)));
}

TEST(FeedQueue, ThrottledChangesMergeAndLeaveInOrderPerElement) {
    FeedQueue queue(100, milliseconds(100));
    const Poco::UUID a("6f0c1a6e-8d6c-4b7e-9a51-3f3e2f8b1c01");
    const Poco::UUID b("6f0c1a6e-8d6c-4b7e-9a51-3f3e2f8b1c02");
    const auto t0 = std::chrono::steady_clock::now();
    queue.push(changed(1, a, "name", "a1"));
    queue.push(changed(2, b, "name", "b1"));
    EXPECT_EQ((std::vector<std::string>{"changed 1 name=a1", "changed 2 name=b1"}),
              summaries(queue.take(t0)));
    queue.push(changed(3, a, "name", "a2"));
    queue.push(changed(4, a, "rating", "4"));
    queue.push(changed(5, a, "name", "a3"));
    queue.push(changed(6, b, "name", "b2"));
    EXPECT_TRUE(queue.take(t0 + milliseconds(50)).empty());
    // b is removed before its interval ends: its held change goes first.
    queue.push(ChangeEvent(ChangeEvent::REMOVED, 7, "Tracks", b, nullptr, nullptr));
    EXPECT_EQ((std::vector<std::string>{"changed 6 name=b2", "removed 7"}),
              summaries(queue.take(t0 + milliseconds(60))));
    EXPECT_EQ((std::vector<std::string>{"changed 5 name=a3 rating=4"}),
              summaries(queue.take(t0 + milliseconds(100))));
    queue.push(changed(8, a, "name", "a4"));
    EXPECT_TRUE(queue.take(t0 + milliseconds(150)).empty());
    // A resync drops what is held: the client re-reads it.
    queue.push(ChangeEvent(ChangeEvent::RESYNC, 9, "", Poco::UUID(), nullptr, nullptr));
    EXPECT_EQ((std::vector<std::string>{"resync 9"}), summaries(queue.take(t0 + milliseconds(160))));
    EXPECT_TRUE(queue.take(t0 + milliseconds(400)).empty());
}

}  // namespace
}  // namespace Kivo::Web
