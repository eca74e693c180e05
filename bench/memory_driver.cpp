// The memory of a whole daemon: a program with 100 inputs of two hours at one sample a second, each
// a column of a log file that the library's own thread writes. It lives through the two hours as
// fast as it can, a line each minute, and says what it holds.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <zeb2/libzeb2.h>

namespace {

constexpr int k_inputs = 100;
constexpr int k_samples = 7200;
constexpr int k_line_every = 60;
constexpr double k_limit = 10; // MiB

BOOL read_input(const char *, void *pd, double *value) {
    *value = static_cast<double>(++*static_cast<uint32_t *>(pd) & 1023) * 0.125;
    return TRUE;
}

uint32_t g_reading;

void define_input(IO_define_real_input_in *, IO_define_real_input_out *out) {
    out->valid = TRUE;
    out->get = read_input;
    out->get_pd = &g_reading;
    out->def_fmt = "*4.3f";
}

// Of /proc/self/smaps_rollup, in MiB. Plain C, as in a daemon: streams would be counted too.
double mebibytes(const char *key) {
    FILE *maps = fopen("/proc/self/smaps_rollup", "re");
    double kibibytes = 0;
    char line[256];
    while (maps != nullptr && fgets(line, sizeof line, maps) != nullptr)
        if (strncmp(line, key, strlen(key)) == 0)
            kibibytes = atof(line + strlen(key));
    if (maps != nullptr)
        fclose(maps);
    return kibibytes / 1024;
}

class Daemon {
  public:
    explicit Daemon(const std::string &directory) : root_(CONF_alloc()) {
        CONF_set(root_, "Disk;LogDir", directory.c_str());
        for (int i = 0; i < k_inputs; ++i) {
            const std::string name = "T" + std::to_string(i);
            CONF_set_va(root_, "-40;100", "analog", name.c_str(), "cal", nullptr);
        }
        IO_init();
        IO_real_input_init(&inputs_);
        IO_real_input_build(&inputs_, CONF_lookup_tree(root_, "analog"), define_input, base_,
                            &table_, "", &columns_);
        ZEBFILE_init();
        LOG_init(&file_);
        LOG_define_record(&file_, "A", columns_, table_, root_, FALSE);
        if (!LOG_open_basename(&file_, "memory", root_, root_, nullptr))
            abort();
    }
    ~Daemon() {
        LOG_close(&file_);
        ZEBFILE_destroy();
        IO_real_input_delete(&inputs_);
        IO_cleanup();
        free(table_);
        free(columns_);
        CONF_free(root_);
    }
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    void live() {
        for (int i = 1; i <= k_samples; ++i) {
            IO_real_input_update(&inputs_, nullptr);
            if (i % k_line_every == 0)
                LOG_write(&file_, nullptr, "A", 1400000000.0 + i);
        }
        LOG_flush(&file_);
    }

  private:
    CONF_node *root_;
    IO_real_input_def inputs_ = {};
    const LOG_map_defn base_[1] = {
        {nullptr, nullptr, nullptr, LVT_END, nullptr, nullptr, nullptr, nullptr, nullptr}};
    LOG_map_defn *table_ = nullptr;
    char *columns_ = nullptr;
    LOG_file file_ = {};
};

} // namespace

int main() {
    char directory[] = "/tmp/bench-XXXXXX";
    if (mkdtemp(directory) == nullptr)
        return 1;
    double resident = 0;
    {
        LIBZEB_init("memory");
        Daemon daemon(directory);
        const double before = mebibytes("Rss:");
        daemon.live();
        resident = mebibytes("Rss:");
        printf(
            "%d inputs of %d samples: %.1f MiB resident (limit %.0f), %.1f without shared pages, "
            "%.1f before the first sample\n",
            k_inputs, k_samples, resident, k_limit, mebibytes("Pss:"), before);
    }
    std::filesystem::remove_all(directory);
    return resident < k_limit ? 0 : 1;
}
