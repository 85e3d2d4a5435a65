#ifndef QESSERVICEDATALIB_CLIENT_TEXTPATTERN_H
#define QESSERVICEDATALIB_CLIENT_TEXTPATTERN_H

#include <cstddef>
#include <string>

namespace Kivo::Client {

/// How letters compare in a search.
enum Case {
    /// Byte for byte.
    CASE_SENSITIVE,
    /// ASCII letters match either case; every other byte (UTF-8 sequences included) compares
    /// as it is.
    CASE_INSENSITIVE,
};

/// A client's search text. "%" stands for any run of characters, the empty run and line
/// breaks included; every other byte stands for itself (dots, brackets, backslashes, "|", NUL
/// and so on). There is no escape: a text cannot ask for a literal "%", and "%25" is "%"
/// followed by "25" (decoding a URL is the caller's work).
///
/// The text is split at its wildcards into literal segments. A value matches when it begins
/// with the first segment, ends with the last, and holds the ones between in order without
/// overlap; each is taken at its leftmost place, which is enough for a pattern whose only
/// wildcard is "%", so matching never backtracks: it costs at most the value's length times
/// the text's length, and a value shorter than the segments together is refused at once.
/// A pattern is an immutable value; any thread may use it.
class TextPattern {
public:
    /// The pattern of `text`, compared as `sensitivity` says.
    explicit TextPattern(const std::string& text, Case sensitivity = CASE_SENSITIVE);

    /// The pattern of the values holding `text` anywhere: `text` with a "%" on either side.
    static TextPattern containing(const std::string& text, Case sensitivity = CASE_SENSITIVE);

    /// Whether `value` as a whole matches the pattern.
    bool matches(const std::string& value) const;

    /// Whether the text holds no "%": it matches only itself (or, case-insensitively, its case
    /// variants).
    bool isExact() const { return m_wildcards == 0; }
    /// Whether the text's one "%" ends it and follows at least one byte: it matches the values
    /// that begin with getPrefix().
    bool isPrefix() const;
    /// The text as compared: as given, with ASCII letters in lower case when case-insensitive.
    const std::string& getText() const { return m_text; }
    /// The part of getText() before the first "%" (all of it when isExact()).
    std::string getPrefix() const { return m_text.substr(0, m_text.find('%')); }
    /// How letters compare.
    Case getCase() const { return m_case; }

private:
    // Whether `value` holds the `length` bytes of m_text from `segment` at `offset`.
    bool segmentAt(const std::string& value, std::size_t offset, std::size_t segment,
                   std::size_t length) const;
    bool equal(char valueByte, char textByte) const;

    // The segments between wildcards are read off the text as matching goes, so a pattern
    // holds no more than the text.
    std::string m_text;
    Case m_case;
    std::size_t m_wildcards;
};

}  // namespace Kivo::Client

#endif  // QESSERVICEDATALIB_CLIENT_TEXTPATTERN_H
