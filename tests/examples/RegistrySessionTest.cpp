#include "RegistrySession.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Data/ElementFixture.h"
#include "MediaData.h"
#include "TestChannel.h"

namespace Registry {
namespace {

using Kivo::Data::AbstractResource;
using Kivo::Data::XObject;
using Kivo::Test::jsonText;
using Kivo::Test::parseObject;
using Kivo::Test::parseValue;
using Kivo::Test::ScopedLogCapture;

const std::string TRACK = "/Media/Tracks/19acbfe1-6252-475b-bf5b-8660cbeb4369";

typedef std::vector<std::string> Texts;

// The compact JSON text of each line of `text`.
Texts documents(const std::string& text) {
    Texts result;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) result.push_back(jsonText(parseValue(line)));
    return result;
}

struct Loaded {
    Loaded() {
        const bool loaded = Media::MediaData::read(QES_MEDIA_DATA_DIR).loadInto(service);
        EXPECT_TRUE(loaded);
    }
    Media::MediaService service;
    std::ostringstream out;
    std::ostringstream err;
};

TEST(MediaData, ShippedAndGeneratedDataLoadWithEveryReferenceResolved) {
    ScopedLogCapture capture(Poco::Message::PRIO_WARNING);
    Loaded shipped;
    Media::MediaService generated;
    ASSERT_TRUE(Media::generateMediaData(7, 3, 2, 9).loadInto(generated));
    typedef std::vector<std::size_t> Sizes;
    for (const auto& [service, sizes] : {std::make_pair(&shipped.service, Sizes{40, 320, 12}),
                                         std::make_pair(&generated, Sizes{7, 21, 2})}) {
        EXPECT_EQ(sizes, (Sizes{service->albums.size(), service->tracks.size(),
                                service->playlists.size()}));
        AbstractResource::ElementQueryResult tracks;
        ASSERT_TRUE(service->tracks.getElements(tracks, 0, 400).isSuccess());
        for (const auto& element : tracks) {
            const auto& track = static_cast<const Media::Track&>(*element);
            Kivo::Util::ScopedRecursiveReadLock lock(*track.getLock());
            EXPECT_TRUE(track.album.isResolvedReference()) << track.getName().getValue();
            EXPECT_TRUE(service->albums.hasElement(track.album.getValue()->getIdentification()));
        }
    }
    // The same arguments give the same ids.
    EXPECT_EQ(jsonText(Media::generateMediaData(7, 3, 2, 9).elements),
              jsonText(Media::generateMediaData(7, 3, 2, 9).elements));
    EXPECT_NE(jsonText(Media::generateMediaData(7, 3, 2, 9).elements),
              jsonText(Media::generateMediaData(7, 3, 2, 10).elements));
    EXPECT_EQ(Texts{}, capture.texts());
}

// The shipped session (examples/session.txt) runs as its own test; these are the commands it
// does not use.
TEST(RegistrySession, ChangesAreAnsweredThenReportedOnceAndReplayed) {
    Loaded tree;
    {
        RegistrySession session(tree.service, tree.out, tree.err, false);
        for (const std::string& line :
             {std::string("# comments and blank lines are skipped"), std::string(),
              "set " + TRACK + " rating 4", std::string("watch"),
              std::string("list Playlists 10 5"), "update " + TRACK + R"( {"rating": 9})",
              "remove " + TRACK + " rating", std::string(R"(add Playlists {"name": "Night"})"),
              std::string("watch 1")}) {
            EXPECT_TRUE(session.execute(line)) << line;
        }
    }
    EXPECT_EQ("", tree.err.str());
    const auto answers = documents(tree.out.str());
    ASSERT_EQ(11u, answers.size()) << tree.out.str();
    const std::string ok = R"({"message":"ok","result":"ok"})";
    EXPECT_EQ(ok, answers[0]) << "before watching, no event is printed";
    EXPECT_EQ(R"({"revision":1,"watching":true})", answers[1]);
    EXPECT_EQ(2u, parseObject(answers[2])->getArray("elements")->size()) << "the last two of 12";
    EXPECT_EQ(R"({"message":"rating: 9 is above the maximum 5","result":"invalid_value"})",
              answers[3]);
    const std::string removal = R"({"event":"changed","id":")" + TRACK.substr(14) +
                                R"(","resource":"Tracks","revision":2,"values":{"rating":null}})";
    EXPECT_EQ((Texts{ok, removal}), (Texts{answers[4], answers[5]}));
    const std::string id = parseObject(answers[6])->getValue<std::string>("id");
    EXPECT_EQ(R"({"id":")" + id + R"(","message":"ok","result":"ok"})", answers[6]);
    const Poco::JSON::Object::Ptr added = parseObject(answers[7]);
    EXPECT_EQ("added", added->getValue<std::string>("event"));
    EXPECT_EQ(3, added->getValue<int>("revision"));
    EXPECT_EQ("Night", added->getObject("element")->getValue<std::string>("name"));
    EXPECT_EQ(id, added->getObject("element")->getValue<std::string>("id"));
    // Resumed after revision 1: the events after it again, in order.
    EXPECT_EQ(R"({"revision":3,"watching":true})", answers[8]);
    EXPECT_EQ((Texts{removal, answers[7]}), (Texts{answers[9], answers[10]}));
}

TEST(RegistrySession, BadInputIsReportedAndChangesNothing) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    Loaded tree;
    RegistrySession session(tree.service, tree.out, tree.err, false);
    struct Row {
        std::string line;
        std::string error;
    };
    const Row rows[] = {
        {"frobnicate", "error: unknown command 'frobnicate' (try 'help')"},
        {"list Genres", "error: unknown resource 'Genres'"},
        {"describe", "error: usage: describe <resource>"},
        {"list Albums x", "error: usage: list <resource> [offset [count]]"},
        {"find Albums name", "error: usage: find [-i] <resource> <key>=<text>"},
        {"find -i Albums", "error: usage: find [-i] <resource> <key>=<text>"},
        {"search -i Albums", "error: usage: search [-i] <resource> <text>"},
        {"add Albums {", "error: add: malformed JSON object: {"},
        {"delete " + TRACK + " now", "error: usage: delete <uri>"},
        {"watch -1", "error: usage: watch [<revision>]"},
        {"delete /Media/Albums/" + TRACK.substr(14),
         "error: unknown URI '/Media/Albums/" + TRACK.substr(14) + "'"},
        {"get /Media/Tracks/not-a-uuid", "error: unknown URI '/Media/Tracks/not-a-uuid'"},
        {"get /Radio/Tracks/19acbfe1-6252-475b-bf5b-8660cbeb4369",
         "error: unknown URI '/Radio/Tracks/19acbfe1-6252-475b-bf5b-8660cbeb4369'"},
        {"get ::", "error: unknown URI '::'"},
        {"update " + TRACK + " {\"name\": ", "error: update: malformed JSON object: {\"name\":"},
        {"update " + TRACK + " [1]", "error: update: malformed JSON object: [1]"},
        {"set " + TRACK + " name", "error: usage: set <uri> <key> <value>"},
        {"resolve " + TRACK + " name", "error: resolve: name is no reference property of " + TRACK},
    };
    for (const Row& row : rows) {
        tree.err.str("");
        EXPECT_FALSE(session.execute(row.line)) << row.line;
        EXPECT_EQ(row.error + "\n", tree.err.str()) << row.line;
    }
    EXPECT_EQ("", tree.out.str());
    EXPECT_TRUE(capture.texts().empty());

    // Resource names are found in any case; client refusals are answers, not bad input.
    EXPECT_TRUE(session.execute("describe tracks"));
    EXPECT_EQ("TrackObject",
              parseObject(documents(tree.out.str()).at(0))->getValue<std::string>("element"));
    tree.out.str("");
    const std::size_t held = tree.service.tracks.size();
    for (const std::string& line :
         Texts{"update " + TRACK + R"( {"colour": "red"})", "add Tracks {\"id\": 1}"}) {
        EXPECT_TRUE(session.execute(line)) << line;
    }
    EXPECT_EQ(Texts({R"({"message":"colour: no such property","result":"unknown_property"})",
                     R"({"message":"name: is required","result":"invalid_object"})"}),
              documents(tree.out.str()));
    EXPECT_EQ(held, tree.service.tracks.size());
}

}  // namespace
}  // namespace Registry
