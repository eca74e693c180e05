#include "io_int.h"

#include "diag.h"

#include <iterator>

LL_TYPE g_io_real;
LL_TYPE g_io_digital;
LL_TYPE g_io_real_out;
LL_TYPE g_io_digital_out;

namespace {

using namespace zeb::io;

constexpr const char *k_separators = ",;:";
constexpr int k_digitals = std::size(NET_IO_DigitalOut{}.info); // in one message

// ---- The tables ----

struct Table {
    LL_TYPE &list;
    const char *contents;
    DWORD ignored; // names that found no room, since the last one that did
};

Table g_real = {g_io_real, "reals", 0};
Table g_digital = {g_io_digital, "digitals", 0};
Table g_real_out = {g_io_real_out, "real outputs", 0};
Table g_digital_out = {g_io_digital_out, "digital outputs", 0};

template <typename Var> Var *find(const Table &table, const char *name) {
    for (const LL_NODE *node = table.list.head; node != nullptr; node = node->next)
        if (same_name(var_of<Var>(node)->name, name))
            return var_of<Var>(node);
    return nullptr;
}

// A program that invents names without end must not make this one grow without end.
bool has_room(Table &table, const char *name) {
    if (table.list.count >= k_table_limit) {
        if (table.ignored++ == 0)
            ZEB_REPORT("More than %d %s are known, \"%s\" and later ones are ignored",
                       k_table_limit, table.contents, name);
        return false;
    }
    if (table.ignored != 0)
        ZEB_REPORT("There is room for %s again, %u were ignored", table.contents, table.ignored);
    table.ignored = 0;
    return true;
}

// The variable with the name of `fresh`, which is appended when there is none; null without room.
template <typename Var> Var *find_or_append(Table &table, const Var &fresh) {
    if (Var *known = find<Var>(table, fresh.name))
        return known;
    const LL_NODE *node =
        has_room(table, fresh.name) ? LL_insert_tail(&table.list, &fresh, sizeof fresh) : nullptr;
    return node != nullptr ? var_of<Var>(node) : nullptr;
}

void empty(Table &table) {
    LL_clear(&table.list);
    table.ignored = 0;
}

IO_var_real *real_of(const Name &name, double value, const char *client) {
    IO_var_real fresh = {{}, value, value, value, {}};
    UTIL_strncpynt(fresh.name, name.text, sizeof fresh.name);
    UTIL_strncpynt(fresh.clname, client, sizeof fresh.clname);
    return find_or_append(g_real, fresh);
}

IO_var_digital *digital_of(const Name &name, BOOL state, const char *client) {
    IO_var_digital fresh = {{}, state, {}};
    UTIL_strncpynt(fresh.name, name.text, sizeof fresh.name);
    UTIL_strncpynt(fresh.clname, client, sizeof fresh.clname);
    return find_or_append(g_digital, fresh);
}

template <typename Var, typename Value>
void remember_output(Table &table, const Name &name, Value value) {
    Var fresh = {{}, value};
    UTIL_strncpynt(fresh.name, name.text, sizeof fresh.name);
    if (Var *known = find_or_append(table, fresh))
        known->val = value;
}

double lookup(const char *name, double IO_var_real::*field) {
    if (!ZEB_CHECK(name != nullptr))
        return MVC;
    const IO_var_real *real = find<IO_var_real>(g_real, Name(name).text);
    return real != nullptr ? real->*field : MVC;
}

// ---- Lists of digitals ----

// Calls what(i, name) for each field i of the list that is not empty.
template <typename What> void for_each_channel(const char *chans, What what) {
    char field[sizeof(Name)];
    for (int i = 0; i < k_digitals; ++i) {
        if (!UTIL_stringfield(chans, k_separators, i, field, sizeof field))
            return;
        if (field[0] != '\0')
            what(i, Name(field));
    }
}

// ---- Sending ----

void send_real(ZEBMSG_link *lnk, DWORD flags, const char *dest, const char *name, double value) {
    NET_IO_Real record = {};
    UTIL_strncpynt(record.name, name, sizeof record.name);
    record.val = value;
    ZEBMSG_queue_message_lib(lnk, MSG_IO_SET_REAL, flags, dest, &record, sizeof record,
                             "NET_IO_Real", TRUE);
}

void send_digitals(ZEBMSG_link *lnk, DWORD flags, const char *dest,
                   const NET_IO_DigitalOut &record) {
    ZEBMSG_queue_message_lib(lnk, MSG_IO_SET_DIGITAL, flags, dest, &record, sizeof record,
                             "NET_IO_DigitalOut", TRUE);
}

void request(ZEBMSG_link *lnk, NETMSG_type type) {
    ZEBMSG_queue_message_lib(lnk, type, 1, nullptr, nullptr, 0, nullptr, TRUE);
}

// ---- Messages received ----

using Handler = void (*)(const ZEBMSG_proc_msg &pm, ZEBMSG_link *lnk);

const char *sender_of(const ZEBMSG_proc_msg &pm) {
    return pm.src_name != nullptr ? pm.src_name : "";
}

// The program whose records state more channels than they have, and how many of them there were.
struct {
    char sender[32];
    DWORD records;
} g_overlong;

void settle_overlong(const char *sender) {
    if (g_overlong.records == 0 || !same_name(g_overlong.sender, Name(sender).text))
        return;
    ZEB_REPORT("No more channels than there are from \"%s\", %u records stated more",
               g_overlong.sender, g_overlong.records);
    g_overlong.records = 0;
}

size_t channels_of(const NET_IO_MultiReal &record, const char *sender) {
    constexpr size_t k_room = std::size(NET_IO_MultiReal{}.chans);
    if (record.n <= k_room) {
        settle_overlong(sender);
        return record.n;
    }
    if (g_overlong.records++ == 0) {
        ZEB_REPORT("A record of \"%s\" states %u channels, the %zu that it has are used", sender,
                   record.n, k_room);
        UTIL_strncpynt(g_overlong.sender, sender, sizeof g_overlong.sender);
    }
    return k_room;
}

template <double IO_var_real::*field> void on_reals(const ZEBMSG_proc_msg &pm, ZEBMSG_link *) {
    if (pm.pds == nullptr)
        return;
    const auto &record = *static_cast<const NET_IO_MultiReal *>(pm.pds);
    const size_t channels = channels_of(record, sender_of(pm));
    for (size_t i = 0; i < channels; ++i)
        if (IO_var_real *real = real_of(Name(record.chans[i].name), MVC, sender_of(pm)))
            real->*field = record.chans[i].val;
}

void on_digitals(const ZEBMSG_proc_msg &pm, ZEBMSG_link *) {
    if (pm.pds == nullptr)
        return;
    const auto &record = *static_cast<const NET_IO_DigitalIn *>(pm.pds);
    for (size_t i = 0; i < std::size(record.info); ++i) {
        const Name name(record.info[i].name);
        if (name.text[0] == '\0')
            continue;
        if (IO_var_digital *digital = digital_of(name, FALSE, sender_of(pm)))
            digital->val = record.val >> i & 1U;
    }
}

void on_resend_real(const ZEBMSG_proc_msg &pm, ZEBMSG_link *lnk) {
    if (sender_of(pm)[0] == '\0')
        return;
    for (const LL_NODE *node = g_io_real_out.head; node != nullptr; node = node->next) {
        const auto *output = var_of<IO_var_real_out>(node);
        send_real(lnk, 0, pm.src_name, output->name, output->val);
    }
}

// The mask covers all channels; those of a last message that is not full have no names.
void on_resend_digital(const ZEBMSG_proc_msg &pm, ZEBMSG_link *lnk) {
    if (sender_of(pm)[0] == '\0')
        return;
    const NET_IO_DigitalOut empty_record = {{}, 0, ~DWORD{0}};
    NET_IO_DigitalOut record = empty_record;
    int used = 0;
    for (const LL_NODE *node = g_io_digital_out.head; node != nullptr; node = node->next) {
        const auto *output = var_of<IO_var_digital_out>(node);
        UTIL_strncpynt(record.info[used].name, output->name, sizeof record.info[used].name);
        record.val |= (output->val ? DWORD{1} : DWORD{0}) << used;
        if (++used < k_digitals && node->next != nullptr)
            continue;
        send_digitals(lnk, 0, pm.src_name, record);
        record = empty_record;
        used = 0;
    }
}

template <typename Var> BOOL is_published_by(void *data, void *client) {
    return same_name(static_cast<const Var *>(data)->clname, static_cast<const char *>(client));
}

void on_client_terminate(const ZEBMSG_proc_msg &pm, ZEBMSG_link *) {
    if (sender_of(pm)[0] == '\0')
        return;
    Name client(pm.src_name);
    LL_selective_delete(&g_io_real, is_published_by<IO_var_real>, client.text);
    LL_selective_delete(&g_io_digital, is_published_by<IO_var_digital>, client.text);
    settle_overlong(client.text);
}

constexpr struct {
    NETMSG_type type;
    Handler handler;
} k_handlers[] = {
    {MSG_IO_AVG, on_reals<&IO_var_real::avg>},
    {MSG_IO_INSTANT, on_reals<&IO_var_real::val>},
    {MSG_IO_RESEND_DIGITAL, on_resend_digital},
    {MSG_IO_RESEND_REAL, on_resend_real},
    {MSG_IO_RUNNINGAVG, on_reals<&IO_var_real::runningavg>},
    {MSG_IO_STATE_DIGITAL, on_digitals},
    {MSG_NOTIFY_CLIENT_TERMINATE, on_client_terminate},
};

void on_message(ZEBMSG_proc_msg *pm, ZEBMSG_link *lnk, void *) {
    if (pm->msg == nullptr)
        return;
    for (const auto &row : k_handlers)
        if (row.type == pm->msg->msg)
            row.handler(*pm, lnk);
}

} // namespace

namespace zeb::io {

PHYSUNITS_poly calibration_of(CONF_node *channel) {
    const char *text = CONF_lookup(channel, "cal");
    PHYSUNITS_poly poly = {};
    PHYSUNITS_buildpoly(&poly, text != nullptr ? text : "0.0;1.0");
    return poly;
}

} // namespace zeb::io

BOOL IO_init(void) {
    IO_cleanup();
    real_of(Name("MVC"), MVC, "");
    real_of(Name("ONE"), 1.0, "");
    real_of(Name("ZERO"), 0.0, "");
    digital_of(Name("FALSE"), FALSE, "");
    digital_of(Name("TRUE"), TRUE, "");
    return TRUE;
}

void IO_cleanup(void) {
    empty(g_real);
    empty(g_digital);
    empty(g_real_out);
    empty(g_digital_out);
    g_overlong.records = 0;
}

void IO_register_link(ZEBMSG_link *lnk) {
    ZEBMSG_register_library_msg_proc(lnk, on_message, nullptr, 0);
}

double IO_lookup(const char *name) {
    return lookup(name, &IO_var_real::val);
}

double IO_lookup_avg(const char *name) {
    return lookup(name, &IO_var_real::avg);
}

double IO_lookup_runningavg(const char *name) {
    return lookup(name, &IO_var_real::runningavg);
}

BOOL IO_lookup_digital(const char *name) {
    if (!ZEB_CHECK(name != nullptr))
        return FALSE;
    const IO_var_digital *digital = find<IO_var_digital>(g_digital, Name(name).text);
    return digital != nullptr ? digital->val : FALSE;
}

unsigned int IO_digital_in(const char *chans) {
    unsigned int states = 0;
    if (!ZEB_CHECK(chans != nullptr))
        return states;
    for_each_channel(chans, [&](int i, const Name &name) {
        if (IO_lookup_digital(name.text))
            states |= 1U << i;
    });
    return states;
}

void IO_set(ZEBMSG_link *lnk, const char *name, double val) {
    if (!ZEB_CHECK(name != nullptr))
        return;
    send_real(lnk, 1, nullptr, name, val);
    remember_output<IO_var_real_out>(g_real_out, Name(name), val);
}

void IO_set_digital(ZEBMSG_link *lnk, const char *chans, unsigned int val, unsigned int mask) {
    if (!ZEB_CHECK(chans != nullptr))
        return;
    NET_IO_DigitalOut record = {{}, val, mask};
    for_each_channel(chans, [&](int i, const Name &name) {
        UTIL_strncpynt(record.info[i].name, name.text, sizeof record.info[i].name);
        if ((mask >> i & 1U) != 0)
            remember_output<IO_var_digital_out, BOOL>(g_digital_out, name, val >> i & 1U);
    });
    send_digitals(lnk, 1, nullptr, record);
}

void IO_request_resend_real(ZEBMSG_link *lnk) {
    request(lnk, MSG_IO_RESEND_REAL);
}

void IO_request_resend_digital(ZEBMSG_link *lnk) {
    request(lnk, MSG_IO_RESEND_DIGITAL);
}
