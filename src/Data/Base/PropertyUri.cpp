#include "Data/Base/PropertyUri.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>

#include <Poco/Exception.h>

#include "Logging/Log.h"

namespace Kivo::Data::Base {

namespace {

// Whether `text`, the URI library's text of `uri`, reads back as `uri` in every part, the
// port as given included.
bool readsBack(const std::string& text, const Poco::URI& uri) {
    try {
        const Poco::URI again(text);
        return again == uri && again.getSpecifiedPort() == uri.getSpecifiedPort();
    } catch (const Poco::SyntaxException&) {
        return false;
    }
}

// Whether `text` is an absolute path of unreserved characters and slashes, not starting with
// "//": the URI library reads such a text as that path alone and writes it back unchanged, so
// it is a regular URI's text whose path is the whole text, and needs no parsing to be stored.
bool isPlainPath(const std::string& text) {
    // One look-up per character: every element's URI passes here when the element is built.
    static const auto plain = [] {
        std::array<bool, 256> table{};
        for (const unsigned char c : std::string_view("/-._~")) table[c] = true;
        for (unsigned char c = '0'; c <= '9'; ++c) table[c] = true;
        for (unsigned char c = 'a'; c <= 'z'; ++c) table[c] = table[c - 'a' + 'A'] = true;
        return table;
    }();
    if (text.empty() || text[0] != '/' || (text.size() > 1 && text[1] == '/')) return false;
    for (const char c : text) {
        if (!plain[static_cast<unsigned char>(c)]) return false;
    }
    return true;
}

}  // namespace

PropertyValue<Poco::URI>::Text* PropertyValue<Poco::URI>::Text::make(std::string_view text) {
    if (text.empty()) return nullptr;
    Text* made = new (::operator new(sizeof(Text) + text.size())) Text(text.size());
    std::memcpy(reinterpret_cast<char*>(made + 1), text.data(), text.size());
    return made;
}

PropertyValue<Poco::URI>::Text* PropertyValue<Poco::URI>::Text::share(Text* text) {
    if (text != nullptr) text->m_users.fetch_add(1, std::memory_order_relaxed);
    return text;
}

void PropertyValue<Poco::URI>::Text::release(Text* text) {
    if (text == nullptr || text->m_users.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    text->~Text();
    ::operator delete(text);
}

PropertyValue<Poco::URI>::PropertyValue(const value_type& value) { store(value, nullptr); }

PropertyValue<Poco::URI>::PropertyValue(const std::string& text) {
    if (text.empty() || (isPlainPath(text) && text.size() < IRREGULAR)) {
        // Element URIs are such paths: building one per element need not parse it. The empty
        // text is the empty URI's.
        m_text = Text::make(text);
        m_pathLength = static_cast<std::uint32_t>(text.size());
        return;
    }
    store(Poco::URI(text), &text);
}

PropertyValue<Poco::URI>::PropertyValue(const PropertyValue& other)
    : PropertyValueBase(other),
      m_text(Text::share(other.m_text)),
      m_pathBegin(other.m_pathBegin),
      m_pathLength(other.m_pathLength) {
    // A regular copy parses again when asked: most copies (index keys, old values) never are.
    if (!isRegular()) m_uri.store(new value_type(other.uri()));
}

PropertyValue<Poco::URI>& PropertyValue<Poco::URI>::operator=(const PropertyValue& other) {
    if (&other == this) return *this;
    std::unique_ptr<value_type> kept(other.isRegular() ? nullptr : new value_type(other.uri()));
    Text::release(m_text);
    m_text = Text::share(other.m_text);
    m_pathBegin = other.m_pathBegin;
    m_pathLength = other.m_pathLength;
    delete m_uri.exchange(kept.release());
    return *this;
}

PropertyValue<Poco::URI>::~PropertyValue() {
    Text::release(m_text);
    delete m_uri.load();
}

void PropertyValue<Poco::URI>::store(const value_type& uri, const std::string* source) {
    std::string text = uri.toString();
    const bool same = (source != nullptr && *source == text) || readsBack(text, uri);
    const std::string& path = uri.getPath();
    const std::size_t at = path.empty() ? 0 : text.find(path);
    const bool regular = same && at != std::string::npos && text.size() < IRREGULAR;
    std::unique_ptr<value_type> kept(regular ? nullptr : new value_type(uri));
    Text* const made = Text::make(text);
    Text::release(m_text);
    m_text = made;
    m_pathBegin = regular ? static_cast<std::uint32_t>(at) : 0;
    m_pathLength = regular ? static_cast<std::uint32_t>(path.size()) : IRREGULAR;
    delete m_uri.exchange(kept.release());
}

const Poco::URI& PropertyValue<Poco::URI>::uri() const {
    value_type* cached = m_uri.load(std::memory_order_acquire);
    if (cached != nullptr) return *cached;
    // Only a regular URI gets here: its text reads back as the URI it stands for.
    std::unique_ptr<value_type> parsed(new value_type(std::string(text())));
    if (m_uri.compare_exchange_strong(cached, parsed.get(), std::memory_order_acq_rel,
                                      std::memory_order_acquire)) {
        return *parsed.release();
    }
    return *cached;
}

std::string_view PropertyValue<Poco::URI>::irregularPath() const { return uri().getPath(); }

bool PropertyValue<Poco::URI>::isValidStringValue(const std::string& text) const {
    value_type parsed;
    return parseString(text, parsed) && isValidValue(parsed);
}

bool PropertyValue<Poco::URI>::setValue(const value_type& value) {
    if (!isValidValue(value)) return false;
    store(value, nullptr);
    return true;
}

bool PropertyValue<Poco::URI>::setValueFromString(const std::string& text) {
    value_type parsed;
    if (!parseString(text, parsed) || !isValidValue(parsed)) return false;
    store(parsed, &text);
    return true;
}

bool PropertyValue<Poco::URI>::operator==(const PropertyValue& other) const {
    // Two regular URIs are equal exactly when their texts are: the text is made from the
    // parts the URI library compares, and reads back as them.
    if (isRegular() && other.isRegular()) return text() == other.text();
    return uri() == other.uri();
}

bool PropertyValue<Poco::URI>::operator<(const PropertyValueBase& other) const {
    return *this < *convert(other);
}

bool PropertyValue<Poco::URI>::operator>(const PropertyValueBase& other) const {
    return *this > *convert(other);
}

bool PropertyValue<Poco::URI>::operator==(const PropertyValueBase& other) const {
    return isLikeType(other) && *this == *convert(other);
}

bool PropertyValue<Poco::URI>::operator!=(const PropertyValueBase& other) const {
    // Kept on purpose: the untyped inequality answers like the untyped equality.
    return isLikeType(other) && *this == *convert(other);
}

int PropertyValue<Poco::URI>::compare(const PropertyValueBase& other) const {
    const PropertyValue& typed = *convert(other);
    if (*this < typed) return -1;
    return typed < *this ? 1 : 0;
}

PropertyValue<Poco::URI>* PropertyValue<Poco::URI>::convert(PropertyValueBase& base) {
    if (base.type() != typeid(value_type)) {
        throw std::runtime_error("Invalid property value conversion");
    }
    return static_cast<PropertyValue*>(&base);
}

const PropertyValue<Poco::URI>* PropertyValue<Poco::URI>::convert(const PropertyValueBase& base) {
    if (base.type() != typeid(value_type)) {
        throw std::runtime_error("Invalid property value conversion");
    }
    return static_cast<const PropertyValue*>(&base);
}

bool PropertyValueUri::parseString(const std::string& text, Poco::URI& out) const {
    try {
        out = text;
    } catch (const Poco::SyntaxException& e) {
        QES_LOG_ERROR("Failed to parse value for PropertyValueUri: " << e.displayText());
        return false;
    }
    return true;
}

std::vector<std::string> PropertyValueUri::getPathSegments() const {
    // The URI library's split: the path's parts between slashes, empty parts left out.
    std::vector<std::string> segments;
    const std::string_view whole = path();
    std::size_t begin = 0;
    while (begin <= whole.size()) {
        const std::size_t end = std::min(whole.find('/', begin), whole.size());
        if (end > begin) segments.emplace_back(whole.substr(begin, end - begin));
        begin = end + 1;
    }
    return segments;
}

}  // namespace Kivo::Data::Base
