// flow_channels.h - what the flow daemon measures and sets, as variables of the station and as
// columns of its log file, under the same names.
//
//   flow::Channels channels(daemon, on_setpoint, &controller);
//   each reading:   channels.take(reading, setpoint, asked, failed);
// Everything else follows from messages: averages end, files change, air is contaminated.
#pragma once

#include <array>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "daemon.h"
#include "flow_instrument.h"
#include "flow_keys.h"

namespace flow {

class Channels {
  public:
    // Begins the log file and asks for the last set points. `set` is
    // called when a program sets the output; `pd` goes with it.
    Channels(daemon_kit::Daemon &daemon, IO_set_real set, void *pd);
    ~Channels(); // before the station's links close: the last lines are written
    Channels(const Channels &) = delete;
    Channels &operator=(const Channels &) = delete;

    // One reading, also one without an answer: calibrates, averages and publishes it.
    void take(const Reading &reading, double setpoint, unsigned asked, unsigned failed);

  private:
    // What the library hands to the callbacks of a log file.
    struct File : LOG_file {
        Channels *owner;
    };
    struct Free {
        void operator()(void *block) const { free(block); }
    };

    void build(CONF_node *local);
    void build_monitor_record();
    void open_log(const daemon_kit::Configuration &configuration);
    static void define_input(IO_define_real_input_in *in, IO_define_real_input_out *out);
    static void define_output(IO_define_real_output_in *in, IO_define_real_output_out *out);
    static void write_average(LOG_file *file, FTIME time);
    static void write_monitor(LOG_file *file, FTIME time);

    daemon_kit::Station &station_;
    IO_set_real set_;
    void *set_pd_;
    std::array<double, k_quantities.size()> values_;
    IO_real_input_def inputs_;
    IO_real_output_def outputs_;
    LOG_avg_control averaging_ = {};
    File file_ = {};
    std::unique_ptr<LOG_map_defn, Free> average_record_;
    std::vector<LOG_map_defn> monitor_record_;
    std::vector<std::string> monitor_names_;
    WORD flags_ = 0; // of the average that is written
    DWORD asked_ = 0, failed_ = 0;
};

} // namespace flow
