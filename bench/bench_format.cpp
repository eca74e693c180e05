// A 30-column line of *5.2f against snprintf and std::to_chars.

#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include <zeb2/sfmt.h>

namespace {

constexpr int k_columns = 30;

std::vector<double> columns() {
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> value(-999, 9999);
    std::vector<double> result(k_columns);
    for (double &each : result)
        each = value(random);
    return result;
}

struct Cursor {
    const double *next;
};

double next_value(void *param) {
    return *static_cast<Cursor *>(param)->next++;
}

void zeb_line(benchmark::State &state) {
    const auto values = columns();
    std::string format;
    for (int i = 0; i < k_columns; ++i)
        format += i == 0 ? "*5.2f" : ",*5.2f";
    SFMT_altprintf_cbs callbacks = {nullptr, next_value, nullptr, nullptr};
    SFMT_buffer buffer;
    SFMT_init_buffer(&buffer);
    for (auto _ : state) {
        Cursor cursor = {values.data()};
        SFMT_cbaltprintf(&buffer, format.c_str(), &callbacks, &cursor);
        benchmark::DoNotOptimize(buffer.buffer);
    }
    SFMT_destroy_buffer(&buffer);
}
BENCHMARK(zeb_line);

void snprintf_line(benchmark::State &state) {
    const auto values = columns();
    char line[1024];
    for (auto _ : state) {
        int length = 0;
        for (int i = 0; i < k_columns; ++i)
            length += snprintf(line + length, sizeof line - static_cast<size_t>(length),
                               i == 0 ? "%8.2f" : ",%8.2f", values[static_cast<size_t>(i)]);
        benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(snprintf_line);

void to_chars_line(benchmark::State &state) {
    const auto values = columns();
    char line[1024];
    for (auto _ : state) {
        char *at = line;
        for (const double value : values) {
            *at++ = ',';
            at = std::to_chars(at, line + sizeof line, value, std::chars_format::fixed, 2).ptr;
        }
        benchmark::DoNotOptimize(line);
    }
}
BENCHMARK(to_chars_line);

} // namespace
