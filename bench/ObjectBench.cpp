#include <memory>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <benchmark/benchmark.h>

#include "Data/Base/Object.h"
#include "Data/Base/Property.h"

namespace {

using namespace Kivo::Data::Base;
typedef PropertyValueNumberBase<long> Number;

class BenchObject : public Object {
public:
    BenchObject() : Object(Type("Bench"), Kivo::RecursiveRWLockPtr(new Kivo::Util::RecursiveRWLock)) {}
    ~BenchObject() override { unregisterAllProperties(); }
    Poco::UUID getIdentification() const override { return Poco::UUID::null(); }

protected:
    bool checkWriteAccess(const PropertyKey&) const override { return true; }
};

struct Subscriber {
    long calls = 0;
    void onValueChanged(const void*, PropertyInteger::ValueChangedEventPayload&) { ++calls; }
};

// One registered property, one ValueChanged subscriber: the cost of a client write.
void BM_PropertySetValueWithSubscriber(benchmark::State& state) {
    BenchObject owner;
    PropertyInteger property("value", &owner, Number());
    owner.registerProperty("value", &property);
    Subscriber subscriber;
    property.ValueChanged += Poco::delegate(&subscriber, &Subscriber::onValueChanged);
    long next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(property.setValue(++next));
    }
    property.ValueChanged -= Poco::delegate(&subscriber, &Subscriber::onValueChanged);
    state.counters["events"] = static_cast<double>(subscriber.calls);
}
BENCHMARK(BM_PropertySetValueWithSubscriber);

// Ten integer and boolean properties rendered to a JSON object.
void BM_ObjectToJSONTenProperties(benchmark::State& state) {
    BenchObject owner;
    std::vector<std::unique_ptr<PropertyBase>> properties;
    for (int i = 0; i < 10; ++i) {
        const std::string key = "property" + std::to_string(i);
        if (i % 2 == 0) {
            properties.emplace_back(new PropertyInteger(key, &owner, Number(i * 1000, {}, {}, {})));
        } else {
            properties.emplace_back(new PropertyBoolean(key, &owner, PropertyValueBoolean(true)));
        }
        owner.registerProperty(key, properties.back().get());
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(owner.toJSON(0));
    }
}
BENCHMARK(BM_ObjectToJSONTenProperties);

}  // namespace
