// Variables that daemons share: a value looked up among 100, an update message of 64 values taken
// in, an output set, and one reading of 100 own inputs, calibrated and averaged. Beside them what
// the standard library needs for the same.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string>
#include <unistd.h>

#include <zeb2/libzeb2.h>

namespace {

constexpr int k_variables = 100;
constexpr int k_in_message = 64;

std::string name_of(int i) {
    return "T" + std::to_string(i) + "_Q1";
}

// A message of some variables, shown to the procedure that a link would show it to.
class Messages {
  public:
    Messages() {
        IO_init();
        IO_register_link(&link_);
        procedure_ = *static_cast<ZEBMSG_library_msg_process *>(link_.cl_lib_cbs.head->data);
    }
    ~Messages() {
        LL_clear(&link_.cl_lib_cbs);
        IO_cleanup();
    }
    Messages(const Messages &) = delete;
    Messages &operator=(const Messages &) = delete;

    void update(int first, int count, double value) {
        for (int i = 0; i < count; ++i) {
            strcpy(record_.chans[i].name, name_of(first + i).c_str());
            record_.chans[i].val = value;
        }
        record_.n = static_cast<DWORD>(count);
        show();
    }
    void show() { procedure_.cb(&message_, &link_, procedure_.param); }

  private:
    ZEBMSG_link link_ = {};
    ZEBMSG_library_msg_process procedure_ = {};
    NET_IO_MultiReal record_ = {};
    char sender_[8] = "ain";
    ZEBMSG_proc_msg message_ = {NETPACK_find_msg_by_type(MSG_IO_INSTANT),
                                NETPACK_find_ds("NET_IO_MultiReal"),
                                1,
                                sender_,
                                nullptr,
                                &record_};
};

void zeb_lookup(benchmark::State &state) {
    Messages messages;
    messages.update(0, 50, 1.5);
    messages.update(50, 50, 1.5);
    int i = 0;
    std::string names[k_variables];
    for (int n = 0; n < k_variables; ++n)
        names[n] = name_of(n);
    for (auto _ : state)
        benchmark::DoNotOptimize(IO_lookup(names[i++ % k_variables].c_str()));
}
BENCHMARK(zeb_lookup);

void map_lookup(benchmark::State &state) {
    std::map<std::string, double> values;
    std::string names[k_variables];
    for (int n = 0; n < k_variables; ++n)
        values[names[n] = name_of(n)] = 1.5;
    int i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(values.find(names[i++ % k_variables])->second);
}
BENCHMARK(map_lookup);

void zeb_update_message(benchmark::State &state) {
    Messages messages;
    messages.update(0, k_in_message, 1.5);
    for (auto _ : state)
        messages.show();
    state.SetItemsProcessed(state.iterations() * k_in_message);
}
BENCHMARK(zeb_update_message);

constexpr int k_batch = 1000; // messages on a link that sends none

// A link without a socket. That it ends is not worth telling.
class Unlinked {
  public:
    Unlinked() { begin(); }
    ~Unlinked() { end(); }
    Unlinked(const Unlinked &) = delete;
    Unlinked &operator=(const Unlinked &) = delete;
    ZEBMSG_link *get() { return &link_; }
    void empty() {
        end();
        begin();
    }

  private:
    void begin() {
        link_ = {};
        link_.fh = link_.clear_fh = -1;
    }
    void end() {
        const int shown = dup(STDERR_FILENO), hidden = open("/dev/null", O_WRONLY);
        dup2(hidden, STDERR_FILENO);
        ZEBMSG_multi_destroy(&link_);
        dup2(shown, STDERR_FILENO);
        close(shown);
        close(hidden);
    }
    ZEBMSG_link link_;
};

void zeb_set(benchmark::State &state) {
    IO_init();
    Unlinked link;
    int queued = 0;
    for (auto _ : state) {
        IO_set(link.get(), "valve", 50.0);
        if (++queued == k_batch) {
            state.PauseTiming();
            link.empty();
            queued = 0;
            state.ResumeTiming();
        }
    }
    IO_cleanup();
}
BENCHMARK(zeb_set);

BOOL read_input(const char *, void *pd, double *value) {
    *value = static_cast<double>(++*static_cast<uint32_t *>(pd) & 1023) * 0.125;
    return TRUE;
}

uint32_t g_reading;

void define_input(IO_define_real_input_in *, IO_define_real_input_out *out) {
    out->valid = TRUE;
    out->get = read_input;
    out->get_pd = &g_reading;
}

void zeb_read_inputs(benchmark::State &state) {
    CONF_node *tree = CONF_alloc();
    for (int i = 0; i < k_variables; ++i)
        CONF_set_va(tree, "-40;100", name_of(i).c_str(), "cal", nullptr);
    IO_real_input_def inputs;
    IO_real_input_init(&inputs);
    IO_real_input_build(&inputs, tree, define_input, nullptr, nullptr, nullptr, nullptr);
    int readings = 0;
    for (auto _ : state) {
        IO_real_input_update(&inputs, nullptr);
        if (++readings % 60 == 0) // the end of a minute
            IO_real_input_clear_avg(&inputs);
    }
    state.SetItemsProcessed(state.iterations() * k_variables);
    IO_real_input_delete(&inputs);
    CONF_free(tree);
}
BENCHMARK(zeb_read_inputs);

} // namespace
