#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H

#include <cstdint>
#include <string>

#include <Poco/Dynamic/Var.h>
#include <Poco/UUID.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

extern template class PropertyValue<Poco::UUID>;

/// A UUID; the null UUID is refused. Ordering and equality are the UUID library's.
class PropertyValueUuid : public PropertyValue<Poco::UUID> {
public:
    /// A new random UUID, so default values are distinct and valid.
    PropertyValueUuid();
    /// Holds `uuid`, unchecked (so possibly the null UUID).
    explicit PropertyValueUuid(const Poco::UUID& uuid) : PropertyValue<Poco::UUID>(uuid) {}
    /// Throws Poco::SyntaxException for a malformed `text`.
    explicit PropertyValueUuid(const std::string& text)
        : PropertyValue<Poco::UUID>(Poco::UUID(text)) {}
    /// A copy holding the same UUID.
    PropertyValueUuid(const PropertyValueUuid&) = default;
    /// Takes `other`'s UUID, unchecked.
    PropertyValueUuid& operator=(const PropertyValueUuid&) = default;

    /// The canonical lower-case text with hyphens (std::string).
    Poco::Dynamic::Var getGenericValue() const override { return textOf(m_value); }
    /// Whether `uuid` is not the null UUID.
    bool isValidValue(const Poco::UUID& uuid) const override { return uuid != Poco::UUID::null(); }
    /// Reads a UUID in the UUID library's text forms; false for any other text. Logs nothing on
    /// failure.
    bool parseString(const std::string& text, Poco::UUID& out) const override {
        return parseText(text, out);
    }

    /// The text of `uuid` as Poco::UUID::toString() writes it (lower-case hex, 8-4-4-4-12),
    /// written without its per-digit appends: ids are written out on every element added.
    static std::string textOf(const Poco::UUID& uuid);
    /// Appends textOf(uuid) to `text`, so a URI ending in an id is written in one string.
    static void appendTextOf(const Poco::UUID& uuid, std::string& text);
    /// Whether `text` is textOf(uuid), compared without writing a string: such a text reads
    /// back as `uuid`, so a caller holding both can skip parsing it.
    static bool isTextOf(const std::string& text, const Poco::UUID& uuid);
    /// Reads `text` as Poco::UUID::tryParse does, into `uuid` on success; on failure `uuid`
    /// keeps its value. The usual text (36 characters, hyphens at 8, 13, 18 and 23) is read
    /// without the library's per-field parse: every element added from JSON brings one.
    static bool parseText(const std::string& text, Poco::UUID& uuid);
};

/// A UUID as a key of ordered containers: its 16 bytes in the UUID library's order (copyTo)
/// held as two big-endian 64-bit words. Comparing the words byte-wise is comparing the UUIDs
/// field by field, unsigned, which is Poco::UUID's operator<; unlike that operator, it is two
/// inline comparisons instead of a call per field. A plain value: copy it freely.
class UuidKey {
public:
    /// The key of the null UUID.
    UuidKey() = default;
    /// The key of `uuid`.
    explicit UuidKey(const Poco::UUID& uuid) {
        char bytes[16];
        uuid.copyTo(bytes);
        m_high = wordAt(bytes);
        m_low = wordAt(bytes + 8);
    }

    /// The UUID the key was made from.
    Poco::UUID toUuid() const;

    /// Whether `a`'s UUID orders before `b`'s, as Poco::UUID's operator< answers.
    friend bool operator<(const UuidKey& a, const UuidKey& b) {
        return a.m_high < b.m_high || (a.m_high == b.m_high && a.m_low < b.m_low);
    }
    /// Whether both keys stand for the same UUID.
    friend bool operator==(const UuidKey& a, const UuidKey& b) {
        return a.m_high == b.m_high && a.m_low == b.m_low;
    }
    /// Whether the keys stand for different UUIDs.
    friend bool operator!=(const UuidKey& a, const UuidKey& b) { return !(a == b); }

private:
    static std::uint64_t wordAt(const char* bytes) {
        std::uint64_t word = 0;
        for (int i = 0; i < 8; ++i) word = word << 8 | static_cast<unsigned char>(bytes[i]);
        return word;
    }

    std::uint64_t m_high = 0;
    std::uint64_t m_low = 0;
};

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYUUID_H
