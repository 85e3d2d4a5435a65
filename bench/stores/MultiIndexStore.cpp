#include <Poco/NumberParser.h>

#include "Store.h"
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index_container.hpp>

namespace Kivo::Bench {

namespace {

namespace mi = boost::multi_index;

struct ById {};
struct ByName {};
struct ByUri {};
struct ByCategory {};
struct ByNumber {};

typedef mi::multi_index_container<
    Record,
    mi::indexed_by<
        mi::ordered_unique<mi::tag<ById>, mi::member<Record, std::string, &Record::id>>,
        mi::ordered_non_unique<mi::tag<ByName>, mi::member<Record, std::string, &Record::name>>,
        mi::ordered_non_unique<mi::tag<ByUri>, mi::member<Record, std::string, &Record::uri>>,
        mi::ordered_non_unique<mi::tag<ByCategory>,
                               mi::member<Record, std::string, &Record::category>>,
        mi::ordered_non_unique<mi::tag<ByNumber>, mi::member<Record, long, &Record::number>>>>
    Records;

// Records in one container with an ordered index per value.
class MultiIndexStore : public Store {
public:
    void add(const Record& record) override { m_records.insert(record); }
    void remove(const Record& record) override { m_records.erase(record.id); }
    void writeCategory(const Record& record, const std::string& category) override {
        const auto found = m_records.find(record.id);
        if (found != m_records.end()) {
            m_records.modify(found, [&](Record& r) { r.category = category; });
        }
    }
    std::size_t findName(const std::string& name) override {
        Found found;
        collect(m_records.get<ByName>().equal_range(name), found);
        return found.size();
    }
    std::size_t findNamePrefix(const std::string& prefix) override {
        const auto& byName = m_records.get<ByName>();
        Found found;
        for (auto it = byName.lower_bound(prefix);
             it != byName.end() && it->name.compare(0, prefix.size(), prefix) == 0; ++it) {
            found.push_back(&*it);
        }
        return found.size();
    }
    // A record holding the text twice would be listed twice; the workload has none.
    std::size_t findAnyValue(const std::string& text) override {
        Found found;
        collect(m_records.get<ById>().equal_range(text), found);
        collect(m_records.get<ByName>().equal_range(text), found);
        collect(m_records.get<ByUri>().equal_range(text), found);
        collect(m_records.get<ByCategory>().equal_range(text), found);
        Poco::Int64 number = 0;
        if (Poco::NumberParser::tryParse64(text, number)) {
            collect(m_records.get<ByNumber>().equal_range(number), found);
        }
        return found.size();
    }

private:
    typedef std::vector<const Record*> Found;

    template <typename Range>
    static void collect(const Range& range, Found& found) {
        for (auto it = range.first; it != range.second; ++it) found.push_back(&*it);
    }

    Records m_records;
};

}  // namespace

std::unique_ptr<Store> makeMultiIndexStore() { return std::make_unique<MultiIndexStore>(); }

}  // namespace Kivo::Bench
