#include "netpack_convert.h"

#include "netpack_int.h"

#include <cmath>
#include <limits>

namespace zeb::netpack {
namespace {

// One number on its way between two types.
struct Value {
    uint64_t integer = 0x5555555555555555u;
    double floating = MVC;
    bool is_integer = false;
    bool is_signed = false;
};

template <class T> Value value_of(const char *from) {
    Value value;
    if constexpr (std::is_integral_v<T>) {
        value.integer = static_cast<uint64_t>(static_cast<int64_t>(load<T>(from)));
        value.is_integer = true;
        value.is_signed = std::is_signed_v<T>;
    } else {
        value.floating = static_cast<double>(load<T>(from));
    }
    return value;
}

template <class T> T truncated(double value) {
    if (std::isnan(value))
        return 0;
    if (value <= static_cast<double>(std::numeric_limits<T>::min()))
        return std::numeric_limits<T>::min();
    if (value >= static_cast<double>(std::numeric_limits<T>::max()))
        return std::numeric_limits<T>::max();
    return static_cast<T>(value);
}

template <class T> T value_as(const Value &value) {
    if constexpr (std::is_integral_v<T>)
        return value.is_integer ? static_cast<T>(value.integer) : truncated<T>(value.floating);
    else if (!value.is_integer)
        return static_cast<T>(value.floating);
    else if (value.is_signed)
        return static_cast<T>(static_cast<int64_t>(value.integer));
    else
        return static_cast<T>(value.integer);
}

template <class T> void store(const Value &value, char *to) {
    const T result = value_as<T>(value);
    memcpy(to, &result, sizeof result);
}

struct Conversion {
    Value (*read)(const char *from);
    void (*write)(const Value &value, char *to);
};

template <class T> constexpr Conversion conversion() {
    return {value_of<T>, store<T>};
}

// By scalar type code.
constexpr Conversion k_conversions[] = {
    conversion<BOOL>(),     conversion<int8_t>(),  conversion<BYTE>(),     conversion<int16_t>(),
    conversion<uint16_t>(), conversion<int32_t>(), conversion<uint32_t>(), conversion<LONG>(),
    conversion<ULONG>(),    conversion<SIZET>(),   conversion<TIME>(),     conversion<FTIME>(),
    conversion<double>(),   conversion<float>(),
};

} // namespace

void convert_value(NETDSD_field_type from_type, const char *from, NETDSD_field_type to_type,
                   char *to) {
    const NETDSD_field_type source = scalar_of(from_type);
    const NETDSD_field_type target = scalar_of(to_type);
    if (source == target)
        memcpy(to, from, g_netpack_field_sizes[source]);
    else
        k_conversions[target].write(k_conversions[source].read(from), to);
}

} // namespace zeb::netpack
