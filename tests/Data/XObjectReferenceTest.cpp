#include "Data/XObjectReference.h"

#include <atomic>
#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <Poco/Message.h>
#include <Poco/RegularExpression.h>
#include <Poco/UUID.h>
#include <gtest/gtest.h>

#include "Data/ElementFixture.h"
#include "Data/ReferenceResolver.h"
#include "Data/XObject.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueString;
using Base::PropertyValueUuid;
using Kivo::Test::parseObject;
using Kivo::Test::ScopedLogCapture;
typedef std::vector<std::string> Texts;
typedef Kivo::Test::TestContainer<Kivo::Test::TestElement> Store;

const char* const ALICE = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const char* const BOB = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";
const std::string ID = ALICE;
const char* const NO_JSON =
    "Trace: String representation of XObject reference is no valid JSON string";
const char* const BAD_URI =
    "Error: Invalid XObject URI. Only Element URIs with 3 segments "
    "(service/resource/element-uuid) can be accepted";
const char* const PARSE_FAILED =
    "Warning: Failed to parse string representation for XObject refrence";
const char* const UNRESOLVED =
    "Trace: getValuePriv Could not resolve internal reference to an actual XObject. Going to use "
    "placeholder value.";
const char* const UNIDENTIFIED = "unidentified element";
const char* const NULL_ID = "Error: Failed to init property id for contactObject: invalid value";
const char* const INVALID_URI = "Invalid argument: Invalid XObject URI";

// The trace line of a text in `form` ("URI" or "JSON") no reference could be made from.
std::string failedFrom(const char* form, const std::string& reason) {
    return std::string("Trace: Failed to create XObject Reference from ") + form + ": " + reason;
}

std::string contactUri(const char* id) { return std::string("/Phone/contacts/") + id; }

std::string text(const Poco::Dynamic::Var& json) {
    return json.isString() ? json.extract<std::string>() : Kivo::Test::jsonText(json);
}

// An object's type name, identifier and path, then its compact JSON.
std::string identity(const XObject& object) {
    const XObject::Type& type = object.getType();
    return type.name + " " + type.identifier + " " + type.path + " " + text(object.toJSON(-1));
}

// The captured lines, without the object registry's trace lines about its properties.
Texts referenceLines(const ScopedLogCapture& capture) {
    Texts lines;
    for (const std::string& line : capture.texts()) {
        if (line.rfind("Trace: Property ", 0) != 0) lines.push_back(line);
    }
    return lines;
}

// The message of the Poco::BugcheckException `action` throws, or "" if it throws none.
std::string bugcheckMessage(const std::function<void()>& action) {
    try {
        action();
    } catch (const Poco::BugcheckException& error) {
        return error.message();
    }
    return "";
}

class Contact : public Element {
public:
    explicit Contact(AbstractResource& resource)
        : Element("contactObject", resource),
          number("number", this, Base::PropertyValueString("555")) {
        number.registerAtOwner();
    }
    Base::PropertyString number;
};

// An element pointing at a contact; clients may write every key.
class Note : public Element {
public:
    explicit Note(AbstractResource& resource)
        : Element("noteObject", resource), about("about", this) {
        about.registerAtOwner();
    }
    bool isPostAllowed(const Base::PropertyKey&) const override { return true; }
    PropertyXObjectReference about;
};

// Answers a fixed object (null: fails after nulling the result) and counts the questions.
class FixedResolver : public IReferenceResolver {
public:
    explicit FixedResolver(XObject* answer) : m_answer(answer) {}
    bool resolve(XObject*, XObject*& result) const override {
        ++calls;
        result = m_answer;
        return m_answer != nullptr;
    }
    mutable int calls = 0;

private:
    XObject* m_answer;
};

class XObjectReferenceTest : public ::testing::Test {
protected:
    XObjectReferenceTest() { resolver.addSource(&contacts); }

    // The element the container now holds under `id`; the container keeps it alive.
    template <class E>
    E* add(Kivo::Test::TestContainer<E>& store, const std::string& name, const std::string& id) {
        const auto json =
            Kivo::Test::parseObject(R"({"id":")" + id + R"(","name":")" + name + "\"}");
        EXPECT_EQ(OperationResult::OK, store.addElement(json.get()).value()) << id;
        return &Kivo::Test::elementOf<E>(store, id);
    }
    void remove(const char* id) { ASSERT_TRUE(contacts.removeElement(Poco::UUID(id)).isSuccess()); }

    // Before the containers: the references of their elements resolve through it until the
    // elements go, and the containers read the references as they drop them from their indexes.
    LocalReferenceResolver resolver;
    Service service{"Phone", "phone", 80, Base::PropertyValueUuid()};
    Kivo::Test::TestContainer<Contact> contacts{service, "contacts"};
    Kivo::Test::TestContainer<Note> notes{service, "notes"};
};

TEST_F(XObjectReferenceTest, PlaceholdersComeFromElementUrisOnly) {
    const std::string alice = ALICE;
    const std::string contact = "contactObject Phone.contacts.contactObject /Phone/contacts/";
    const struct {
        std::string uri, type, written;  // written empty: the URI as given
    } rows[] = {
        {contactUri(ALICE), contact, ""},
        {"/Media/media/" + alice, "mediaObject Media.media.mediaObject /Media/media/", ""},
        {"/Shop/classess/" + alice, "classesObject Shop.classess.classesObject /Shop/classess/",
         ""},
        {"http://host:8080" + contactUri(ALICE), contact, ""},
        // Empty segments are left out.
        {"/Phone//contacts/" + alice + "/", contact, ""},
        // The id is the UUID's text, the URI the URI library's.
        {"/Phone/co%6Etacts/6BA7B810-9DAD-11D1-80B4-00C04FD430C8", contact,
         "/Phone/contacts/6BA7B810-9DAD-11D1-80B4-00C04FD430C8"},
    };
    for (const auto& row : rows) {
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        const std::unique_ptr<DummyObject> placeholder = DummyObject::createFromUri(row.uri);
        EXPECT_EQ((Texts{"Trace: Property id has changed", "Trace: Property name has changed",
                         "Trace: Property uri has changed"}),
                  capture.texts())
            << "the owner writes id, name and uri in that order: " << row.uri;
        EXPECT_EQ(row.type + R"( {"id":")" + alice + R"(","name":"unidentified element","uri":")" +
                      (row.written.empty() ? row.uri : row.written) + "\"}",
                  identity(*placeholder));
        // The location reads the same type path and id without a placeholder.
        ScopedLogCapture quiet(Poco::Message::PRIO_TRACE);
        const ElementLocation location(row.uri);
        EXPECT_EQ(placeholder->getType().path, location.typePath()) << row.uri;
        EXPECT_EQ(placeholder->getIdentification(), location.id()) << row.uri;
        EXPECT_EQ(Texts{}, quiet.texts()) << row.uri;
        EXPECT_EQ(identity(*placeholder), identity(*location.placeholder())) << row.uri;
    }
    // The null UUID is no id.
    {
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        EXPECT_THROW(DummyObject::createFromUri("/Phone/contacts/" + Poco::UUID::null().toString()),
                     Poco::DataException);
        EXPECT_EQ(Texts{NULL_ID}, referenceLines(capture));
    }
    // A location refuses what the placeholder refuses, with the same line.
    const std::function<void(const std::string&)> makers[] = {
        [](const std::string& uri) { DummyObject::createFromUri(uri); },
        [](const std::string& uri) { ElementLocation{uri}; },
    };
    for (const auto& make : makers) {
        for (const std::string& uri :
             {std::string("/Phone/contacts"), contactUri(ALICE) + "/more", std::string("/"),
              std::string(), "//Phone" + contactUri(ALICE)}) {
            ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
            try {
                make(uri);
                ADD_FAILURE() << uri << ": no exception";
            } catch (const Poco::InvalidArgumentException& error) {
                EXPECT_EQ("Invalid XObject URI", error.message()) << uri;
            }
            EXPECT_EQ(Texts{BAD_URI}, capture.texts()) << uri;
        }
        EXPECT_THROW(make("/Phone/contacts/not-a-uuid"), Poco::SyntaxException);
    }
}

// A reference resolves when read; when its target is destroyed it falls back to a placeholder
// copied from it, and it leaves nothing behind at a target that outlives it.
TEST_F(XObjectReferenceTest, ResolvesLazilyAndFallsBackWhenTheTargetIsDestroyed) {
    {
        XObjectReference reference(&resolver);
        {
            ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
            ASSERT_TRUE(reference.setValueFromString(contactUri(ALICE)));
            EXPECT_EQ(UNIDENTIFIED, reference.getValue()->getName().getValue());
            EXPECT_EQ((Texts{NO_JSON, UNRESOLVED}), referenceLines(capture));
        }
        Contact* alice = add(contacts, "Alice", ALICE);
        const std::string aliceJson = text(alice->toJSON(-1));
        EXPECT_FALSE(reference.isResolvedReference());
        EXPECT_EQ(alice, reference.getValue());
        EXPECT_TRUE(reference.isResolvedReference());

        remove(ALICE);
        EXPECT_FALSE(reference.isResolvedReference());
        EXPECT_NE(nullptr, dynamic_cast<const DummyObject*>(reference.getValue()));
        EXPECT_EQ("contactObject Phone.contacts.contactObject /Phone/contacts/ " + aliceJson,
                  identity(*reference.getValue()));

        Contact* again = add(contacts, "Alice again", ALICE);
        EXPECT_EQ(again, reference.getValue());
    }

    // The target outlives every reference that resolved to it: none may be called now.
    remove(ALICE);
}

TEST_F(XObjectReferenceTest, CopiesFollowTheTargetOnTheirOwn) {
    Contact* alice = add(contacts, "Alice", ALICE);
    Contact* bob = add(contacts, "Bob", BOB);
    XObjectReference original(&resolver);
    ASSERT_TRUE(original.setValue(alice));
    auto between = std::make_unique<XObjectReference>(original);
    XObjectReference copy(original);
    XObjectReference lazy(&resolver);
    ASSERT_TRUE(lazy.setValueFromString(contactUri(ALICE)));
    ASSERT_EQ(alice, lazy.getValue());
    XObjectReference assigned;
    ASSERT_TRUE(assigned.setValue(bob));
    assigned = original;
    const XObjectReference& same = assigned;
    assigned = same;  // self-assignment, as it comes about through an alias
    // Assignment left Bob: his end must not reach `assigned`, whose handler would refuse it.
    remove(BOB);
    EXPECT_EQ(alice, assigned.getValue());

    XObjectReference placeholder, readBack;
    ASSERT_TRUE(placeholder.setValueFromString(contactUri(BOB)));
    EXPECT_NE(placeholder.getValue(), XObjectReference(placeholder).getValue())
        << "placeholders are copied";
    // A placeholder writes its own id, name and URI, and they read back into a like one.
    ASSERT_TRUE(readBack.setValueFromString(placeholder.toString()));
    EXPECT_TRUE(readBack == placeholder);
    EXPECT_EQ(contactUri(BOB), readBack.getValue()->getUri().getValue().toString());

    // Alice's watchers, one gone from between the others, all fall back.
    between.reset();
    remove(ALICE);
    for (const XObjectReference* reference : {&original, &copy, &lazy, &assigned}) {
        EXPECT_FALSE(reference->isResolvedReference());
        EXPECT_EQ("Alice", reference->getValue()->getName().getValue());
    }
    Contact* again = add(contacts, "Alice", ALICE);
    EXPECT_EQ(again, copy.getValue()) << "resolvers travel with copies";
    EXPECT_EQ(again, assigned.getValue());
}

// Threads resolving, comparing and copying the same references at once: each reference joins
// its target's watchers once, so the target's end reaches every one of them exactly once.
TEST_F(XObjectReferenceTest, ThreadsResolveCompareAndCopySharedReferences) {
    XObject* const alice = add(contacts, "Alice", ALICE);
    add(contacts, "Bob", BOB);
    XObjectReference toAlice(&resolver), toBob(&resolver);
    ASSERT_TRUE(toAlice.setValueFromString(contactUri(ALICE)));
    ASSERT_TRUE(toBob.setValueFromString(contactUri(BOB)));
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 200;
    std::vector<std::vector<XObjectReference>> copies(THREADS);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < ROUNDS; ++i) {
                // Both orders of the pair at once, from different threads.
                const bool aliceFirst = (i + t) % 2 == 0;
                const XObjectReference& first = aliceFirst ? toAlice : toBob;
                const XObjectReference& second = aliceFirst ? toBob : toAlice;
                if ((first < second) != aliceFirst || first == second) ++wrong;
                if (i % 50 == 0) copies[t].push_back(first);
                // Settings made and dropped while other threads hold and drop equal ones.
                XObjectReference fresh(&resolver, {"Phone.contacts.contactObject"});
                const XObjectReference copy(fresh);
                if (!copy.isValidValue(alice)) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, wrong.load());

    remove(ALICE);
    remove(BOB);
    for (const auto& own : copies) {
        for (const XObjectReference& copy : own) EXPECT_FALSE(copy.isResolvedReference());
    }
    EXPECT_EQ("Alice", toAlice.getValue()->getName().getValue());
    EXPECT_FALSE(toBob.isResolvedReference());
}

// Which targets a list of allowed types admits is exercised by the refusal test (albums only,
// placeholders of albums too); here: the list names identifiers, and a new one must admit the
// current target. The destroyed handler, too, refuses an end that is not its target's.
TEST_F(XObjectReferenceTest, AllowedTypesAndTheDestroyedHandlerGuardTheTarget) {
    Contact* alice = add(contacts, "Alice", ALICE);
    Note* note = add(notes, "note", BOB);
    {
        XObjectReference reference;
        std::string message =
            bugcheckMessage([&] { reference.onReferenceDestroyed(nullptr, *alice); });
        EXPECT_NE(std::string::npos, message.find("invalid reference - received event but holds "
                                                  "no resolved reference"))
            << message;
        EXPECT_NE(std::string::npos, message.find("src/Data/XObjectReference.cpp")) << message;
        ASSERT_TRUE(reference.setValue(alice));
        message = bugcheckMessage([&] { reference.onReferenceDestroyed(nullptr, *note); });
        EXPECT_NE(std::string::npos,
                  message.find("invalid reference - received event from wrong xobject"))
            << message;
        EXPECT_EQ(alice, reference.getValue());
        EXPECT_TRUE(reference.isResolvedReference());
    }
    EXPECT_FALSE(XObjectReference(&resolver, {"contactObject"}).setValue(alice));
    EXPECT_TRUE(XObjectReference(&resolver, {"Phone.contacts.contactObject"}).setValue(alice));
    const std::string refusal = "New allowed type set would not allow current XObject reference";
    XObjectReference reference;
    EXPECT_EQ("", bugcheckMessage([&] { reference.setAllowedTypes({"Phone.notes.noteObject"}); }));
    EXPECT_EQ("", bugcheckMessage([&] { reference.setAllowedTypes({}); }));
    ASSERT_TRUE(reference.setValue(alice));
    EXPECT_EQ(refusal,
              bugcheckMessage([&] { reference.setAllowedTypes({"Phone.notes.noteObject"}); }));
    // The empty set would allow any type, yet is refused as well.
    EXPECT_EQ(refusal, bugcheckMessage([&] { reference.setAllowedTypes({}); }));
    EXPECT_TRUE(reference.isValidValue(note)) << "a refused set must leave the old one";
    EXPECT_EQ(XObjectReference::OneOf{}, reference.getAllowedTypes()) << "the old set is kept";
    reference.addAllowedType("Phone.notes.noteObject");
    reference.addAllowedType("Phone.contacts.contactObject");
    EXPECT_EQ((XObjectReference::OneOf{"Phone.contacts.contactObject", "Phone.notes.noteObject"}),
              reference.getAllowedTypes());

    // Copies and references built with an equal set share it: changing one leaves the others.
    const XObjectReference::OneOf contactsOnly{"Phone.contacts.contactObject"};
    const std::pair<const char*, std::function<void(XObjectReference&)>> changes[] = {
        {"add", [](XObjectReference& r) { r.addAllowedType("Phone.notes.noteObject"); }},
        {"set", [](XObjectReference& r) { r.setAllowedTypes({"Phone.notes.noteObject"}); }},
        {"clear", [](XObjectReference& r) { r.setAllowedTypes({}); }},
    };
    for (const auto& [what, change] : changes) {
        XObjectReference original(&resolver, contactsOnly);
        XObjectReference copy(original), twin(&resolver, contactsOnly), assigned;
        assigned = original;
        change(copy);
        EXPECT_TRUE(copy.isValidValue(note)) << what;
        for (const XObjectReference* other : {&original, &twin, &assigned}) {
            EXPECT_EQ(contactsOnly, other->getAllowedTypes()) << what;
            EXPECT_FALSE(other->isValidValue(note)) << what;
        }
    }
    // The resolver is shared the same way: a copy that drops it leaves the others resolving.
    {
        XObjectReference original(&resolver, contactsOnly);
        XObjectReference copy(original), twin(&resolver, contactsOnly);
        copy.setReferenceResolver(nullptr);
        EXPECT_EQ(contactsOnly, copy.getAllowedTypes()) << "the allowed set stays";
        ASSERT_TRUE(copy.setValueFromString(contactUri(ALICE)));
        EXPECT_FALSE(copy.isResolvedReference());
        for (XObjectReference* other : {&original, &twin}) {
            ASSERT_TRUE(other->setValueFromString(contactUri(ALICE)));
            EXPECT_EQ(alice, other->getValue());
        }
        copy.setReferenceResolver(&resolver);
        EXPECT_EQ(alice, copy.getValue()) << "the resolver is taken again";
    }
}

// A null reference has no value, writes nothing, matches nothing and orders last.
TEST_F(XObjectReferenceTest, OrdersNullsLastAndMatchesNameIdOrUri) {
    XObjectReference none(&resolver);
    EXPECT_TRUE(none.isNull());
    EXPECT_FALSE(none.isResolvedReference());
    try {
        none.getValue();
        ADD_FAILURE() << "no exception";
    } catch (const Poco::NullPointerException& error) {
        EXPECT_EQ("Invalid XObject Reference without any value", error.message());
    }
    EXPECT_EQ("", text(none.toJSON(3)));
    EXPECT_FALSE(none.matches(Poco::RegularExpression(".*")));
    EXPECT_FALSE(none.setValue(nullptr));

    Contact* alice = add(contacts, "Alice", ALICE);
    XObjectReference toAlice, toBob, aliceCopy, aliceShadow;
    toAlice.setValue(alice);
    toBob.setValue(add(contacts, "Bob", BOB));
    aliceCopy.setValue(alice);
    DummyObject shadow(*alice);
    aliceShadow.setValue(&shadow);
    struct Row {
        const XObjectReference& left;
        const XObjectReference& right;
        int order;  // compare()
        bool equal;
    };
    const std::vector<Row> rows = {
        {none, none, 0, true},           {none, toAlice, 1, false},  {toAlice, none, -1, false},
        {toAlice, toBob, -1, false},     {toBob, toAlice, 1, false}, {toAlice, aliceCopy, 0, true},
        {aliceShadow, toAlice, 0, true},  // a placeholder compares like its target
    };
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const Base::PropertyValueBase& left = rows[i].left;
        const Base::PropertyValueBase& right = rows[i].right;
        EXPECT_EQ(rows[i].order < 0, left < right) << "row " << i;
        EXPECT_EQ(rows[i].order > 0, left > right) << "row " << i;
        EXPECT_EQ(rows[i].equal, left == right) << "row " << i;
        EXPECT_EQ(!rows[i].equal, rows[i].left != rows[i].right) << "row " << i;
        EXPECT_EQ(rows[i].order, left.compare(right)) << "row " << i;
    }
    const std::pair<std::string, bool> patterns[] = {
        {"Alice", true},           {"Ali", false},      {ALICE, true},
        {contactUri(ALICE), true}, {"/Phone/.*", true}, {"555", false},
        {"/Phone/contacts", false}};
    for (const auto& [pattern, matches] : patterns) {
        EXPECT_EQ(matches, toAlice.matches(Poco::RegularExpression(pattern))) << pattern;
    }
}

TEST_F(XObjectReferenceTest, ParsesJSONOrElseUriAndLogsEachFailure) {
    const std::string alice = std::string(R"({"id":")") + ALICE + R"(","name":"Alice")";
    struct Row {
        std::string text;
        bool accepted;
        Texts lines;
    };
    const std::vector<Row> rows = {
        {contactUri(ALICE), true, {NO_JSON}},
        {alice + R"(,"uri":")" + contactUri(ALICE) + "\"}", true, {}},
        {"/Phone/contacts", false,
         {NO_JSON, BAD_URI, failedFrom("URI", INVALID_URI), PARSE_FAILED}},
        {alice + "}", false, {BAD_URI, failedFrom("JSON", INVALID_URI), PARSE_FAILED}},
        {"[1]", false, {PARSE_FAILED}},
        {" " + alice + R"(,"uri":")" + contactUri(ALICE) + "\"}", true, {}},
        {"http://host" + contactUri(ALICE), true, {NO_JSON}},
        {"Phone/contacts/" + std::string(ALICE), true, {NO_JSON}},
    };
    for (const Row& row : rows) {
        XObjectReference reference;
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        EXPECT_EQ(row.accepted, reference.setValueFromString(row.text)) << row.text;
        EXPECT_EQ(row.lines, referenceLines(capture)) << row.text;
        EXPECT_EQ(!row.accepted, reference.isNull()) << row.text;
    }

    // Element URIs go to the resolver before any placeholder is made, except for resolvers that
    // only resolve placeholders: the lines, results and values are those of the placeholder's
    // way but for the lines of the placeholder's own writes, where no placeholder is needed.
    const std::string json = text(add(contacts, "Alice", ALICE)->toJSON(-1));
    Service& phone = service;
    FixedResolver answersAlice(&Kivo::Test::elementOf<Contact>(contacts, ALICE));
    // The placeholder made, copied into the reference and dropped.
    const Texts madeAndKept{NO_JSON,
                            "Trace: Property id has changed",
                            "Trace: Property name has changed",
                            "Trace: Property uri has changed",
                            "Trace: Property uri was destroyed",
                            "Trace: Property name was destroyed",
                            "Trace: Property id was destroyed"};
    // A JSON text is read into a placeholder first, resolver or not.
    const Texts fromJson(madeAndKept.begin() + 1, madeAndKept.end());
    const std::string null = "/Phone/contacts/" + Poco::UUID::null().toString();
    struct Lookup {
        std::string text;
        IReferenceResolver* resolver;
        bool accepted;
        const char* name;  // the value's; null where refused
        Texts lines;       // all, the placeholder's writes included
    };
    const std::vector<Lookup> lookups = {
        {contactUri(ALICE), &resolver, true, "Alice", {NO_JSON}},
        {contactUri(ALICE), &phone, true, "Alice", {NO_JSON}},
        {json, &resolver, true, "Alice", fromJson},
        {json, nullptr, true, "Alice", fromJson},  // its name read from the text
        {contactUri(BOB), &phone, true, UNIDENTIFIED, madeAndKept},
        {"/Phone/notes/" + ID, &phone, true, UNIDENTIFIED, madeAndKept},
        {contactUri(BOB), nullptr, true, UNIDENTIFIED, madeAndKept},
        // A resolver of placeholders only is asked with the placeholder it then keeps.
        {contactUri(BOB), &answersAlice, true, "Alice", madeAndKept},
        {null, &phone, false, nullptr,
         {NO_JSON, NULL_ID,
          failedFrom("URI", "Data error: Failed to initialise XObject from JSON object!"),
          PARSE_FAILED}},
        {"/Phone/contacts/not-a-uuid", &phone, false, nullptr,
         {NO_JSON, failedFrom("URI", "Syntax error: not-a-uuid"), PARSE_FAILED}},
    };
    for (const Lookup& row : lookups) {
        XObjectReference reference(row.resolver);
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        EXPECT_EQ(row.accepted, reference.setValueFromString(row.text)) << row.text;
        Texts lines = capture.texts();
        // Only the null id's placeholder logs its property lines.
        if (row.name == nullptr) lines = referenceLines(capture);
        EXPECT_EQ(row.lines, lines) << row.text;
        if (row.name == nullptr) {
            EXPECT_TRUE(reference.isNull()) << row.text;
            continue;
        }
        EXPECT_EQ(row.name, reference.getValue()->getName().getValue()) << row.text;
        EXPECT_EQ(row.resolver != nullptr && std::string(row.name) == "Alice",
                  reference.isResolvedReference())
            << row.text;
    }
    EXPECT_EQ(1, answersAlice.calls);
    remove(ALICE);

    class ThrowingResolver : public IReferenceResolver {
    public:
        bool resolve(XObject*, XObject*&) const override { throw std::runtime_error("boom"); }
    } throwing;
    XObjectReference reference(&throwing);
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    ASSERT_TRUE(reference.setValueFromString(contactUri(ALICE)));
    EXPECT_EQ(UNIDENTIFIED, reference.getValue()->getName().getValue()) << "the placeholder stays";
    const std::string line =
        "Error: Caught Exception while trying to resolve XObject reference: boom";
    EXPECT_EQ((Texts{line, line}), capture.texts());
}

// A write of a reference raises DataChanged when the target differs from the one before, the
// null reference included, and not when it is the same. The index files owners by target name,
// null last; with the target gone the filed values stand in as placeholders of it, in the same
// order.
TEST_F(XObjectReferenceTest, WritesRaiseForOtherTargetsAndTheIndexFilesByTarget) {
    const std::string alice = text(add(contacts, "Alice", ALICE)->toJSON(-1));
    add(contacts, "Bob", BOB);
    Note* first = add(notes, "note", "00000000-0000-0000-0000-000000000001");
    Note* second = add(notes, "note", "00000000-0000-0000-0000-000000000002");
    Note* empty = add(notes, "note", "00000000-0000-0000-0000-000000000003");
    for (Note* note : {first, second, empty}) note->about.setReferenceResolver(&resolver);
    Kivo::Test::DataChangedRecorder recorder;
    recorder.subscribe(*first);
    for (const char* id : {ALICE, ALICE, BOB}) {
        ASSERT_TRUE(first->setProperty("about", contactUri(id)).isSuccess()) << id;
    }
    ASSERT_TRUE(first->setProperty("name", "marker").isSuccess());
    EXPECT_TRUE(recorder.waitFor(3));
    recorder.unsubscribe(*first);
    std::vector<KeyCollection> keys;
    for (const auto& payload : recorder.payloads()) keys.push_back(payload.getSourcePropertyKeys());
    EXPECT_EQ((std::vector<KeyCollection>{{"about"}, {"about"}, {"name"}}), keys);
    ASSERT_TRUE(second->about.setValueFromString(contactUri(ALICE)));

    Base::PropertyIndexBasePtr index = first->about.createIndex();
    ASSERT_FALSE(index.isNull());
    for (Note* note : {empty, first, second}) ASSERT_TRUE(index->insert(&note->about));
    typedef std::vector<Base::Object*> Owners;
    EXPECT_EQ((Owners{second, first, empty}), index->get());
    EXPECT_EQ(Owners{first}, index->find(contactUri(BOB)));
    ASSERT_TRUE(first->about.setValueFromString(contactUri(ALICE)));
    EXPECT_EQ((Owners{second, first}), index->find(contactUri(ALICE))) << "a change re-files";
    EXPECT_EQ(Owners{}, index->find(contactUri(BOB)));

    remove(ALICE);
    EXPECT_FALSE(first->about.isResolvedReference());
    EXPECT_EQ((Owners{second, first, empty}), index->get());
    EXPECT_EQ((Owners{second, first}), index->find(alice));
}

// Exposes the owner-side API.
class Identified : public XObject {
public:
    Identified() : XObject(Type("Thing")) {}
    Identified(const std::string& name, const PropertyValueUuid& id)
        : XObject(Type("Thing", Type("Root")), PropertyValueString(name), id) {}
    Identified(const Type& type, const Poco::JSON::Object* json) : XObject(type, json) {}
    using XObject::initPropertyFromJSON;
    using XObject::initXObjectFromJSON;
    using XObject::setId;
    using XObject::setName;
    using XObject::setOwnPropertyValueFromString;
};

TEST(XObject, IdentityIsTheOwnersToSetAndOrdersByNameThenId) {
    Identified object("alpha", PropertyValueUuid(ID));
    std::ostringstream text;
    object.toJSON(5)->stringify(text);
    EXPECT_EQ(R"({"id":")" + ID + R"(","name":"alpha","uri":"/Root/)" + ID + R"("})", text.str());
    const Identified copy(object);
    EXPECT_EQ(object.getIdentification(), copy.getIdentification());
    EXPECT_NE(object.getLock().get(), copy.getLock().get());
    EXPECT_EQ(&copy, copy.getName().getParent());

    auto& name = const_cast<Base::PropertyString&>(object.getName());
    auto& id = const_cast<Base::PropertyUuid&>(object.getId());
    EXPECT_FALSE(name.setValueFromString("mallory"));
    EXPECT_FALSE(id.setValue(PropertyValueUuid()));
    EXPECT_FALSE(const_cast<Base::PropertyUri&>(object.getUri()).setValueFromString("/elsewhere"));
    EXPECT_TRUE(object.setOwnPropertyValueFromString("beta", name));
    EXPECT_EQ("beta", name.getValue());
    EXPECT_FALSE(name.setValueFromString("mallory")) << "owner access must not outlive the write";

    int changes = 0;
    struct Counter {
        int* changes;
        void onChanged(const void*, Base::PropertyUuid::ValueChangedEventPayload&) { ++*changes; }
    } counter{&changes};
    id.ValueChanged += Poco::delegate(&counter, &Counter::onChanged);
    const PropertyValueUuid fresh;
    EXPECT_TRUE(object.setId(fresh));
    EXPECT_TRUE(object.setId(fresh));
    EXPECT_EQ(1, changes) << "the same id twice notifies once";
    id.ValueChanged -= Poco::delegate(&counter, &Counter::onChanged);

    // Order by name, then id; equality by id alone.
    const PropertyValueUuid low(std::string("00000000-0000-1000-8000-000000000001"));
    const PropertyValueUuid high(std::string("ffffffff-0000-1000-8000-000000000001"));
    const Identified a1("a", low), a2("a", high), b1("b", low);
    EXPECT_TRUE(a1 < a2);
    EXPECT_TRUE(a2 > a1);
    EXPECT_TRUE(a2 < b1) << "the name decides before the id";
    EXPECT_FALSE(a1 < a1);
    EXPECT_TRUE(a1 == b1);
    EXPECT_TRUE(a1 != a2);
}

TEST(XObject, JsonInitialisationStopsAtTheFirstFailure) {
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    struct Row {
        std::string json;
        OperationResult::Value result;
        const char* name;  // the name once it failed
        const char* log;
    };
    const std::string id = R"({"id":")" + ID + R"(",)";
    const char* const NO_URI =
        "Error: Failed to init property uri for Thing: not found in JSON Object.";
    const Row rows[] = {
        {id + R"("name":"alpha"})", OperationResult::UNKNOWN_PROPERTY, "alpha", NO_URI},
        {id + R"("name":"alpha","uri":null})", OperationResult::UNKNOWN_PROPERTY, "alpha", NO_URI},
        {R"({"id":"not-a-uuid","name":"alpha","uri":"/a"})", OperationResult::INVALID_VALUE, "",
         "Error: Failed to init property id for Thing: invalid value"},
        {id + R"("name":"alpha","uri":"http://h:x/"})", OperationResult::INVALID_VALUE, "alpha",
         "Error: Failed to init property uri for Thing: invalid value"},
        {id + R"("name":7,"uri":"/a/b"})", OperationResult::OK, "7", nullptr},
    };
    for (const Row& row : rows) {
        capture.channel().clear();
        Identified object;
        EXPECT_EQ(row.result, object.initXObjectFromJSON(parseObject(row.json).get()).value())
            << row.json;
        EXPECT_EQ(row.name, object.getName().getValue()) << row.json;
        const std::vector<std::string> texts = capture.texts();
        EXPECT_EQ(row.log ? row.log : "", texts.empty() ? "" : texts.back()) << row.json;
    }
    capture.channel().clear();
    Identified object;
    EXPECT_EQ(OperationResult::PROCESSING_ERROR, object.initXObjectFromJSON(nullptr).value());
    EXPECT_EQ(
        std::vector<std::string>{"Error: Tried to initialise XObject properties from NULL-Pointer"},
        capture.texts());

    // An exception while applying a member passes through, logged without a separator.
    capture.channel().clear();
    struct Opaque {};
    Poco::JSON::Object json;
    json.set("id", Poco::Dynamic::Var(Opaque()));
    auto& objectId = const_cast<Base::PropertyUuid&>(object.getId());
    EXPECT_THROW(object.initPropertyFromJSON(&json, objectId), Poco::BadCastException);
    EXPECT_EQ(std::vector<std::string>{"Error: Failed to init property idBad cast exception"},
              capture.texts());

    const auto good = parseObject(R"({"id":")" + ID + R"(","name":"n","uri":"/Thing/x"})");
    EXPECT_EQ("/Thing/x",
              Identified(XObject::Type("Thing"), good.get()).getUri().getValue().toString());
    try {
        Identified failed(XObject::Type("Thing"), parseObject(R"({"name":"n"})").get());
        FAIL() << "the JSON constructor accepted an object without id";
    } catch (const Poco::DataException& error) {
        EXPECT_EQ("Failed to initialise XObject from JSON object!", error.message());
    }
}

// The first resource filed per URI counts; lookups go by the type's path and the id.
TEST(LocalReferenceResolver, FilesTheFirstResourcePerUriAndResolvesByTypePathAndId) {
    // Two services of the same name, so that their resources share URIs.
    Service first{"Phone", "first", 80, PropertyValueUuid()};
    Service second{"Phone", "second", 81, PropertyValueUuid()};
    Store contacts{first, "contacts"}, sameUri{second, "contacts"}, albums{first, "albums"};
    {
        LocalReferenceResolver resolver({&contacts, &sameUri, nullptr});
        EXPECT_EQ(LocalReferenceResolver::SourceList{&contacts}, resolver.getSources());
        // Additive: what is filed stays, and the list comes back in URI order.
        resolver.setSources({nullptr, &sameUri, &albums});
        EXPECT_EQ((LocalReferenceResolver::SourceList{&albums, &contacts}), resolver.getSources());
        // Removing the second "/Phone/contacts" removes the first.
        resolver.removeSource(nullptr);
        resolver.removeSource(&sameUri);
        EXPECT_EQ(LocalReferenceResolver::SourceList{&albums}, resolver.getSources());
    }
    Poco::JSON::Object json;
    json.set("id", ALICE);
    ASSERT_TRUE(contacts.addElement(&json).isSuccess());
    AbstractResource::Ptr alice;
    ASSERT_TRUE(contacts.getElement(Poco::UUID(ALICE), alice).isSuccess());
    LocalReferenceResolver resolver({&contacts, &albums});

    const XObject::Type contact("contactObject", XObject::Type("contacts", XObject::Type("Phone")));
    struct Row {
        const char* path;  // empty: the type's own
        const char* id;
        bool resolved;
    };
    const Row rows[] = {
        {"", ALICE, true},
        {"/Phone/contacts", ALICE, false},
        {"/phone/contacts/", ALICE, false},
        {"", BOB, false},
    };
    for (const Row& row : rows) {
        XObject::Type type = contact;
        if (*row.path != '\0') type.path = row.path;
        XObject reference(type, PropertyValueString("someone"),
                          PropertyValueUuid(std::string(row.id)));
        XObject* result = &reference;
        EXPECT_EQ(row.resolved, resolver.resolve(&reference, result)) << row.path << row.id;
        EXPECT_EQ(row.resolved ? alice.get() : nullptr, result) << row.path << row.id;
    }
    // By location: the same lookup, from an element URI.
    const std::pair<std::string, bool> locations[] = {
        {"/Phone/contacts/" + ID, true},
        {"/phone/contacts/" + ID, false},
        {"/Phone/contacts/" + std::string(BOB), false},
        {"/Phone/albums/" + ID, false},
    };
    for (const auto& [uri, resolved] : locations) {
        XObject* found = &contacts;
        EXPECT_EQ(resolved, resolver.resolveLocation(ElementLocation(uri), found)) << uri;
        EXPECT_EQ(resolved ? alice.get() : nullptr, found) << uri;
        EXPECT_FALSE(LocalReferenceResolver().resolveLocation(ElementLocation(uri), found));
    }
    XObject* result = alice.get();
    EXPECT_FALSE(resolver.resolve(nullptr, result));
    EXPECT_EQ(nullptr, result);
    result = alice.get();
    EXPECT_FALSE(LocalReferenceResolver().resolve(alice.get(), result));
    EXPECT_EQ(nullptr, result);
}

TEST(CombinedReferenceResolver, AsksResolversInOrderOfAdditionUntilOneAnswers) {
    XObject a(XObject::Type("Thing")), b(XObject::Type("Thing"));
    struct Row {
        XObject* first;
        XObject* second;
        XObject* expected;
        int secondCalls;
    };
    const Row rows[] = {{&a, &b, &a, 0}, {nullptr, &b, &b, 1}, {nullptr, nullptr, nullptr, 1}};
    for (const Row& row : rows) {
        FixedResolver first(row.first), second(row.second);
        CombinedReferenceResolver chain;
        XObject* result = &a;
        EXPECT_FALSE(chain.resolve(&a, result)) << "an empty chain";
        EXPECT_FALSE(chain.addReferenceResolver(nullptr));
        ASSERT_TRUE(chain.addReferenceResolver(&first));
        EXPECT_FALSE(chain.addReferenceResolver(&first)) << "no duplicates";
        ASSERT_TRUE(chain.addReferenceResolver(&second));
        EXPECT_EQ(row.expected != nullptr, chain.resolve(&a, result));
        EXPECT_EQ(row.expected, result);
        EXPECT_EQ(1, first.calls);
        EXPECT_EQ(row.secondCalls, second.calls);
        // By location, each resolver answers through resolve() with the location's placeholder.
        const std::string uri = "/Phone/contacts/" + ID;
        const ElementLocation location(uri);
        result = &a;
        EXPECT_EQ(row.expected != nullptr, chain.resolveLocation(location, result));
        EXPECT_EQ(row.expected, result);
        EXPECT_EQ(2, first.calls);
        EXPECT_EQ(2 * row.secondCalls, second.calls);

        EXPECT_FALSE(chain.removeReferenceResolver(nullptr));
        EXPECT_TRUE(chain.removeReferenceResolver(&first));
        EXPECT_FALSE(chain.removeReferenceResolver(&first));
        EXPECT_EQ(row.second != nullptr, chain.resolve(&a, result));
        EXPECT_EQ(2, first.calls) << "a removed resolver is not asked";
    }
}

}  // namespace
}  // namespace Kivo::Data
