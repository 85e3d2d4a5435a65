#ifndef QESSERVICEDATALIB_BENCH_STORES_STORE_H
#define QESSERVICEDATALIB_BENCH_STORES_STORE_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Kivo::Bench {

// One element of the comparison workload: five values, every one of them indexed.
struct Record {
    std::string id;        // a UUID text
    std::string name;      // "<word> <n>"; one word in 110 is "Mid"
    std::string uri;       // "/Bench/Items/<id>"
    std::string category;  // one of 20
    long number;           // 0 to 999
};

// The workload's element `n`; the same n gives the same values in every store.
Record record(int n);

// A store of records with an index per value, as each competitor offers it. Every call
// answers with the number of records it found, so no store can skip its work.
class Store {
public:
    virtual ~Store() = default;
    virtual void add(const Record& record) = 0;
    virtual void remove(const Record& record) = 0;
    // Gives the record a new category, through an update the store re-indexes.
    virtual void writeCategory(const Record& record, const std::string& category) = 0;
    virtual std::size_t findName(const std::string& name) = 0;
    virtual std::size_t findNamePrefix(const std::string& prefix) = 0;
    // Records holding `text` as any of their five values.
    virtual std::size_t findAnyValue(const std::string& text) = 0;
    // Starts observing the record's changes, where the store tells anybody of them.
    virtual void observe(const Record&) {}
    // Waits until whatever the store does after a write in the background is done.
    virtual void settle() {}
};

// The competitors, in the order the table shows them.
std::unique_ptr<Store> makeLibraryStore();
std::unique_ptr<Store> makeSqliteStore();
std::unique_ptr<Store> makeMultiIndexStore();
std::unique_ptr<Store> makeMultimapStore();

}  // namespace Kivo::Bench

#endif  // QESSERVICEDATALIB_BENCH_STORES_STORE_H
