// Values of one record by name, as a dump, and as a line of columns, beside snprintf of the same
// names and values: 126 of them, nearly all doubles.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <vector>

#include <zeb2/libzeb2.h>

namespace {

constexpr char k_type[] = "NET_AE33_Instant";
constexpr TIME k_start = 1408631041;

NET_AE33_Instant filled_record() {
    NET_AE33_Instant record;
    NETPACK_fill_mvc(&record, k_type, sizeof record);
    record.start_time = k_start + 0.25;
    for (NET_AE33_Reading *reading : {&record.in, &record.ra}) {
        for (int i = 0; i < 7; ++i) {
            const double value = 1234.5678 * (i + 1);
            memcpy(&reading->X[i], &value, sizeof value);
        }
    }
    return record;
}

// A value as a caller without a catalogue would have it: its name in parts.
struct Named {
    std::string field;
    size_t number; // 0: none
    NETPACK_ds_iterator_types type;
    double real;
    int integer;
};

void remember(char *name, NETPACK_ds_iterator_types type, void *value, size_t size, void *param) {
    Named named = {name, 0, type, 0, 0};
    if (type == NETPACK_ITERATOR_DOUBLE)
        memcpy(&named.real, value, size);
    else
        memcpy(&named.integer, value, size);
    const size_t end = named.field.rfind('_');
    if (end != std::string::npos && end + 2 == named.field.size()) {
        named.number = static_cast<size_t>(named.field[end + 1] - '0');
        named.field.resize(end);
    }
    static_cast<std::vector<Named> *>(param)->push_back(named);
}

std::vector<Named> named_values() {
    const NET_AE33_Instant record = filled_record();
    std::vector<Named> values;
    NETPACK_iterate_ds_raw(&record, k_type, sizeof record, remember, &values, "");
    return values;
}

void per_value(benchmark::State &state, size_t count) {
    state.counters["values"] = static_cast<double>(count);
    state.counters["per_value"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * static_cast<double>(count),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void count_value(char *name, NETPACK_ds_iterator_types, void *value, size_t, void *param) {
    benchmark::DoNotOptimize(name);
    benchmark::DoNotOptimize(value);
    ++*static_cast<size_t *>(param);
}

void zeb_iterate(benchmark::State &state) {
    const NET_AE33_Instant record = filled_record();
    size_t count = 0;
    for (auto _ : state) {
        count = 0;
        NETPACK_iterate_ds_raw(&record, k_type, sizeof record, count_value, &count, "A11_");
    }
    per_value(state, count);
}

void snprintf_names(benchmark::State &state) {
    const std::vector<Named> values = named_values();
    char name[64];
    for (auto _ : state) {
        for (const Named &value : values) {
            if (value.number == 0)
                snprintf(name, sizeof name, "%s%s", "A11_", value.field.c_str());
            else
                snprintf(name, sizeof name, "%s%s_%zd", "A11_", value.field.c_str(), value.number);
            benchmark::DoNotOptimize(name);
        }
    }
    per_value(state, values.size());
}

// A line of columns: texts behind each other, whoever makes them.
void snprintf_values(benchmark::State &state) {
    const std::vector<Named> values = named_values();
    char line[4096];
    for (auto _ : state) {
        size_t used = 0;
        for (const Named &value : values) {
            const int length =
                value.type == NETPACK_ITERATOR_DOUBLE
                    ? snprintf(line + used, sizeof line - used, ",%+012E", value.real)
                    : snprintf(line + used, sizeof line - used, ",%d", value.integer);
            used += static_cast<size_t>(length);
        }
        benchmark::DoNotOptimize(line);
    }
    per_value(state, values.size());
}

void zeb_dump(benchmark::State &state) {
    const NET_AE33_Instant record = filled_record();
    FILE *sink = fopen("/dev/null", "w");
    for (auto _ : state)
        NETPACK_print_ds_raw(&record, k_type, sizeof record, sink, "# ");
    fclose(sink);
    per_value(state, named_values().size());
}

void zeb_dump_package(benchmark::State &state) {
    const NET_AE33_Instant record = filled_record();
    size_t size = 0;
    void *package = NETPACK_package_ds(&record, k_type, sizeof record, &size);
    FILE *sink = fopen("/dev/null", "w");
    for (auto _ : state)
        NETPACK_print_ds(package, size, sink, "# ");
    fclose(sink);
    free(package);
    per_value(state, named_values().size());
}

void fprintf_dump(benchmark::State &state) {
    const std::vector<Named> values = named_values();
    FILE *sink = fopen("/dev/null", "w");
    for (auto _ : state) {
        for (const Named &value : values) {
            if (value.type == NETPACK_ITERATOR_DOUBLE)
                fprintf(sink, ",%+012E", value.real);
            else
                fprintf(sink, ",%d", value.integer);
        }
    }
    fclose(sink);
    per_value(state, values.size());
}

// Into the queue of a descriptor; the servicing thread writes meanwhile.
void zeb_columns(benchmark::State &state) {
    const NET_AE33_Instant record = filled_record();
    LIBZEB_init("bench");
    ZEBFILE_init();
    const int fh = ZEBFILE_open("/dev/null", ZEBFILE_WRITE, 0);
    size_t lines = 0;
    for (auto _ : state) {
        NETPACK_print_ds_tabular_raw_zebfile(&record, k_type, sizeof record, fh);
        if (++lines % 1000 == 0) {
            state.PauseTiming();
            ZEBFILE_flush(fh);
            state.ResumeTiming();
        }
    }
    ZEBFILE_destroy();
    LIBZEB_cleanup();
    per_value(state, named_values().size());
}

std::string columns_of_record() {
    std::string line;
    for (const Named &value : named_values()) {
        char text[32];
        if (value.type == NETPACK_ITERATOR_DOUBLE)
            snprintf(text, sizeof text, "%+012E", value.real);
        else
            snprintf(text, sizeof text, "%d", value.integer);
        line += (line.empty() ? "" : ",") + std::string(text);
    }
    return line;
}

void zeb_read_columns(benchmark::State &state) {
    const std::string line = columns_of_record();
    NET_AE33_Instant record;
    for (auto _ : state) {
        NETPACK_read_ds_tabular_raw(&record, k_type, sizeof record, line.c_str());
        benchmark::DoNotOptimize(record);
    }
    per_value(state, named_values().size());
}

void strtod_columns(benchmark::State &state) {
    const std::string line = columns_of_record();
    for (auto _ : state) {
        const char *at = line.c_str();
        for (char *end; *at != '\0'; at = *end == ',' ? end + 1 : end)
            benchmark::DoNotOptimize(strtod(at, &end));
    }
    per_value(state, named_values().size());
}

BENCHMARK(zeb_iterate);
BENCHMARK(snprintf_names);
BENCHMARK(zeb_dump);
BENCHMARK(zeb_dump_package);
BENCHMARK(fprintf_dump);
BENCHMARK(zeb_columns);
BENCHMARK(snprintf_values);
BENCHMARK(zeb_read_columns);
BENCHMARK(strtod_columns);

} // namespace
