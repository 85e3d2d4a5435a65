#ifndef QESSERVICEDATALIB_WEB_QUERYPARAMETERS_H
#define QESSERVICEDATALIB_WEB_QUERYPARAMETERS_H

#include <string>
#include <utility>
#include <vector>

namespace Kivo::Web {

// The parameters of a request's query string, decoded, in their order; a name may repeat.
// "+" reads as a blank (as browsers' form encoding writes it; a literal "+" comes as "%2B").
class QueryParameters {
public:
    // Throws Poco::SyntaxException for a bad percent-encoding.
    static QueryParameters parse(const std::string& rawQuery);
    // The first value of `name`, or empty.
    std::string first(const std::string& name) const;
    // Whether `name` is present.
    bool has(const std::string& name) const;
    // Every value of `name`, in order.
    std::vector<std::string> all(const std::string& name) const;
    // Whether `name` is absent (`value` unchanged) or a decimal int (`value` set).
    bool integer(const std::string& name, int& value) const;

private:
    std::vector<std::pair<std::string, std::string>> m_parameters;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_QUERYPARAMETERS_H
