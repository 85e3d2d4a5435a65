#include "Data/Base/PropertyEnum.h"

#include <map>
#include <mutex>

#include <Poco/Exception.h>

namespace Kivo::Data::Base {

// The words in use, one shared copy per declared list. A copy leaves the table when its last
// value goes, so lists a service changes at run time do not pile up.
class PropertyValueEnum::SharedWordsTable {
public:
    static std::shared_ptr<const SharedWords> intern(EnumValues declared) {
        // Never destroyed: values of static storage may go after any static table would.
        static SharedWordsTable* const table = new SharedWordsTable;
        return table->find(std::move(declared));
    }

private:
    std::shared_ptr<const SharedWords> find(EnumValues declared) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto entry = m_words.find(declared);
        if (entry != m_words.end()) {
            if (std::shared_ptr<const SharedWords> shared = entry->second.lock()) return shared;
            // Its last value is going: the deleter waits for the mutex and finds it replaced.
            m_words.erase(entry);
        }
        SharedWords* made = new SharedWords{EnumValueSet(declared.begin(), declared.end()), declared};
        std::shared_ptr<const SharedWords> shared(made, [this](const SharedWords* gone) { forget(gone); });
        m_words.emplace(std::move(declared), shared);
        return shared;
    }
    void forget(const SharedWords* gone) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            const auto entry = m_words.find(gone->declared);
            if (entry != m_words.end() && entry->second.expired()) m_words.erase(entry);
        }
        delete gone;
    }

    std::mutex m_mutex;
    std::map<EnumValues, std::weak_ptr<const SharedWords>> m_words;
};

std::shared_ptr<const PropertyValueEnum::SharedWords> PropertyValueEnum::wordsOf(
    const EnumValues& values) {
    EnumValues declared;
    EnumValueSet seen;
    for (const std::string& word : values) {
        if (seen.insert(word).second) declared.push_back(word);
    }
    return SharedWordsTable::intern(std::move(declared));
}

PropertyValueEnum::PropertyValueEnum(const EnumValues& values)
    : PropertyValueString(std::string(), STRING_FORMAT_TEXT), m_words(wordsOf(values)) {
    if (!values.empty()) m_value = values.front();
}

PropertyValueEnum::PropertyValueEnum(const value_type& value, const EnumValues& values)
    : PropertyValueString(value, STRING_FORMAT_TEXT), m_words(wordsOf(values)) {
    if (!isValidValue(value)) {
        throw Poco::AssertionViolationException("Initialising Enum property with invalid value!");
    }
}

void PropertyValueEnum::setEnumValues(const EnumValues& values) {
    m_words = wordsOf(values);
    // Virtual on purpose: a derived kind's stricter check decides what must be replaced.
    if (!isValidValue(m_value)) m_value = values.empty() ? UNDEFINED_VALUE : values.front();
}

void PropertyValueEnum::addEnumValue(const value_type& word) {
    if (m_words->set.count(word) != 0) return;
    EnumValues declared = m_words->declared;
    declared.push_back(word);
    m_words = wordsOf(declared);
}

bool PropertyValueEnum::isValidValue(const std::string& value) const {
    return m_words->set.empty() || m_words->set.count(value) > 0;
}

}  // namespace Kivo::Data::Base
