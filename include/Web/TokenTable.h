#ifndef QESSERVICEDATALIB_WEB_TOKENTABLE_H
#define QESSERVICEDATALIB_WEB_TOKENTABLE_H

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace Kivo::Web {

/// The bearer tokens a server accepts and what each may do, per service or resource.
///
/// File format, one grant per line (blank lines and lines starting with "#" are skipped):
///
///     <token> read|write <scope>
///
/// where the scope is "*" (every service), `<service>` (every resource of it) or
/// `<service>/<resource>`; names compare case-insensitively. "write" includes "read". A token
/// may have several lines; its rights are their union. Tokens are at least 16 bytes of
/// printable ASCII without blanks.
///
/// Lookups compare the presented text with every token of the table in time that depends only
/// on the table and the presented text's length, never on where they differ, so the answer
/// leaks nothing about stored tokens. Tokens never appear in messages or logs. Immutable once
/// built; any thread may read it.
class TokenTable {
public:
    /// What a token may do in one place.
    enum Access {
        /// Nothing.
        ACCESS_NONE = 0,
        /// Read.
        ACCESS_READ = 1,
        /// Read, add, change and remove (the gates of the data still apply).
        ACCESS_WRITE = 2,
    };
    /// The shortest token accepted.
    static constexpr std::size_t MIN_TOKEN_LENGTH = 16;

    /// A table without tokens: every lookup fails.
    TokenTable() = default;
    /// The table of the grants in `in`. Throws Poco::SyntaxException("tokens line <n>: <reason>")
    /// for a malformed line; the message never holds the token.
    static TokenTable parse(std::istream& in);
    /// parse of the file at `path`; throws Poco::FileNotFoundException when it cannot be read.
    static TokenTable load(const std::string& path);

    /// Adds a grant; `service` or `resource` empty stand for every one. Throws
    /// Poco::InvalidArgumentException for a token shorter than MIN_TOKEN_LENGTH.
    void grant(const std::string& token, Access access, const std::string& service,
               const std::string& resource);
    /// Whether the table holds no token.
    bool empty() const { return m_holders.empty(); }

    /// The holder of `token` (an index for access()), or nothing for an unknown token.
    std::optional<std::size_t> find(const std::string& token) const;
    /// What holder `holder` may do with `resource` of `service`; with an empty `resource`, the
    /// most it may do with any resource of the service.
    Access access(std::size_t holder, const std::string& service,
                  const std::string& resource) const;
    /// The token of an "Authorization: Bearer <token>" header value; empty for anything else.
    static std::string bearerOf(const std::string& authorization);

private:
    struct Grant {
        Access access;
        std::string service;   // empty: every service
        std::string resource;  // empty: every resource
    };
    struct Holder {
        std::string token;
        std::vector<Grant> grants;
    };
    static bool equalInConstantTime(const std::string& stored, const std::string& presented);

    std::vector<Holder> m_holders;
};

}  // namespace Kivo::Web

#endif  // QESSERVICEDATALIB_WEB_TOKENTABLE_H
