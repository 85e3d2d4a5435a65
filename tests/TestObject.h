#ifndef QESSERVICEDATALIB_TESTS_TESTOBJECT_H
#define QESSERVICEDATALIB_TESTS_TESTOBJECT_H

#include <set>
#include <string>
#include <vector>

#include <Poco/UUID.h>

#include "Data/Base/Object.h"
#include "Data/Base/PropertyBase.h"

namespace Kivo::Test {

// A concrete Object for tests: write access is granted per key (all keys by default), and
// every hook call is recorded.
class TestObject : public Data::Base::Object {
public:
    explicit TestObject(const std::string& typeName = "Test")
        : TestObject(typeName, Kivo::RecursiveRWLockPtr(new Util::RecursiveRWLock)) {}
    TestObject(const std::string& typeName, const Kivo::RecursiveRWLockPtr& lock)
        : Object(Type(typeName), lock) {}
    TestObject(const TestObject& other, const Kivo::RecursiveRWLockPtr& lock)
        : Object(other, lock) {}
    ~TestObject() override { unregisterAllProperties(); }

    Poco::UUID getIdentification() const override { return Poco::UUID::null(); }

    void denyWrite(const std::string& key) { m_denied.insert(key); }
    using Object::findKnownKey;
    using Object::findKnownProperty;
    using Object::unregisterAllProperties;

    // (event, key) of every onPropertyUpdate / onPropertyDestroyed call, in order.
    std::vector<std::pair<Data::Base::PropertyEventPayload::Event, std::string>> events;
    std::vector<std::string> registered;
    std::vector<std::string> unregistered;

protected:
    bool checkWriteAccess(const Data::Base::PropertyKey& key) const override {
        return m_denied.count(key) == 0;
    }
    void onPropertyUpdate(const Data::Base::PropertyEventPayload& payload) override {
        events.emplace_back(payload.getEvent(), payload.getSourceProperty()->getKey());
    }
    void onPropertyDestroyed(const Data::Base::PropertyEventPayload& payload) override {
        events.emplace_back(payload.getEvent(), payload.getSourceProperty()->getKey());
    }
    void onRegisterProperty(const Data::Base::PropertyKey& key,
                            Data::Base::PropertyBase*) override {
        registered.push_back(key);
    }
    void onUnregisterProperty(const Data::Base::PropertyKey& key,
                              Data::Base::PropertyBase*) override {
        unregistered.push_back(key);
    }

private:
    std::set<std::string> m_denied;
};

}  // namespace Kivo::Test

#endif  // QESSERVICEDATALIB_TESTS_TESTOBJECT_H
