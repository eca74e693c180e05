// zebgen_testing.h - definitions as text turned into a catalogue that the library packs and unpacks
// with, so that what zebgen says of them can be held against what the library does.
#pragma once

#include "checks.h"
#include "netpack_catalogue.h"
#include "parser.h"
#include "types.h"

#include <deque>
#include <gtest/gtest.h>
#include <map>

namespace zeb::test {

inline NETDSD_field_type type_of(const std::string &code) {
    static const std::vector<std::string> scalars = {"BOOL", "CHAR",  "BYTE",   "SHORT", "USHORT",
                                                     "INT",  "UINT",  "LONG",   "ULONG", "SIZET",
                                                     "TIME", "FTIME", "DOUBLE", "FLOAT"};
    if (code == "STRING" || code == "BIN")
        return code == "BIN" ? NETDSD_FT_BIN : NETDSD_FT_STRING;
    const bool array = code.rfind("A_", 0) == 0;
    const auto found = std::find(scalars.begin(), scalars.end(), array ? code.substr(2) : code);
    EXPECT_NE(found, scalars.end()) << code;
    return static_cast<NETDSD_field_type>(found - scalars.begin() + (array ? 14 : 0));
}

// One revision of some definitions.
class Revision {
  public:
    explicit Revision(const std::string &records, const std::string &messages = "") {
        zebgen::Problems problems;
        const std::string text =
            "#pragma pack(push, 4)\n" + records + "\n#pragma pack(pop)\n" + messages;
        model_ = zebgen::merge({zebgen::parse("t.h", "\"t.h\"", text, problems)}, problems);
        for (const zebgen::Problem &problem : problems)
            ADD_FAILURE() << text_of(problem);
        std::vector<NETDSD_entry> entries;
        for (const zebgen::Record &record : model_.records) {
            std::vector<NETDSD_field> &fields = fields_.emplace_back();
            for (const zebgen::Field &field : record.fields)
                fields.push_back({type_of(field.code), field.name.c_str(),
                                  static_cast<size_t>(field.offset),
                                  static_cast<size_t>(field.count), field.comment.c_str(),
                                  static_cast<size_t>(field.size), field.type.c_str()});
            entries.push_back(
                entry_of(record.name.c_str(), fields, static_cast<size_t>(record.size)));
        }
        std::vector<NETMSG_entry> rows;
        for (const zebgen::Message &message : model_.messages)
            rows.push_back({static_cast<NETMSG_type>(rows.size()), message.name.c_str(),
                            message.meta.c_str(),
                            message.record.empty() ? nullptr : message.record.c_str()});
        tables_ = std::make_unique<TestCatalogue>(entries, rows);
    }

    const zebgen::Catalogue &model() const { return model_; }
    netpack::Catalogue get() const { return tables_->get(); }
    const NETDSD_entry *record(const std::string &name) const {
        return netpack::find_structure(get(), name);
    }

  private:
    zebgen::Catalogue model_;
    std::deque<std::vector<NETDSD_field>> fields_;
    std::unique_ptr<TestCatalogue> tables_;
};

// A record in memory, every element of it filled.
using Image = std::vector<char>;
enum class Filling { highest, lowest, missing };

// What one number is: its digits, or "missing".
template <class T> std::string digits_of(const char *from) {
    T value;
    memcpy(&value, from, sizeof value);
    char text[64];
    snprintf(text, sizeof text, "%.25Lg", static_cast<long double>(value));
    return text;
}

// Values near the ends of the type's range, none of which is the missing value of another type, and
// reals that no integer holds.
template <class T> void put_number(char *to, Filling filling, size_t index) {
    using Limits = std::numeric_limits<T>;
    const bool high = filling == Filling::highest;
    T value;
    if constexpr (std::is_integral_v<T>)
        value = static_cast<T>(high ? Limits::max() - 1 - static_cast<int>(index % 50)
                                    : Limits::min() + static_cast<int>(index % 50));
    else
        value =
            high ? static_cast<T>(index) + T(1) / T(3) : -Limits::max() / static_cast<T>(index + 1);
    memcpy(to, &value, sizeof value);
}

struct NumberKind {
    std::string (*digits)(const char *);
    void (*put)(char *, Filling, size_t);
};
template <class T> NumberKind number_kind() {
    return {digits_of<T>, put_number<T>};
}
inline const NumberKind &number_kind_of(NETDSD_field_type type) {
    static const NumberKind kinds[] = {
        number_kind<BOOL>(),     number_kind<int8_t>(),   number_kind<BYTE>(),
        number_kind<int16_t>(),  number_kind<uint16_t>(), number_kind<int32_t>(),
        number_kind<uint32_t>(), number_kind<LONG>(),     number_kind<ULONG>(),
        number_kind<SIZET>(),    number_kind<TIME>(),     number_kind<FTIME>(),
        number_kind<double>(),   number_kind<float>()};
    return kinds[type % 14];
}

// Whether a missing value of the type differs from every other: not for short integers and floats.
inline const char *missing_digits(NETDSD_field_type type) {
    switch (type % 14) {
    case NETDSD_FT_INT:
    case NETDSD_FT_UINT:
    case NETDSD_FT_LONG:
    case NETDSD_FT_ULONG:
        return "1431655765";
    case NETDSD_FT_SIZET:
        return "4294967295";
    case NETDSD_FT_TIME:
    case NETDSD_FT_FTIME:
        return "-1";
    default:
        return "";
    }
}

inline void fill(const Revision &revision, const NETDSD_entry &entry, Filling filling, char *to) {
    for (size_t i = 0; i < entry.count_fields; i++) {
        const NETDSD_field &field = entry.fields[i];
        char *at = to + field.offset;
        for (size_t k = 0; k < field.count; k++, at += field.size) {
            if (field.ft == NETDSD_FT_BIN)
                fill(revision, *revision.record(field.type_name), filling, at);
            else if (field.ft == NETDSD_FT_STRING)
                *at = static_cast<char>(k + 1 < field.count ? 'a' + k % 26 : 0);
            else
                number_kind_of(field.ft).put(at, filling, k);
        }
    }
}

inline Image image_of(const Revision &revision, const std::string &name, Filling filling) {
    const NETDSD_entry &entry = *revision.record(name);
    Image image(entry.total_size);
    if (filling == Filling::missing)
        netpack::fill_mvc(revision.get(), image.data(), name.c_str(), image.size());
    else
        fill(revision, entry, filling, image.data());
    return image;
}

// Every element of a record by its path ("in.X[2]"), a scalar being an array of one.
using Elements = std::map<std::string, std::string>;

inline std::string element_text(const NETDSD_field &field, const char *at) {
    if (field.ft == NETDSD_FT_STRING)
        return std::string(at, strnlen(at, field.count));
    const std::string digits = number_kind_of(field.ft).digits(at);
    double real = 0;
    if (field.ft % 14 == NETDSD_FT_DOUBLE)
        memcpy(&real, at, sizeof real);
    return real == MVC || digits == missing_digits(field.ft) ? "missing" : digits;
}

inline void list_elements(const Revision &revision, const NETDSD_entry &entry, const char *record,
                          const std::string &prefix, Elements &out) {
    for (size_t i = 0; i < entry.count_fields; i++) {
        const NETDSD_field &field = entry.fields[i];
        const bool text = field.ft == NETDSD_FT_STRING;
        for (size_t k = 0; k < (text ? 1 : field.count); k++) {
            const std::string path = prefix + field.name + "[" + std::to_string(k) + "]";
            const char *at = record + field.offset + k * field.size;
            if (field.ft == NETDSD_FT_BIN)
                list_elements(revision, *revision.record(field.type_name), at, path + ".", out);
            else
                out[path] = element_text(field, at);
        }
    }
}

inline Elements elements_of(const Revision &revision, const std::string &name, const Image &image) {
    Elements elements;
    list_elements(revision, *revision.record(name), image.data(), "", elements);
    return elements;
}

// What a receiver has of an image that a sender sent; empty when the package was refused.
inline Image travelled(const Revision &sender, const Revision &receiver, const std::string &name,
                       const Image &image) {
    const Bytes package = pack(sender.get(), image.data(), name.c_str(), image.size());
    Image arrived(receiver.record(name)->total_size);
    const StderrCapture silence;
    return unpack(receiver.get(), package, arrived.data(), name.c_str(), arrived.size()) > 0
               ? arrived
               : Image();
}

} // namespace zeb::test
