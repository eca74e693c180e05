// Framing in 256-byte slices, out and in, beside memcpy of the same bytes; and catalogue lookups.

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <zeb2/netmsg.h>
#include <zeb2/netpack.h>

namespace {

constexpr size_t k_slice = 256;

struct Source {
    const std::string *payload;
    int left;
};

void next_payload(void **data, size_t *size, void *param) {
    Source &source = *static_cast<Source *>(param);
    if (source.left-- <= 0)
        return;
    *size = source.payload->size();
    *data = malloc(*size);
    memcpy(*data, source.payload->data(), *size);
}

void count_payload(void *, size_t size, void *param) {
    *static_cast<size_t *>(param) += size;
}

void zeb_frame_both_ways(benchmark::State &state) {
    const std::string payload(static_cast<size_t>(state.range(0)), 'x');
    NETMSG_buffer out, in;
    NETMSG_init_buffer(&out);
    NETMSG_init_buffer(&in);
    char slice[k_slice];
    size_t received = 0;
    for (auto _ : state) {
        Source source = {&payload, 1};
        size_t n;
        do {
            NETMSG_generate_data(slice, sizeof slice, &n, &out, next_payload, &source);
            NETMSG_accept_data(slice, n, &in, count_payload, &received);
        } while (n == sizeof slice);
    }
    benchmark::DoNotOptimize(received);
    state.SetBytesProcessed(static_cast<int64_t>(received));
    NETMSG_delete_buffer(&out);
    NETMSG_delete_buffer(&in);
}
BENCHMARK(zeb_frame_both_ways)->Arg(64)->Arg(1024)->Arg(8192);

void memcpy_both_ways(benchmark::State &state) {
    const std::string payload(static_cast<size_t>(state.range(0)), 'x');
    std::vector<char> there(payload.size());
    char slice[k_slice];
    for (auto _ : state)
        for (size_t at = 0; at < payload.size(); at += k_slice) {
            const size_t n = std::min(k_slice, payload.size() - at);
            memcpy(slice, payload.data() + at, n);
            memcpy(there.data() + at, slice, n);
            benchmark::DoNotOptimize(there.data());
        }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(memcpy_both_ways)->Arg(64)->Arg(1024)->Arg(8192);

void zeb_find_record(benchmark::State &state) {
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            NETPACK_find_ds(_ndsd_structures_ext[i++ % _ndsd_structures_count_ext].name));
}
BENCHMARK(zeb_find_record);

void zeb_find_message(benchmark::State &state) {
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            NETPACK_find_msg_by_name(_nmsg_list_ext[i++ % _nmsg_list_count_ext].name));
}
BENCHMARK(zeb_find_message);

} // namespace
