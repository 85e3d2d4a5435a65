#include "Data/Base/PropertyIndex.h"

#include <algorithm>
#include <mutex>
#include <string_view>

#include <Poco/Exception.h>

#include "Data/Base/Property.h"

namespace Kivo::Data::Base {

namespace {

// The live prefix expressions, by address: Poco's expression class cannot be asked what it is.
// Never destroyed, so an expression may still go away during static destruction.
struct PrefixRegistry {
    std::mutex mutex;
    std::vector<const PrefixRegularExpression*> live;
};

PrefixRegistry& prefixRegistry() {
    static PrefixRegistry* registry = new PrefixRegistry;
    return *registry;
}

const char* const EXPRESSION_SYNTAX = "\\^$.|?*+()[]{}";

std::string escaped(const std::string& text) {
    std::string result;
    result.reserve(text.size() * 2);
    for (const char c : text) {
        if (std::string_view(EXPRESSION_SYNTAX).find(c) != std::string_view::npos) result += '\\';
        result += c;
    }
    return result;
}

std::string prefixPattern(const std::string& prefix, PrefixRegularExpression::Mode mode) {
    if (mode == PrefixRegularExpression::PREFIX_TEXT) {
        if (prefix.find('\0') != std::string::npos) {
            throw Poco::InvalidArgumentException("A prefix expression needs a prefix without NUL");
        }
        return "^" + escaped(prefix) + ".*$";
    }
    if (!PrefixRegularExpression::isLiteral(prefix)) {
        throw Poco::InvalidArgumentException("A prefix expression needs a literal prefix", prefix);
    }
    return "^" + prefix + ".*$";
}

int prefixOptions(PrefixRegularExpression::Mode mode) {
    return mode == PrefixRegularExpression::PREFIX_TEXT ? Poco::RegularExpression::RE_DOTALL : 0;
}

}  // namespace

bool PrefixRegularExpression::isLiteral(const std::string& text) {
    return text.find_first_of(EXPRESSION_SYNTAX) == std::string::npos &&
           text.find('\0') == std::string::npos;
}

PrefixRegularExpression::PrefixRegularExpression(const std::string& prefix, Mode mode)
    : Poco::RegularExpression(prefixPattern(prefix, mode), prefixOptions(mode), true),
      m_prefix(prefix),
      m_mode(mode) {
    PrefixRegistry& registry = prefixRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.live.push_back(this);
}

PrefixRegularExpression::~PrefixRegularExpression() {
    PrefixRegistry& registry = prefixRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.live.erase(std::find(registry.live.begin(), registry.live.end(), this));
}

const PrefixRegularExpression* PrefixRegularExpression::of(const Poco::RegularExpression& re) {
    PrefixRegistry& registry = prefixRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    for (const PrefixRegularExpression* live : registry.live) {
        if (static_cast<const Poco::RegularExpression*>(live) == &re) return live;
    }
    return nullptr;
}

template class PropertyIndex<Property<PropertyValueNumberBase<long>>>;
template class PropertyIndex<Property<PropertyValueString>>;
template class PropertyIndex<Property<PropertyValueUuid>>;
template class PropertyIndex<Property<PropertyValueUri>>;
template class PropertyIndex<Property<PropertyValueArray<PropertyValueString>>>;
template class PropertyIndex<Property<PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>>>;
template class PropertyIndex<Property<
    PropertyValueArray<PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>>>;

}  // namespace Kivo::Data::Base
