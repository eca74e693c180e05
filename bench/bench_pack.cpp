// Pack and unpack of three records of the catalogue, fields in the catalogue's order and reversed,
// beside memcpy of the record and MessagePack of the same contents: as a map with field names (the
// fair peer of a self-describing record), by its macro and written by hand.

#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <msgpack.hpp>
#include <string>
#include <vector>

#include <zeb2/libzeb2.h>

namespace {

// ---- the library

std::vector<char> missing_record(const char *name) {
    std::vector<char> record(NETPACK_find_ds(name)->total_size);
    NETPACK_fill_mvc(record.data(), name, record.size());
    return record;
}

std::vector<char> filled_record(const std::string &name) {
    std::vector<char> record = missing_record(name.c_str());
    if (name == "NET_LOG_MonitorMessage")
        memset(record.data() + 12, 'x', 8191);
    return record;
}

std::vector<char> package_of(const std::string &name) {
    const std::vector<char> record = filled_record(name);
    size_t size = 0;
    void *package = NETPACK_package_ds(record.data(), name.c_str(), record.size(), &size);
    std::vector<char> result(static_cast<char *>(package), static_cast<char *>(package) + size);
    free(package);
    return result;
}

// Puts the fields of a package, and of the packages nested in it, in the opposite order.
class Reverser {
  public:
    explicit Reverser(const std::vector<char> &package) : in_(package) {}

    std::vector<char> result() {
        std::vector<char> out;
        take(out, 1);
        const size_t name = number<uint16_t>(out);
        take(out, name);
        const size_t count = number<uint16_t>(out);
        std::vector<std::vector<char>> fields(count);
        for (auto &field : fields)
            take_field(field);
        for (auto field = fields.rbegin(); field != fields.rend(); ++field)
            out.insert(out.end(), field->begin(), field->end());
        return out;
    }

  private:
    void take(std::vector<char> &out, size_t n) {
        out.insert(out.end(), in_.begin() + static_cast<long>(at_),
                   in_.begin() + static_cast<long>(at_ + n));
        at_ += n;
    }

    template <typename T> size_t number(std::vector<char> &out) {
        T value;
        memcpy(&value, in_.data() + at_, sizeof value);
        take(out, sizeof value);
        return value;
    }

    void take_field(std::vector<char> &out) {
        take(out, number<uint16_t>(out));
        const size_t type = number<uint16_t>(out);
        const size_t count = g_netpack_field_send_count[type] ? number<uint16_t>(out) : 1;
        if (type == NETDSD_FT_STRING)
            return take(out, number<uint16_t>(out));
        if (type != NETDSD_FT_BIN)
            return take(out, count * g_netpack_field_sizes[type]);
        const size_t described = number<BYTE>(out);
        const size_t size = number<uint32_t>(out);
        for (size_t i = 0; described != 0 && i < count; ++i) {
            const size_t length = number<uint32_t>(out);
            std::vector<char> nested;
            take(nested, length);
            nested = Reverser(nested).result();
            out.insert(out.end(), nested.begin(), nested.end());
        }
        take(out, count * size);
    }

    const std::vector<char> &in_;
    size_t at_ = 0;
};

void unpack(benchmark::State &state, const std::string &name, const std::vector<char> &package) {
    std::vector<char> record(NETPACK_find_ds(name.c_str())->total_size);
    for (auto _ : state) {
        NETPACK_unpack_ds(package.data(), package.size(), record.data(), record.size(),
                          name.c_str());
        benchmark::DoNotOptimize(record.data());
    }
}

void zeb_pack(benchmark::State &state, const std::string &name) {
    const std::vector<char> record = filled_record(name);
    for (auto _ : state) {
        size_t size;
        void *package = NETPACK_package_ds(record.data(), name.c_str(), record.size(), &size);
        benchmark::DoNotOptimize(package);
        free(package);
    }
}

void zeb_unpack(benchmark::State &state, const std::string &name) {
    unpack(state, name, package_of(name));
}

void zeb_unpack_reversed(benchmark::State &state, const std::string &name) {
    const std::vector<char> package = package_of(name);
    unpack(state, name, Reverser(package).result());
}

void zeb_pack_unpack(benchmark::State &state, const std::string &name) {
    const std::vector<char> record = filled_record(name);
    std::vector<char> copy(record.size());
    for (auto _ : state) {
        size_t size;
        void *package = NETPACK_package_ds(record.data(), name.c_str(), record.size(), &size);
        NETPACK_unpack_ds(package, size, copy.data(), copy.size(), name.c_str());
        benchmark::DoNotOptimize(copy.data());
        free(package);
    }
}

// What no format can do without: the record's bytes into a fresh block, and back.
void memcpy_pack_unpack(benchmark::State &state, const std::string &name) {
    const std::vector<char> record = filled_record(name);
    std::vector<char> copy(record.size());
    for (auto _ : state) {
        void *block = malloc(record.size());
        memcpy(block, record.data(), record.size());
        benchmark::DoNotOptimize(block);
        memcpy(copy.data(), block, copy.size());
        benchmark::DoNotOptimize(copy.data());
        free(block);
    }
}

// ---- MessagePack, by its macro

struct MapHeartbeat {
    unsigned int hb_idx = 5;
    MSGPACK_DEFINE_MAP(hb_idx)
};

struct MapMonitor {
    unsigned char flags = 0;
    double msgtime = 0;
    std::string msg = std::string(8191, 'x');
    MSGPACK_DEFINE_MAP(flags, msg, msgtime)
};

using Channels = std::array<double, 7>;

struct MapReading {
    double time = 0;
    Channels wavelengths{}, X{}, a{}, b{}, c{}, d{}, e{}, f{};
    double Q1 = 0, Q2 = 0, T1 = 0, T2 = 0;
    unsigned short flags = 0;
    MSGPACK_DEFINE_MAP(time, wavelengths, X, a, b, c, d, e, f, Q1, Q2, T1, T2, flags)
};

struct MapInstant {
    double start_time = 0;
    MapReading in, ra;
    double S = 0;
    MSGPACK_DEFINE_MAP(S, in, ra, start_time)
};

template <typename Record> void msgpack_map_pack_unpack(benchmark::State &state) {
    const Record record;
    Record copy;
    for (auto _ : state) {
        msgpack::sbuffer buffer;
        msgpack::pack(buffer, record);
        const msgpack::object_handle handle = msgpack::unpack(buffer.data(), buffer.size());
        handle.get().convert(copy);
        benchmark::DoNotOptimize(copy);
    }
}

// ---- MessagePack, by hand: the keys are written and skipped, the members known by their places

using Packer = msgpack::packer<msgpack::sbuffer>;

void key(Packer &packer, const char *name, size_t length) {
    packer.pack_str(static_cast<uint32_t>(length))
        .pack_str_body(name, static_cast<uint32_t>(length));
}

void channels(Packer &packer, const Channels &values) {
    packer.pack_array(7);
    for (const double value : values)
        packer.pack_double(value);
}

void reading(Packer &packer, const MapReading &r) {
    static const char *const names[] = {"a", "b", "c", "d", "e", "f", "X"};
    const Channels *const arrays[] = {&r.a, &r.b, &r.c, &r.d, &r.e, &r.f, &r.X};
    packer.pack_map(14);
    key(packer, "time", 4), packer.pack_double(r.time);
    key(packer, "wavelengths", 11), channels(packer, r.wavelengths);
    for (size_t i = 0; i < 7; ++i)
        key(packer, names[i], 1), channels(packer, *arrays[i]);
    key(packer, "Q1", 2), packer.pack_double(r.Q1);
    key(packer, "Q2", 2), packer.pack_double(r.Q2);
    key(packer, "T1", 2), packer.pack_double(r.T1);
    key(packer, "T2", 2), packer.pack_double(r.T2);
    key(packer, "flags", 5), packer.pack_unsigned_short(r.flags);
}

void take(const msgpack::object &object, Channels &values) {
    for (size_t i = 0; i < 7; ++i)
        values[i] = object.via.array.ptr[i].via.f64;
}

void take(const msgpack::object &object, MapReading &r) {
    const msgpack::object_kv *at = object.via.map.ptr;
    r.time = (at++)->val.via.f64;
    for (Channels *each : {&r.wavelengths, &r.a, &r.b, &r.c, &r.d, &r.e, &r.f, &r.X})
        take((at++)->val, *each);
    for (double *each : {&r.Q1, &r.Q2, &r.T1, &r.T2})
        *each = (at++)->val.via.f64;
    r.flags = static_cast<unsigned short>(at->val.via.u64);
}

void msgpack_hand_pack_unpack(benchmark::State &state) {
    const MapInstant record;
    MapInstant copy;
    for (auto _ : state) {
        msgpack::sbuffer buffer;
        Packer packer(buffer);
        packer.pack_map(4);
        key(packer, "S", 1), packer.pack_double(record.S);
        key(packer, "in", 2), reading(packer, record.in);
        key(packer, "ra", 2), reading(packer, record.ra);
        key(packer, "start_time", 10), packer.pack_double(record.start_time);
        const msgpack::object_handle handle = msgpack::unpack(buffer.data(), buffer.size());
        const msgpack::object_kv *at = handle.get().via.map.ptr;
        copy.S = at[0].val.via.f64;
        take(at[1].val, copy.in);
        take(at[2].val, copy.ra);
        copy.start_time = at[3].val.via.f64;
        benchmark::DoNotOptimize(copy);
    }
}

#define RECORD(NAME)                                                                               \
    BENCHMARK_CAPTURE(zeb_pack, NAME, #NAME);                                                      \
    BENCHMARK_CAPTURE(zeb_unpack, NAME, #NAME);                                                    \
    BENCHMARK_CAPTURE(zeb_unpack_reversed, NAME, #NAME);                                           \
    BENCHMARK_CAPTURE(zeb_pack_unpack, NAME, #NAME);                                               \
    BENCHMARK_CAPTURE(memcpy_pack_unpack, NAME, #NAME)

RECORD(NET_SERVER_Heartbeat);
BENCHMARK(msgpack_map_pack_unpack<MapHeartbeat>);
RECORD(NET_AE33_Instant);
BENCHMARK(msgpack_map_pack_unpack<MapInstant>);
BENCHMARK(msgpack_hand_pack_unpack);
RECORD(NET_LOG_MonitorMessage);
BENCHMARK(msgpack_map_pack_unpack<MapMonitor>);

} // namespace
