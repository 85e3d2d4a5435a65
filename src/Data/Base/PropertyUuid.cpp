#include "Data/Base/PropertyUuid.h"

#include <Poco/UUIDGenerator.h>

namespace Kivo::Data::Base {

template class PropertyValue<Poco::UUID>;

PropertyValueUuid::PropertyValueUuid()
    : PropertyValue<Poco::UUID>(Poco::UUIDGenerator().createRandom()) {}

namespace {

constexpr std::size_t TEXT_SIZE = 36;

// Writes the TEXT_SIZE characters of `uuid`'s text as Poco::UUID::toString() does.
void writeText(const Poco::UUID& uuid, char* text) {
    static const char* const DIGITS = "0123456789abcdef";
    // Where each byte's two digits go: the dashes stand at 8, 13, 18 and 23.
    static const unsigned char AT[16] = {0,  2,  4,  6,  9,  11, 14, 16,
                                         19, 21, 24, 26, 28, 30, 32, 34};
    char bytes[16];
    uuid.copyTo(bytes);
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        text[AT[i]] = DIGITS[byte >> 4];
        text[AT[i] + 1] = DIGITS[byte & 0x0F];
    }
    text[8] = text[13] = text[18] = text[23] = '-';
}

}  // namespace

std::string PropertyValueUuid::textOf(const Poco::UUID& uuid) {
    char text[TEXT_SIZE];
    writeText(uuid, text);
    return std::string(text, TEXT_SIZE);
}

void PropertyValueUuid::appendTextOf(const Poco::UUID& uuid, std::string& text) {
    char written[TEXT_SIZE];
    writeText(uuid, written);
    text.append(written, TEXT_SIZE);
}

bool PropertyValueUuid::isTextOf(const std::string& text, const Poco::UUID& uuid) {
    if (text.size() != TEXT_SIZE) return false;
    char written[TEXT_SIZE];
    writeText(uuid, written);
    return text.compare(0, TEXT_SIZE, written, TEXT_SIZE) == 0;
}

Poco::UUID UuidKey::toUuid() const {
    char bytes[16];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<char>(m_high >> (56 - 8 * i));
        bytes[8 + i] = static_cast<char>(m_low >> (56 - 8 * i));
    }
    Poco::UUID uuid;
    uuid.copyFrom(bytes);
    return uuid;
}

}  // namespace Kivo::Data::Base
