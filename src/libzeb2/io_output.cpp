#include "io_int.h"

#include "diag.h"

namespace {

using namespace zeb::io;

IO_real_output_var *output_of(const LL_NODE *node) {
    return var_of<IO_real_output_var>(node);
}

void append_output(IO_real_output_def *outputs, CONF_node *channel,
                   const IO_define_real_output_out &definition) {
    IO_real_output_var output = {};
    UTIL_strncpynt(output.name, channel->name, sizeof output.name);
    output.cal = calibration_of(channel);
    output.set = definition.set;
    output.pd = definition.set_pd;
    if (LL_insert_tail(outputs, &output, sizeof output) == nullptr)
        PHYSUNITS_freepoly(&output.cal);
}

void on_message(ZEBMSG_proc_msg *pm, ZEBMSG_link *, void *param) {
    if (pm->msg == nullptr || pm->msg->msg != MSG_IO_SET_REAL || pm->pds == nullptr)
        return;
    IO_real_output_update(*static_cast<IO_real_output_def **>(param),
                          static_cast<const NET_IO_Real *>(pm->pds));
}

} // namespace

void IO_real_output_init(IO_real_output_def *outputs) {
    LL_init(outputs);
}

void IO_real_output_delete(IO_real_output_def *outputs) {
    for (const LL_NODE *node = outputs->head; node != nullptr; node = node->next)
        PHYSUNITS_freepoly(&output_of(node)->cal);
    LL_clear(outputs);
}

void IO_real_output_build(IO_real_output_def *outputs, CONF_node *tree, IO_define_real_output def) {
    if (!ZEB_CHECK(def != nullptr) || tree == nullptr)
        return;
    for (size_t i = 0; i < tree->n_children; ++i) {
        CONF_node *channel = tree->children[i];
        IO_define_real_output_in in = {channel->name, CONF_lookup(channel, "chan")};
        IO_define_real_output_out out = {};
        def(&in, &out);
        if (out.valid && out.set != nullptr)
            append_output(outputs, channel, out);
    }
}

void IO_real_output_update(IO_real_output_def *outputs, const NET_IO_Real *ioreal) {
    const Name name(ioreal->name);
    for (const LL_NODE *node = outputs->head; node != nullptr; node = node->next) {
        IO_real_output_var *output = output_of(node);
        if (same_name(output->name, name.text))
            output->set(PHYSUNITS_applypoly(&output->cal, ioreal->val), output->name, output->pd);
    }
}

void IO_real_output_register_link(IO_real_output_def *outputs, ZEBMSG_link *lnk) {
    ZEBMSG_register_library_msg_proc(lnk, on_message, &outputs, sizeof outputs);
}
