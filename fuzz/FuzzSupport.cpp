#include "FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <Poco/AutoPtr.h>
#include <Poco/JSON/Parser.h>
#include <Poco/Message.h>
#include <Poco/NullChannel.h>

#include "Logging/Log.h"

namespace Kivo::Fuzz {

void silenceLog() {
    Poco::Logger& logger = Logging::Log::Logger();
    logger.setChannel(Poco::AutoPtr<Poco::Channel>(new Poco::NullChannel));
    logger.setLevel(Poco::Message::PRIO_TRACE);
}

Poco::Dynamic::Var parseJson(const std::string& text) {
    try {
        return Poco::JSON::Parser().parse(text);
    } catch (const Poco::Exception&) {
        return Poco::Dynamic::Var();
    }
}

std::string memberText(const Poco::Dynamic::Var& member) {
    if (member.isString()) return member.extract<std::string>();
    return member.convert<std::string>();
}

void fail(const std::string& what) {
    std::fprintf(stderr, "==qes-fuzz== broken contract: %s\n", what.c_str());
    std::abort();
}

InputReader::InputReader(const std::uint8_t* data, std::size_t size)
    : m_text(reinterpret_cast<const char*>(data), size) {}

unsigned char InputReader::byte() {
    return atEnd() ? 0 : static_cast<unsigned char>(m_text[m_position++]);
}

char InputReader::choice(const char* letters) {
    const unsigned char next = byte();
    if (next != 0 && std::strchr(letters, next) != nullptr) return static_cast<char>(next);
    return letters[next % std::strlen(letters)];
}

std::string InputReader::line() {
    if (atEnd()) return std::string();
    const std::size_t end = m_text.find('\n', m_position);
    if (end == std::string::npos) return rest();
    std::string text = m_text.substr(m_position, end - m_position);
    m_position = end + 1;
    return text;
}

std::string InputReader::rest() {
    if (atEnd()) return std::string();
    std::string text = m_text.substr(m_position);
    m_position = m_text.size();
    return text;
}

std::vector<Data::Base::Object*> IndexInspection::operator()(
    const Data::Base::PropertyIndexReferenceMap& indexes) const {
    m_inspect(indexes);
    return {};
}

}  // namespace Kivo::Fuzz
