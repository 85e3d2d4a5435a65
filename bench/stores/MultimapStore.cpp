#include <map>

#include <Poco/NumberParser.h>

#include "Store.h"

namespace Kivo::Bench {

namespace {

// Records kept by id in a std::map, with a bare std::multimap from value to record per
// other key: what an index costs without anything around it.
class MultimapStore : public Store {
public:
    void add(const Record& record) override {
        const auto added = m_byId.emplace(record.id, record);
        if (!added.second) return;
        const Record* held = &added.first->second;
        m_byName.emplace(held->name, held);
        m_byUri.emplace(held->uri, held);
        m_byCategory.emplace(held->category, held);
        m_byNumber.emplace(held->number, held);
    }
    void remove(const Record& record) override {
        const auto found = m_byId.find(record.id);
        if (found == m_byId.end()) return;
        const Record* held = &found->second;
        erase(m_byName, held->name, held);
        erase(m_byUri, held->uri, held);
        erase(m_byCategory, held->category, held);
        erase(m_byNumber, held->number, held);
        m_byId.erase(found);
    }
    void writeCategory(const Record& record, const std::string& category) override {
        const auto found = m_byId.find(record.id);
        if (found == m_byId.end()) return;
        Record& held = found->second;
        erase(m_byCategory, held.category, &held);
        held.category = category;
        m_byCategory.emplace(held.category, &held);
    }
    std::size_t findName(const std::string& name) override {
        Found found;
        collect(m_byName.equal_range(name), found);
        return found.size();
    }
    std::size_t findNamePrefix(const std::string& prefix) override {
        Found found;
        for (auto it = m_byName.lower_bound(prefix);
             it != m_byName.end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
            found.push_back(it->second);
        }
        return found.size();
    }
    // A record holding the text twice would be listed twice; the workload has none.
    std::size_t findAnyValue(const std::string& text) override {
        Found found;
        const auto byId = m_byId.find(text);
        if (byId != m_byId.end()) found.push_back(&byId->second);
        collect(m_byName.equal_range(text), found);
        collect(m_byUri.equal_range(text), found);
        collect(m_byCategory.equal_range(text), found);
        Poco::Int64 number = 0;
        if (Poco::NumberParser::tryParse64(text, number)) {
            collect(m_byNumber.equal_range(number), found);
        }
        return found.size();
    }

private:
    typedef std::vector<const Record*> Found;

    template <typename Range>
    static void collect(const Range& range, Found& found) {
        for (auto it = range.first; it != range.second; ++it) found.push_back(it->second);
    }

    template <typename Map, typename Value>
    static void erase(Map& map, const Value& value, const Record* held) {
        const auto range = map.equal_range(value);
        for (auto it = range.first; it != range.second; ++it) {
            if (it->second == held) {
                map.erase(it);
                return;
            }
        }
    }

    std::map<std::string, Record> m_byId;
    std::multimap<std::string, const Record*> m_byName;
    std::multimap<std::string, const Record*> m_byUri;
    std::multimap<std::string, const Record*> m_byCategory;
    std::multimap<long, const Record*> m_byNumber;
};

}  // namespace

std::unique_ptr<Store> makeMultimapStore() { return std::make_unique<MultimapStore>(); }

}  // namespace Kivo::Bench
