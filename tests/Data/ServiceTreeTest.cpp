// A whole service tree: a service with two element containers, loaded from JSON, queried,
// updated, linked by references and torn down while DataChanged deliveries are in flight.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementContainer.h"
#include "Data/ElementFixture.h"
#include "Data/Service.h"
#include "Data/XObjectReference.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::IndexFreeTextQuery;
using Base::IndexGenericValueQuery;
using Base::PropertyValueNumberBase;
using Base::PropertyValueString;
using Base::PropertyValueUuid;
using Kivo::Test::DataChangedRecorder;
using Kivo::Test::ScopedLogCapture;
typedef std::vector<std::string> Texts;

std::string uuid(char prefix, int n) {
    char text[40];
    std::snprintf(text, sizeof text, "%c0000000-0000-4000-8000-%012d", prefix, n);
    return text;
}
std::string albumId(int n) { return uuid('a', n); }
std::string trackId(int n) { return uuid('b', n); }
std::string albumUri(int n) { return "/Media/Albums/" + albumId(n); }
template <class T = Poco::JSON::Object::Ptr>
T parse(const std::string& text) {
    return Poco::JSON::Parser().parse(text).extract<T>();
}

// Title, artist, genre.
const char* const ALBUMS[][3] = {
    {"Blue Harbour", "Ada Lind", "Jazz"}, {"Into the Blue", "Ben Ortiz", "Jazz"},
    {"Red Canyon", "Cora Blue", "Rock"},  {"Blue", "Dan Voss", "Folk"},
    {"Paper Moons", "Ada Lind", "Rock"},  {"Static", "Eli Park", "Electronic"},
};
constexpr int ALBUM_COUNT = 6;
constexpr int TRACKS_PER_ALBUM = 5;
constexpr int TRACK_COUNT = ALBUM_COUNT * TRACKS_PER_ALBUM;
constexpr std::size_t ELEMENT_COUNT = ALBUM_COUNT + TRACK_COUNT;
// Each element has six present properties, and each raises DataChanged as the element goes.
constexpr std::size_t PROPERTIES_PER_ELEMENT = 6;
const char* const REFUSED_LINE = "Error: Track::updateByJSON: property number has an invalid value";

std::string albumJson(int n) {
    const auto& row = ALBUMS[n - 1];
    return "{\"id\":\"" + albumId(n) + "\",\"title\":\"" + row[0] + "\",\"artist\":\"" + row[1] +
           "\",\"genre\":\"" + row[2] + "\"}";
}
// Track n of album a has id number (a - 1) * 5 + n and is titled "Track a-n".
std::string trackJson(int a, int n) {
    return "{\"id\":\"" + trackId((a - 1) * TRACKS_PER_ALBUM + n) + "\",\"title\":\"Track " +
           std::to_string(a) + "-" + std::to_string(n) + "\",\"number\":" + std::to_string(n) +
           ",\"album\":\"" + albumUri(a) + "\"}";
}
Texts trackTitles(int a, const std::vector<int>& numbers) {
    Texts result;
    for (int n : numbers) result.push_back("Track " + std::to_string(a) + "-" + std::to_string(n));
    return result;
}

class Album : public Element {
public:
    explicit Album(AbstractResource& resource)
        : Element("Album", resource),
          title("title", this, PropertyValueString("")),
          artist("artist", this, PropertyValueString("")),
          genre("genre", this, PropertyValueString("")) {
        for (Base::PropertyString* property : {&title, &artist, &genre})
            property->registerAtOwner();
    }
    bool isPostAllowed(const Base::PropertyKey& key) const override {
        return key == "title" || key == "artist" || key == "genre";
    }

    Base::PropertyString title, artist, genre;
};

// A track points at its album; the service resolves the reference.
class Track : public Element {
public:
    explicit Track(AbstractResource& resource)
        : Element("Track", resource),
          title("title", this, PropertyValueString("")),
          number("number", this, PropertyValueNumberBase<long>(1, 1, 99, {})),
          album("album", this) {
        album.setReferenceResolver(resource.getService());
        title.registerAtOwner();
        number.registerAtOwner();
        album.registerAtOwner();
    }
    bool isPostAllowed(const Base::PropertyKey& key) const override {
        return key == "title" || key == "number" || key == "album";
    }

    Base::PropertyString title;
    Base::PropertyInteger number;
    PropertyXObjectReference album;
};

template <class E>
class Container : public ElementContainer<E> {
public:
    Container(Service& service, const std::string& name)
        : ElementContainer<E>(service, name, name, PropertyValueUuid()) {
        this->init();
    }
    ~Container() override { this->clear(); }
};

// Destroyed in reverse order: tracks (which point into the albums), albums, the service.
struct Tree {
    Service service{"Media", "", 1, PropertyValueUuid()};
    Container<Album> albums{service, "Albums"};
    Container<Track> tracks{service, "Tracks"};
};

IndexGenericValueQuery byKey(const std::string& key, std::set<std::string> values) {
    IndexGenericValueQuery query;
    query.key = key;
    query.values = std::move(values);
    return query;
}
IndexFreeTextQuery freeText(std::set<std::string> values) {
    IndexFreeTextQuery query;
    query.values = std::move(values);
    return query;
}

// The titles of what `query` finds, in result order.
Texts titles(const AbstractResource& resource, const Base::PropertyIndexQuery& query) {
    AbstractResource::ElementQueryResult found;
    EXPECT_EQ(OperationResult::OK, resource.findElements(query, found).value());
    Util::ScopedRecursiveReadLock lock(*resource.getLock());
    Texts result;
    for (const auto& element : found) {
        result.push_back(element->getProperty("title")->getPropertyValueBase().toString());
    }
    return result;
}
Texts sorted(Texts texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

class ServiceTree : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string service =
            R"({"id":"6ba7b810-9dad-11d1-80b4-00c04fd430c8","name":"Media","uri":"/Media",)"
            R"("description":"music","port":8080,"serviceCategories":["media"],)"
            R"("privileges":["play"],"versions":["1.2"]})";
        const std::string resources =
            R"([{"id":"c0000000-0000-4000-8000-000000000001","name":"Albums","uri":"/Media/Albums",)"
            R"("description":"all albums"},{"id":"c0000000-0000-4000-8000-000000000002",)"
            R"("name":"Tracks","uri":"/Media/Tracks","description":"all tracks"}])";
        std::string albums, tracks;
        for (int a = 1; a <= ALBUM_COUNT; ++a) {
            albums += (a > 1 ? "," : "") + albumJson(a);
            for (int n = 1; n <= TRACKS_PER_ALBUM; ++n) {
                tracks += (tracks.empty() ? "" : ",") + trackJson(a, n);
            }
        }
        typedef Poco::JSON::Array::Ptr Array;
        ASSERT_TRUE(tree->service.initFromJSON(parse(service).get()));
        ASSERT_TRUE(tree->service.initResourcesFromJSON(parse<Array>(resources).get()));
        ASSERT_TRUE(tree->service.initServiceResourcesfromJSON(
            parse<Array>(R"([{"name":"Albums","elements":[)" + albums +
                         R"(]},{"name":"Tracks","elements":[)" + tracks + "]}]")
                .get()));
    }
    // Subscribers leave before the elements go, so no delivery outlives the recorder.
    ~ServiceTree() override {
        for (auto& element : watched) recorder.unsubscribe(*element);
        watched.clear();
        tree.reset();
    }

    AbstractResource::Ptr get(AbstractResource& resource, const std::string& id) {
        AbstractResource::Ptr element;
        EXPECT_EQ(OperationResult::OK, resource.getElement(Poco::UUID(id), element).value()) << id;
        return element;
    }
    void watch(AbstractResource::Ptr element) {
        recorder.subscribe(*element);
        watched.push_back(element);
    }
    OperationResult::Value update(AbstractResource& resource, const std::string& id,
                                  const std::string& json) {
        return resource.updateElementFromJSON(Poco::UUID(id), parse(json).get()).value();
    }

    // Watches every element; three writers update the tracks (some writes refused) while two
    // readers query under the tree's read lock. Then the tree goes, and every raise must arrive
    // exactly once.
    void updateQueryAndTearDown();

    DataChangedRecorder recorder;
    std::unique_ptr<Tree> tree = std::make_unique<Tree>();
    std::vector<AbstractResource::Ptr> watched;
};

TEST_F(ServiceTree, LoadsFromJsonAndLinksEveryTrackToItsAlbum) {
    Service& service = tree->service;
    EXPECT_TRUE(service.isInitialisedFromJSON());
    EXPECT_EQ("all tracks", tree->tracks.getDescription().getValue());
    EXPECT_EQ(static_cast<std::size_t>(ALBUM_COUNT), tree->albums.size());
    EXPECT_EQ(static_cast<std::size_t>(TRACK_COUNT), tree->tracks.size());

    const AbstractResource::Ptr album = get(tree->albums, albumId(4));
    ASSERT_FALSE(album.isNull());
    EXPECT_EQ(service.getLock().get(), album->getLock().get()) << "one lock for the whole tree";
    XObject* resolved = nullptr;
    ASSERT_TRUE(service.resolve(DummyObject::createFromUri(albumUri(4)).get(), resolved));
    EXPECT_EQ(album.get(), resolved);

    AbstractResource::ElementQueryResult all;
    ASSERT_TRUE(tree->tracks.getElements(all, 0, TRACK_COUNT).isSuccess());
    ASSERT_EQ(static_cast<std::size_t>(TRACK_COUNT), all.size());
    Util::ScopedRecursiveReadLock lock(*service.getLock());
    for (std::size_t i = 0; i < all.size(); ++i) {  // id order is load order
        const auto& track = static_cast<const Track&>(*all[i]);
        EXPECT_TRUE(track.album.isResolvedReference()) << i;
        const XObject* target = track.album.getValue();
        ASSERT_NE(nullptr, dynamic_cast<const Album*>(target)) << i;
        EXPECT_EQ(albumId(static_cast<int>(i) / TRACKS_PER_ALBUM + 1),
                  target->getIdentification().toString())
            << i;
    }
}

TEST_F(ServiceTree, QueriesFindExactSetsInIndexOrder) {
    const AbstractResource& albums = tree->albums;
    const AbstractResource& tracks = tree->tracks;
    // Equal values come in load order, other values in value order.
    EXPECT_EQ((Texts{"Blue Harbour", "Into the Blue"}), titles(albums, byKey("genre", {"Jazz"})));
    EXPECT_EQ((Texts{"Blue Harbour", "Paper Moons"}),
              titles(albums, byKey("artist", {"Ada Lind"})));
    EXPECT_EQ(Texts{}, titles(albums, byKey("mood", {"Jazz"}))) << "unknown key";
    EXPECT_EQ((Texts{"Blue", "Red Canyon", "Paper Moons"}),
              titles(albums, byKey("genre", {"Rock", "Folk"})))
        << "grouped by text";
    EXPECT_EQ((Texts{"Blue", "Blue Harbour"}), titles(albums, byKey("title", {"Blue%"})));
    EXPECT_EQ((Texts{"Blue", "Into the Blue"}), titles(albums, byKey("title", {"%Blue"})));
    EXPECT_EQ(Texts{}, titles(albums, byKey("title", {"blue%"}))) << "case-sensitive";
    // Free text: by text, then by index key ("artist" before "title"), each element once.
    EXPECT_EQ((Texts{"Red Canyon", "Blue", "Blue Harbour", "Into the Blue"}),
              titles(albums, freeText({"%Blue%"})));
    EXPECT_EQ((Texts{"Blue Harbour", "Paper Moons", "Red Canyon"}),
              titles(albums, freeText({"Rock", "Ada Lind"})));

    Texts thirds;
    for (int a = 1; a <= ALBUM_COUNT; ++a) thirds.push_back(trackTitles(a, {3}).front());
    EXPECT_EQ(thirds, titles(tracks, byKey("number", {"3"})));
    EXPECT_EQ(trackTitles(2, {1, 2, 3, 4, 5}), titles(tracks, byKey("title", {"Track 2-%"})));
    EXPECT_EQ(static_cast<std::size_t>(TRACK_COUNT), titles(tracks, byKey("title", {"%"})).size());
    // References are found by their target's URI, in their own index and by free text.
    EXPECT_EQ(trackTitles(2, {1, 2, 3, 4, 5}), titles(tracks, byKey("album", {albumUri(2)})));
    EXPECT_EQ(trackTitles(3, {1, 2, 3, 4, 5}), titles(tracks, freeText({albumUri(3)})));
}

TEST_F(ServiceTree, UpdatesMoveIndexesAndRaiseOneDataChangedEach) {
    Container<Track>& tracks = tree->tracks;
    Container<Album>& albums = tree->albums;
    const std::string track = trackId(1);  // "Track 1-1", number 1, album 1
    const std::string album = albumId(1);
    watch(get(tracks, track));
    watch(get(albums, album));
    {
        ScopedLogCapture quiet(Poco::Message::PRIO_ERROR);
        EXPECT_EQ(OperationResult::INVALID_VALUE,
                  update(tracks, track, R"({"title":"Renamed","number":0})"));
        EXPECT_EQ(OperationResult::FORBIDDEN,
                  update(tracks, track, "{\"id\":\"" + trackId(99) + "\"}"));
        EXPECT_EQ(OperationResult::NOT_FOUND, update(tracks, trackId(99), R"({"title":"x"})"));
        EXPECT_EQ(OperationResult::NO_UPDATE,
                  update(tracks, track, R"({"title":"Track 1-1","number":1})"));
    }
    // Nothing of the refused updates reached the element or the indexes.
    EXPECT_EQ(Texts{}, titles(tracks, byKey("title", {"Renamed"})));
    EXPECT_EQ(trackTitles(1, {1}), titles(tracks, byKey("title", {"Track 1-1"})));
    EXPECT_EQ(6u, titles(tracks, byKey("number", {"1"})).size());

    ASSERT_EQ(OperationResult::OK, update(tracks, track, R"({"title":"Renamed","number":7})"));
    EXPECT_EQ(Texts{}, titles(tracks, byKey("title", {"Track 1-1"})));
    EXPECT_EQ(Texts{"Renamed"}, titles(tracks, byKey("title", {"Renamed"})));
    EXPECT_EQ(Texts{"Renamed"}, titles(tracks, byKey("number", {"7"})));
    EXPECT_EQ(5u, titles(tracks, byKey("number", {"1"})).size());

    ASSERT_EQ(OperationResult::OK, update(tracks, track, "{\"album\":\"" + albumUri(2) + "\"}"));
    EXPECT_EQ(trackTitles(1, {2, 3, 4, 5}), titles(tracks, byKey("album", {albumUri(1)})));
    Texts second = trackTitles(2, {1, 2, 3, 4, 5});
    second.push_back("Renamed");
    EXPECT_EQ(sorted(second), sorted(titles(tracks, byKey("album", {albumUri(2)}))));

    ASSERT_EQ(OperationResult::OK,
              update(albums, album, R"({"genre":"Rock","artist":"Ada Lind Trio"})"));
    EXPECT_EQ(Texts{"Into the Blue"}, titles(albums, byKey("genre", {"Jazz"})));
    EXPECT_EQ(sorted({"Blue Harbour", "Paper Moons", "Red Canyon"}),
              sorted(titles(albums, byKey("genre", {"Rock"}))));
    EXPECT_EQ(Texts{"Paper Moons"}, titles(albums, byKey("artist", {"Ada Lind"})));

    // The raises of one element arrive in order: a raise of a refused update, or a second one
    // of the two-key update, would come before the album reference's.
    typedef std::vector<KeyCollection> Keys;
    ASSERT_TRUE(recorder.waitFor(3)) << recorder.payloads().size();
    std::map<Poco::UUID, Keys> byElement;
    for (const auto& payload : recorder.payloads()) {
        byElement[payload.getSourceElementId()].push_back(payload.getSourcePropertyKeys());
    }
    EXPECT_EQ((Keys{{"number", "title"}, {"album"}}), byElement[Poco::UUID(track)]);
    EXPECT_EQ((Keys{{"artist", "genre"}}), byElement[Poco::UUID(album)]);
    EXPECT_EQ(2u, byElement.size());
}

TEST_F(ServiceTree, ReferencesFallBackWhileTheAlbumIsGoneAndResolveWhenItReturns) {
    Container<Album>& albums = tree->albums;
    const AbstractResource::Ptr held = get(tree->tracks, trackId(12));  // "Track 3-2"
    ASSERT_FALSE(held.isNull());
    const auto& track = static_cast<const Track&>(*held);
    Util::RecursiveRWLock& treeLock = *tree->service.getLock();
    {
        const AbstractResource::Ptr original = get(albums, albumId(3));
        Util::ScopedRecursiveReadLock lock(treeLock);
        EXPECT_EQ(original.get(), track.album.getValue());
        EXPECT_TRUE(track.album.isResolvedReference());
    }
    ASSERT_EQ(OperationResult::OK, albums.removeElement(Poco::UUID(albumId(3))).value());
    {
        Util::ScopedRecursiveReadLock lock(treeLock);
        EXPECT_FALSE(track.album.isResolvedReference());
        const XObject* fallback = track.album.getValue();
        ASSERT_NE(nullptr, dynamic_cast<const DummyObject*>(fallback));
        EXPECT_EQ(albumId(3), fallback->getIdentification().toString());
        EXPECT_EQ(albumUri(3), fallback->getUri().getValue().toString());
        EXPECT_FALSE(track.album.isResolvedReference()) << "nothing to resolve to";
    }
    EXPECT_EQ(Texts{}, titles(albums, byKey("title", {"Red Canyon"})));

    ASSERT_EQ(OperationResult::OK, albums.addElement(parse(albumJson(3)).get()).value());
    const AbstractResource::Ptr back = get(albums, albumId(3));
    {
        Util::ScopedRecursiveReadLock lock(treeLock);
        EXPECT_EQ(back.get(), track.album.getValue());
        EXPECT_TRUE(track.album.isResolvedReference());
    }
    EXPECT_EQ(trackTitles(3, {1, 2, 3, 4, 5}), titles(tree->tracks, byKey("album", {albumUri(3)})));
}

void ServiceTree::updateQueryAndTearDown() {
    for (AbstractResource* resource : {static_cast<AbstractResource*>(&tree->albums),
                                       static_cast<AbstractResource*>(&tree->tracks)}) {
        AbstractResource::ElementQueryResult all;
        ASSERT_TRUE(resource->getElements(all, 0, TRACK_COUNT).isSuccess());
        for (const auto& element : all) watch(element);
    }
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);  // each refused write logs one line
    constexpr int WRITERS = 3;
    constexpr int ROUNDS = 30;
    constexpr int APPLIED = WRITERS * ROUNDS * (TRACK_COUNT / WRITERS);
    constexpr int REFUSED = ROUNDS / 10 * TRACK_COUNT;  // every tenth round, every track
    std::atomic<int> faults{0}, writersLeft{WRITERS};
    std::vector<std::thread> threads;
    for (int w = 0; w < WRITERS; ++w) {
        threads.emplace_back([&, w] {
            for (int round = 0; round < ROUNDS; ++round) {
                for (int t = w + 1; t <= TRACK_COUNT; t += WRITERS) {
                    std::string json = "{\"title\":\"W" + std::to_string(w) + "-" +
                                       std::to_string(round) + "-" + std::to_string(t) +
                                       "\",\"number\":" + std::to_string(round % 9 + 1);
                    if (round % 4 == 0) json += ",\"album\":\"" + albumUri(t % 6 + 1) + "\"";
                    EXPECT_EQ(OperationResult::OK, update(tree->tracks, trackId(t), json + "}"));
                    if (round % 10 != 0) continue;
                    EXPECT_EQ(OperationResult::INVALID_VALUE,
                              update(tree->tracks, trackId(t), R"({"number":100})"));
                }
            }
            --writersLeft;
        });
    }
    for (int r = 0; r < 2; ++r) {
        threads.emplace_back([&, r] {
            for (int i = 0; writersLeft > 0 || i == 0; ++i) {
                // Under the tree's read lock no write lands between a query and the checks.
                Util::ScopedRecursiveReadLock lock(*tree->service.getLock());
                AbstractResource::ElementQueryResult found;
                tree->tracks.findElements(byKey("title", {"%"}), found);
                if (found.size() != static_cast<std::size_t>(TRACK_COUNT)) ++faults;
                const std::string n = std::to_string((i + r) % 9 + 1);
                tree->tracks.findElements(byKey("number", {n}), found);
                for (const auto& element : found) {
                    const auto& track = static_cast<const Track&>(*element);
                    if (track.number.getPropertyValue().toString() != n) ++faults;
                    if (dynamic_cast<const Album*>(track.album.getValue()) == nullptr) ++faults;
                }
                tree->albums.findElements(freeText({"%Blue%"}), found);
                if (found.size() != 4u) ++faults;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, faults.load());

    watched.clear();
    // The containers are destroyed full, most likely with deliveries still queued.
    tree.reset();
    // "id", "name" and "uri" are raised only as an element goes, after all its other raises.
    ASSERT_TRUE(recorder.waitUntil([](const std::vector<DataChangedRecorder::Payload>& all) {
        std::map<Poco::UUID, std::set<std::string>> last;
        for (const auto& payload : all) {
            for (const std::string& key : payload.getSourcePropertyKeys()) {
                if (key == "id" || key == "name" || key == "uri") {
                    last[payload.getSourceElementId()].insert(key);
                }
            }
        }
        return last.size() == ELEMENT_COUNT &&
               std::all_of(last.begin(), last.end(), [](auto& e) { return e.second.size() == 3; });
    })) << recorder.payloads().size();
    EXPECT_EQ(APPLIED + ELEMENT_COUNT * PROPERTIES_PER_ELEMENT, recorder.payloads().size());
    EXPECT_EQ(Texts(REFUSED, REFUSED_LINE), capture.texts());
}

TEST_F(ServiceTree, ConcurrentUpdatesAndQueriesThenTeardownWithDeliveriesInFlight) {
    updateQueryAndTearDown();
}

}  // namespace
}  // namespace Kivo::Data
