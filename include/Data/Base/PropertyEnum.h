#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYENUM_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYENUM_H

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Data/Base/PropertyString.h"

namespace Kivo::Data::Base {

/// A text restricted to a set of allowed words (exact, case-sensitive); an empty set allows
/// any text. Always of format STRING_FORMAT_TEXT: the word set replaces the pattern check.
/// Ordering and equality are the string kind's, by text, so an enum and a plain string holding
/// the same text are equal; the position of a word in the allowed list plays no part.
///
/// Values that allow the same words in the same declared order share one immutable copy of
/// them (an index keeps a copy of every value it files), for as long as one of them lives.
class PropertyValueEnum : public PropertyValueString {
public:
    /// The allowed words, ordered byte-wise.
    typedef std::set<std::string> EnumValueSet;
    /// Allowed words as handed in; the first one is the default value.
    typedef std::vector<std::string> EnumValues;

    /// Holds values[0] (first in the given order, not the smallest), or the empty text (not
    /// "<undefined>") for an empty list.
    explicit PropertyValueEnum(const EnumValues& values);
    /// Throws Poco::AssertionViolationException("Initialising Enum property with invalid
    /// value!") when `values` is not empty and does not contain `value`.
    PropertyValueEnum(const value_type& value, const EnumValues& values);
    /// A copy with the same text and allowed words.
    PropertyValueEnum(const PropertyValueEnum&) = default;
    /// Takes `other`'s text and allowed words, without checking the text.
    PropertyValueEnum& operator=(const PropertyValueEnum&) = default;

    /// Replaces the allowed words. A current value that is no longer valid becomes values[0],
    /// or "<undefined>" for an empty list, without any check; with this kind's own check an
    /// empty list allows everything, so the value then stays.
    void setEnumValues(const EnumValues& values);
    /// Allows one more word; the current value is not re-examined.
    void addEnumValue(const value_type& word);
    /// The allowed words; empty when any text is allowed. The reference stays valid until the
    /// value's words change or the value goes.
    const EnumValueSet& getEnumValues() const { return m_words->set; }
    /// The same words in the order they were declared (constructor or setEnumValues list,
    /// then addEnumValue calls), each once, at its first place. Clients show them in this
    /// order; the set above keeps the byte-wise order that lookups and existing output use.
    /// The reference stays valid as getEnumValues()'s does.
    const EnumValues& getDeclaredEnumValues() const { return m_words->declared; }

    /// True for an empty set; otherwise whether `value` is one of the words.
    bool isValidValue(const std::string& value) const override;

private:
    // The allowed words both ways; immutable once shared.
    struct SharedWords {
        EnumValueSet set;
        EnumValues declared;  // the words of `set`, in declared order
    };
    struct SharedWordsKey;

    // The shared copy of the words of `values`, in declared order without repeats.
    static std::shared_ptr<const SharedWords> wordsOf(const EnumValues& values);

    std::shared_ptr<const SharedWords> m_words;  // never null
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYENUM_H
