#include "Client/ServiceData.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Data/ElementFixture.h"
#include "MediaData.h"

namespace Media {
namespace {

using Kivo::Client::ServiceData;
using Kivo::Data::AbstractResource;
using Kivo::Data::OperationResult;
using Kivo::Test::jsonText;
using Kivo::Test::parseValue;
using Kivo::Test::uuidOf;
using Poco::JSON::Array;
using Poco::JSON::Object;

// Valid tracks numbered from 1, each id ending in its number, on an album of the shipped data.
Array::Ptr tracks(int count) {
    Array::Ptr result = new Array;
    for (int number = 1; number <= count; ++number) {
        Object::Ptr track = parseValue(R"({"name": "T", "duration": 120, "language": "en",
            "album": "/Media/Albums/88cf598e-df9d-429c-8dea-20fc3456fb8b"})")
                                .extract<Object::Ptr>();
        track->set("id", uuidOf(number));
        track->set("number", number);
        result->add(track);
    }
    return result;
}

Array::Ptr playlists(int count) {
    Array::Ptr result = new Array;
    for (int i = 0; i < count; ++i) result->add(parseValue(R"({"name": "L"})"));
    return result;
}

Array document(const std::vector<std::pair<std::string, Array::Ptr>>& entries) {
    Array result;
    for (const auto& [name, elements] : entries) {
        Object::Ptr entry = new Object;
        entry->set("name", name);
        entry->set("elements", elements);
        result.add(entry);
    }
    return result;
}

// Playlists whose add fails at the given position (from 0), as an add could fail after its
// checks passed.
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

// Saved, loaded into an empty service and saved again, the shipped data reads the same, its
// references resolve to the new service's albums, and the core's own loader reads it too.
TEST(ServiceData, ShippedDataRoundTripsThroughAnEmptyService) {
    MediaService shipped;
    ASSERT_TRUE(MediaData::read(QES_MEDIA_DATA_DIR).loadInto(shipped));
    const Array::Ptr saved = ServiceData::save(shipped);
    ASSERT_EQ(3u, saved->size());
    EXPECT_TRUE(saved->getObject(2)->getArray("elements")->getObject(0)->get("album").isString())
        << "a reference is saved as its URI";

    MediaService loaded;
    const OperationResult result = ServiceData::load(loaded, *saved);
    ASSERT_TRUE(result.isSuccess()) << result.toString();
    EXPECT_EQ(jsonText(saved), jsonText(ServiceData::save(loaded)));
    EXPECT_EQ(320u, loaded.tracks.size());
    AbstractResource::ElementQueryResult elements;
    ASSERT_TRUE(loaded.tracks.getElements(elements, 0, 400).isSuccess());
    for (const auto& element : elements) {
        const auto& track = static_cast<const Track&>(*element);
        Kivo::Util::ScopedRecursiveReadLock lock(*track.getLock());
        const Kivo::Data::XObject* album = track.album.getValue();
        AbstractResource::Ptr target;
        ASSERT_TRUE(loaded.albums.getElement(album->getIdentification(), target).isSuccess());
        EXPECT_EQ(target.get(), album) << "resolved to the loaded service's album";
    }

    MediaService byCore;
    ASSERT_TRUE(byCore.initServiceResourcesfromJSON(saved.get()));
    EXPECT_EQ(jsonText(saved), jsonText(ServiceData::save(byCore)));
}

// One refused element, wherever it stands, leaves the resource as it was; the message names
// its position, its id and the reason.
TEST(ServiceData, AResourceLoadTakesEveryElementOrNone) {
    struct Case {
        std::size_t position;
        std::function<void(Object&)> spoil;
        OperationResult::Value code;
        std::string reason;
    };
    const auto rating7 = [](Object& track) { track.set("rating", 7); };
    const std::vector<Case> cases = {
        {0, rating7, OperationResult::INVALID_VALUE, "rating: 7 is above the maximum 5"},
        {2, rating7, OperationResult::INVALID_VALUE, "rating: 7 is above the maximum 5"},
        {4, rating7, OperationResult::INVALID_VALUE, "rating: 7 is above the maximum 5"},
        {1, [](Object& track) { track.set("number", "two"); }, OperationResult::WRONG_PROPERTY_TYPE,
         "number: expects an integer, got a string"},
        {3, [](Object& track) { track.remove("name"); }, OperationResult::INVALID_OBJECT,
         "name: is required"},
        {3, [](Object& track) { track.set("id", uuidOf(2)); }, OperationResult::DUPLICATE,
         "the id of element 1 again"},
    };
    MediaService service;
    for (const Case& spoilt : cases) {
        const Array::Ptr batch = tracks(5);
        spoilt.spoil(*batch->getObject(spoilt.position));
        const OperationResult result = ServiceData::loadResource(service.tracks, *batch);
        EXPECT_EQ(spoilt.code, result.value());
        EXPECT_EQ("element " + std::to_string(spoilt.position) + " (id " +
                      batch->getObject(spoilt.position)->getValue<std::string>("id") +
                      "): " + spoilt.reason,
                  result.toString());
        EXPECT_EQ(0u, service.tracks.size());
    }
    Array::Ptr notObject = tracks(2);
    notObject->add(5);
    EXPECT_EQ("element 2 (no id): is not a JSON object",
              ServiceData::loadResource(service.tracks, *notObject).toString());

    Array::Ptr good = tracks(3);
    good->getObject(2)->remove("id");
    ASSERT_TRUE(ServiceData::loadResource(service.tracks, *good).isSuccess());
    EXPECT_EQ(3u, service.tracks.size()) << "an element without id is given one";
    Array::Ptr present = tracks(5);
    present->remove(0);
    EXPECT_EQ("element 0 (id " + uuidOf(2) + "): an element with this id exists already",
              ServiceData::loadResource(service.tracks, *present).toString());
    EXPECT_EQ(3u, service.tracks.size());
}

// A service load checks every resource's elements before adding to any, and refuses entries
// that do not name a resource once.
TEST(ServiceData, AServiceLoadTakesEveryResourceOrNone) {
    const Array::Ptr album = parseValue(R"([{"name": "A"}])").extract<Array::Ptr>();
    Array::Ptr badTracks = tracks(3);
    badTracks->getObject(1)->set("duration", 0);
    const std::vector<std::pair<Array, std::string>> cases = {
        {document({{"Albums", album}, {"tracks", badTracks}}),
         "tracks: element 1 (id " + uuidOf(2) + "): duration: 0 is below the minimum 1"},
        {document({{"Albums", album}, {"Songs", tracks(1)}}), "entry 1: Songs: no such resource"},
        {document({{"Albums", album}, {"ALBUMS", new Array}}), "entry 1: ALBUMS: named twice"},
        {document({{"Albums", album}, {"Tracks", nullptr}}),
         "entry 1: expects an object with a string \"name\" and an array \"elements\""},
    };
    MediaService service;
    for (const auto& [data, message] : cases) {
        EXPECT_EQ(message, ServiceData::load(service, data).toString());
        EXPECT_EQ(0u, service.albums.size()) << "the first resource stays as it was";
    }
}

// When an add fails after the checks passed, what the load added is removed again, also from
// a resource that clients may not delete from.
TEST(ServiceData, AFailedAddTakesBackWhatTheLoadAdded) {
    MediaService service;
    FailingPlaylists failing(service, "Failing", false);
    failing.failAt(2);
    EXPECT_EQ("element 2 (no id): PlaylistObject: refused (processing_error)",
              ServiceData::loadResource(failing, *playlists(4)).toString());
    EXPECT_EQ(0u, failing.size());

    failing.failAt(1);
    const Array data = document({{"Albums", playlists(0)},
                                 {"Tracks", tracks(2)},
                                 {"Failing", playlists(3)},
                                 {"Playlists", playlists(2)}});
    EXPECT_EQ("Failing: element 1 (no id): PlaylistObject: refused (processing_error)",
              ServiceData::load(service, data).toString());
    EXPECT_EQ(0u, service.tracks.size() + failing.size() + service.playlists.size());
}

}  // namespace
}  // namespace Media
