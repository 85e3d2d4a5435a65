#include "Data/ReferenceResolver.h"

#include <map>
#include <string>
#include <vector>

#include <Poco/UUID.h>
#include <gtest/gtest.h>

#include "Data/AbstractResource.h"
#include "Data/Element.h"
#include "Data/Service.h"

namespace Kivo::Data {
namespace {

using Base::PropertyValueString;
using Base::PropertyValueUuid;

const char* const ALICE = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
const char* const NOBODY = "6ba7b811-9dad-11d1-80b4-00c04fd430c8";

class Contact : public Element {
public:
    Contact(AbstractResource& resource, const std::string& name, const std::string& id)
        : Element("contactObject", resource, PropertyValueString(name), PropertyValueUuid(id)) {}
};

// A resource whose elements are kept by shared pointer and found by id.
class ContactStore : public AbstractResource {
public:
    ContactStore(Service& service, const std::string& name)
        : AbstractResource(service, name, name, PropertyValueUuid()) {
        init();
    }
    ~ContactStore() override {
        Util::ScopedRecursiveWriteLock lock(*getLock());
        m_elements.clear();
    }

    Element* add(const std::string& name, const std::string& id) {
        Ptr element(new Contact(*this, name, id));
        element->adoptPropertyLock(*this);
        m_elements[element->getIdentification()] = element;
        return element.get();
    }

    bool hasElement(const Poco::UUID& id) const override { return m_elements.count(id) != 0; }
    OperationResult getElement(const Poco::UUID& id, Ptr& element) const override {
        const auto entry = m_elements.find(id);
        if (entry == m_elements.end()) return OperationResult(OperationResult::NOT_FOUND);
        element = entry->second;
        return OperationResult(OperationResult::OK);
    }

private:
    std::map<Poco::UUID, Ptr> m_elements;
};

// Two services of the same name, so that their resources share URIs.
struct TwoPhones {
    Service first{"Phone", "first", 80, PropertyValueUuid()};
    Service second{"Phone", "second", 81, PropertyValueUuid()};
    ContactStore contacts{first, "contacts"};
    ContactStore sameUri{second, "contacts"};
    ContactStore albums{first, "albums"};
};

TEST(LocalReferenceResolver, FilesTheFirstResourcePerUriAndRemovesByKey) {
    TwoPhones phones;
    LocalReferenceResolver resolver({&phones.contacts, &phones.sameUri, nullptr});
    EXPECT_EQ(LocalReferenceResolver::SourceList{&phones.contacts}, resolver.getSources());

    // Additive: what is filed stays, and the list comes back in key order.
    resolver.setSources({nullptr, &phones.sameUri, &phones.albums});
    EXPECT_EQ((LocalReferenceResolver::SourceList{&phones.albums, &phones.contacts}),
              resolver.getSources());

    // The key is the URI: removing the second "/Phone/contacts" removes the first.
    resolver.removeSource(nullptr);
    resolver.removeSource(&phones.sameUri);
    EXPECT_EQ(LocalReferenceResolver::SourceList{&phones.albums}, resolver.getSources());
}

TEST(LocalReferenceResolver, ResolvesByTypePathAndId) {
    TwoPhones phones;
    Element* alice = phones.contacts.add("Alice", ALICE);
    LocalReferenceResolver resolver({&phones.contacts, &phones.albums});

    XObject::Type contactType("contactObject", XObject::Type("contacts", XObject::Type("Phone")));
    XObject::Type withoutSlash = contactType;
    withoutSlash.path = "/Phone/contacts";
    XObject::Type otherCase = contactType;
    otherCase.path = "/phone/contacts/";

    struct Row {
        const char* name;
        XObject::Type type;
        const char* id;
        XObject* expected;
    };
    const std::vector<Row> rows = {
        {"matching path and id", contactType, ALICE, alice},
        {"path without trailing slash", withoutSlash, ALICE, nullptr},
        {"path in other case", otherCase, ALICE, nullptr},
        {"unknown id", contactType, NOBODY, nullptr},
    };
    for (const Row& row : rows) {
        XObject reference(row.type, PropertyValueString("someone"),
                          PropertyValueUuid(std::string(row.id)));
        XObject* result = &reference;
        EXPECT_EQ(row.expected != nullptr, resolver.resolve(&reference, result)) << row.name;
        EXPECT_EQ(row.expected, result) << row.name;
    }

    XObject* result = alice;
    EXPECT_FALSE(resolver.resolve(nullptr, result));
    EXPECT_EQ(nullptr, result);
    result = alice;
    EXPECT_FALSE(LocalReferenceResolver().resolve(alice, result));
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

TEST(CombinedReferenceResolver, AsksResolversInOrderOfAddition) {
    XObject a(XObject::Type("Thing"));
    XObject b(XObject::Type("Thing"));
    struct Row {
        const char* name;
        XObject* first;
        XObject* second;
        XObject* expected;
        int secondCalls;
    };
    const std::vector<Row> rows = {
        {"first resolves", &a, &b, &a, 0},
        {"first fails", nullptr, &b, &b, 1},
        {"both fail", nullptr, nullptr, nullptr, 1},
    };
    for (const Row& row : rows) {
        FixedResolver first(row.first);
        FixedResolver second(row.second);
        CombinedReferenceResolver chain;
        ASSERT_TRUE(chain.addReferenceResolver(&first)) << row.name;
        ASSERT_TRUE(chain.addReferenceResolver(&second)) << row.name;
        XObject* result = &a;
        EXPECT_EQ(row.expected != nullptr, chain.resolve(&a, result)) << row.name;
        EXPECT_EQ(row.expected, result) << row.name;
        EXPECT_EQ(1, first.calls) << row.name;
        EXPECT_EQ(row.secondCalls, second.calls) << row.name;
    }
}

TEST(CombinedReferenceResolver, RefusesNullAndDuplicatesAndRemovesByPointer) {
    XObject a(XObject::Type("Thing"));
    FixedResolver first(&a);
    FixedResolver second(nullptr);
    CombinedReferenceResolver chain;
    XObject* result = nullptr;
    EXPECT_FALSE(chain.resolve(&a, result));
    EXPECT_FALSE(chain.addReferenceResolver(nullptr));
    EXPECT_TRUE(chain.addReferenceResolver(&first));
    EXPECT_FALSE(chain.addReferenceResolver(&first));
    EXPECT_TRUE(chain.addReferenceResolver(&second));

    EXPECT_FALSE(chain.removeReferenceResolver(nullptr));
    EXPECT_TRUE(chain.removeReferenceResolver(&first));
    EXPECT_FALSE(chain.removeReferenceResolver(&first));
    EXPECT_FALSE(chain.resolve(&a, result));
    EXPECT_EQ(0, first.calls);
    EXPECT_EQ(1, second.calls);
}

}  // namespace
}  // namespace Kivo::Data
