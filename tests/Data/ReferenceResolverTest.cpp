#include "Data/ReferenceResolver.h"

#include <string>
#include <vector>

#include <Poco/UUID.h>
#include <gtest/gtest.h>

#include "Data/ElementFixture.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueString;
using Base::PropertyValueUuid;
typedef Kivo::Test::TestContainer<Kivo::Test::TestElement> Store;

const char* const ALICE = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const char* const NOBODY = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";

// Two services of the same name, so that their resources share URIs.
struct TwoPhones {
    Service first{"Phone", "first", 80, PropertyValueUuid()};
    Service second{"Phone", "second", 81, PropertyValueUuid()};
    Store contacts{first, "contacts"};
    Store sameUri{second, "contacts"};
    Store albums{first, "albums"};
};

TEST(LocalReferenceResolver, FilesTheFirstResourcePerUriAndRemovesByUri) {
    TwoPhones phones;
    LocalReferenceResolver resolver({&phones.contacts, &phones.sameUri, nullptr});
    EXPECT_EQ(LocalReferenceResolver::SourceList{&phones.contacts}, resolver.getSources());
    // Additive: what is filed stays, and the list comes back in URI order.
    resolver.setSources({nullptr, &phones.sameUri, &phones.albums});
    EXPECT_EQ((LocalReferenceResolver::SourceList{&phones.albums, &phones.contacts}),
              resolver.getSources());
    // Removing the second "/Phone/contacts" removes the first.
    resolver.removeSource(nullptr);
    resolver.removeSource(&phones.sameUri);
    EXPECT_EQ(LocalReferenceResolver::SourceList{&phones.albums}, resolver.getSources());
}

TEST(LocalReferenceResolver, ResolvesByTypePathAndId) {
    TwoPhones phones;
    Poco::JSON::Object json;
    json.set("id", ALICE);
    ASSERT_TRUE(phones.contacts.addElement(&json).isSuccess());
    AbstractResource::Ptr alice;
    ASSERT_TRUE(phones.contacts.getElement(Poco::UUID(ALICE), alice).isSuccess());
    LocalReferenceResolver resolver({&phones.contacts, &phones.albums});

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
        {"", NOBODY, false},
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
    XObject* result = alice.get();
    EXPECT_FALSE(resolver.resolve(nullptr, result));
    EXPECT_EQ(nullptr, result);
    result = alice.get();
    EXPECT_FALSE(LocalReferenceResolver().resolve(alice.get(), result));
    EXPECT_EQ(nullptr, result);
}

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

        EXPECT_FALSE(chain.removeReferenceResolver(nullptr));
        EXPECT_TRUE(chain.removeReferenceResolver(&first));
        EXPECT_FALSE(chain.removeReferenceResolver(&first));
        EXPECT_EQ(row.second != nullptr, chain.resolve(&a, result));
        EXPECT_EQ(1, first.calls) << "a removed resolver is not asked";
    }
}

}  // namespace
}  // namespace Kivo::Data
