#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <Poco/Delegate.h>
#include <Poco/JSON/Object.h>
#include <benchmark/benchmark.h>

#include "Data/AbstractResource.h"
#include "Data/Element.h"
#include "Data/Service.h"

#include "DeliveryCounter.h"

namespace {

using namespace Kivo::Data;
using Base::PropertyValueString;
using Base::PropertyValueUuid;

class BenchResource : public AbstractResource {
public:
    explicit BenchResource(Service& service)
        : AbstractResource(service, "Items", "Items", PropertyValueUuid()) {
        init();
    }
};

// An element with seven writable text properties p0..p6 besides id, name and uri.
class BenchElement : public Element {
public:
    static constexpr int TEXTS = 7;

    explicit BenchElement(AbstractResource& resource) : Element("Item", resource) {
        for (int i = 0; i < TEXTS; ++i) {
            m_texts.emplace_back(new Base::PropertyString("p" + std::to_string(i), this,
                                                          PropertyValueString("value")));
            m_texts.back()->registerAtOwner();
        }
    }
    ~BenchElement() override { unregisterAllProperties(); }

    bool isPostAllowed(const Base::PropertyKey&) const override { return true; }

private:
    std::vector<std::unique_ptr<Base::PropertyString>> m_texts;
};

struct Tree {
    Service service{"Bench", "benchmark service", 1, PropertyValueUuid()};
    BenchResource resource{service};
    BenchElement element{resource};
};

typedef Kivo::Bench::DeliveryCounter Counter;

// A client write of one text property, with one DataChanged subscriber.
void BM_ElementSetPropertyString(benchmark::State& state) {
    Tree tree;
    Counter counter;
    tree.element.DataChanged += Poco::delegate(&counter, &Counter::onDataChanged);
    long writes = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tree.element.setProperty("p0", writes % 2 ? "a" : "b"));
        ++writes;
    }
    counter.waitFor(writes);
    tree.element.DataChanged -= Poco::delegate(&counter, &Counter::onDataChanged);
    state.counters["events"] = static_cast<double>(counter.count());
}
BENCHMARK(BM_ElementSetPropertyString);

// An update naming all ten keys (id, name and uri unchanged) of which three change: p0, p1
// and p2 flip between two texts.
void BM_ElementUpdateByJSONThreeOfTen(benchmark::State& state) {
    Tree tree;
    Poco::JSON::Object::Ptr updates[2];
    for (int u = 0; u < 2; ++u) {
        updates[u] = tree.element.toJSON(0);
        for (int i = 0; i < 3; ++i) updates[u]->set("p" + std::to_string(i), u ? "x" : "y");
    }
    long next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tree.element.updateByJSON(updates[next++ % 2].get()));
    }
}
BENCHMARK(BM_ElementUpdateByJSONThreeOfTen);

// Ten properties (id, name, uri and seven texts) rendered to JSON.
void BM_ElementToJSONTenProperties(benchmark::State& state) {
    Tree tree;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tree.element.toJSON(0));
    }
}
BENCHMARK(BM_ElementToJSONTenProperties);

// From a client write until its DataChanged subscriber runs on a pool thread.
void BM_DataChangedLatency(benchmark::State& state) {
    Tree tree;
    Counter counter;
    tree.element.DataChanged += Poco::delegate(&counter, &Counter::onDataChanged);
    long writes = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        tree.element.setProperty("p0", writes % 2 ? "a" : "b");
        counter.waitFor(++writes);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(elapsed.count());
    }
    tree.element.DataChanged -= Poco::delegate(&counter, &Counter::onDataChanged);
}
BENCHMARK(BM_DataChangedLatency)->UseManualTime();

}  // namespace
