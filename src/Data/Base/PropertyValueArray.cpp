#include "Data/Base/PropertyValueArray.h"

#include <Poco/JSON/Parser.h>

#include "Data/Base/PropertyString.h"

namespace Kivo::Data::Base {

template class PropertyValueArray<PropertyValueString>;
template class PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_SERVICECATEGORY>>;
template class PropertyValueArray<
    PropertyValueFormatedString<PropertyValueString::STRING_FORMAT_VERSION>>;

bool parseJsonArrayItems(const std::string& text, std::vector<std::string>& items) {
    Poco::Dynamic::Var parsed;
    try {
        Poco::JSON::Parser parser;
        parsed = parser.parse(text);
    } catch (...) {
        // Whatever the parser throws means the text is no JSON array.
        return false;
    }
    if (parsed.type() != typeid(Poco::JSON::Array::Ptr)) return false;
    const Poco::JSON::Array::Ptr array = parsed.extract<Poco::JSON::Array::Ptr>();
    std::vector<std::string> texts;
    texts.reserve(array->size());
    for (const Poco::Dynamic::Var& item : *array) {
        if (item.isEmpty()) return false;
        texts.push_back(item.convert<std::string>());
    }
    items.swap(texts);
    return true;
}

}  // namespace Kivo::Data::Base
