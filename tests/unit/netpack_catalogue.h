// netpack_catalogue.h - catalogues written by hand for the tests of netpack, and a record with an
// instrument's nesting and arrays.
#pragma once

#include "netpack_int.h"

#include "definitions/log.h"
#include "definitions/server.h"
#include "support.h"

#include <cstddef>
#include <string>
#include <vector>

namespace zeb::test {

// Rows in byte order of their names, as the generator writes them.
class TestCatalogue {
  public:
    explicit TestCatalogue(std::vector<NETDSD_entry> structures,
                           std::vector<NETMSG_entry> messages = {})
        : structures_(std::move(structures)), messages_(std::move(messages)) {}
    ~TestCatalogue() { netpack::free_plans(get()); }
    TestCatalogue(const TestCatalogue &) = delete;
    TestCatalogue &operator=(const TestCatalogue &) = delete;

    netpack::Catalogue get() {
        return {structures_.data(), structures_.size(), messages_.data(), messages_.size(),
                &cache_};
    }

  private:
    std::vector<NETDSD_entry> structures_;
    std::vector<NETMSG_entry> messages_;
    netpack::PlanCache cache_;
};

inline NETDSD_entry entry_of(const char *name, const std::vector<NETDSD_field> &fields,
                             size_t total_size) {
    return {fields.data(), fields.size(), name, total_size};
}

#define TEST_FIELD(FT, RECORD, MEMBER, COUNT, SIZE, TYPE)                                          \
    NETDSD_field {                                                                                 \
        FT, #MEMBER, offsetof(RECORD, MEMBER), COUNT, "", SIZE, TYPE                               \
    }

#pragma pack(push, 4)
// One member of every type, in byte order of their names.
struct Every {
    BYTE a_bin[12]; // three opaque elements of four bytes
    BOOL a_bool[2];
    BYTE a_byte[3];
    char a_char[5];
    double a_double[3];
    float a_float[2];
    FTIME a_ftime[2];
    int32_t a_int[2];
    LONG a_long[2];
    int16_t a_short[3];
    SIZET a_sizet[2];
    TIME a_time[2];
    uint32_t a_uint[2];
    ULONG a_ulong[2];
    uint16_t a_ushort[2];
    BOOL b;
    BYTE byte;
    char c;
    double d;
    float f;
    FTIME ft;
    int32_t i;
    LONG l;
    int16_t s;
    SIZET sz;
    STRING text[6];
    TIME tm;
    uint32_t ui;
    ULONG ul;
    uint16_t us;
};

struct Part {
    double v;
    STRING tag[4];
};

struct Whole {
    int32_t n;
    Part parts[2];
    FTIME when;
};

struct Ae33Reading {
    double ATN_time;
    double wavelengths[7];
    double X[7];
    double a1[7], a2[7], b1[7], b2[7], k[7], t[7];
    double Q1, Q2, P, T;
    WORD flags;
};

struct Ae33 {
    FTIME start_time;
    Ae33Reading in;
    Ae33Reading ra;
    double S;
};
#pragma pack(pop)

static_assert(sizeof(Ae33Reading) == 492 && sizeof(Ae33) == 1000);

inline const std::vector<NETDSD_field> k_every_fields = {
    TEST_FIELD(NETDSD_FT_BIN, Every, a_bin, 3, 4, "Opaque"),
    TEST_FIELD(NETDSD_FT_A_BOOL, Every, a_bool, 2, 1, "BOOL"),
    TEST_FIELD(NETDSD_FT_A_BYTE, Every, a_byte, 3, 1, "BYTE"),
    TEST_FIELD(NETDSD_FT_A_CHAR, Every, a_char, 5, 1, "char"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Every, a_double, 3, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_FLOAT, Every, a_float, 2, 4, "float"),
    TEST_FIELD(NETDSD_FT_A_FTIME, Every, a_ftime, 2, 8, "FTIME"),
    TEST_FIELD(NETDSD_FT_A_INT, Every, a_int, 2, 4, "int"),
    TEST_FIELD(NETDSD_FT_A_LONG, Every, a_long, 2, 4, "long"),
    TEST_FIELD(NETDSD_FT_A_SHORT, Every, a_short, 3, 2, "short"),
    TEST_FIELD(NETDSD_FT_A_SIZET, Every, a_sizet, 2, 4, "size_t"),
    TEST_FIELD(NETDSD_FT_A_TIME, Every, a_time, 2, 4, "time_t"),
    TEST_FIELD(NETDSD_FT_A_UINT, Every, a_uint, 2, 4, "DWORD"),
    TEST_FIELD(NETDSD_FT_A_ULONG, Every, a_ulong, 2, 4, "unsigned long"),
    TEST_FIELD(NETDSD_FT_A_USHORT, Every, a_ushort, 2, 2, "WORD"),
    TEST_FIELD(NETDSD_FT_BOOL, Every, b, 1, 1, "BOOL"),
    TEST_FIELD(NETDSD_FT_BYTE, Every, byte, 1, 1, "BYTE"),
    TEST_FIELD(NETDSD_FT_CHAR, Every, c, 1, 1, "char"),
    TEST_FIELD(NETDSD_FT_DOUBLE, Every, d, 1, 8, "double"),
    TEST_FIELD(NETDSD_FT_FLOAT, Every, f, 1, 4, "float"),
    TEST_FIELD(NETDSD_FT_FTIME, Every, ft, 1, 8, "FTIME"),
    TEST_FIELD(NETDSD_FT_INT, Every, i, 1, 4, "int"),
    TEST_FIELD(NETDSD_FT_LONG, Every, l, 1, 4, "long"),
    TEST_FIELD(NETDSD_FT_SHORT, Every, s, 1, 2, "short"),
    TEST_FIELD(NETDSD_FT_SIZET, Every, sz, 1, 4, "size_t"),
    TEST_FIELD(NETDSD_FT_STRING, Every, text, 6, 1, "STRING"),
    TEST_FIELD(NETDSD_FT_TIME, Every, tm, 1, 4, "time_t"),
    TEST_FIELD(NETDSD_FT_UINT, Every, ui, 1, 4, "DWORD"),
    TEST_FIELD(NETDSD_FT_ULONG, Every, ul, 1, 4, "unsigned long"),
    TEST_FIELD(NETDSD_FT_USHORT, Every, us, 1, 2, "WORD"),
};

inline const std::vector<NETDSD_field> k_part_fields = {
    TEST_FIELD(NETDSD_FT_STRING, Part, tag, 4, 1, "STRING"),
    TEST_FIELD(NETDSD_FT_DOUBLE, Part, v, 1, 8, "double"),
};

inline const std::vector<NETDSD_field> k_whole_fields = {
    TEST_FIELD(NETDSD_FT_INT, Whole, n, 1, 4, "int"),
    TEST_FIELD(NETDSD_FT_BIN, Whole, parts, 2, sizeof(Part), "Part"),
    TEST_FIELD(NETDSD_FT_FTIME, Whole, when, 1, 8, "FTIME"),
};

inline const std::vector<NETDSD_field> k_reading_fields = {
    TEST_FIELD(NETDSD_FT_DOUBLE, Ae33Reading, ATN_time, 1, 8, "double"),
    TEST_FIELD(NETDSD_FT_DOUBLE, Ae33Reading, P, 1, 8, "double"),
    TEST_FIELD(NETDSD_FT_DOUBLE, Ae33Reading, Q1, 1, 8, "double"),
    TEST_FIELD(NETDSD_FT_DOUBLE, Ae33Reading, Q2, 1, 8, "double"),
    TEST_FIELD(NETDSD_FT_DOUBLE, Ae33Reading, T, 1, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, X, 7, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, a1, 7, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, a2, 7, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, b1, 7, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, b2, 7, 8, "double"),
    TEST_FIELD(NETDSD_FT_USHORT, Ae33Reading, flags, 1, 2, "WORD"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, k, 7, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, t, 7, 8, "double"),
    TEST_FIELD(NETDSD_FT_A_DOUBLE, Ae33Reading, wavelengths, 7, 8, "double"),
};

inline const std::vector<NETDSD_field> k_ae33_fields = {
    TEST_FIELD(NETDSD_FT_DOUBLE, Ae33, S, 1, 8, "double"),
    TEST_FIELD(NETDSD_FT_BIN, Ae33, in, 1, sizeof(Ae33Reading), "NET_AE33_Reading"),
    TEST_FIELD(NETDSD_FT_BIN, Ae33, ra, 1, sizeof(Ae33Reading), "NET_AE33_Reading"),
    TEST_FIELD(NETDSD_FT_FTIME, Ae33, start_time, 1, 8, "FTIME"),
};

inline std::vector<NETDSD_entry> sample_structures() {
    return {entry_of("Every", k_every_fields, sizeof(Every)),
            entry_of("NET_AE33_Instant", k_ae33_fields, sizeof(Ae33)),
            entry_of("NET_AE33_Reading", k_reading_fields, sizeof(Ae33Reading)),
            entry_of("Part", k_part_fields, sizeof(Part)),
            entry_of("Whole", k_whole_fields, sizeof(Whole))};
}

// One record of one member, for a catalogue of one row.
class OneField {
  public:
    OneField(NETDSD_field_type type, size_t count, size_t size, const char *type_name = "?")
        : fields_{{type, "v", 0, count, "", size, type_name}},
          catalogue_({entry_of("One", fields_, count * size)}) {}
    netpack::Catalogue get() { return catalogue_.get(); }
    size_t size() const { return fields_[0].count * fields_[0].size; }

  private:
    std::vector<NETDSD_field> fields_;
    TestCatalogue catalogue_;
};

inline Bytes pack(const netpack::Catalogue &catalogue, const void *record, const char *name,
                  size_t size) {
    size_t length = 0;
    void *package = netpack::package_ds(catalogue, record, name, size, &length);
    if (package == nullptr)
        return {};
    const auto *first = static_cast<const unsigned char *>(package);
    Bytes bytes(first, first + length);
    free(package);
    return bytes;
}

// Unpacks from a block of exactly the package's size, so that a sanitizer sees any read beyond it.
inline size_t unpack(const netpack::Catalogue &catalogue, const Bytes &package, void *record,
                     const char *name, size_t size) {
    void *exact = malloc(package.size() == 0 ? 1 : package.size());
    if (!package.empty())
        memcpy(exact, package.data(), package.size());
    const size_t consumed =
        netpack::unpack_ds(catalogue, exact, package.size(), record, size, name);
    free(exact);
    return consumed;
}

// Writes packages piece by piece, independently of the code under test.
class PackageText {
  public:
    PackageText &u8(unsigned v) { return raw(&v, 1); }
    PackageText &u16(unsigned v) { return raw(&v, 2); }
    PackageText &u32(uint32_t v) { return raw(&v, 4); }
    PackageText &i32(int32_t v) { return raw(&v, 4); }
    PackageText &f32(float v) { return raw(&v, 4); }
    PackageText &f64(double v) { return raw(&v, 8); }
    PackageText &text(const std::string &v) {
        u16(static_cast<unsigned>(v.size()));
        return raw(v.data(), v.size());
    }
    PackageText &raw(const void *data, size_t size) {
        const auto *first = static_cast<const unsigned char *>(data);
        bytes_.insert(bytes_.end(), first, first + size);
        return *this;
    }
    PackageText &append(const Bytes &more) { return raw(more.data(), more.size()); }
    PackageText &open(const std::string &name, unsigned fields) {
        return u8(1).text(name).u16(fields);
    }
    PackageText &field(const std::string &name, unsigned type) { return text(name).u16(type); }
    PackageText &field(const std::string &name, unsigned type, unsigned count) {
        return field(name, type).u16(count);
    }
    const Bytes &bytes() const { return bytes_; }

  private:
    Bytes bytes_;
};

} // namespace zeb::test
