// A data line of 30 columns, evaluated, formatted and queued, against snprintf of the same columns;
// and whole lines until they are in the file, against fprintf and fflush.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include <zeb2/libzeb2.h>

namespace {

constexpr int k_columns = 30;
constexpr int k_batch = 1000; // lines between flushes

std::vector<double> readings() {
    std::vector<double> values;
    for (int i = 0; i < k_columns; ++i)
        values.push_back(12.5 * i - 99.75);
    return values;
}

// A record with its columns, in a file of a directory of its own.
class Log {
  public:
    Log() : values_(readings()) {
        char name[] = "/tmp/bench-XXXXXX";
        if (mkdtemp(name) == nullptr)
            abort();
        directory_ = name;
        for (int i = 0; i < k_columns; ++i)
            names_.push_back("V" + std::to_string(i));
        for (int i = 0; i < k_columns; ++i)
            table_.push_back({names_[static_cast<size_t>(i)].c_str(), "*5.2f", nullptr, LVT_DOUBLE,
                              &values_[static_cast<size_t>(i)], nullptr, nullptr, nullptr,
                              "A reading"});
        table_.push_back(
            {nullptr, nullptr, nullptr, LVT_END, nullptr, nullptr, nullptr, nullptr, nullptr});
        open();
    }
    ~Log() {
        LOG_close(&file_);
        ZEBFILE_destroy();
        CONF_free(root_);
        std::filesystem::remove_all(directory_);
    }
    Log(const Log &) = delete;
    Log &operator=(const Log &) = delete;

    void write() { LOG_write(&file_, nullptr, "S", 1400000000.0); }
    void flush() { LOG_flush(&file_); }

  private:
    void open() {
        root_ = CONF_alloc();
        CONF_set(root_, "Disk;LogDir", directory_.c_str());
        std::string columns;
        for (const std::string &name : names_)
            columns += (columns.empty() ? "" : ";") + name;
        ZEBFILE_init();
        LOG_init(&file_);
        LOG_define_record(&file_, "S", columns.c_str(), table_.data(), root_, FALSE);
        if (!LOG_open_basename(&file_, "bench", root_, root_, nullptr))
            abort();
    }

    std::vector<double> values_;
    std::vector<std::string> names_;
    std::vector<LOG_map_defn> table_;
    std::string directory_;
    CONF_node *root_ = nullptr;
    LOG_file file_ = {};
};

int print_line(char *line, size_t size, const std::vector<double> &values) {
    const time_t time = 1400000000;
    tm utc;
    gmtime_r(&time, &utc);
    int length = snprintf(line, size, "SX1,STN,%u,%04d-%02d-%02dT%02d:%02d:%02dZ",
                          static_cast<unsigned>(time), utc.tm_year + 1900, utc.tm_mon + 1,
                          utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    for (const double value : values)
        length += snprintf(line + length, size - static_cast<size_t>(length), ",%8.2f", value);
    line[length++] = '\n';
    return length;
}

void zeb_line_queued(benchmark::State &state) {
    Log log;
    int queued = 0;
    for (auto _ : state) {
        log.write();
        if (++queued == k_batch) { // what waits must not grow with the number of repetitions
            state.PauseTiming();
            log.flush();
            queued = 0;
            state.ResumeTiming();
        }
    }
}
BENCHMARK(zeb_line_queued);

void snprintf_line(benchmark::State &state) {
    const auto values = readings();
    char line[1024];
    for (auto _ : state)
        benchmark::DoNotOptimize(print_line(line, sizeof line, values));
}
BENCHMARK(snprintf_line);

void zeb_lines_to_disk(benchmark::State &state) {
    Log log;
    for (auto _ : state) {
        for (int i = 0; i < k_batch; ++i)
            log.write();
        log.flush();
    }
    state.SetItemsProcessed(state.iterations() * k_batch);
}
BENCHMARK(zeb_lines_to_disk)->UseRealTime();

void fprintf_lines_to_disk(benchmark::State &state) {
    const auto values = readings();
    char name[] = "/tmp/bench-XXXXXX";
    FILE *file = fdopen(mkstemp(name), "w");
    if (file == nullptr)
        abort();
    char line[1024];
    for (auto _ : state) {
        for (int i = 0; i < k_batch; ++i)
            fwrite(line, 1, static_cast<size_t>(print_line(line, sizeof line, values)), file);
        fflush(file);
    }
    state.SetItemsProcessed(state.iterations() * k_batch);
    fclose(file);
    remove(name);
}
BENCHMARK(fprintf_lines_to_disk)->UseRealTime();

} // namespace
