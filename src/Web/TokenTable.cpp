#include "Web/TokenTable.h"

#include <fstream>
#include <sstream>

#include <Poco/Exception.h>
#include <Poco/String.h>

namespace Kivo::Web {

namespace {

bool sameName(const std::string& granted, const std::string& name) {
    return granted.empty() || Poco::icompare(granted, name) == 0;
}

bool isTokenText(const std::string& token) {
    for (const char byte : token) {
        if (byte <= ' ' || byte > '~') return false;
    }
    return token.size() >= TokenTable::MIN_TOKEN_LENGTH;
}

}  // namespace

TokenTable TokenTable::parse(std::istream& in) {
    TokenTable table;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string trimmed = Poco::trim(line);
        if (trimmed.empty() || trimmed[0] == '#') continue;
        std::istringstream words(trimmed);
        std::string token, level, scope, extra;
        words >> token >> level >> scope;
        const std::string where = "tokens line " + std::to_string(number) + ": ";
        if (scope.empty() || (words >> extra)) {
            throw Poco::SyntaxException(where + "expected <token> read|write <scope>");
        }
        if (!isTokenText(token)) {
            throw Poco::SyntaxException(where + "a token is at least " +
                                        std::to_string(MIN_TOKEN_LENGTH) +
                                        " printable characters");
        }
        if (level != "read" && level != "write") {
            throw Poco::SyntaxException(where + "access is read or write, not " + level);
        }
        const std::size_t slash = scope.find('/');
        const std::string service = scope == "*" ? std::string() : scope.substr(0, slash);
        const std::string resource =
            slash == std::string::npos ? std::string() : scope.substr(slash + 1);
        if (scope != "*" && (service.empty() || (slash != std::string::npos && resource.empty()))) {
            throw Poco::SyntaxException(where + "scope is *, <service> or <service>/<resource>");
        }
        table.grant(token, level == "write" ? ACCESS_WRITE : ACCESS_READ, service, resource);
    }
    return table;
}

TokenTable TokenTable::load(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw Poco::FileNotFoundException("cannot read the tokens file", path);
    return parse(in);
}

void TokenTable::grant(const std::string& token, Access access, const std::string& service,
                       const std::string& resource) {
    if (!isTokenText(token)) {
        throw Poco::InvalidArgumentException("token too short or not printable ASCII");
    }
    for (Holder& holder : m_holders) {
        if (holder.token == token) {
            holder.grants.push_back({access, service, resource});
            return;
        }
    }
    m_holders.push_back({token, {{access, service, resource}}});
}

std::optional<std::size_t> TokenTable::find(const std::string& token) const {
    // Every holder is compared, whatever matched before, so the time spent does not tell
    // which one matched.
    std::optional<std::size_t> found;
    for (std::size_t holder = 0; holder < m_holders.size(); ++holder) {
        if (equalInConstantTime(m_holders[holder].token, token)) found = holder;
    }
    return found;
}

TokenTable::Access TokenTable::access(std::size_t holder, const std::string& service,
                                      const std::string& resource) const {
    Access best = ACCESS_NONE;
    for (const Grant& grant : m_holders.at(holder).grants) {
        const bool covers = sameName(grant.service, service) &&
                            (resource.empty() || sameName(grant.resource, resource));
        if (covers && grant.access > best) best = grant.access;
    }
    return best;
}

std::string TokenTable::bearerOf(const std::string& authorization) {
    static const std::string SCHEME = "bearer ";
    if (authorization.size() <= SCHEME.size() ||
        Poco::icompare(authorization.substr(0, SCHEME.size()), SCHEME) != 0) {
        return std::string();
    }
    return Poco::trim(authorization.substr(SCHEME.size()));
}

bool TokenTable::equalInConstantTime(const std::string& stored, const std::string& presented) {
    // Runs over the presented text whatever its length, reading the stored token cyclically,
    // and folds every difference (the lengths' included) into one value.
    unsigned difference = stored.size() == presented.size() ? 0u : 1u;
    for (std::size_t i = 0; i < presented.size(); ++i) {
        difference |= static_cast<unsigned char>(stored[i % stored.size()]) ^
                      static_cast<unsigned char>(presented[i]);
    }
    return difference == 0 && !presented.empty();
}

}  // namespace Kivo::Web
