#ifndef QESSERVICEDATALIB_TESTS_DATA_ELEMENTFIXTURE_H
#define QESSERVICEDATALIB_TESTS_DATA_ELEMENTFIXTURE_H

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/JSON/Parser.h>
#include <Poco/JSON/Stringifier.h>

#include "Data/AbstractResource.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/Element.h"
#include "Data/ElementContainer.h"
#include "Data/OptionalProperty.h"
#include "Data/Service.h"

namespace Kivo::Test {

using Data::Base::PropertyValueNumberBase;
using Data::Base::PropertyValueString;
using Data::Base::PropertyValueUuid;

// The JSON value `text` holds.
inline Poco::Dynamic::Var parseValue(const std::string& text) {
    return Poco::JSON::Parser().parse(text);
}

// The JSON object `text` holds; throws if it holds anything else.
inline Poco::JSON::Object::Ptr parseObject(const std::string& text) {
    return parseValue(text).extract<Poco::JSON::Object::Ptr>();
}

// The compact JSON text of `json` (an object or array pointer, or a plain value).
inline std::string jsonText(const Poco::Dynamic::Var& json) {
    std::ostringstream out;
    Poco::JSON::Stringifier::stringify(json, out);
    return out.str();
}

// A valid UUID text that ends in the decimal digits of `n`.
inline std::string uuidOf(int n) {
    char text[40];
    std::snprintf(text, sizeof text, "00000000-0000-4000-8000-%012d", n);
    return text;
}

// The query for the elements whose `key` holds `text` ('%' matches any text).
inline Data::Base::IndexGenericValueQuery keyQuery(const std::string& key,
                                                   const std::string& text) {
    Data::Base::IndexGenericValueQuery query;
    query.key = key;
    query.values = {text};
    return query;
}

// Registers each property at its owner, as an element's constructor does for its members.
template <class... P>
void registerAtOwner(P&... properties) {
    (properties.registerAtOwner(), ...);
}

// The element of kind E that `resource` holds under `id`; the resource keeps it alive.
template <class E>
E& elementOf(const Data::AbstractResource& resource, const std::string& id) {
    Data::AbstractResource::Ptr element;
    resource.getElement(Poco::UUID(id), element);
    return static_cast<E&>(*element);
}

// A resource with a fixed name that registers itself at its service.
class TestResource : public Data::AbstractResource {
public:
    TestResource(Data::Service& service, const std::string& name)
        : AbstractResource(service, name, name, PropertyValueUuid()) {
        init();
    }
};

// A container of elements of kind E under `name`, which it also takes as its type name.
template <class E>
class TestContainer : public Data::ElementContainer<E> {
public:
    TestContainer(Data::Service& service, const std::string& name)
        : Data::ElementContainer<E>(service, name, name, PropertyValueUuid()) {
        this->init();
    }
    // Elements go before the container's own members, so no delivery reaches a half-destroyed
    // container.
    ~TestContainer() override { this->clear(); }
};

// An element with plain, array and optional properties. Clients may write the keys in
// `writable` (all but "readonly" by default).
//   count: integer 0..100; title: text; readonly: text; tags: string array;
//   note: optional text; level: optional integer 1..5.
class TestElement : public Data::Element {
public:
    explicit TestElement(Data::AbstractResource& resource)
        : Element("Item", resource),
          count("count", this, PropertyValueNumberBase<long>(0, 0, 100, {})),
          title("title", this, PropertyValueString("untitled")),
          readonly("readonly", this, PropertyValueString("fixed")),
          tags("tags", this,
               Data::Base::PropertyValueArray<PropertyValueString>(PropertyValueString(""))),
          note("note", *this),
          level("level", *this, PropertyValueNumberBase<long>(1, 1, 5, {})) {
        registerAtOwner(count, title, readonly, tags);
    }

    bool isPostAllowed(const Data::Base::PropertyKey& key) const override {
        return writable.count(key) != 0;
    }

    using Element::initElementFromJSON;
    using Element::registerProperty;

    std::set<std::string> writable{"count", "title", "tags", "note", "level"};
    Data::Base::PropertyInteger count;
    Data::Base::PropertyString title;
    Data::Base::PropertyString readonly;
    Data::Base::PropertyStringArray tags;
    Data::OptionalProperty<PropertyValueString> note;
    Data::OptionalProperty<PropertyValueNumberBase<long>> level;
};

// A service with one resource, the usual parent of test elements.
struct ElementTree {
    Data::Service service{"Media", "test service", 8080, PropertyValueUuid()};
    TestResource resource{service, "Tracks"};
};

// Collects values from any thread and waits for them with a bounded timeout.
template <class T>
class Collector {
public:
    void add(const T& value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_values.push_back(value);
        m_arrived.notify_all();
    }

    // True once at least `count` values arrived, false after the timeout.
    bool waitFor(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        return waitUntil([count](const std::vector<T>& all) { return all.size() >= count; },
                         timeout);
    }

    // True once `done` holds for the values so far, false after the timeout.
    template <typename Predicate>
    bool waitUntil(Predicate done, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_arrived.wait_for(lock, timeout, [&] { return done(m_values); });
    }

    std::vector<T> values() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<T> m_values;  // guarded by m_mutex
};

// Collects the DataChanged deliveries of the elements it subscribes to.
class DataChangedRecorder
    : public Collector<Data::IElementDataChangedSource::DataChangedEventPayload> {
public:
    typedef Data::IElementDataChangedSource::DataChangedEventPayload Payload;

    void subscribe(Data::Element& element) {
        element.DataChanged += Poco::delegate(this, &DataChangedRecorder::onDataChanged);
    }
    void unsubscribe(Data::Element& element) {
        element.DataChanged -= Poco::delegate(this, &DataChangedRecorder::onDataChanged);
    }
    void onDataChanged(const void*, Payload& payload) { add(payload); }
    std::vector<Payload> payloads() const { return values(); }
};

}  // namespace Kivo::Test

#endif  // QESSERVICEDATALIB_TESTS_DATA_ELEMENTFIXTURE_H
