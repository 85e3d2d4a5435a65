#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Store.h"
#include <malloc.h>

// The library beside SQLite in memory, Boost.MultiIndex and bare std::multimaps, on one
// workload: a resource of 100,000 elements of five values, every value indexed. Prints the
// console report, then one table of every operation across the stores with the ratio of each
// to the multimaps.
namespace {

using namespace Kivo::Bench;

const int ELEMENTS = 100000;
const int BATCH = 1000;  // elements added per timed round, and elements the writes cycle over

struct Competitor {
    const char* name;
    std::unique_ptr<Store> (*make)();
};

const Competitor COMPETITORS[] = {{"library", makeLibraryStore},
                                  {"sqlite", makeSqliteStore},
                                  {"multi_index", makeMultiIndexStore},
                                  {"multimap", makeMultimapStore}};

struct Loaded {
    std::unique_ptr<Store> store;
    double heapPerElement = 0;
    double secondsPerElement = 0;
};

// Each competitor's store with the workload's elements, filled the first time it is asked for.
Loaded& loaded(const Competitor& competitor) {
    static std::map<std::string, Loaded> stores;
    Loaded& entry = stores[competitor.name];
    if (!entry.store) {
        std::vector<Record> records;
        for (int n = 0; n < ELEMENTS; ++n) records.push_back(record(n));
        const std::size_t heapBefore = mallinfo2().uordblks;
        const auto start = std::chrono::steady_clock::now();
        entry.store = competitor.make();
        for (const Record& r : records) entry.store->add(r);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        entry.heapPerElement = static_cast<double>(mallinfo2().uordblks - heapBefore) / ELEMENTS;
        entry.secondsPerElement = elapsed.count() / ELEMENTS;
    }
    return entry;
}

void load(benchmark::State& state, const Competitor& competitor) {
    for (auto _ : state) {
        const Loaded& entry = loaded(competitor);
        state.SetIterationTime(entry.secondsPerElement);
        state.counters["heap_per_element"] = entry.heapPerElement;
    }
}

// Adds BATCH elements to the full store per round, timed, and takes them out again, untimed.
// The table shows the time of one add.
void add(benchmark::State& state, const Competitor& competitor) {
    Store& store = *loaded(competitor).store;
    std::vector<Record> records;
    for (int n = 0; n < BATCH; ++n) records.push_back(record(ELEMENTS + n));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        for (const Record& r : records) store.add(r);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(elapsed.count());
        for (const Record& r : records) store.remove(r);
    }
    state.counters["elements_per_round"] = BATCH;
}

void write(benchmark::State& state, const Competitor& competitor) {
    Store& store = *loaded(competitor).store;
    std::vector<Record> records;
    for (int n = 0; n < BATCH; ++n) records.push_back(record(n * (ELEMENTS / BATCH)));
    for (const Record& r : records) store.observe(r);
    const std::string categories[2] = {"category A", "category B"};
    long writes = 0;
    for (auto _ : state) {
        store.writeCategory(records[writes % BATCH], categories[(writes / BATCH) % 2]);
        ++writes;
    }
    store.settle();
}

void removeAndAdd(benchmark::State& state, const Competitor& competitor) {
    Store& store = *loaded(competitor).store;
    std::vector<Record> records;
    for (int n = 0; n < BATCH; ++n) records.push_back(record(n * (ELEMENTS / BATCH) + 1));
    long rounds = 0;
    for (auto _ : state) {
        const Record& r = records[rounds++ % BATCH];
        store.remove(r);
        store.add(r);
    }
}

// Runs `find` over BATCH texts in turn and reports how many elements the last call found.
void lookUp(benchmark::State& state, const Competitor& competitor,
            const std::function<std::size_t(Store&, const std::string&)>& find,
            const std::vector<std::string>& texts) {
    Store& store = *loaded(competitor).store;
    std::size_t found = 0;
    long rounds = 0;
    for (auto _ : state) {
        found = find(store, texts[rounds++ % texts.size()]);
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = static_cast<double>(found);
}

std::vector<std::string> names() {
    std::vector<std::string> texts;
    for (int n = 0; n < BATCH; ++n) texts.push_back(record(n * (ELEMENTS / BATCH) + 2).name);
    return texts;
}

// The table after the report: a row per operation, a column per store.
class TableReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const std::string name = run.run_name.function_name;  // "<operation>/<store>"
            const std::size_t slash = name.find('/');
            const std::string operation = name.substr(0, slash);
            const std::string store = name.substr(slash + 1);
            // Manually timed cases report per element in real time, the others CPU time.
            const double time = (operation == "load" || operation == "add")
                                    ? run.GetAdjustedRealTime()
                                    : run.GetAdjustedCPUTime();
            const auto perRound = run.counters.find("elements_per_round");
            const double elements = perRound == run.counters.end() ? 1 : perRound->second.value;
            m_cells[operation][store] =
                time / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e6 / elements;
            const auto heap = run.counters.find("heap_per_element");
            if (heap != run.counters.end()) m_cells["heap B"][store] = heap->second;
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        const char* rows[] = {"heap B",     "load",   "add",   "write",
                              "remove_add", "prefix", "exact", "free_text"};
        std::printf("\n%-11s", "µs, B");
        for (const Competitor& c : COMPETITORS) std::printf(" %12s %7s", c.name, "x mm");
        std::printf("\n");
        for (const char* row : rows) {
            const auto cells = m_cells.find(row);
            if (cells == m_cells.end()) continue;
            const auto base = cells->second.find("multimap");
            std::printf("%-11s", row);
            for (const Competitor& c : COMPETITORS) {
                const auto cell = cells->second.find(c.name);
                if (cell == cells->second.end()) {
                    std::printf(" %12s %7s", "-", "");
                } else if (base == cells->second.end() || base->second <= 0) {
                    std::printf(" %12.3g %7s", cell->second, "");
                } else {
                    std::printf(" %12.3g %7.2f", cell->second, cell->second / base->second);
                }
            }
            std::printf("\n");
        }
    }

private:
    std::map<std::string, std::map<std::string, double>> m_cells;  // operation -> store -> µs
};

void registerAll() {
    static const std::vector<std::string> exactTexts = names();
    static const std::vector<std::string> prefix = {"Mid"};
    for (const Competitor& c : COMPETITORS) {
        const std::string store = std::string("/") + c.name;
        benchmark::RegisterBenchmark(("load" + store).c_str(), load, c)
            ->Iterations(1)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
    }
    for (const Competitor& c : COMPETITORS) {
        const std::string store = std::string("/") + c.name;
        benchmark::RegisterBenchmark(("add" + store).c_str(), add, c)
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("write" + store).c_str(), write, c)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("remove_add" + store).c_str(), removeAndAdd, c)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(
            ("prefix" + store).c_str(), lookUp, c,
            [](Store& s, const std::string& t) { return s.findNamePrefix(t); }, prefix)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("exact" + store).c_str(), lookUp, c,
                                     [](Store& s, const std::string& t) { return s.findName(t); },
                                     exactTexts)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(
            ("free_text" + store).c_str(), lookUp, c,
            [](Store& s, const std::string& t) { return s.findAnyValue(t); }, exactTexts)
            ->Unit(benchmark::kMicrosecond);
    }
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    registerAll();
    TableReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
