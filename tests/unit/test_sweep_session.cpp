#include "test_sweep_session.h"

#include "libzeb2.h"
#include "test_sweep_peer.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace zeb::test {
namespace {

// Where a session is. Its first failure is kept; the steps that depend on it are left out.
class Steps {
  public:
    explicit Steps(SessionReport *report) : report_(report) { report_->failed = nullptr; }
    bool step(const char *name, bool done) {
        if (!done && report_->failed == nullptr)
            report_->failed = name;
        return done;
    }
    void at(const char *name) { report_->step = name; }
    SessionReport *report() const { return report_; }

  private:
    SessionReport *report_;
};

BOOL read_input(const char *name, void *, double *value) {
    *value = name[1] - '0';
    return TRUE;
}
void set_output(double, const char *, void *) {}

void define_input(IO_define_real_input_in *, IO_define_real_input_out *out) {
    out->valid = TRUE;
    out->get = read_input;
    out->def_fmt = "*04.1f";
}
void define_output(IO_define_real_output_in *, IO_define_real_output_out *out) {
    out->valid = TRUE;
    out->set = set_output;
}

SERIALD_connect_params port(const char *name) {
    SERIALD_connect_params params = {};
    UTIL_strncpynt(params.port_name, name, sizeof params.port_name);
    return params;
}

// The configuration of a session, and what every program sets up and releases with it.
class Program {
  public:
    Program(SessionReport *report, int first_line) : steps(report), first_line_(first_line) {
        report->lines = report->kept = 0;
    }
    bool start() {
        steps.at("start");
        UTIL_exit_signal_poll_setup();
        IO_init();
        return steps.step("start", LIBZEB_init("sweep"));
    }
    // A program says itself that it has no configuration.
    bool configure() {
        steps.at("configuration");
        root = CONF_get_default();
        local = root != nullptr ? CONF_lookup_tree(root, k_configured_name) : nullptr;
        if (local == nullptr)
            fprintf(stderr, "session: no configuration\n");
        return steps.step("configuration", local != nullptr);
    }
    void release() {
        CONF_free(root);
        IO_cleanup();
        LIBZEB_cleanup();
        root = local = nullptr;
    }

    Steps steps;
    CONF_node *root = nullptr;
    CONF_node *local = nullptr;

  protected:
    int first_line_;
};

// A log file with a column that numbers its lines.
class Log {
  public:
    Log(Steps *steps, int first_line) : steps_(steps), number_(static_cast<DWORD>(first_line)) {
        rows_[0] = {"n", "%u", nullptr, LVT_DWORD, &number_, nullptr, nullptr, nullptr, "Number"};
        rows_[1].type = LVT_END;
        LOG_init(&file);
        IO_real_input_init(&inputs);
    }
    void define(CONF_node *root, CONF_node *local) {
        IO_real_input_build(&inputs, CONF_lookup_tree(local, "input"), define_input, rows_, &table_,
                            "n", &columns_);
        LOG_avg_control_init(&average, root, local);
        LOG_define_record(&file, "S", columns_, table_, local, FALSE);
    }
    bool open(CONF_node *root, CONF_node *local, ZEBMSG_link *lnk) {
        steps_->at("open log");
        return steps_->step("open log",
                            LOG_open_n(&file, root, local, lnk, "!fil;note,sweep", NULL));
    }
    void write(INST_link *lnk) {
        IO_real_input_update(&inputs, &average);
        LOG_write(&file, lnk, "S", static_cast<double>(k_first_time + number_));
        if (!file.info.enabled)
            return; // as the server has ordered
        ++number_;
        ++steps_->report()->lines;
    }
    void flush() {
        steps_->at("flush");
        LOG_flush(&file);
        note_kept();
    }
    // Without a failure so far, a line that was flushed is safe from any that comes.
    void note_kept() {
        if (!failing_state().failed)
            steps_->report()->kept = steps_->report()->lines.load();
    }
    void close() {
        steps_->at("close log");
        LOG_close(&file);
        LOG_avg_control_delete(&average);
        IO_real_input_delete(&inputs);
        free(table_);
        free(columns_);
        table_ = nullptr;
        columns_ = nullptr;
    }

    LOG_file file;
    LOG_avg_control average = {};
    IO_real_input_def inputs;

  private:
    Steps *steps_;
    DWORD number_;
    LOG_map_defn rows_[2] = {};
    LOG_map_defn *table_ = nullptr;
    char *columns_ = nullptr;
};

Log *g_log;
INST_link *g_inst;

void write_due(LOG_file *, FTIME) {
    g_log->write(g_inst);
}

// The messages of the server up to the one from this program.
class Inbox {
  public:
    explicit Inbox(ZEBMSG_link *lnk) : lnk_(lnk) {}
    // False when the link is lost, or the program is asked to end, before.
    template <class Connected> bool await(const char *end, Connected connected) {
        end_ = end;
        while (end_ != nullptr) {
            if (!connected() || UTIL_exit_poll())
                return false;
            ZEBMSG_process_messages(lnk_, received, this);
            EVENTAT_run(UTIL_ftime());
            UTIL_fsleep(0.0003);
        }
        return true;
    }

  private:
    static void received(ZEBMSG_proc_msg *message, void *param) {
        auto *inbox = static_cast<Inbox *>(param);
        if (inbox->end_ != nullptr && message->src_name != nullptr &&
            strcmp(message->src_name, inbox->end_) == 0)
            inbox->end_ = nullptr;
    }
    ZEBMSG_link *lnk_;
    const char *end_ = nullptr;
};

void announce(ZEBMSG_link *lnk) {
    ZEBMSG_add_filter(lnk, TRUE, "*", "", -1, "", "", "");
    NET_SERVER_InstrumentInfo info;
    ZEBMSG_register_init(&info);
    UTIL_strncpynt(info.type, "hygrometer", sizeof info.type);
    UTIL_strncpynt(info.tags[0].tag, "humidity", sizeof info.tags[0].tag);
    ZEBMSG_register_instrument(lnk, &info);
}

void publish(ZEBMSG_link *lnk) {
    NET_HYGROMETER_Instant reading;
    NETPACK_fill_mvc(&reading, "NET_HYGROMETER_Instant", sizeof reading);
    reading.T = 15;
    ZEBMSG_queue_message(lnk, MSG_HYGROMETER_INSTANT, 1, nullptr, &reading, sizeof reading,
                         "NET_HYGROMETER_Instant");
}

// ---- A daemon with everything ----

class StationSession : public Program {
  public:
    StationSession(SessionReport *report, int first_line)
        : Program(report, first_line), log_(&steps, first_line) {
        g_log = &log_;
        g_inst = &lnk_;
        IO_real_output_init(&outputs_);
    }
    void run() {
        if (start() && configure() && connect() && log_.open(root, local, &lnk_.msg_lnk)) {
            meet();
            measure() && use_lines();
        }
    }
    void end() {
        log_.close();
        steps.at("disconnect");
        INST_disconnect(&lnk_);
        SERIALCOM_multi_destroy(&further_);
        IO_real_output_delete(&outputs_);
        release();
    }
    // What a failure has left goes when the call works again.
    void end_again() {
        if (lnk_.thd != nullptr)
            INST_disconnect(&lnk_);
    }

  private:
    bool connect() {
        log_.define(root, local);
        steps.at("connect");
        ZEBMSG_connect_params msg = {k_configured_name, nullptr};
        SERIALD_connect_params line = port("=line"), echo = port("=echo"), more = port("=more");
        SERIALCOM_link *no_link = nullptr;
        SERIALD_connect_params *no_port = nullptr;
        const bool connected =
            INST_connect(&lnk_, &msg, &line, &echo, &further_, &more, no_link, no_port);
        return steps.step("connect", connected) &&
               steps.step("handshake", INST_wait_connected(&lnk_));
    }
    // Announces the instrument; what others have to say is there when this returns.
    bool meet() {
        steps.at("meet");
        LOG_register_link(&log_.file, &lnk_.msg_lnk, write_due, write_due);
        LOG_avg_register_link(&log_.average, &lnk_.msg_lnk);
        IO_register_link(&lnk_.msg_lnk);
        IO_real_output_build(&outputs_, CONF_lookup_tree(local, "output"), define_output);
        IO_real_output_register_link(&outputs_, &lnk_.msg_lnk);
        announce(&lnk_.msg_lnk);
        IO_set(&lnk_.msg_lnk, "O1", 1);
        IO_set_digital(&lnk_.msg_lnk, "D1;D2", 1, 3);
        if (!steps.step("meet", await(SweepPeer::k_end_of_greeting)))
            return false;
        NET_SERVER_InstrumentInfo info;
        return steps.step("values", IO_lookup("V1") == 1.5 && IO_lookup_digital("D0")) &&
               steps.step("tag",
                          ZEBMSG_instrument_info_by_tag(&lnk_.msg_lnk, "position", &info, nullptr));
    }
    bool measure() {
        steps.at("log");
        for (int i = 0; i < 3; ++i)
            log_.write(&lnk_);
        log_.flush();
        IO_real_input_send_instant(&log_.inputs, &lnk_.msg_lnk);
        IO_real_input_send_avg(&log_.inputs, &lnk_.msg_lnk, static_cast<double>(k_first_time));
        IO_real_input_clear_avg(&log_.inputs);
        steps.at("publish");
        publish(&lnk_.msg_lnk);
        return steps.step("orders", await(SweepPeer::k_end_of_orders));
    }
    bool use_lines() {
        steps.at("serial lines");
        char text[64];
        const bool used =
            SERIALCOM_write_string_blocking(&lnk_.sc_lnk, "READ?\r", 1) &&
            SERIALCOM_read_until_string(&lnk_.sc_lnk, "\n", 1, -1, text, sizeof text) == 10 &&
            SERIALCOM_flush(&lnk_.sc_lnk, 1, 1) &&
            SERIALCOM_read_new(&further_, text, sizeof text) == 10;
        log_.write(&lnk_);
        const bool slept = INST_sleep(&lnk_, 0.001);
        log_.flush();
        return steps.step("serial lines", used) && steps.step("sleep", slept);
    }
    bool await(const char *end) {
        return Inbox(&lnk_.msg_lnk).await(end, [this] { return INST_test_connected(&lnk_); });
    }

    Log log_;
    INST_link lnk_ = {};
    SERIALCOM_link further_ = {};
    IO_real_output_def outputs_;
};

// ---- Links with threads of their own ----

class ThreadsSession : public Program {
  public:
    ThreadsSession(SessionReport *report, int first_line)
        : Program(report, first_line), log_(&steps, first_line) {
        g_log = &log_;
        g_inst = nullptr;
        msg_.stat = ZEBMSG_S_UNINITIALIZED;
    }
    void run() {
        if (!start() || !configure())
            return;
        log_.define(root, local);
        steps.at("thread");
        served_ = steps.step("thread", ZEBFILE_init());
        if (served_ && connect() && log_.open(root, local, &msg_))
            measure();
    }
    void end() {
        log_.close();
        steps.at("disconnect");
        release_ended_thread();
        disconnect();
        if (served_)
            ZEBFILE_destroy();
        release();
    }
    void end_again() {
        stop_left_thread();
        disconnect();
        if (served_)
            ZEBFILE_destroy();
    }

  private:
    // A thread that could not be cancelled serves the link that is left; when it has noticed that
    // the socket is closed, disconnecting once more passes it over.
    void stop_left_thread() {
        if (msg_.thd == nullptr || ZEBMSG_test_connected_ext(&msg_) != -1)
            return;
        pthread_cancel(*msg_.thd);
        pthread_join(*msg_.thd, nullptr);
        free(msg_.thd);
        msg_.thd = nullptr;
    }
    void disconnect() {
        SERIALCOM_disconnect(&serial_);
        if (serial_.thd == nullptr)
            SERIALCOM_multi_destroy(&serial_); // of a link that did not connect, the socket
        ZEBMSG_disconnect(&msg_);
    }
    // A link that was lost leaves the thread that it had.
    void release_ended_thread() {
        if (serial_.thd == nullptr || SERIALCOM_test_connected_ext(&serial_) != -1)
            return;
        pthread_join(*serial_.thd, nullptr);
        free(serial_.thd);
        serial_.thd = nullptr;
    }
    bool connect() {
        steps.at("connect");
        ZEBMSG_connect_params params = {k_configured_name, ZEBMSG_get_host_str(root, local)};
        SERIALD_connect_params line = port("=line");
        const bool connected = ZEBMSG_connect(&params, &msg_) && ZEBMSG_wait_connected(&msg_);
        return steps.step("message link", connected) &&
               steps.step("serial link",
                          SERIALCOM_connect(&line, &serial_) && SERIALCOM_wait_connected(&serial_));
    }
    bool measure() {
        steps.at("exchange");
        LOG_register_link(&log_.file, &msg_, write_due, write_due);
        log_.write(nullptr);
        log_.flush();
        publish(&msg_);
        if (!steps.step("exchange", Inbox(&msg_).await(SweepPeer::k_end_of_orders, [this] {
                return ZEBMSG_test_connected(&msg_);
            })))
            return false;
        char text[64];
        const bool read = SERIALCOM_read_burst(&serial_, 1, 0.1, text, sizeof text) == 10;
        log_.write(nullptr);
        log_.flush();
        return steps.step("serial line", read);
    }

    Log log_;
    bool served_ = false;
    ZEBMSG_link msg_ = {};
    SERIALCOM_link serial_ = {};
};

// ---- A child with pipes ----

class ChildSession : public Program {
  public:
    using Program::Program;
    void run() {
        if (!start())
            return;
        steps.at("thread");
        served_ = steps.step("thread", ZEBFILE_init());
        steps.at("child");
        char dash_c[] = "-c", script[] = "read line; echo \"got $line\"; exec cat", place[] = "";
        char *args[] = {dash_c, script, place, nullptr};
        if (served_ && steps.step("child", PRGPIPE_createchild("/bin/sh", &child_, TRUE, args)))
            talk();
    }
    void end() {
        steps.at("end of the child");
        PRGPIPE_killchild(&child_);
        if (served_)
            ZEBFILE_destroy();
        release();
    }
    void end_again() {
        if (served_)
            ZEBFILE_destroy();
    }

  private:
    void talk() {
        steps.at("talk");
        ZEBFILE_printf(child_.write_stdin, "%s\n", "hello");
        char line[64] = "";
        const auto n = ZEBFILE_readuntil_blocking(child_.read_stdout, line, sizeof line, "\n", 0);
        steps.step("talk", n == 9 && strcmp(line, "got hello") == 0);
    }

    PRGPIPE_link child_ = {-1, -1, -1, -1};
    bool served_ = false;
};

// ---- Without links ----

class RecordsSession : public Program {
  public:
    using Program::Program;
    void run() {
        if (!start() || !configure())
            return;
        write_configuration();
        for (int type = 0; type < k_message_types; ++type)
            if (const NETMSG_entry *definition =
                    NETPACK_find_msg_by_type(static_cast<NETMSG_type>(type)))
                pass_message(*definition);
        count();
        schedule();
    }
    void end() { release(); }
    void end_again() {}

  private:
    static constexpr int k_message_types = 200; // of the catalogue's, enough of them

    void write_configuration() {
        steps.at("write configuration");
        CONF_set(root, "new;key;below", "value");
        CONF_set_va(root, "other", "new", "key", "beside", nullptr);
        if (FILE *stream = fopen("/dev/null", "w")) {
            CONF_write(root, stream);
            fclose(stream);
        }
    }
    // Packs a message with its record and unpacks it.
    void pass_message(const NETMSG_entry &definition) {
        steps.at(definition.name);
        const char *name = definition.ds_tie;
        const NETDSD_entry *entry = name != nullptr ? NETPACK_find_ds(name) : nullptr;
        if (entry == nullptr)
            return;
        std::string record(entry->total_size, '\0');
        NETPACK_fill_mvc(record.data(), name, record.size());
        NETPACK_message message = {};
        NETPACK_msg_copy_from_parameters_int(&message, definition.msg, 1, "dest", "src",
                                             record.data(), record.size(), name);
        size_t size = 0;
        void *bytes = NETPACK_package_message(&message, &size);
        NETPACK_message received = {};
        if (steps.step("pack", bytes != nullptr) &&
            steps.step("unpack", NETPACK_unpack_message(bytes, size, &received)))
            NETPACK_msg_free(&received);
        free(bytes);
        NETPACK_msg_free(&message);
    }
    void count() {
        steps.at("averages");
        AVG_shifting shifting;
        AVG_fixed fixed;
        AVG_rinterval interval;
        AVG_shift_init(&shifting);
        AVG_fixed_init(&fixed, 5);
        AVG_rinterval_init(&interval, 10);
        for (int i = 0; i < 300; ++i) {
            AVG_shift_add(&shifting, i);
            AVG_fixed_add(&fixed, i);
            AVG_rinterval_add(&interval, i);
        }
        AVG_shift_delete(&shifting);
        AVG_fixed_delete(&fixed);
        AVG_rinterval_delete(&interval);
        PHYSUNITS_poly poly;
        PHYSUNITS_buildpoly(&poly, "1;2;3");
        PHYSUNITS_freepoly(&poly);
    }
    static void nothing(EVENTAT_params *, EVENTAT_action *, void *) {}
    void schedule() {
        steps.at("events");
        for (const double at : {3.0, 1.0, 2.0})
            EVENTAT_add(at, nothing, &at, sizeof at);
        EVENTAT_run(2);
        SFMT_buffer text;
        SFMT_init_buffer(&text);
        for (int i = 0; i < 40; ++i)
            SFMT_printfcat(&text, "%d;%s", i, "text");
        SFMT_destroy_buffer(&text);
    }
};

template <class AnySession> void run_session(SessionReport *report, int first_line) {
    AnySession session(report, first_line);
    session.run();
    session.end();
    disarm();
    session.end_again();
}

} // namespace

const Scenario k_station = {"station", run_session<StationSession>, true};
const Scenario k_threads = {"threads", run_session<ThreadsSession>, true};
const Scenario k_child = {"child", run_session<ChildSession>, false};
const Scenario k_records = {"records", run_session<RecordsSession>, false};

std::string session_configuration(const std::string &log_directory, int port) {
    std::string text = "Disk;LogDir," + log_directory + "\nDisk;StationID," + k_configured_station +
                       "\nRemoteHost,127.0.0.1:" + std::to_string(port) +
                       "\nGlobal;Station,sweep !of the tests\n";
    const std::string local = k_configured_name;
    text += local + ";fil;name," + local + "\n" + local + ";output;O1;chan,1\n";
    for (const char *input : {"T1", "T2"})
        text += local + ";input;" + input + ";chan,0\n" + local + ";input;" + input +
                ";cal,0;1 !measured\n";
    return text;
}

} // namespace zeb::test
