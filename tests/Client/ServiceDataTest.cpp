#include "Client/ServiceData.h"

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>
#include <gtest/gtest.h>

#include "MediaData.h"

namespace Media {
namespace {

using Kivo::Client::ServiceData;
using Kivo::Data::OperationResult;
using Poco::JSON::Array;
using Poco::JSON::Object;

const std::string ALBUM_ID = "88cf598e-df9d-429c-8dea-20fc3456fb8b";  // in the shipped data
const std::string ALBUM_URI = "/Media/Albums/" + ALBUM_ID;

std::string text(const Poco::Dynamic::Var& json) {
    std::ostringstream out;
    Poco::JSON::Stringifier::stringify(json, out);
    return out.str();
}

Object::Ptr parse(const std::string& json) {
    return Poco::JSON::Parser().parse(json).extract<Object::Ptr>();
}

// A valid track numbered `number`, with an id ending in that number.
Object::Ptr track(int number) {
    char id[40];
    std::snprintf(id, sizeof id, "00000000-0000-4000-8000-%012d", number);
    Object::Ptr json = parse(R"({"name": "Track", "duration": 120, "language": "en"})");
    json->set("id", std::string(id));
    json->set("number", number);
    json->set("album", ALBUM_URI);
    return json;
}

Array::Ptr tracks(int count) {
    Array::Ptr result = new Array;
    for (int number = 1; number <= count; ++number) result->add(track(number));
    return result;
}

Object::Ptr entry(const std::string& name, const Array::Ptr& elements) {
    Object::Ptr result = new Object;
    result->set("name", name);
    result->set("elements", elements);
    return result;
}

std::string id(const Array& elements, std::size_t position) {
    return elements.getObject(position)->getValue<std::string>("id");
}

// A playlist resource whose adds fail from the `failAt`-th on (counting from 0), as an add
// could fail after its checks passed; it lets the take-back after such a failure be seen.
class FailingPlaylists : public MediaResource<Playlist> {
public:
    FailingPlaylists(MediaService& service, const std::string& name, bool deletable)
        : MediaResource<Playlist>(service, name, deletable) {}

    void failAt(int position) { m_failAt = position; }
    OperationResult addElement(const Poco::JSON::Object* json) override {
        if (m_failAt-- == 0) return OperationResult(OperationResult::PROCESSING_ERROR);
        return MediaResource<Playlist>::addElement(json);
    }

private:
    int m_failAt = -1;
};

Array::Ptr playlists(int count) {
    Array::Ptr result = new Array;
    for (int i = 0; i < count; ++i) {
        result->add(parse(R"({"name": "List", "created": "2020-02-02"})"));
    }
    return result;
}

// Saved, loaded into an empty service and saved again, the shipped data reads the same, and
// its references resolve to the new service's elements. The core's own loader reads the
// document as well.
TEST(ServiceData, ShippedDataRoundTripsThroughAnEmptyService) {
    MediaService shipped;
    ASSERT_TRUE(MediaData::read(QES_MEDIA_DATA_DIR).loadInto(shipped));
    const Array::Ptr saved = ServiceData::save(shipped);
    ASSERT_EQ(3u, saved->size());
    EXPECT_EQ("Albums", saved->getObject(0)->getValue<std::string>("name"));
    const Object::Ptr firstTrack = saved->getObject(2)->getArray("elements")->getObject(0);
    EXPECT_TRUE(firstTrack->get("album").isString()) << "a reference is saved as its URI";

    MediaService loaded;
    const OperationResult result = ServiceData::load(loaded, *saved);
    ASSERT_TRUE(result.isSuccess()) << result.toString();
    EXPECT_EQ((std::vector<std::size_t>{40, 320, 12}),
              (std::vector<std::size_t>{loaded.albums.size(), loaded.tracks.size(),
                                        loaded.playlists.size()}));
    EXPECT_EQ(text(saved), text(ServiceData::save(loaded)));

    Kivo::Data::AbstractResource::ElementQueryResult elements;
    ASSERT_TRUE(loaded.tracks.getElements(elements, 0, 400).isSuccess());
    for (const auto& element : elements) {
        const auto& loadedTrack = static_cast<const Track&>(*element);
        Kivo::Util::ScopedRecursiveReadLock lock(*loadedTrack.getLock());
        const Kivo::Data::XObject* album = loadedTrack.album.getValue();
        Kivo::Data::AbstractResource::Ptr target;
        ASSERT_TRUE(loaded.albums.getElement(album->getIdentification(), target).isSuccess());
        EXPECT_EQ(target.get(), album) << "resolved to the loaded service's album";
    }

    MediaService byCore;
    ASSERT_TRUE(byCore.initServiceResourcesfromJSON(saved.get()));
    EXPECT_EQ(text(saved), text(ServiceData::save(byCore)));
}

// One refused element, wherever it stands, leaves the resource as it was; the message names
// its position, its id and the reason.
TEST(ServiceData, AResourceLoadTakesEveryElementOrNone) {
    MediaService service;
    for (const std::size_t position : {0u, 2u, 4u}) {
        Array::Ptr batch = tracks(5);
        batch->getObject(position)->set("rating", 7);
        const OperationResult result = ServiceData::loadResource(service.tracks, *batch);
        EXPECT_EQ(OperationResult::INVALID_VALUE, result.value());
        EXPECT_EQ("element " + std::to_string(position) + " (id " + id(*batch, position) +
                      "): rating: 7 is above the maximum 5",
                  result.toString());
        EXPECT_EQ(0u, service.tracks.size());
    }

    Array::Ptr wrongType = tracks(3);
    wrongType->getObject(1)->set("number", "two");
    EXPECT_EQ("element 1 (id " + id(*wrongType, 1) + "): number: expects an integer, got a string",
              ServiceData::loadResource(service.tracks, *wrongType).toString());

    Array::Ptr unnamed = tracks(2);
    unnamed->getObject(1)->remove("name");
    EXPECT_EQ(OperationResult::INVALID_OBJECT,
              ServiceData::loadResource(service.tracks, *unnamed).value());

    Array::Ptr notObject = tracks(2);
    notObject->add(5);
    EXPECT_EQ("element 2 (no id): is not a JSON object",
              ServiceData::loadResource(service.tracks, *notObject).toString());

    Array::Ptr twice = tracks(4);
    twice->getObject(3)->set("id", id(*twice, 1));
    const OperationResult repeated = ServiceData::loadResource(service.tracks, *twice);
    EXPECT_EQ(OperationResult::DUPLICATE, repeated.value());
    EXPECT_EQ("element 3 (id " + id(*twice, 1) + "): the id of element 1 again",
              repeated.toString());
    EXPECT_EQ(0u, service.tracks.size());

    const Array::Ptr good = tracks(3);
    good->getObject(2)->remove("id");
    ASSERT_TRUE(ServiceData::loadResource(service.tracks, *good).isSuccess());
    EXPECT_EQ(3u, service.tracks.size()) << "an element without id is given one";

    Array::Ptr present = tracks(5);
    present->remove(0);
    const OperationResult held = ServiceData::loadResource(service.tracks, *present);
    EXPECT_EQ(OperationResult::DUPLICATE, held.value());
    EXPECT_EQ("element 0 (id " + id(*present, 0) + "): an element with this id exists already",
              held.toString());
    EXPECT_EQ(3u, service.tracks.size());
}

// A service load checks every resource's elements before adding to any, and refuses entries
// that do not name a resource once.
TEST(ServiceData, AServiceLoadTakesEveryResourceOrNone) {
    MediaService service;
    const std::string albums = R"([{"id": ")" + ALBUM_ID + R"(", "name": "Album"}])";
    Array::Ptr badTracks = tracks(3);
    badTracks->getObject(1)->set("duration", 0);
    Array data;
    data.add(entry("Albums", Poco::JSON::Parser().parse(albums).extract<Array::Ptr>()));
    data.add(entry("tracks", badTracks));
    const OperationResult result = ServiceData::load(service, data);
    EXPECT_EQ(OperationResult::INVALID_VALUE, result.value());
    EXPECT_EQ("tracks: element 1 (id " + id(*badTracks, 1) +
                  "): duration: 0 is below the minimum 1",
              result.toString());
    EXPECT_EQ(0u, service.albums.size()) << "the first resource stays as it was";

    Array unknown;
    unknown.add(entry("Albums", Poco::JSON::Parser().parse(albums).extract<Array::Ptr>()));
    unknown.add(entry("Songs", tracks(1)));
    EXPECT_EQ("entry 1: Songs: no such resource", ServiceData::load(service, unknown).toString());

    Array twice;
    twice.add(entry("Tracks", tracks(1)));
    twice.add(entry("TRACKS", new Array));
    EXPECT_EQ(OperationResult::DUPLICATE, ServiceData::load(service, twice).value());

    Array malformed;
    malformed.add(parse(R"({"name": "Tracks", "elements": {}})"));
    EXPECT_EQ(OperationResult::INVALID_OBJECT, ServiceData::load(service, malformed).value());
    EXPECT_EQ(0u, service.albums.size() + service.tracks.size());
}

// When an add fails after the checks passed, what the load added is removed again; a resource
// that forbids removal keeps its part, and the message says so.
TEST(ServiceData, AFailedAddTakesBackWhatTheLoadAdded) {
    MediaService service;
    FailingPlaylists failing(service, "Failing", true);
    FailingPlaylists stubborn(service, "Stubborn", false);
    failing.failAt(2);
    const OperationResult single = ServiceData::loadResource(failing, *playlists(4));
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, single.value());
    EXPECT_EQ("element 2 (no id): PlaylistObject: refused (processing_error)", single.toString());
    EXPECT_EQ(0u, failing.size());

    failing.failAt(1);
    Array data;
    data.add(entry("Tracks", tracks(2)));
    data.add(entry("Failing", playlists(3)));
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, ServiceData::load(service, data).value());
    EXPECT_EQ(0u, service.tracks.size()) << "the other resource's elements are taken back";
    EXPECT_EQ(0u, failing.size());

    stubborn.failAt(1);
    Array kept;
    kept.add(entry("Tracks", tracks(2)));
    kept.add(entry("Stubborn", playlists(3)));
    const std::string message = ServiceData::load(service, kept).toString();
    EXPECT_EQ(0u, service.tracks.size());
    EXPECT_EQ(1u, stubborn.size()) << "a resource that forbids removal keeps its part";
    const Kivo::Data::AbstractResource::Ptr left = [&stubborn] {
        Kivo::Data::AbstractResource::ElementQueryResult elements;
        stubborn.getElements(elements, 0, 1);
        return elements.at(0);
    }();
    EXPECT_EQ("Stubborn: element 1 (no id): PlaylistObject: refused (processing_error); "
              "Stubborn: id " + left->getIdentification().toString() +
                  ": could not be taken back (forbidden)",
              message);
}

}  // namespace
}  // namespace Media
