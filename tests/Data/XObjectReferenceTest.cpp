#include "Data/XObjectReference.h"

#include <atomic>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <Poco/Exception.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Message.h>
#include <Poco/RegularExpression.h>
#include <Poco/UUID.h>
#include <gtest/gtest.h>

#include "Data/AbstractResource.h"
#include "Data/Element.h"
#include "Data/ReferenceResolver.h"
#include "Data/Service.h"
#include "TestChannel.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueString;
using Base::PropertyValueUuid;
using Kivo::Test::ScopedLogCapture;

const char* const ALICE = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const char* const BOB = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";

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

std::string contactUri(const char* id) { return std::string("/Phone/contacts/") + id; }

std::string text(const Poco::Dynamic::Var& json) {
    if (json.isString()) return json.extract<std::string>();
    std::ostringstream out;
    json.extract<Poco::JSON::Object::Ptr>()->stringify(out);
    return out.str();
}

// The captured lines, without the object registry's trace lines about its properties.
std::vector<std::string> referenceLines(const ScopedLogCapture& capture) {
    std::vector<std::string> lines;
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
    Contact(AbstractResource& resource, const std::string& name, const std::string& id)
        : Element("contactObject", resource, PropertyValueString(name), PropertyValueUuid(id)),
          number("number", this, PropertyValueString("555")) {
        number.registerAtOwner();
    }

    Base::PropertyString number;
};

// An element pointing at a contact; clients may write every key.
class Note : public Element {
public:
    Note(AbstractResource& resource, const std::string& id)
        : Element("noteObject", resource, PropertyValueString("note"), PropertyValueUuid(id)),
          about("about", this) {
        about.registerAtOwner();
    }

    bool isPostAllowed(const Base::PropertyKey&) const override { return true; }

    PropertyXObjectReference about;
};

// A resource whose elements are kept by shared pointer and found by id.
class ElementStore : public AbstractResource {
public:
    ElementStore(Service& service, const std::string& name)
        : AbstractResource(service, name, name, PropertyValueUuid()) {
        init();
    }
    ~ElementStore() override {
        Util::ScopedRecursiveWriteLock lock(*getLock());
        m_elements.clear();
    }

    template <class E, class... Args>
    E* add(Args&&... args) {
        Util::ScopedRecursiveWriteLock lock(*getLock());
        Poco::SharedPtr<E> element(new E(*this, std::forward<Args>(args)...));
        element->adoptPropertyLock(*this);
        m_elements[element->getIdentification()] = element;
        return element.get();
    }
    // Destroys the element under the tree's write lock.
    void remove(const char* id) {
        Util::ScopedRecursiveWriteLock lock(*getLock());
        m_elements.erase(Poco::UUID(id));
    }

    bool hasElement(const Poco::UUID& id) const override {
        Util::ScopedRecursiveReadLock lock(*getLock());
        return m_elements.count(id) != 0;
    }
    OperationResult getElement(const Poco::UUID& id, Ptr& element) const override {
        Util::ScopedRecursiveReadLock lock(*getLock());
        const auto entry = m_elements.find(id);
        if (entry == m_elements.end()) return OperationResult(OperationResult::NOT_FOUND);
        element = entry->second;
        return OperationResult(OperationResult::OK);
    }

private:
    std::map<Poco::UUID, Ptr> m_elements;
};

class ThrowingResolver : public IReferenceResolver {
public:
    bool resolve(XObject*, XObject*&) const override { throw std::runtime_error("boom"); }
};

class XObjectReferenceTest : public ::testing::Test {
protected:
    XObjectReferenceTest() { resolver.addSource(&contacts); }

    Service service{"Phone", "phone", 80, PropertyValueUuid()};
    ElementStore contacts{service, "contacts"};
    ElementStore notes{service, "notes"};
    LocalReferenceResolver resolver;
};

TEST_F(XObjectReferenceTest, PlaceholdersFromUrisCarryTypeIdAndName) {
    struct Row {
        std::string uri;
        const char* typeName;
        const char* identifier;
        const char* path;
    };
    const std::vector<Row> rows = {
        {contactUri(ALICE), "contactObject", "Phone.contacts.contactObject", "/Phone/contacts/"},
        {std::string("/Media/media/") + ALICE, "mediaObject", "Media.media.mediaObject",
         "/Media/media/"},
        {std::string("/Shop/classess/") + ALICE, "classesObject", "Shop.classess.classesObject",
         "/Shop/classess/"},
        {std::string("http://host:8080/Phone/contacts/") + ALICE, "contactObject",
         "Phone.contacts.contactObject", "/Phone/contacts/"},
    };
    for (const Row& row : rows) {
        const std::unique_ptr<DummyObject> dummy = DummyObject::createFromUri(row.uri);
        EXPECT_EQ(row.typeName, dummy->getType().name) << row.uri;
        EXPECT_EQ(row.identifier, dummy->getType().identifier) << row.uri;
        EXPECT_EQ(row.path, dummy->getType().path) << row.uri;
        EXPECT_EQ(ALICE, dummy->getIdentification().toString()) << row.uri;
        EXPECT_EQ("unidentified element", dummy->getName().getValue()) << row.uri;
        EXPECT_EQ(row.uri, dummy->getUri().getValue().toString()) << row.uri;
    }
}

TEST_F(XObjectReferenceTest, PlaceholdersRefuseUrisWithoutThreeSegments) {
    for (const std::string& uri : {std::string("/Phone/contacts"), contactUri(ALICE) + "/more",
                                   std::string("/"), std::string()}) {
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        try {
            DummyObject::createFromUri(uri);
            ADD_FAILURE() << uri << ": no exception";
        } catch (const Poco::InvalidArgumentException& error) {
            EXPECT_EQ("Invalid XObject URI", error.message()) << uri;
        }
        EXPECT_EQ(std::vector<std::string>{BAD_URI}, capture.texts()) << uri;
    }
    EXPECT_THROW(DummyObject::createFromUri("/Phone/contacts/not-a-uuid"), Poco::SyntaxException);
}

TEST_F(XObjectReferenceTest, NullReferenceHasNoValue) {
    XObjectReference reference(&resolver);
    EXPECT_TRUE(reference.isNull());
    EXPECT_FALSE(reference.isResolvedReference());
    try {
        reference.getValue();
        ADD_FAILURE() << "no exception";
    } catch (const Poco::NullPointerException& error) {
        EXPECT_EQ("Invalid XObject Reference without any value", error.message());
    }
    EXPECT_EQ("", text(reference.toJSON(3)));
    EXPECT_EQ("", reference.toString());
    EXPECT_FALSE(reference.matches(Poco::RegularExpression(".*")));
    EXPECT_FALSE(reference.setValue(nullptr));
    EXPECT_TRUE(reference.isNull());
}

TEST_F(XObjectReferenceTest, ResolvesLazilyAndFallsBackWhenTheTargetIsDestroyed) {
    Contact* again = nullptr;
    {
        XObjectReference reference(&resolver);
        {
            ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
            ASSERT_TRUE(reference.setValueFromString(contactUri(ALICE)));
            EXPECT_FALSE(reference.isResolvedReference());
            EXPECT_EQ("unidentified element", reference.getValue()->getName().getValue());
            EXPECT_EQ((std::vector<std::string>{NO_JSON, UNRESOLVED}), referenceLines(capture));
        }

        Contact* alice = contacts.add<Contact>("Alice", ALICE);
        EXPECT_FALSE(reference.isResolvedReference());
        EXPECT_EQ(alice, reference.getValue());
        EXPECT_TRUE(reference.isResolvedReference());

        contacts.remove(ALICE);
        EXPECT_FALSE(reference.isResolvedReference());
        EXPECT_FALSE(reference.isNull());
        const XObject* fallback = reference.getValue();
        EXPECT_NE(nullptr, dynamic_cast<const DummyObject*>(fallback));
        EXPECT_EQ("Alice", fallback->getName().getValue());
        EXPECT_EQ(ALICE, fallback->getIdentification().toString());
        EXPECT_EQ("Phone.contacts.contactObject", fallback->getType().identifier);

        again = contacts.add<Contact>("Alice again", ALICE);
        EXPECT_EQ(again, reference.getValue());
        EXPECT_FALSE(again->Destroyed.empty());
    }
    // The reference has left; the target outlives it without a delegate into freed memory.
    EXPECT_TRUE(again->Destroyed.empty());
}

TEST_F(XObjectReferenceTest, SetValueFromStringResolvesWhenItCan) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    struct Row {
        const char* name;
        std::string text;
        IReferenceResolver* resolver;
        bool resolved;
        const char* targetName;
    };
    const std::vector<Row> rows = {
        {"URI, resolvable", contactUri(ALICE), &resolver, true, "Alice"},
        {"JSON, resolvable", text(alice->toJSON(-1)), &resolver, true, "Alice"},
        {"URI, no resolver", contactUri(ALICE), nullptr, false, "unidentified element"},
        {"JSON, no resolver", text(alice->toJSON(-1)), nullptr, false, "Alice"},
        {"URI, unknown id", contactUri(BOB), &resolver, false, "unidentified element"},
    };
    for (const Row& row : rows) {
        XObjectReference reference(row.resolver);
        ASSERT_TRUE(reference.setValueFromString(row.text)) << row.name;
        EXPECT_EQ(row.resolved, reference.isResolvedReference()) << row.name;
        EXPECT_EQ(row.targetName, reference.getValue()->getName().getValue()) << row.name;
    }
}

TEST_F(XObjectReferenceTest, CopiesFollowTheTargetOnTheirOwn) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    Contact* bob = contacts.add<Contact>("Bob", BOB);
    XObjectReference original(&resolver);
    ASSERT_TRUE(original.setValue(alice));

    XObjectReference copy(original);
    XObjectReference assigned;
    ASSERT_TRUE(assigned.setValue(bob));
    assigned = original;
    const XObjectReference& same = assigned;
    assigned = same;  // self-assignment, as it comes about through an alias
    EXPECT_TRUE(bob->Destroyed.empty()) << "assignment must leave the old target";

    XObjectReference placeholder;
    ASSERT_TRUE(placeholder.setValueFromString(contactUri(BOB)));
    XObjectReference placeholderCopy(placeholder);
    EXPECT_NE(placeholder.getValue(), placeholderCopy.getValue()) << "placeholders are copied";

    contacts.remove(ALICE);
    for (const XObjectReference* reference : {&original, &copy, &assigned}) {
        EXPECT_FALSE(reference->isResolvedReference());
        EXPECT_EQ("Alice", reference->getValue()->getName().getValue());
    }
    // Resolvers travel with copies: a new Alice is found by each.
    Contact* again = contacts.add<Contact>("Alice", ALICE);
    EXPECT_EQ(again, copy.getValue());
    EXPECT_EQ(again, assigned.getValue());
}

TEST_F(XObjectReferenceTest, DestroyedHandlerChecksItsTarget) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    Contact* bob = contacts.add<Contact>("Bob", BOB);
    XObjectReference reference;

    std::string message = bugcheckMessage([&] { reference.onReferenceDestroyed(nullptr, *alice); });
    EXPECT_NE(std::string::npos,
              message.find("invalid reference - received event but holds no resolved reference"))
        << message;
    EXPECT_NE(std::string::npos, message.find("src/Data/XObjectReference.cpp")) << message;

    ASSERT_TRUE(reference.setValue(alice));
    message = bugcheckMessage([&] { reference.onReferenceDestroyed(nullptr, *bob); });
    EXPECT_NE(std::string::npos,
              message.find("invalid reference - received event from wrong xobject"))
        << message;
    EXPECT_EQ(alice, reference.getValue());
    EXPECT_TRUE(reference.isResolvedReference());
}

TEST_F(XObjectReferenceTest, AllowedTypesRestrictTargets) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    Note* note = notes.add<Note>(BOB);
    const std::unique_ptr<DummyObject> placeholder = DummyObject::createFromUri(contactUri(BOB));
    const std::string contact = "Phone.contacts.contactObject";
    struct Row {
        const char* name;
        XObjectReference::OneOf allowed;
        XObject* target;
        bool accepted;
    };
    const std::vector<Row> rows = {
        {"any type", {}, note, true},
        {"listed type", {contact}, alice, true},
        {"unlisted type", {contact}, note, false},
        {"type name is no identifier", {"contactObject"}, alice, false},
        {"placeholder of a listed type", {contact}, placeholder.get(), true},
    };
    for (const Row& row : rows) {
        XObjectReference reference(&resolver, row.allowed);
        EXPECT_EQ(row.accepted, reference.setValue(row.target)) << row.name;
        EXPECT_EQ(!row.accepted, reference.isNull()) << row.name;
    }

    XObjectReference narrowed;
    narrowed.addAllowedType("Phone.notes.noteObject");
    EXPECT_FALSE(narrowed.setValue(alice));
    EXPECT_FALSE(narrowed.isValidStringValue(contactUri(ALICE)));
}

TEST_F(XObjectReferenceTest, SetAllowedTypesKeepsTheCurrentTargetAllowed) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    Note* note = notes.add<Note>(BOB);
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
}

TEST_F(XObjectReferenceTest, OrdersNullsLastAndPlaceholdersLikeTheirTargets) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    Contact* bob = contacts.add<Contact>("Bob", BOB);
    XObjectReference none;
    XObjectReference toAlice;
    XObjectReference toBob;
    XObjectReference aliceCopy;
    XObjectReference aliceShadow;
    toAlice.setValue(alice);
    toBob.setValue(bob);
    aliceCopy.setValue(alice);
    DummyObject shadow(*alice);
    aliceShadow.setValue(&shadow);

    struct Row {
        const char* name;
        const XObjectReference& left;
        const XObjectReference& right;
        bool less;
        bool greater;
        bool equal;
        int compare;
    };
    const std::vector<Row> rows = {
        {"null, null", none, none, false, false, true, 0},
        {"null, Alice", none, toAlice, false, true, false, 1},
        {"Alice, null", toAlice, none, true, false, false, -1},
        {"Alice, Bob", toAlice, toBob, true, false, false, -1},
        {"Bob, Alice", toBob, toAlice, false, true, false, 1},
        {"Alice, Alice elsewhere", toAlice, aliceCopy, false, false, true, 0},
        {"placeholder, Alice", aliceShadow, toAlice, false, false, true, 0},
    };
    for (const Row& row : rows) {
        const Base::PropertyValueBase& left = row.left;
        const Base::PropertyValueBase& right = row.right;
        EXPECT_EQ(row.less, left < right) << row.name;
        EXPECT_EQ(row.greater, left > right) << row.name;
        EXPECT_EQ(row.equal, left == right) << row.name;
        EXPECT_EQ(!row.equal, row.left != row.right) << row.name;
        EXPECT_EQ(row.compare, left.compare(right)) << row.name;
    }
}

TEST_F(XObjectReferenceTest, MatchesNameIdOrUri) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    XObjectReference reference;
    ASSERT_TRUE(reference.setValue(alice));
    struct Row {
        std::string pattern;
        bool matches;
    };
    const std::vector<Row> rows = {
        {"Alice", true},     {"Ali", false}, {ALICE, true},  {contactUri(ALICE), true},
        {"/Phone/.*", true}, {"555", false}, {"Bob", false}, {"/Phone/contacts", false},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.matches, reference.matches(Poco::RegularExpression(row.pattern)))
            << row.pattern;
    }
}

TEST_F(XObjectReferenceTest, WritesTheTargetOneLevelDown) {
    Contact* alice = contacts.add<Contact>("Alice", ALICE);
    XObjectReference reference;
    ASSERT_TRUE(reference.setValue(alice));
    const std::string compact = text(alice->toJSON(-1));
    EXPECT_EQ(compact, text(reference.toJSON(0)));
    EXPECT_EQ(compact, text(reference.getGenericValue()));
    EXPECT_EQ(text(alice->toJSON(0)), text(reference.toJSON(1)));
    EXPECT_NE(std::string::npos, text(reference.toJSON(1)).find("\"number\""));

    // A placeholder writes its own id, name and URI; they read back into a like placeholder.
    XObjectReference placeholder;
    ASSERT_TRUE(placeholder.setValueFromString(contactUri(BOB)));
    XObjectReference readBack;
    ASSERT_TRUE(readBack.setValueFromString(placeholder.toString()));
    EXPECT_TRUE(readBack == placeholder);
    EXPECT_EQ(contactUri(BOB), readBack.getValue()->getUri().getValue().toString());

    XObjectReference resolved(&resolver);
    ASSERT_TRUE(resolved.setValueFromString(reference.toString()));
    EXPECT_EQ(alice, resolved.getValue());
}

TEST_F(XObjectReferenceTest, ParsesJSONOrElseUriAndLogsEachFailure) {
    const std::string missingUri = std::string(R"({"id":")") + ALICE + R"(","name":"Alice"})";
    struct Row {
        const char* name;
        std::string text;
        bool accepted;
        std::vector<std::string> lines;
    };
    const std::vector<Row> rows = {
        {"element URI", contactUri(ALICE), true, {NO_JSON}},
        {"element JSON",
         std::string(R"({"id":")") + ALICE + R"(","name":"Alice","uri":")" + contactUri(ALICE) +
             "\"}",
         true,
         {}},
        {"two segments",
         "/Phone/contacts",
         false,
         {NO_JSON, BAD_URI,
          "Trace: Failed to create XObject Reference from URI: Invalid argument: Invalid XObject "
          "URI",
          PARSE_FAILED}},
        {"JSON without uri",
         missingUri,
         false,
         {BAD_URI,
          "Trace: Failed to create XObject Reference from JSON: Invalid argument: Invalid "
          "XObject URI",
          PARSE_FAILED}},
        {"JSON that is no object", "[1]", false, {PARSE_FAILED}},
    };
    for (const Row& row : rows) {
        XObjectReference reference;
        ScopedLogCapture capture(Poco::Message::PRIO_TRACE);
        EXPECT_EQ(row.accepted, reference.setValueFromString(row.text)) << row.name;
        EXPECT_EQ(row.lines, referenceLines(capture)) << row.name;
        EXPECT_EQ(!row.accepted, reference.isNull()) << row.name;
    }
}

TEST_F(XObjectReferenceTest, ResolverExceptionsAreLoggedAndThePlaceholderStays) {
    ThrowingResolver throwing;
    XObjectReference reference(&throwing);
    ScopedLogCapture capture(Poco::Message::PRIO_ERROR);
    ASSERT_TRUE(reference.setValueFromString(contactUri(ALICE)));
    EXPECT_EQ("unidentified element", reference.getValue()->getName().getValue());
    const std::string line =
        "Error: Caught Exception while trying to resolve XObject reference: boom";
    EXPECT_EQ((std::vector<std::string>{line, line}), capture.texts());
}

TEST_F(XObjectReferenceTest, IndexFilesOwnersByTarget) {
    const std::string alice = text(contacts.add<Contact>("Alice", ALICE)->toJSON(-1));
    contacts.add<Contact>("Bob", BOB);
    Note* first = notes.add<Note>("00000000-0000-0000-0000-000000000001");
    Note* second = notes.add<Note>("00000000-0000-0000-0000-000000000002");
    Note* empty = notes.add<Note>("00000000-0000-0000-0000-000000000003");
    for (Note* note : {first, second, empty}) note->about.setReferenceResolver(&resolver);
    ASSERT_TRUE(first->about.setValueFromString(contactUri(BOB)));
    ASSERT_TRUE(second->about.setValueFromString(contactUri(ALICE)));
    EXPECT_TRUE(first->about.isResolvedReference());
    EXPECT_TRUE(empty->about.isNull());

    Base::PropertyIndexBasePtr index = first->about.createIndex();
    ASSERT_FALSE(index.isNull());
    for (Note* note : {empty, first, second}) ASSERT_TRUE(index->insert(&note->about));
    typedef std::vector<Base::Object*> Owners;
    EXPECT_EQ((Owners{second, first, empty}), index->get()) << "by target name, null last";
    EXPECT_EQ(Owners{first}, index->find(contactUri(BOB)));

    // A change through the property re-files its owner.
    ASSERT_TRUE(first->about.setValueFromString(contactUri(ALICE)));
    EXPECT_EQ((Owners{second, first}), index->find(contactUri(ALICE)));
    EXPECT_EQ(Owners{}, index->find(contactUri(BOB)));

    // With the target gone the filed values stand in as placeholders of it, in the same order.
    contacts.remove(ALICE);
    EXPECT_FALSE(first->about.isResolvedReference());
    EXPECT_EQ((Owners{second, first, empty}), index->get());
    EXPECT_EQ((Owners{second, first}), index->find(alice));
}

TEST_F(XObjectReferenceTest, ReadersUnderTheTreeLockSurviveTargetsComingAndGoing) {
    contacts.add<Contact>("Alice", ALICE);
    XObjectReference reference(&resolver);
    ASSERT_TRUE(reference.setValueFromString(contactUri(ALICE)));
    std::atomic<bool> done{false};
    std::atomic<int> wrongIds{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            while (!done) {
                Util::ScopedRecursiveReadLock lock(*service.getLock());
                if (reference.getValue()->getIdentification().toString() != ALICE) ++wrongIds;
                text(reference.toJSON(0));
            }
        });
    }
    for (int round = 0; round < 200; ++round) {
        contacts.remove(ALICE);
        contacts.add<Contact>("Alice", ALICE);
    }
    done = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(0, wrongIds);
}

}  // namespace
}  // namespace Kivo::Data
