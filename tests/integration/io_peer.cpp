// io_peer - a program of the station that does with shared variables what its arguments say:
//   io_peer NAME WORD...
//   real=T1:21.5   publishes an input, with its averages     state=door:1  publishes a digital
//   output=V1      has a real output                         relay=R1      has a digital output
//   set=V1:3       asks once for a real output               switch=R1:1   ... for a digital one
//   show=T1        shows "T1 VALUE AVERAGE RUNNING"          input=door    shows "door STATE"
// What it sees and what its outputs are set to goes to standard output, a line for each change.
#include <zeb2/libzeb2.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

struct Word {
    std::string what, name, value;
};

std::vector<Word> g_words;

std::string text_of(double value) {
    char text[32];
    snprintf(text, sizeof text, "%g", value);
    return value == MVC ? "missing" : text;
}

void say(const std::string &line) {
    printf("%s\n", line.c_str());
    fflush(stdout);
}

void say_if_changed(const std::string &name, const std::string &line) {
    static std::map<std::string, std::string> said;
    if (said[name] == line)
        return;
    said[name] = line;
    say(line);
}

BOOL read_input(const char *, void *value, double *out) {
    *out = atof(static_cast<const char *>(value));
    return TRUE;
}

// The inputs' values are what stands in their key "chan".
void define_input(IO_define_real_input_in *in, IO_define_real_input_out *out) {
    out->valid = in->channel != nullptr;
    out->get = read_input;
    out->get_pd = const_cast<char *>(in->channel);
}

void set_output(double value, const char *name, void *) {
    say(std::string(name) + " " + text_of(value));
}

void define_output(IO_define_real_output_in *, IO_define_real_output_out *out) {
    out->valid = TRUE;
    out->set = set_output;
}

void on_message(ZEBMSG_proc_msg *message, void *) {
    if (message->msg->msg != MSG_IO_SET_DIGITAL || message->pds == nullptr)
        return;
    const auto *record = static_cast<const NET_IO_DigitalOut *>(message->pds);
    for (unsigned i = 0; i < 32; ++i)
        for (const Word &word : g_words)
            if (word.what == "relay" && (record->mask >> i & 1U) != 0 &&
                word.name == record->info[i].name)
                say(word.name + " " + ((record->val >> i & 1U) != 0 ? "1" : "0"));
}

void publish_states(ZEBMSG_link *link) {
    NET_IO_DigitalIn record = {};
    unsigned used = 0;
    for (const Word &word : g_words) {
        if (word.what != "state" || used == 32)
            continue;
        UTIL_strncpynt(record.info[used].name, word.name.c_str(), sizeof record.info[used].name);
        record.val |= (word.value == "1" ? DWORD{1} : DWORD{0}) << used;
        ++used;
    }
    if (used > 0)
        ZEBMSG_queue_message(link, MSG_IO_STATE_DIGITAL, 1, nullptr, &record, sizeof record,
                             "NET_IO_DigitalIn");
}

void show() {
    for (const Word &word : g_words) {
        const char *name = word.name.c_str();
        if (word.what == "show")
            say_if_changed(word.name, word.name + " " + text_of(IO_lookup(name)) + " " +
                                          text_of(IO_lookup_avg(name)) + " " +
                                          text_of(IO_lookup_runningavg(name)));
        if (word.what == "input")
            say_if_changed(word.name, word.name + (IO_digital_in(name) == 1 ? " 1" : " 0"));
    }
}

void request(ZEBMSG_link *link) {
    for (const Word &word : g_words) {
        if (word.what == "set")
            IO_set(link, word.name.c_str(), atof(word.value.c_str()));
        if (word.what == "switch")
            IO_set_digital(link, word.name.c_str(), word.value == "1" ? 1 : 0, 1);
    }
    IO_request_resend_real(link);
    IO_request_resend_digital(link);
}

void configure(CONF_node *root) {
    for (const Word &word : g_words) {
        if (word.what == "real")
            CONF_set_va(root, word.value.c_str(), "in", word.name.c_str(), "chan", nullptr);
        if (word.what == "output")
            CONF_set_va(root, nullptr, "out", word.name.c_str(), nullptr);
    }
}

void work(ZEBMSG_link *link, CONF_node *root) {
    IO_real_input_def inputs;
    IO_real_output_def outputs;
    IO_real_input_init(&inputs);
    IO_real_output_init(&outputs);
    IO_real_input_build(&inputs, CONF_lookup_tree(root, "in"), define_input, nullptr, nullptr,
                        nullptr, nullptr);
    IO_real_output_build(&outputs, CONF_lookup_tree(root, "out"), define_output);
    IO_real_output_register_link(&outputs, link);
    IO_register_link(link);
    request(link);
    while (!UTIL_exit_poll()) {
        IO_real_input_update(&inputs, nullptr);
        IO_real_input_send_instant(&inputs, link);
        IO_real_input_send_avg(&inputs, link, UTIL_ftime());
        publish_states(link);
        ZEBMSG_process_messages(link, on_message, nullptr);
        show();
        UTIL_fsleep(0.1);
    }
    ZEBMSG_disconnect(link);
    IO_real_input_delete(&inputs);
    IO_real_output_delete(&outputs);
}

Word word_of(const std::string &text) {
    const size_t equals = text.find('='), colon = text.find(':');
    const std::string rest = text.substr(equals + 1);
    return {text.substr(0, equals), rest.substr(0, rest.find(':')),
            colon == std::string::npos ? "" : text.substr(colon + 1)};
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || !LIBZEB_init(argv[1]))
        return 2;
    UTIL_exit_signal_poll_setup();
    for (int i = 2; i < argc; ++i)
        g_words.push_back(word_of(argv[i]));
    CONF_node *root = CONF_alloc();
    configure(root);
    IO_init();
    ZEBMSG_connect_params params;
    ZEBMSG_init_params(&params);
    params.id_str = argv[1];
    ZEBMSG_link link = {};
    const bool connected = ZEBMSG_connect(&params, &link) && ZEBMSG_wait_connected(&link);
    if (connected)
        work(&link, root);
    IO_cleanup();
    CONF_free(root);
    LIBZEB_cleanup();
    return connected ? 0 : 1;
}
