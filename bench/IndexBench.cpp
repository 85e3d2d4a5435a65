#include <malloc.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <Poco/RegularExpression.h>
#include <benchmark/benchmark.h>

#include "Data/Base/Object.h"
#include "Data/Base/Property.h"
#include "Data/Base/PropertyIndexQuery.h"
#include "Data/Base/PropertyIndexUser.h"

// Index operations at N = 1,000, 10,000 and 100,000 objects, each beside the same operation on
// a bare std::multimap<std::string, void*> (linear walk over equal values, regular-expression
// scan over every value). The program prints each BM_Index* over its BM_Bare* of the same N.
namespace {

using namespace Kivo::Data::Base;

const char* const CATEGORIES[] = {"addresses", "auth",   "car",    "cdn",    "charging",
                                  "ev",        "search", "hybrid", "map",    "inputdevices",
                                  "media",     "mixer",  "radio",  "speech", "swdl",
                                  "system",    "navigation", "communication", "maprendering",
                                  "medialibrary"};

class Item : public Object {
public:
    Item(const std::string& name, const std::string& category, long number)
        : Object(Type("Item", Type("Bench")),
                 Kivo::RecursiveRWLockPtr(new Kivo::Util::RecursiveRWLock)),
          m_id("id", this, PropertyValueUuid()),
          m_name("name", this, PropertyValueString(name)),
          m_uri("uri", this, PropertyValueUri("/Bench/Items/" + m_id.getValue().toString())),
          m_category("category", this, PropertyValueString(category)),
          m_number("number", this, PropertyValueNumberBase<long>(number, {}, {}, {})) {
        for (PropertyBase* property : properties()) property->registerAtOwner();
    }
    ~Item() override { unregisterAllProperties(); }
    Poco::UUID getIdentification() const override { return m_id.getValue(); }

    std::vector<PropertyBase*> properties() {
        return {&m_id, &m_name, &m_uri, &m_category, &m_number};
    }
    PropertyString& category() { return m_category; }

protected:
    bool checkWriteAccess(const PropertyKey&) const override { return true; }

private:
    PropertyUuid m_id;
    PropertyString m_name;
    PropertyUri m_uri;
    PropertyString m_category;
    PropertyInteger m_number;
};

std::string randomName(std::mt19937& random) {
    std::string name;
    for (int i = 0; i < 6; ++i) name += static_cast<char>('a' + random() % 8);
    return name;
}

// N filed objects and the same names and categories in bare multimaps; built once per N.
struct Holder {
    explicit Holder(int n) {
        std::mt19937 random(n);
        for (int i = 0; i < n; ++i) {
            items.emplace_back(new Item(randomName(random), CATEGORIES[i % 20], i));
            for (PropertyBase* property : items.back()->properties()) {
                user.registerPropertyAtIndex(property);
            }
            bareNames.emplace(items.back()->properties()[1]->getPropertyValueBase().toString(),
                              items.back().get());
            bareCategories.emplace(CATEGORIES[i % 20], items.back().get());
            for (std::size_t key = 0; key < bareTexts.size(); ++key) {
                const PropertyBase* property = items.back()->properties()[key];
                bareTexts[key].emplace(property->getPropertyValueBase().toString(),
                                       items.back().get());
            }
        }
    }
    std::vector<std::unique_ptr<Item>> items;
    PropertyIndexUser user;
    std::multimap<std::string, void*> bareNames;
    std::multimap<std::string, void*> bareCategories;
    // Every key's values as texts, one multimap per key: the bare free-text search.
    std::vector<std::multimap<std::string, void*>> bareTexts{5};
};

// Heap in use, large blocks the allocator maps on their own included (an index's object
// table, say).
std::size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

Holder& holder(int n) {
    static std::map<int, std::unique_ptr<Holder>> holders;
    auto& made = holders[n];
    if (!made) made.reset(new Holder(n));
    return *made;
}

IndexGenericValueQuery nameQuery(const std::string& text) {
    IndexGenericValueQuery query;
    query.key = "name";
    query.values = {text};
    return query;
}

void BM_IndexFileAll(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    double bytesPerObject = 0;
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<std::unique_ptr<Item>> items;
        std::mt19937 random(n);
        for (int i = 0; i < n; ++i) {
            items.emplace_back(new Item(randomName(random), CATEGORIES[i % 20], i));
        }
        const std::size_t before = heapInUse();
        state.ResumeTiming();
        {
            PropertyIndexUser user;
            for (auto& item : items) {
                for (PropertyBase* property : item->properties()) user.registerPropertyAtIndex(property);
            }
            state.PauseTiming();
            bytesPerObject = static_cast<double>(heapInUse() - before) / n;
        }
        items.clear();
        state.ResumeTiming();
    }
    state.counters["index_bytes_per_object"] = bytesPerObject;
}
BENCHMARK(BM_IndexFileAll)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// Filing the same five texts per object into five bare multimaps.
void BM_BareFileAll(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    double bytesPerObject = 0;
    std::vector<std::vector<std::string>> texts;
    std::mt19937 random(n);
    for (int i = 0; i < n; ++i) {
        Item item(randomName(random), CATEGORIES[i % 20], i);
        texts.emplace_back();
        for (PropertyBase* property : item.properties()) {
            texts.back().push_back(property->getPropertyValueBase().toString());
        }
    }
    for (auto _ : state) {
        state.PauseTiming();
        const std::size_t before = heapInUse();
        state.ResumeTiming();
        {
            std::vector<std::multimap<std::string, void*>> bare(5);
            for (auto& objectTexts : texts) {
                for (std::size_t key = 0; key < bare.size(); ++key) {
                    bare[key].emplace(objectTexts[key], &objectTexts);
                }
            }
            state.PauseTiming();
            bytesPerObject = static_cast<double>(heapInUse() - before) / n;
        }
        state.ResumeTiming();
    }
    state.counters["index_bytes_per_object"] = bytesPerObject;
}
BENCHMARK(BM_BareFileAll)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

void BM_IndexExactName(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    const auto query = nameQuery(h.bareNames.begin()->first);
    for (auto _ : state) benchmark::DoNotOptimize(h.user.find(query));
}

void BM_BareExactName(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    const std::string wanted = h.bareNames.begin()->first;
    for (auto _ : state) {
        std::vector<void*> found;
        const auto range = h.bareNames.equal_range(wanted);
        for (auto entry = range.first; entry != range.second; ++entry) found.push_back(entry->second);
        benchmark::DoNotOptimize(found);
    }
}

void BM_IndexFreeTextExact(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    IndexFreeTextQuery query;
    query.values = {h.bareNames.begin()->first};
    for (auto _ : state) benchmark::DoNotOptimize(h.user.find(query));
}

// One exact text over every key: a lookup in each key's multimap, without de-duplication.
void BM_BareFreeTextExact(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    const std::string wanted = h.bareNames.begin()->first;
    for (auto _ : state) {
        std::vector<void*> found;
        for (const auto& texts : h.bareTexts) {
            const auto range = texts.equal_range(wanted);
            for (auto entry = range.first; entry != range.second; ++entry) {
                found.push_back(entry->second);
            }
        }
        benchmark::DoNotOptimize(found);
    }
}

void BM_IndexPrefixName(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    const auto query = nameQuery("abc%");
    for (auto _ : state) benchmark::DoNotOptimize(h.user.find(query));
}

void BM_IndexLeadingWildcardName(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    const auto query = nameQuery("%abc");
    for (auto _ : state) benchmark::DoNotOptimize(h.user.find(query));
}

// The pattern scan of a bare multimap, for "abc%" (arg 1) or "%abc" (arg 0).
void bareScan(benchmark::State& state, const char* pattern) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    const Poco::RegularExpression re(pattern, 0, true);
    for (auto _ : state) {
        std::vector<void*> found;
        for (const auto& entry : h.bareNames) {
            if (re.match(entry.first, 0)) found.push_back(entry.second);
        }
        benchmark::DoNotOptimize(found);
    }
}
void BM_BarePrefixName(benchmark::State& state) { bareScan(state, "^abc.*$"); }
void BM_BareLeadingWildcardName(benchmark::State& state) { bareScan(state, "^.*abc$"); }

void BM_IndexCategoryRefile(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    PropertyString& category = h.items[h.items.size() / 2]->category();
    const std::string original = category.getValue();
    long next = 0;
    for (auto _ : state) category.setValue(next++ % 2 ? original : std::string("radio"));
    category.setValue(original);
}

// The linear walk over all objects of one category, as an unkept position requires.
void BM_BareCategoryRefile(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    void* object = h.items[h.items.size() / 2].get();
    std::string current = CATEGORIES[(h.items.size() / 2) % 20];
    long next = 0;
    for (auto _ : state) {
        const std::string target = next++ % 2 ? std::string(CATEGORIES[(h.items.size() / 2) % 20])
                                              : std::string("radio");
        auto range = h.bareCategories.equal_range(current);
        auto entry = range.first;
        while (entry != range.second && entry->second != object) ++entry;
        h.bareCategories.erase(entry);
        h.bareCategories.emplace(target, object);
        current = target;
    }
}

void BM_IndexDropAndRefile(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    Item& item = *h.items[h.items.size() / 2];
    for (auto _ : state) {
        for (PropertyBase* property : item.properties()) h.user.unregisterPropertyAtIndex(property);
        for (PropertyBase* property : item.properties()) h.user.registerPropertyAtIndex(property);
    }
}

// One object out of and back into every key's multimap, found by the linear walk.
void BM_BareDropAndRefile(benchmark::State& state) {
    Holder& h = holder(static_cast<int>(state.range(0)));
    Item& item = *h.items[h.items.size() / 2];
    std::vector<std::string> texts;
    for (PropertyBase* property : item.properties()) {
        texts.push_back(property->getPropertyValueBase().toString());
    }
    for (auto _ : state) {
        for (std::size_t key = 0; key < texts.size(); ++key) {
            auto range = h.bareTexts[key].equal_range(texts[key]);
            auto entry = range.first;
            while (entry != range.second && entry->second != &item) ++entry;
            h.bareTexts[key].erase(entry);
        }
        for (std::size_t key = 0; key < texts.size(); ++key) h.bareTexts[key].emplace(texts[key], &item);
    }
}

void sizes(benchmark::internal::Benchmark* benchmark) {
    for (int n : {1000, 10000, 100000}) benchmark->Arg(n);
}

BENCHMARK(BM_IndexExactName)->Apply(sizes);
BENCHMARK(BM_BareExactName)->Apply(sizes);
BENCHMARK(BM_IndexFreeTextExact)->Apply(sizes);
BENCHMARK(BM_BareFreeTextExact)->Apply(sizes);
BENCHMARK(BM_IndexPrefixName)->Apply(sizes);
BENCHMARK(BM_BarePrefixName)->Apply(sizes);
BENCHMARK(BM_IndexLeadingWildcardName)->Apply(sizes);
BENCHMARK(BM_BareLeadingWildcardName)->Apply(sizes);
BENCHMARK(BM_IndexCategoryRefile)->Apply(sizes);
BENCHMARK(BM_BareCategoryRefile)->Apply(sizes);
BENCHMARK(BM_IndexDropAndRefile)->Apply(sizes);
BENCHMARK(BM_BareDropAndRefile)->Apply(sizes);

}  // namespace
