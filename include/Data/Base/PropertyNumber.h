#ifndef QESSERVICEDATALIB_DATA_BASE_PROPERTYNUMBER_H
#define QESSERVICEDATALIB_DATA_BASE_PROPERTYNUMBER_H

#include <cmath>
#include <cstdint>
#include <limits>
#include <mutex>
#include <set>
#include <string>
#include <tuple>

#include <Poco/Nullable.h>
#include <Poco/NumberFormatter.h>
#include <Poco/NumberParser.h>

#include "Data/Base/PropertyValue.h"

namespace Kivo::Data::Base {

/// A number with optional inclusive limits and an optional resolution. An unset limit means
/// "no limit"; an unset resolution means values are stored as given.
///
/// setValue rounds to a multiple of the resolution first (halves away from zero: with a
/// resolution of 10, 14 gives 10, 15 gives 20, -15 gives -20), then checks the limits on the
/// rounded value. Text goes through setValueFromString, which is not rounded. Where rounding
/// away from zero would leave the range of T, the value rounds toward zero instead.
///
/// The library instantiates it for long, the type of every integer property; text then is a
/// signed 64-bit decimal with ',' allowed as thousands separator.
///
/// Limits and resolution are kept once per distinct combination in the process, which values
/// share and never free; a value without any keeps none. Values are many and their limits are
/// declared per property, so the distinct combinations are few.
template <typename T>
class PropertyValueNumberBase : public PropertyValue<T> {
public:
    /// The stored number type, T.
    typedef T value_type;

    /// Zero, without limits or resolution.
    PropertyValueNumberBase() : PropertyValue<T>(T()), m_limits(nullptr) {}
    /// Holds `value` as given, neither rounded nor checked, with the given inclusive limits
    /// and resolution; a null Nullable means none.
    PropertyValueNumberBase(const value_type& value, Poco::Nullable<T> minValue,
                            Poco::Nullable<T> maxValue, Poco::Nullable<T> resolution)
        : PropertyValue<T>(value), m_limits(intern(minValue, maxValue, resolution)) {}
    /// A copy with the same value, limits and resolution.
    PropertyValueNumberBase(const PropertyValueNumberBase&) = default;
    /// Takes `other`'s value, limits and resolution, without any check.
    PropertyValueNumberBase& operator=(const PropertyValueNumberBase&) = default;

    /// New limits apply to later writes; the stored value is not re-examined.
    void setConstraints(Poco::Nullable<T> minValue, Poco::Nullable<T> maxValue) {
        m_limits = intern(minValue, maxValue, getResolution());
    }
    /// Applies to later setValue calls; the stored value is not re-rounded.
    void setResolution(Poco::Nullable<T> resolution) {
        m_limits = intern(getMinValue(), getMaxValue(), resolution);
    }
    /// The inclusive lower limit; null when there is none. The reference stays valid for the
    /// life of the process.
    const Poco::Nullable<T>& getMinValue() const {
        return m_limits != nullptr ? m_limits->minValue : none();
    }
    /// The inclusive upper limit; null when there is none. Valid for the life of the process.
    const Poco::Nullable<T>& getMaxValue() const {
        return m_limits != nullptr ? m_limits->maxValue : none();
    }
    /// The step setValue rounds to; null when values are stored as given. Valid for the life
    /// of the process.
    const Poco::Nullable<T>& getResolution() const {
        return m_limits != nullptr ? m_limits->resolution : none();
    }

    /// The number as a variant holding a T.
    Poco::Dynamic::Var getGenericValue() const override { return this->m_value; }
    /// Whether `value` lies within the limits that are set.
    bool isValidValue(const value_type& value) const override;
    /// Rounds `value` to the resolution (see the class comment), then stores it if the rounded
    /// value lies within the limits; otherwise returns false and keeps the old value.
    bool setValue(const value_type& value) override;
    /// The plain decimal text, without thousands separators.
    std::string toString() const override { return Poco::NumberFormatter::format(this->m_value); }
    /// Reads the decimal text of a T (for long, a signed 64-bit integer with ',' allowed as
    /// thousands separator). False for any other text, with `out` untouched; no limit check.
    bool parseString(const std::string& text, value_type& out) const override {
        return parseStringImpl(text, out);
    }

private:
    // One combination of limits and resolution, at least one of them set.
    struct Limits {
        Poco::Nullable<T> minValue;
        Poco::Nullable<T> maxValue;
        Poco::Nullable<T> resolution;

        bool operator<(const Limits& other) const { return key() < other.key(); }
        auto key() const {
            return std::make_tuple(minValue.isNull(), minValue.value(T()), maxValue.isNull(),
                                   maxValue.value(T()), resolution.isNull(), resolution.value(T()));
        }
    };

    static const Limits* intern(const Poco::Nullable<T>& minValue,
                                const Poco::Nullable<T>& maxValue,
                                const Poco::Nullable<T>& resolution);
    static const Poco::Nullable<T>& none() {
        static const Poco::Nullable<T> unset;
        return unset;
    }
    static bool parseStringImpl(const std::string& text, double& out);
    static bool parseStringImpl(const std::string& text, std::int64_t& out);
    static bool parseStringImpl(const std::string& text, std::uint64_t& out);
    static double applyResolution(double value, double resolution);
    static std::int64_t applyResolution(std::int64_t value, std::int64_t resolution);
    static std::uint64_t applyResolution(std::uint64_t value, std::uint64_t resolution);

    const Limits* m_limits;  // null without limits and resolution; interned, never freed
};

template <typename T>
const typename PropertyValueNumberBase<T>::Limits* PropertyValueNumberBase<T>::intern(
    const Poco::Nullable<T>& minValue, const Poco::Nullable<T>& maxValue,
    const Poco::Nullable<T>& resolution) {
    if (minValue.isNull() && maxValue.isNull() && resolution.isNull()) return nullptr;
    // Never destroyed, so that values destroyed after static destruction began stay valid.
    static std::mutex* const mutex = new std::mutex;
    static std::set<Limits>* const table = new std::set<Limits>;
    std::lock_guard<std::mutex> lock(*mutex);
    return &*table->insert(Limits{minValue, maxValue, resolution}).first;
}

template <typename T>
bool PropertyValueNumberBase<T>::isValidValue(const value_type& value) const {
    if (m_limits == nullptr) return true;
    if (!m_limits->minValue.isNull() && value < m_limits->minValue.value()) return false;
    return m_limits->maxValue.isNull() || value <= m_limits->maxValue.value();
}

template <typename T>
bool PropertyValueNumberBase<T>::setValue(const value_type& value) {
    if (m_limits == nullptr || m_limits->resolution.isNull()) {
        return PropertyValue<T>::setValue(value);
    }
    return PropertyValue<T>::setValue(applyResolution(value, m_limits->resolution.value()));
}

template <typename T>
bool PropertyValueNumberBase<T>::parseStringImpl(const std::string& text, double& out) {
    return Poco::NumberParser::tryParseFloat(text, out, '.', ',');
}

template <typename T>
bool PropertyValueNumberBase<T>::parseStringImpl(const std::string& text, std::int64_t& out) {
    Poco::Int64 parsed = 0;
    if (!Poco::NumberParser::tryParse64(text, parsed, ',')) return false;
    out = parsed;
    return true;
}

template <typename T>
bool PropertyValueNumberBase<T>::parseStringImpl(const std::string& text, std::uint64_t& out) {
    Poco::UInt64 parsed = 0;
    if (!Poco::NumberParser::tryParseUnsigned64(text, parsed, ',')) return false;
    out = parsed;
    return true;
}

template <typename T>
double PropertyValueNumberBase<T>::applyResolution(double value, double resolution) {
    if (resolution == 0.0) return 0.0;
    return std::round(value / resolution) * resolution;
}

template <typename T>
std::int64_t PropertyValueNumberBase<T>::applyResolution(std::int64_t value,
                                                        std::int64_t resolution) {
    // 0 rounds everything to 0. Otherwise the truncated multiple; a resolution of -1 is
    // special-cased because INT64_MIN / -1 overflows.
    if (resolution == 0) return 0;
    const std::int64_t truncated = resolution == -1 ? value : (value / resolution) * resolution;
    // |value - truncated| < |resolution| and both share value's sign, so this cannot overflow.
    const std::int64_t rest = value >= truncated ? value - truncated : truncated - value;
    if (value == truncated || rest < resolution / 2) return truncated;
    std::int64_t step = 0;
    std::int64_t away = 0;
    const bool overflow =
        __builtin_sub_overflow(resolution, rest, &step) ||
        (value >= 0 ? __builtin_add_overflow(value, step, &away)
                    : __builtin_sub_overflow(value, step, &away));
    return overflow ? truncated : away;
}

template <typename T>
std::uint64_t PropertyValueNumberBase<T>::applyResolution(std::uint64_t value,
                                                         std::uint64_t resolution) {
    if (resolution == 0) return 0;
    const std::uint64_t truncated = (value / resolution) * resolution;
    const std::uint64_t rest = value - truncated;
    if (rest == 0 || rest < resolution / 2) return truncated;
    std::uint64_t away = 0;
    return __builtin_add_overflow(truncated, resolution, &away) ? truncated : away;
}

extern template class PropertyValueNumberBase<long>;

}  // namespace Kivo::Data::Base

#endif  // QESSERVICEDATALIB_DATA_BASE_PROPERTYNUMBER_H
