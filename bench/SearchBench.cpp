#include <cstdio>
#include <string>

#include <Poco/JSON/Object.h>
#include <benchmark/benchmark.h>

#include "Client/ElementSearch.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/ElementContainer.h"
#include "Data/Service.h"

namespace {

using namespace Kivo::Data;
using Kivo::Client::ElementSearch;

const int ELEMENTS = 100000;
const char* const WORDS[] = {"Front", "Mid",  "Rear", "Roof", "Door",
                             "Boot",  "Dash", "Seat", "Trim", "Vent"};

// An element with only the properties every element has: id, name and uri.
class Item : public Element {
public:
    explicit Item(AbstractResource& resource) : Element("Item", resource) {}
};

class Items : public ElementContainer<Item> {
public:
    explicit Items(Service& service)
        : ElementContainer(service, "Items", "Items", Base::PropertyValueUuid()) {
        init();
    }
    ~Items() override { clear(); }
};

// 100,000 elements named "<word> <number>", ten words in turn, so "Mid%" finds a tenth of them.
struct Tree {
    Tree() {
        for (int n = 0; n < ELEMENTS; ++n) {
            char text[40];
            std::snprintf(text, sizeof text, "00000000-0000-4000-8000-%012d", n);
            Poco::JSON::Object json;
            json.set("id", std::string(text));
            json.set("name", std::string(WORDS[n % 10]) + " " + std::to_string(n));
            items.addElement(&json);
        }
    }
    Service service{"Bench", "benchmark service", 1, Base::PropertyValueUuid()};
    Items items{service};
};

Tree& tree() {
    static Tree* shared = new Tree;
    return *shared;
}

void runCore(benchmark::State& state, const std::string& text) {
    const Items& items = tree().items;
    std::size_t found = 0;
    for (auto _ : state) {
        Base::IndexGenericValueQuery query;
        query.key = "name";
        query.values = {text};
        AbstractResource::ElementQueryResult result;
        items.findElements(query, result);
        found = result.size();
        benchmark::DoNotOptimize(result.data());
    }
    state.counters["found"] = static_cast<double>(found);
}

void runSafe(benchmark::State& state, const std::string& text) {
    const ElementSearch search(tree().items);
    std::size_t found = 0;
    for (auto _ : state) {
        AbstractResource::ElementQueryResult result;
        search.find({{"name", text}}, result);
        found = result.size();
        benchmark::DoNotOptimize(result.data());
    }
    state.counters["found"] = static_cast<double>(found);
}

void BM_SearchExactCore(benchmark::State& state) { runCore(state, "Mid 50001"); }
void BM_SearchExactSafe(benchmark::State& state) { runSafe(state, "Mid 50001"); }
void BM_SearchPrefixCore(benchmark::State& state) { runCore(state, "Mid%"); }
void BM_SearchPrefixSafe(benchmark::State& state) { runSafe(state, "Mid%"); }

}  // namespace

BENCHMARK(BM_SearchExactCore);
BENCHMARK(BM_SearchExactSafe);
BENCHMARK(BM_SearchPrefixCore)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SearchPrefixSafe)->Unit(benchmark::kMicrosecond);
