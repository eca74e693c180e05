#include "flow_channels.h"

#include <algorithm>
#include <cstring>

namespace flow {
namespace {

// The library asks what a channel is without saying for whom.
Channels *g_building = nullptr;

BOOL get(const char *, void *value, double *raw) {
    *raw = *static_cast<double *>(value);
    return TRUE;
}

LOG_map_defn row(const char *name, const char *format, LOG_VAR_TYPE type, void *data,
                 const char *description) {
    return {name, format, nullptr, type, data, nullptr, nullptr, nullptr, description};
}

LOG_map_defn end_row() {
    return row(nullptr, nullptr, LVT_END, nullptr, nullptr);
}

IO_real_input_var *input_of(const LL_NODE *node) {
    return static_cast<IO_real_input_var *>(node->data);
}

} // namespace

Channels::Channels(daemon_kit::Daemon &daemon, IO_set_real set, void *pd)
    : station_(daemon.station()), set_(set), set_pd_(pd) {
    values_.fill(MVC);
    CONF_node *const local = daemon.configuration().local();
    build(local);
    LOG_avg_control_init(&averaging_, daemon.configuration().root(), local);
    LOG_avg_register_link(&averaging_, station_.messages());
    open_log(daemon.configuration());
    IO_real_output_register_link(&outputs_, station_.messages());
    IO_request_resend_real(station_.messages());
}

Channels::~Channels() {
    LOG_close(&file_);
    LOG_avg_control_delete(&averaging_);
    IO_real_output_delete(&outputs_);
    IO_real_input_delete(&inputs_);
}

void Channels::build(CONF_node *local) {
    const LOG_map_defn others[] = {row("Flags", "%04X", LVT_WORD, &flags_,
                                       "Flags: 1, 2, 4 contaminated, 16 (hex 10) size cut"),
                                   end_row()};
    LOG_map_defn *table = nullptr;
    IO_real_input_init(&inputs_);
    IO_real_output_init(&outputs_);
    g_building = this;
    IO_real_input_build(&inputs_, CONF_lookup_tree(local, "analog"), define_input, others, &table,
                        nullptr, nullptr);
    IO_real_output_build(&outputs_, CONF_lookup_tree(local, "output"), define_output);
    g_building = nullptr;
    average_record_.reset(table);
    build_monitor_record();
}

// Running averages, and how the instrument answers.
void Channels::build_monitor_record() {
    for (const LL_NODE *node = inputs_.head; node != nullptr; node = node->next)
        monitor_names_.push_back(std::string("R") + input_of(node)->name);
    auto name = monitor_names_.begin();
    for (const LL_NODE *node = inputs_.head; node != nullptr; node = node->next)
        monitor_record_.push_back(row((name++)->c_str(), input_of(node)->deffmt,
                                      LVT_AVG_SHIFTING_RUNNING, &input_of(node)->avg,
                                      "Running average"));
    monitor_record_.push_back(
        row("Asked", "%u", LVT_DWORD, &asked_, "Questions to the instrument since the start"));
    monitor_record_.push_back(
        row("Failed", "%u", LVT_DWORD, &failed_, "Questions without a good answer"));
    monitor_record_.push_back(end_row());
}

void Channels::define_input(IO_define_real_input_in *in, IO_define_real_input_out *out) {
    for (size_t i = 0; i < k_quantities.size(); ++i)
        if (in->channel != nullptr && strcmp(in->channel, k_quantities[i].channel) == 0)
            *out = {TRUE, get, &g_building->values_[i], k_quantities[i].format};
    if (!out->valid)
        g_building->station_.tell("the variable %s has no channel: flow, pressure, temperature, "
                                  "valve or setpoint",
                                  in->name);
}

void Channels::define_output(IO_define_real_output_in *in, IO_define_real_output_out *out) {
    if (in->channel != nullptr && strcmp(in->channel, "setpoint") == 0)
        *out = {TRUE, g_building->set_, g_building->set_pd_};
    else
        g_building->station_.tell("the output %s has no channel: setpoint", in->name);
}

// A daemon without a log file measures all the same; "zebctl log on" and "zebctl log switch" begin
// one once the directory is there.
void Channels::open_log(const daemon_kit::Configuration &configuration) {
    file_.owner = this;
    LOG_init(&file_);
    // "*": every row is a column. "record;A" and "record;M" of the configuration choose others.
    LOG_define_record(&file_, "A", "*", average_record_.get(), configuration.local(), FALSE);
    LOG_define_record(&file_, "M", "*", monitor_record_.data(), configuration.local(), FALSE);
    if (!LOG_open(&file_, configuration.root(), configuration.local(), station_.messages()))
        station_.tell("no log file; its directory is missing?");
    LOG_register_link(&file_, station_.messages(), write_monitor, write_average);
}

void Channels::take(const Reading &reading, double setpoint, unsigned asked, unsigned failed) {
    values_ = {reading.flow, reading.pressure, reading.temperature, reading.valve, setpoint};
    asked_ = asked;
    failed_ = failed;
    IO_real_input_update(&inputs_, &averaging_);
    IO_real_input_send_instant(&inputs_, station_.messages());
}

// The period that ends at `time`; what is measured from now on belongs to the next.
void Channels::write_average(LOG_file *file, FTIME time) {
    Channels &self = *static_cast<File *>(file)->owner;
    self.flags_ = LOG_avg_effective_flags(&self.averaging_);
    LOG_write(file, self.station_.link(), "A", time);
    IO_real_input_send_avg(&self.inputs_, self.station_.messages(), time);
    IO_real_input_clear_avg(&self.inputs_);
}

void Channels::write_monitor(LOG_file *file, FTIME time) {
    LOG_write(file, static_cast<File *>(file)->owner->station_.link(), "M", time);
}

} // namespace flow
