#include "QueryParameters.h"

#include <Poco/NumberParser.h>
#include <Poco/String.h>
#include <Poco/URI.h>

namespace Kivo::Web {

namespace {

std::string decoded(std::string text) {
    Poco::replaceInPlace(text, "+", " ");
    std::string out;
    Poco::URI::decode(text, out);
    return out;
}

}  // namespace

QueryParameters QueryParameters::parse(const std::string& rawQuery) {
    QueryParameters parameters;
    std::size_t start = 0;
    while (start < rawQuery.size()) {
        std::size_t end = rawQuery.find('&', start);
        if (end == std::string::npos) end = rawQuery.size();
        const std::string pair = rawQuery.substr(start, end - start);
        if (!pair.empty()) {
            const std::size_t equals = pair.find('=');
            parameters.m_parameters.emplace_back(
                decoded(pair.substr(0, equals)),
                equals == std::string::npos ? std::string() : decoded(pair.substr(equals + 1)));
        }
        start = end + 1;
    }
    return parameters;
}

std::string QueryParameters::first(const std::string& name) const {
    for (const auto& parameter : m_parameters) {
        if (parameter.first == name) return parameter.second;
    }
    return std::string();
}

bool QueryParameters::has(const std::string& name) const {
    for (const auto& parameter : m_parameters) {
        if (parameter.first == name) return true;
    }
    return false;
}

std::vector<std::string> QueryParameters::all(const std::string& name) const {
    std::vector<std::string> values;
    for (const auto& parameter : m_parameters) {
        if (parameter.first == name) values.push_back(parameter.second);
    }
    return values;
}

bool QueryParameters::integer(const std::string& name, int& value) const {
    if (!has(name)) return true;
    const std::string text = first(name);
    int parsed = 0;
    if (text.empty() || text.find_first_not_of("+-0123456789") != std::string::npos ||
        !Poco::NumberParser::tryParse(text, parsed)) {
        return false;
    }
    value = parsed;
    return true;
}

}  // namespace Kivo::Web
