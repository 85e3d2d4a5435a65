#include "Client/ElementWriter.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Data/Base/PropertyEnum.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/DataChangedDelivery.h"
#include "Data/ElementFixture.h"
#include "Data/XObjectReference.h"

namespace Kivo::Test {
namespace {

using Client::ElementWriter;
using Data::AbstractResource;
using Data::OperationResult;
using namespace Data::Base;

const std::string SONG_ID = "6f1c2a4e-0b7d-4c8e-9a3f-2d5e8b1c7a90";
const std::string OTHER_ID = "0a9b8c7d-6e5f-4a3b-8c1d-0e2f3a4b5c6d";

// A song with a property of every value kind; clients may write all but "artist" and "uri".
class Song : public Data::Element {
public:
    explicit Song(AbstractResource& resource)
        : Element("Song", resource),
          live("live", this, PropertyValueBoolean(false)),
          rating("rating", this, PropertyValueNumberBase<long>(0, 0, 5, {})),
          artist("artist", this, PropertyValueString("nobody")),
          released("released", this,
                   PropertyValueString("2020-01-01", PropertyValueString::STRING_FORMAT_DATE)),
          genre("genre", this, PropertyValueEnum("rock", {"rock", "pop", "jazz"})),
          link("link", this, PropertyValueUri("http://example.org/")),
          source("source", this, PropertyValueUuid()),
          album("album", this),
          tags("tags", this, PropertyValueArray<PropertyValueString>(PropertyValueString(""))),
          code("code", this, PropertyValueCustomString("ABC", "[A-Z]{3}")),
          note("note", *this),
          level("level", *this, PropertyValueNumberBase<long>(1, 1, 5, {})) {
        registerAtOwner(live, rating, artist, released, genre, link, source, album, tags, code);
    }
    bool isPostAllowed(const PropertyKey& key) const override {
        return key != "artist" && key != "uri";
    }

    PropertyBoolean live;
    PropertyInteger rating;
    PropertyString artist;
    PropertyString released;
    Property<PropertyValueEnum> genre;
    PropertyUri link;
    PropertyUuid source;
    Data::PropertyXObjectReference album;
    PropertyStringArray tags;
    PropertyString code;
    Data::OptionalProperty<PropertyValueString> note;
    Data::OptionalProperty<PropertyValueNumberBase<long>> level;
};

// Songs whose gates a test may close.
class Songs : public TestContainer<Song> {
public:
    explicit Songs(Data::Service& service) : TestContainer<Song>(service, "Songs") {}
    bool isPostAllowed() const override { return postAllowed; }
    bool isDeleteAllowed() const override { return deleteAllowed; }
    std::set<PropertyKey> getRequiredProperties() const override { return {"name"}; }
    using TestContainer<Song>::isPostAllowed;

    bool postAllowed = true;
    bool deleteAllowed = true;
};

Poco::JSON::Object::Ptr parse(const std::string& json) { return parseObject(json); }

// The value of `json`, a JSON value text.
Poco::Dynamic::Var value(const std::string& json) {
    return parse("{\"v\":" + json + "}")->get("v");
}

class ElementWriterTest : public ::testing::Test {
protected:
    ElementWriterTest() {
        const auto json = parse(R"({"id":")" + SONG_ID + R"(","name":"Song"})");
        EXPECT_EQ(OperationResult::OK, songs.addElement(json.get()).value());
        song = &elementOf<Song>(songs, SONG_ID);
    }

    std::string json() const { return jsonText(song->toJSON(0)); }
    // How many songs the index of `key` finds holding `text`.
    std::size_t found(const std::string& key, const std::string& text) const {
        AbstractResource::ElementQueryResult result;
        EXPECT_TRUE(songs.findElements(keyQuery(key, text), result).isSuccess());
        return result.size();
    }

    ElementTree tree;
    Songs songs{tree.service};
    ElementWriter writer{songs};
    const Poco::UUID id{SONG_ID};
    Song* song = nullptr;
};

TEST_F(ElementWriterTest, ChecksEachValueKindAndNull) {
    const OperationResult::Value WRONG = OperationResult::WRONG_PROPERTY_TYPE;
    const OperationResult::Value OK = OperationResult::OK;
    struct Row {
        std::string key;
        std::string value;
        OperationResult::Value code;
        std::string message;
    };
    const std::vector<Row> rows = {
        {"live", "\"true\"", WRONG, "live: expects true or false, got a string"},
        {"live", "1", WRONG, "live: expects true or false, got an integer"},
        {"live", "true", OK, "ok"},
        {"rating", "\"3\"", WRONG, "rating: expects an integer, got a string"},
        {"rating", "2.5", WRONG, "rating: expects an integer, got a number with a fraction"},
        {"rating", "false", WRONG, "rating: expects an integer, got a boolean"},
        {"rating", "3.0", OK, "ok"},
        {"rating", "4", OK, "ok"},
        {"name", "42", WRONG, "name: expects a string, got an integer"},
        {"name", "{\"text\":\"hi\"}", WRONG, "name: expects a string, got an object"},
        {"name", "[\"hi\"]", WRONG, "name: expects a string, got an array"},
        {"name", "null", OperationResult::INVALID_VALUE,
         "name: is not optional, so null cannot remove it"},
        {"released", "20200101", WRONG, "released: expects a string, got an integer"},
        {"genre", "true", WRONG, "genre: expects a string, got a boolean"},
        {"genre", "\"jazz\"", OK, "ok"},
        {"link", "1.5", WRONG, "link: expects a string, got a number with a fraction"},
        {"source", "[]", WRONG, "source: expects a string, got an array"},
        {"album", "{\"uri\":\"/Media/Albums/" + OTHER_ID + "\"}", WRONG,
         "album: expects a string, got an object"},
        {"album", "\"/Media/Albums/" + OTHER_ID + "\"", OK, "ok"},
        {"code", "7", WRONG, "code: expects a string, got an integer"},
        {"tags", "\"rock\"", WRONG, "tags: expects an array of strings, got a string"},
        {"tags", "[\"a\",1]", WRONG,
         "tags: expects an array of strings, got an array holding an integer"},
        {"tags", "[\"a\",null]", WRONG,
         "tags: expects an array of strings, got an array holding null"},
        {"tags", "[\"b\",\"a\"]", OK, "ok"},
        {"note", "42", WRONG, "note: expects a string, got an integer"},
        {"note", "null", OperationResult::NO_UPDATE, "ok"},
        {"note", "\"hi\"", OK, "ok"},
        {"note", "null", OK, "ok"},
        {"level", "\"2\"", WRONG, "level: expects an integer, got a string"},
        {"level", "null", OperationResult::NO_UPDATE, "ok"},
        {"level", "2", OK, "ok"},
    };
    for (const Row& row : rows) {
        const std::string before = json();
        const OperationResult result = writer.set(id, row.key, value(row.value));
        EXPECT_EQ(row.code, result.value()) << row.key << " = " << row.value;
        EXPECT_EQ(row.message, result.toString()) << row.key << " = " << row.value;
        if (!result.isSuccess()) {
            EXPECT_EQ(before, json()) << row.key << " = " << row.value;
        }
    }
    EXPECT_TRUE(song->live.getValue());
    EXPECT_EQ(4, song->rating.getValue());
    EXPECT_EQ("jazz", song->genre.getValue());
    EXPECT_EQ((std::vector<std::string>{"a", "b"}),
              static_cast<std::vector<std::string>>(song->tags.getPropertyValue()));
    EXPECT_FALSE(song->hasProperty("note"));
    EXPECT_EQ(2, song->level.get()->getValue());
}

TEST_F(ElementWriterTest, RefusalsExplainThemselves) {
    const OperationResult::Value INVALID = OperationResult::INVALID_VALUE;
    struct Row {
        std::string values;
        OperationResult::Value code;
        std::string message;
    };
    const std::string nullId = "00000000-0000-0000-0000-000000000000";
    const std::vector<Row> rows = {
        {"{\"rating\":7}", INVALID, "rating: 7 is above the maximum 5"},
        {"{\"rating\":-1}", INVALID, "rating: -1 is below the minimum 0"},
        {"{\"rating\":9223372036854775808}", INVALID,
         "rating: 9223372036854775808 is beyond the 64-bit integer range"},
        {"{\"level\":9}", INVALID, "level: 9 is above the maximum 5"},
        {"{\"genre\":\"opera\"}", INVALID, "genre: \"opera\" is not one of rock, pop, jazz"},
        {"{\"genre\":\"a\\\"b\\n\"}", INVALID, "genre: \"a\\\"b?\" is not one of rock, pop, jazz"},
        {"{\"released\":\"2024-13-01\"}", INVALID,
         "released: \"2024-13-01\" is not a date (YYYY-MM-DD)"},
        {"{\"code\":\"abc\"}", INVALID, "code: \"abc\" does not match the property's pattern"},
        {"{\"source\":\"nope\"}", INVALID, "source: \"nope\" is not a UUID"},
        {"{\"source\":\"" + nullId + "\"}", INVALID, "source: \"" + nullId + "\" is the null UUID"},
        {"{\"album\":\"/Media/Albums\"}", INVALID,
         "album: \"/Media/Albums\" does not name an element this property may refer to"},
        {"{\"name\":\"" + std::string(70, 'x') + "\",\"released\":\"" + std::string(70, 'y') +
             "\"}",
         INVALID, "released: \"" + std::string(64, 'y') + "...\" is not a date (YYYY-MM-DD)"},
        {"{\"artist\":\"Someone\"}", OperationResult::FORBIDDEN,
         "artist: clients may not write it"},
        {"{\"colour\":\"red\",\"rating\":1}", OperationResult::UNKNOWN_PROPERTY,
         "colour: no such property"},
    };
    for (const Row& row : rows) {
        const OperationResult result = writer.update(id, *parse(row.values));
        EXPECT_EQ(row.code, result.value()) << row.values;
        EXPECT_EQ(row.message, result.toString()) << row.values;
    }
    // One code for an unknown key whatever the operation.
    EXPECT_EQ("colour: no such property", writer.set(id, "colour", "red").toString());
    EXPECT_EQ("colour: no such property",
              writer.add(*parse("{\"name\":\"B\",\"colour\":\"red\"}")).toString());

    const Poco::UUID other(OTHER_ID);
    EXPECT_EQ("id " + OTHER_ID + ": no such element", writer.set(other, "rating", 1).toString());
    EXPECT_EQ(OperationResult::NOT_FOUND, writer.remove(other).value());
    EXPECT_EQ("name: is required", writer.add(*parse("{\"rating\":1}")).toString());
    const OperationResult duplicate =
        writer.add(*parse("{\"id\":\"" + SONG_ID + "\",\"name\":\"B\"}"));
    EXPECT_EQ(OperationResult::DUPLICATE, duplicate.value());
    EXPECT_EQ("id " + SONG_ID + ": an element with this id exists already", duplicate.toString());

    songs.postAllowed = false;
    songs.deleteAllowed = false;
    EXPECT_EQ("Songs: clients may not add or change elements",
              writer.set(id, "rating", 1).toString());
    EXPECT_EQ(OperationResult::FORBIDDEN, writer.add(*parse("{\"name\":\"B\"}")).value());
    const OperationResult removal = writer.remove(id);
    EXPECT_EQ(OperationResult::FORBIDDEN, removal.value());
    EXPECT_EQ("Songs: clients may not remove elements", removal.toString());
    EXPECT_EQ(1u, songs.size());
}

// A refused request leaves data, indexes and events; an accepted one raises one DataChanged
// naming the keys it changed, and none where it changed nothing.
TEST_F(ElementWriterTest, RefusalLeavesDataIndexesAndEventsAcceptanceRaisesOne) {
    ASSERT_TRUE(writer.update(id, *parse("{\"name\":\"Old\",\"note\":\"kept\"}")).isSuccess());
    DataChangedRecorder recorder;
    recorder.subscribe(*song);
    const std::string before = json();
    // Valid members and a removal ahead of the refused one, in the object's order.
    for (const std::string values :
         {"{\"genre\":\"pop\",\"name\":\"New\",\"note\":null,\"rating\":6}",
          "{\"name\":\"New\",\"note\":null,\"tags\":[\"x\",2]}",
          "{\"name\":\"New\",\"note\":null,\"uri\":\"/Songs/x\"}"}) {
        EXPECT_FALSE(writer.update(id, *parse(values)).isSuccess()) << values;
        EXPECT_EQ(before, json()) << values;
        EXPECT_EQ(1u, found("name", "Old")) << values;
        EXPECT_EQ(0u, found("name", "New")) << values;
        EXPECT_EQ(1u, found("note", "kept")) << values;
    }
    // An invalid add leaves no element behind.
    EXPECT_EQ(OperationResult::WRONG_PROPERTY_TYPE,
              writer.add(*parse("{\"name\":\"New\",\"rating\":\"1\"}")).value());
    EXPECT_EQ(1u, songs.size());
    EXPECT_EQ(0u, found("name", "New"));

    // The first event the recorder sees is that of the accepted write after the refusals.
    ASSERT_EQ(OperationResult::OK, writer.set(id, "rating", 2).value());
    ASSERT_TRUE(recorder.waitFor(1));
    Data::DataChangedDelivery::drain();
    ASSERT_EQ(1u, recorder.payloads().size());
    EXPECT_EQ(Data::KeyCollection{"rating"}, recorder.payloads()[0].getSourcePropertyKeys());

    struct Row {
        std::string values;
        OperationResult::Value code;
        Data::KeyCollection keys;  // of the one event; none raised when empty
    };
    const std::vector<Row> rows = {
        {"{\"note\":null,\"name\":\"Two\",\"rating\":3}",
         OperationResult::OK,
         {"name", "note", "rating"}},
        {"{\"note\":null,\"name\":\"Two\",\"rating\":3.0}", OperationResult::NO_UPDATE, {}},
        {"{\"note\":\"back\",\"level\":null}", OperationResult::OK, {"note"}},
        {"{\"note\":null}", OperationResult::OK, {"note"}},
        // A first value equal to the optional property's default still makes the key appear.
        {"{\"level\":1,\"tags\":[\"t\"]}", OperationResult::OK, {"level", "tags"}},
    };
    std::size_t events = 1;
    for (const Row& row : rows) {
        const OperationResult result = writer.update(id, *parse(row.values));
        EXPECT_EQ(row.code, result.value()) << row.values;
        EXPECT_EQ("ok", result.toString()) << row.values;
        if (!row.keys.empty()) ++events;
        Data::DataChangedDelivery::drain();
        const auto payloads = recorder.payloads();
        ASSERT_EQ(events, payloads.size()) << row.values;
        if (!row.keys.empty()) {
            EXPECT_EQ(row.keys, payloads.back().getSourcePropertyKeys()) << row.values;
        }
    }
    // Created and removed optional properties come and go in the index.
    EXPECT_EQ(0u, found("note", "back"));
    EXPECT_EQ(1u, found("level", "1"));
    EXPECT_EQ(1u, found("name", "Two"));
    recorder.unsubscribe(*song);
}

// check answers as add would, message included, and adds nothing; then add and remove.
TEST_F(ElementWriterTest, ChecksAddsAndRemovesElements) {
    const std::vector<std::string> requests = {
        "{\"id\":\"" + OTHER_ID + "\",\"name\":\"B\",\"rating\":9}",
        "{\"id\":\"" + OTHER_ID + "\",\"name\":\"B\",\"genre\":\"ska\"}",
        "{\"id\":\"" + OTHER_ID + "\",\"name\":\"B\",\"colour\":\"red\"}",
        "{\"id\":\"" + OTHER_ID + "\",\"rating\":1}",
        "{\"id\":\"" + SONG_ID + "\",\"name\":\"B\"}",
        "{\"id\":\"not a uuid\",\"name\":\"B\"}",
    };
    for (const std::string& request : requests) {
        const OperationResult checked = writer.check(*parse(request));
        EXPECT_FALSE(checked.isSuccess()) << request;
        EXPECT_EQ(1u, songs.size()) << request;
        const OperationResult added = writer.add(*parse(request));
        EXPECT_EQ(added.value(), checked.value()) << request;
        EXPECT_EQ(added.toString(), checked.toString()) << request;
    }
    const Poco::JSON::Object::Ptr good =
        parse("{\"id\":\"" + OTHER_ID + "\",\"name\":\"B\",\"rating\":2}");
    EXPECT_EQ(OperationResult::OK, writer.check(*good).value());
    EXPECT_EQ(1u, songs.size());

    const OperationResult added = writer.add(
        *parse("{\"id\":\"" + OTHER_ID +
               "\",\"name\":\"B\",\"artist\":\"Band\",\"rating\":3.0,\"note\":null,\"level\":4}"));
    ASSERT_EQ(OperationResult::OK, added.value()) << added.toString();
    AbstractResource::Ptr element;
    ASSERT_TRUE(songs.getElement(Poco::UUID(OTHER_ID), element).isSuccess());
    const Song& other = static_cast<const Song&>(*element);
    EXPECT_EQ(3, other.rating.getValue());
    EXPECT_EQ("Band", other.artist.getValue());
    EXPECT_FALSE(other.hasProperty("note"));
    EXPECT_EQ(1u, found("level", "4"));
    element.reset();

    EXPECT_EQ(OperationResult::OK, writer.remove(Poco::UUID(OTHER_ID)).value());
    EXPECT_EQ(1u, songs.size());
    EXPECT_EQ(0u, found("level", "4"));

    // Without an id the writer draws one and tells it; a refused add tells nothing.
    Poco::UUID drawn;
    ASSERT_EQ(OperationResult::OK, writer.add(*parse("{\"name\":\"C\"}"), &drawn).value());
    ASSERT_TRUE(songs.getElement(drawn, element).isSuccess());
    EXPECT_EQ("C", element->getName().getValue());
    element.reset();
    Poco::UUID untouched;
    EXPECT_FALSE(writer.add(*parse("{\"name\":\"D\",\"rating\":9}"), &untouched).isSuccess());
    EXPECT_TRUE(untouched.isNull());
    EXPECT_EQ(2u, songs.size());
    songs.postAllowed = false;
    EXPECT_EQ(OperationResult::FORBIDDEN, writer.check(*good).value());
}

}  // namespace
}  // namespace Kivo::Test
