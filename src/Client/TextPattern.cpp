#include "Client/TextPattern.h"

#include <algorithm>

namespace Kivo::Client {

namespace {

const char WILDCARD = '%';

char foldAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace

TextPattern::TextPattern(const std::string& text, Case sensitivity)
    : m_text(text),
      m_case(sensitivity),
      m_wildcards(static_cast<std::size_t>(std::count(text.begin(), text.end(), WILDCARD))) {
    if (m_case == CASE_INSENSITIVE) {
        std::transform(m_text.begin(), m_text.end(), m_text.begin(), foldAscii);
    }
}

TextPattern TextPattern::containing(const std::string& text, Case sensitivity) {
    return TextPattern(WILDCARD + text + WILDCARD, sensitivity);
}

bool TextPattern::isPrefix() const {
    return m_wildcards == 1 && m_text.size() > 1 && m_text.back() == WILDCARD;
}

bool TextPattern::equal(char valueByte, char textByte) const {
    return (m_case == CASE_INSENSITIVE ? foldAscii(valueByte) : valueByte) == textByte;
}

bool TextPattern::segmentAt(const std::string& value, std::size_t offset, std::size_t segment,
                            std::size_t length) const {
    const auto begin = m_text.begin() + segment;
    return std::equal(begin, begin + length, value.begin() + offset,
                      [this](char t, char v) { return equal(v, t); });
}

bool TextPattern::matches(const std::string& value) const {
    const std::size_t literals = m_text.size() - m_wildcards;
    if (value.size() < literals) return false;
    if (isExact()) return value.size() == literals && segmentAt(value, 0, 0, literals);
    const std::size_t firstEnd = m_text.find(WILDCARD);
    const std::size_t lastBegin = m_text.rfind(WILDCARD) + 1;
    const std::size_t lastLength = m_text.size() - lastBegin;
    // The size check above leaves room for the first and the last segment side by side.
    if (!segmentAt(value, 0, 0, firstEnd) ||
        !segmentAt(value, value.size() - lastLength, lastBegin, lastLength)) {
        return false;
    }
    auto from = value.begin() + firstEnd;
    const auto to = value.end() - lastLength;
    // Each middle segment at its leftmost place after the previous one.
    for (std::size_t begin = firstEnd + 1; begin < lastBegin;) {
        const std::size_t end = m_text.find(WILDCARD, begin);
        const auto segment = m_text.begin() + begin;
        const auto segmentEnd = m_text.begin() + end;
        from = std::search(from, to, segment, segmentEnd,
                           [this](char v, char t) { return equal(v, t); });
        if (from == to && segment != segmentEnd) return false;
        from += end - begin;
        begin = end + 1;
    }
    return true;
}

}  // namespace Kivo::Client
