#include "Data/Base/PropertyUuid.h"

#include <Poco/UUIDGenerator.h>

namespace Kivo::Data::Base {

template class PropertyValue<Poco::UUID>;

PropertyValueUuid::PropertyValueUuid()
    : PropertyValue<Poco::UUID>(Poco::UUIDGenerator().createRandom()) {}

namespace {

constexpr std::size_t TEXT_SIZE = 36;

// Where each byte's two digits go: the dashes stand at 8, 13, 18 and 23.
constexpr unsigned char AT[16] = {0, 2, 4, 6, 9, 11, 14, 16, 19, 21, 24, 26, 28, 30, 32, 34};

// The two lower-case digits of every byte, and the value of every character as a hex digit
// (either case; -1 for other characters): ids are written and read on every element added,
// and a table look-up per byte is what keeps that cheap.
struct DigitTables {
    char pairs[256][2];
    signed char values[256];

    DigitTables() : pairs(), values() {
        const char* const digits = "0123456789abcdef";
        for (int byte = 0; byte < 256; ++byte) {
            pairs[byte][0] = digits[byte >> 4];
            pairs[byte][1] = digits[byte & 0x0F];
            values[byte] = -1;
        }
        for (int digit = 0; digit < 16; ++digit) {
            values[static_cast<unsigned char>(digits[digit])] = static_cast<signed char>(digit);
            values[static_cast<unsigned char>("0123456789ABCDEF"[digit])] =
                static_cast<signed char>(digit);
        }
    }
};

const DigitTables& digitTables() {
    static const DigitTables tables;
    return tables;
}

// Writes the TEXT_SIZE characters of `uuid`'s text as Poco::UUID::toString() does.
void writeText(const Poco::UUID& uuid, char* text) {
    const DigitTables& tables = digitTables();
    char bytes[16];
    uuid.copyTo(bytes);
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        const char* const pair = tables.pairs[static_cast<unsigned char>(bytes[i])];
        text[AT[i]] = pair[0];
        text[AT[i] + 1] = pair[1];
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

bool PropertyValueUuid::parseText(const std::string& text, Poco::UUID& uuid) {
    // Other lengths, and texts with other separators, are the library's to judge: it takes
    // the form without hyphens, and ignores what follows the first 36 characters.
    if (text.size() != TEXT_SIZE || text[8] != '-' || text[13] != '-' || text[18] != '-' ||
        text[23] != '-') {
        return uuid.tryParse(text);
    }
    const signed char* const values = digitTables().values;
    char bytes[16];
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        const int high = values[static_cast<unsigned char>(text[AT[i]])];
        const int low = values[static_cast<unsigned char>(text[AT[i] + 1])];
        if ((high | low) < 0) return false;
        bytes[i] = static_cast<char>(high << 4 | low);
    }
    uuid.copyFrom(bytes);
    return true;
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
