#include "io_int.h"

#include "diag.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

using namespace zeb::io;

IO_real_input_var *input_of(const LL_NODE *node) {
    return var_of<IO_real_input_var>(node);
}

// ---- Building ----

void release(IO_real_input_var *input) {
    AVG_shift_delete(&input->avg);
    PHYSUNITS_freepoly(&input->cal);
}

void append_input(IO_real_input_def *inputs, CONF_node *channel,
                  const IO_define_real_input_out &definition) {
    IO_real_input_var input = {};
    UTIL_strncpynt(input.name, channel->name, sizeof input.name);
    input.cal = calibration_of(channel);
    input.val = MVC;
    AVG_shift_init(&input.avg);
    input.deffmt = definition.def_fmt;
    input.get = definition.get;
    input.pd = definition.get_pd;
    if (LL_insert_tail(inputs, &input, sizeof input) == nullptr)
        release(&input);
}

void append_inputs(IO_real_input_def *inputs, CONF_node *tree, IO_define_real_input def) {
    for (size_t i = 0; i < tree->n_children; ++i) {
        CONF_node *channel = tree->children[i];
        IO_define_real_input_in in = {channel->name, CONF_lookup(channel, "chan")};
        IO_define_real_input_out out = {};
        def(&in, &out);
        if (out.valid && out.get != nullptr)
            append_input(inputs, channel, out);
    }
}

size_t rows_of(const LOG_map_defn *table) {
    size_t rows = 1;
    for (; table->type != LVT_END; ++table)
        ++rows;
    return rows;
}

// Null, reported, without memory.
LOG_map_defn *map_table(const IO_real_input_def *inputs, const LOG_map_defn *base) {
    LOG_map_defn end = {};
    end.type = LVT_END;
    if (base == nullptr)
        base = &end;
    const size_t rows = rows_of(base);
    const size_t n_inputs = static_cast<size_t>(inputs->count);
    auto *table = static_cast<LOG_map_defn *>(calloc(n_inputs + rows, sizeof(LOG_map_defn)));
    if (!ZEB_CHECK_ERRNO(table != nullptr))
        return nullptr;
    LOG_map_defn *row = table;
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next, ++row) {
        row->name = input_of(node)->name;
        row->format = input_of(node)->deffmt;
        row->type = LVT_AVG_SHIFTING;
        row->pd = &input_of(node)->avg;
    }
    memcpy(row, base, rows * sizeof *row);
    return table;
}

// Null, reported, without memory.
char *record_text(const IO_real_input_def *inputs, const char *base) {
    size_t size = strlen(base) + 1;
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next)
        size += strlen(input_of(node)->name) + 1;
    auto *text = static_cast<char *>(malloc(size));
    if (!ZEB_CHECK_ERRNO(text != nullptr))
        return nullptr;
    char *end = stpcpy(text, base);
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next) {
        if (end != text)
            *end++ = ';';
        end = stpcpy(end, input_of(node)->name);
    }
    return text;
}

// ---- Reading ----

void take_value(IO_real_input_var *input, double raw, LOG_avg_control *lac) {
    input->in_updated = TRUE;
    input->val = MVC;
    if (raw == MVC)
        return;
    input->val = PHYSUNITS_applypoly(&input->cal, raw);
    if (lac != nullptr && !LOG_avg_averaging(lac))
        return;
    AVG_shift_add(&input->avg, input->val);
    input->ra_updated = TRUE;
}

// ---- Publishing ----

// Gathers channels into records and sends each as it is full.
class Publication {
  public:
    Publication(ZEBMSG_link *lnk, NETMSG_type type, FTIME time) : lnk_(lnk), type_(type) {
        record_.curtime = time;
        clear();
    }
    void add(const char *name, double value) {
        NET_IO_Real &channel = record_.chans[record_.n];
        UTIL_strncpynt(channel.name, name, sizeof channel.name);
        channel.val = value;
        if (++record_.n == std::size(record_.chans))
            send();
    }
    void finish() {
        if (record_.n != 0)
            send();
    }

  private:
    void send() {
        ZEBMSG_queue_message_lib(lnk_, type_, 1, nullptr, &record_, sizeof record_,
                                 "NET_IO_MultiReal", TRUE);
        clear();
    }
    void clear() {
        for (NET_IO_Real &channel : record_.chans)
            channel = {{}, MVC};
        record_.n = 0;
    }

    ZEBMSG_link *lnk_;
    NETMSG_type type_;
    NET_IO_MultiReal record_;
};

bool take_flag(BOOL &flag) {
    const bool was_set = flag;
    flag = FALSE;
    return was_set;
}

} // namespace

void IO_real_input_init(IO_real_input_def *inputs) {
    LL_init(inputs);
}

void IO_real_input_delete(IO_real_input_def *inputs) {
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next)
        release(input_of(node));
    LL_clear(inputs);
}

void IO_real_input_build(IO_real_input_def *inputs, CONF_node *tree, IO_define_real_input def,
                         const LOG_map_defn *lmd_base, LOG_map_defn **lmd_out, const char *lrd_base,
                         char **lrd_out) {
    if (ZEB_CHECK(def != nullptr) && tree != nullptr)
        append_inputs(inputs, tree, def);
    if (lmd_out != nullptr) {
        LOG_map_defn *table = map_table(inputs, lmd_base);
        if (table == nullptr)
            return;
        *lmd_out = table;
    }
    if (lrd_out == nullptr)
        return;
    char *text = record_text(inputs, lrd_base != nullptr ? lrd_base : "");
    if (text != nullptr)
        *lrd_out = text;
}

void IO_real_input_update(IO_real_input_def *inputs, LOG_avg_control *lac) {
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next) {
        IO_real_input_var *input = input_of(node);
        double raw = MVC;
        if (input->get(input->name, input->pd, &raw))
            take_value(input, raw, lac);
    }
}

void IO_real_input_clear_avg(IO_real_input_def *inputs) {
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next) {
        AVG_shift_clear(&input_of(node)->avg);
        input_of(node)->ra_updated = TRUE;
    }
}

void IO_real_input_send_instant(IO_real_input_def *inputs, ZEBMSG_link *lnk) {
    const FTIME now = UTIL_ftime();
    Publication instants(lnk, MSG_IO_INSTANT, now);
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next)
        if (take_flag(input_of(node)->in_updated))
            instants.add(input_of(node)->name, input_of(node)->val);
    instants.finish();
    Publication means(lnk, MSG_IO_RUNNINGAVG, now);
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next)
        if (take_flag(input_of(node)->ra_updated))
            means.add(input_of(node)->name, AVG_shift_running_avg(&input_of(node)->avg));
    means.finish();
}

void IO_real_input_send_avg(IO_real_input_def *inputs, ZEBMSG_link *lnk, FTIME curtime) {
    Publication averages(lnk, MSG_IO_AVG, curtime);
    for (const LL_NODE *node = inputs->head; node != nullptr; node = node->next)
        averages.add(input_of(node)->name, AVG_shift_avg(&input_of(node)->avg));
    averages.finish();
}
