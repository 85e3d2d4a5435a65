#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYURI_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYURI_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include <Poco/Dynamic/Var.h>
#include <Poco/RegularExpression.h>
#include <Poco/URI.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

// Doxygen would list this specialization beside the general template; the class comment of
// PropertyValueUri carries its contract into the reference.
/// \cond
// The interface of PropertyValue<T> for URIs, stored compactly: a value keeps the URI
// library's text of its URI and where the path lies in it, and parses the text only when the
// URI object itself is asked for (getValue). A URI whose text does not read back as the same
// URI (an unusual one built part by part) keeps its URI object from the start.
//
// URIs order by their path texts alone, byte-wise; scheme, authority, query and fragment play
// no part. Equality stays the URI library's comparison of whole URIs, so two URIs with the
// same path on different hosts are unequal, yet neither is less than the other, compare()
// yields 0, and an ordered container treats them as one key.
template <>
class PropertyValue<Poco::URI> : public PropertyValueBase {
public:
    typedef Poco::URI value_type;

    explicit PropertyValue(const value_type& value);
    PropertyValue(const PropertyValue& other);
    PropertyValue& operator=(const PropertyValue& other);
    ~PropertyValue() override;

    bool isValidStringValue(const std::string& text) const override;
    bool isArray() const override { return false; }
    bool isReference() const override { return false; }
    bool matches(const Poco::RegularExpression& re) const override {
        return re.match(toString(), 0);
    }
    bool operator<(const PropertyValueBase& other) const override;
    bool operator>(const PropertyValueBase& other) const override;
    bool operator==(const PropertyValueBase& other) const override;
    // Answers as operator== does, as every value kind's untyped inequality.
    bool operator!=(const PropertyValueBase& other) const override;
    int compare(const PropertyValueBase& other) const override;
    const std::type_info& type() const override { return typeid(value_type); }

    // The URI, parsed on first use and kept until the value next changes. Safe to call from
    // several readers at once.
    virtual const value_type& getValue() const { return uri(); }
    virtual bool setValue(const value_type& value);
    virtual bool setValueFromString(const std::string& text);
    virtual bool isValidValue(const value_type&) const { return true; }
    virtual bool operator<(const PropertyValue& other) const { return path() < other.path(); }
    virtual bool operator>(const PropertyValue& other) const { return path() > other.path(); }
    virtual bool operator==(const PropertyValue& other) const;
    virtual bool operator!=(const PropertyValue& other) const { return !(*this == other); }
    virtual bool parseString(const std::string& text, value_type& out) const = 0;

    operator const value_type&() const { return uri(); }
    operator std::string() const { return toString(); }
    // The decoded path, by which URIs order; inline and without dispatch for ordered containers
    // of URIs, which compare it many times for every value they file.
    std::string_view orderingPath() const { return path(); }

    static PropertyValue* convert(PropertyValueBase& base);
    static const PropertyValue* convert(const PropertyValueBase& base);

protected:
    // Reads `text` (throws Poco::SyntaxException where the URI library does).
    explicit PropertyValue(const std::string& text);

    // The URI library's text of the URI.
    std::string_view text() const { return Text::view(m_text); }
    // The URI's path, decoded, as the URI library gives it. Inline: ordered containers of URIs
    // compare paths many times for every value they file.
    std::string_view path() const {
        return isRegular() ? text().substr(m_pathBegin, m_pathLength) : irregularPath();
    }

private:
    // m_pathLength of a URI whose text does not read back as the URI.
    static constexpr std::uint32_t IRREGULAR = UINT32_MAX;
    // A text, immutable once made, that the copies of a value share: one block holding the
    // count of the values that share it and the text's size, then its bytes.
    class Text {
    public:
        Text(const Text&) = delete;
        Text& operator=(const Text&) = delete;

        // A text held by one value; null for the empty text.
        static Text* make(std::string_view text);
        // `text`, now held by one more value.
        static Text* share(Text* text);
        // Ends one value's hold of `text`; the last frees it.
        static void release(Text* text);
        static std::string_view view(const Text* text) {
            if (text == nullptr) return std::string_view();
            return std::string_view(reinterpret_cast<const char*>(text + 1), text->m_size);
        }

    private:
        explicit Text(std::size_t size) : m_size(size) {}
        ~Text() = default;

        std::atomic<std::uint32_t> m_users{1};
        const std::size_t m_size;
    };

    // The path of a URI kept whole.
    std::string_view irregularPath() const;

    // Takes `uri`; `source` is the text it was read from, if any.
    void store(const value_type& uri, const std::string* source);
    const value_type& uri() const;
    bool isRegular() const { return m_pathLength != IRREGULAR; }

    // Shared with the value's copies (an index keeps one of every value it files, a value
    // change hands one to subscribers), so copying costs no allocation. Null for the empty
    // text.
    Text* m_text = nullptr;
    // Where the decoded path lies in m_text; IRREGULAR when the URI is kept whole instead.
    std::uint32_t m_pathBegin = 0;
    std::uint32_t m_pathLength = 0;
    // The parsed URI, owned, or null until asked for (never null for an irregular one). Set
    // once by whichever reader gets there first.
    mutable std::atomic<value_type*> m_uri{nullptr};
};
/// \endcond

/// A URI; the empty URI is refused. Its text is the URI library's.
///
/// URIs order by their path texts alone, byte-wise; scheme, authority, query and fragment play
/// no part. Equality stays the URI library's comparison of whole URIs, so two URIs with the
/// same path on different hosts are unequal, yet neither is less than the other, compare()
/// yields 0, and an ordered container treats them as one key.
///
/// The value keeps the URI's text, not a parsed URI: getValue() parses it on first use and
/// keeps the result until the value changes.
class PropertyValueUri : public PropertyValue<Poco::URI> {
public:
    /// The empty URI.
    PropertyValueUri() : PropertyValue<Poco::URI>(Poco::URI()) {}
    /// Holds `uri`, unchecked (so possibly the empty URI).
    explicit PropertyValueUri(const Poco::URI& uri) : PropertyValue<Poco::URI>(uri) {}
    /// Throws Poco::SyntaxException when the URI library rejects `text`.
    explicit PropertyValueUri(const std::string& text) : PropertyValue<Poco::URI>(text) {}
    /// A copy holding the same URI.
    PropertyValueUri(const PropertyValueUri&) = default;
    /// Takes `other`'s URI, unchecked.
    PropertyValueUri& operator=(const PropertyValueUri&) = default;

    /// The URI's text (std::string).
    Poco::Dynamic::Var getGenericValue() const override { return std::string(text()); }
    /// The URI's text.
    std::string toString() const override { return std::string(text()); }
    /// Whether `uri` is not the empty URI.
    bool isValidValue(const Poco::URI& uri) const override { return !uri.empty(); }
    /// A syntax error of the URI library logs "Error: Failed to parse value for
    /// PropertyValueUri: " and the error's text, and returns false; other exceptions pass.
    bool parseString(const std::string& text, Poco::URI& out) const override;

    /// The path split into its segments by the URI library.
    std::vector<std::string> getPathSegments() const;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYURI_H
