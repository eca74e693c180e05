#include "zebmsg_int.h"

#include "definitions/log.h"
#include "diag.h"
#include "sfmt.h"
#include "util.h"

#include <cstdarg>
#include <cstring>

namespace {

// Names and tags may fill their field without a terminator, in the wire's records and in the
// records that a caller passes on.
template <size_t N> bool equals(const char (&field)[N], const char *text) {
    return strncmp(field, text, N) == 0;
}

ZEBMSG_known_info *info_of(const LL_NODE *node) {
    return static_cast<ZEBMSG_known_info *>(node->data);
}

ZEBMSG_known_info *find_by_name(const ZEBMSG_link *lnk, const char *name) {
    for (const LL_NODE *node = lnk->known_insts.head; node != nullptr; node = node->next)
        if (equals(info_of(node)->name, name))
            return info_of(node);
    return nullptr;
}

bool carries_tag(const ZEBMSG_known_info *info, const char *tag) {
    for (const NET_SERVER_InstrumentTag &carried : info->ii.tags)
        if (equals(carried.tag, tag))
            return true;
    return false;
}

ZEBMSG_known_info *find_by_tag(const ZEBMSG_link *lnk, const char *tag) {
    for (const LL_NODE *node = lnk->known_insts.head; node != nullptr; node = node->next)
        if (carries_tag(info_of(node), tag))
            return info_of(node);
    return nullptr;
}

BOOL is_entry_of(void *data, void *name) {
    return equals(static_cast<ZEBMSG_known_info *>(data)->name, static_cast<const char *>(name));
}

void append_instrument(ZEBMSG_link *lnk, const ZEBMSG_known_info *info) {
    if (lnk->known_insts.count < zeb::k_known_limit) {
        LL_insert_tail(&lnk->known_insts, info, sizeof *info);
        return;
    }
    if (!lnk->insts_full)
        ZEB_REPORT("More than %d instruments are announced, \"%s\" and later ones are ignored",
                   zeb::k_known_limit, info->name);
    lnk->insts_full = TRUE;
}

} // namespace

namespace zeb {

void record_instrument(ZEBMSG_link *lnk, const char *name, const NET_SERVER_InstrumentInfo *info) {
    ZEBMSG_known_info announced = {};
    UTIL_strncpynt(announced.name, name, sizeof announced.name);
    announced.ii = *info;
    ZEBMSG_known_info *known = find_by_name(lnk, announced.name);
    if (known != nullptr)
        known->ii = *info;
    else
        append_instrument(lnk, &announced);
}

void forget_instrument(ZEBMSG_link *lnk, const char *name) {
    char cut[sizeof(ZEBMSG_known_info::name)];
    UTIL_strncpynt(cut, name, sizeof cut);
    LL_selective_delete(&lnk->known_insts, is_entry_of, cut);
}

} // namespace zeb

void ZEBMSG_register_init(NET_SERVER_InstrumentInfo *ii) {
    *ii = {};
}

void ZEBMSG_do_tags(NET_SERVER_InstrumentInfo *ii, CONF_node * /*root*/, CONF_node *local) {
    const char *value = local != nullptr ? CONF_lookup(local, "Tags") : nullptr;
    if (value == nullptr)
        return;
    int item = 0;
    for (NET_SERVER_InstrumentTag &tag : ii->tags) {
        char field[1024]; // a line of a configuration file is no longer
        if (!UTIL_stringfield(value, ";", item++, field, sizeof field))
            return;
        UTIL_strip_lead_trail_space(field);
        UTIL_strncpynt(tag.tag, field, sizeof tag.tag);
    }
}

void ZEBMSG_register_instrument(ZEBMSG_link *lnk, const NET_SERVER_InstrumentInfo *ii) {
    ZEBMSG_queue_message_lib(lnk, MSG_SERVER_INSTRUMENTINFO, 3, nullptr, ii,
                             ii != nullptr ? sizeof *ii : 0,
                             ii != nullptr ? "NET_SERVER_InstrumentInfo" : nullptr, TRUE);
}

BOOL ZEBMSG_instrument_info_by_name(ZEBMSG_link *lnk, const char *name,
                                    NET_SERVER_InstrumentInfo *ii) {
    if (!ZEB_CHECK(name != nullptr))
        return FALSE;
    ZEB_LOCK(guard, &lnk->mtx);
    const ZEBMSG_known_info *known = find_by_name(lnk, name);
    if (known != nullptr && ii != nullptr)
        *ii = known->ii;
    return known != nullptr ? TRUE : FALSE;
}

BOOL ZEBMSG_instrument_info_by_tag(ZEBMSG_link *lnk, const char *tag, NET_SERVER_InstrumentInfo *ii,
                                   char *inst_name) {
    if (!ZEB_CHECK(tag != nullptr))
        return FALSE;
    ZEB_LOCK(guard, &lnk->mtx);
    const ZEBMSG_known_info *known = find_by_tag(lnk, tag);
    if (known == nullptr)
        return FALSE;
    if (ii != nullptr)
        *ii = known->ii;
    if (inst_name != nullptr)
        memcpy(inst_name, known->name, sizeof known->name);
    return TRUE;
}

char *ZEBMSG_name_for_tag(ZEBMSG_link *lnk, const char *tag) {
    static char name[sizeof(ZEBMSG_known_info::name)];
    return ZEBMSG_instrument_info_by_tag(lnk, tag, nullptr, name) ? name : nullptr;
}

BOOL ZEBMSG_filter_name_and_tag(ZEBMSG_link *lnk, const char *name, const char *tag) {
    if (!ZEB_CHECK(name != nullptr) || !ZEB_CHECK(tag != nullptr))
        return FALSE;
    ZEB_LOCK(guard, &lnk->mtx);
    for (const LL_NODE *node = lnk->known_insts.head; node != nullptr; node = node->next)
        if (equals(info_of(node)->name, name) && carries_tag(info_of(node), tag))
            return TRUE;
    return FALSE;
}

void ZEBMSG_writemonitor(ZEBMSG_link *lnk, BYTE flags, FTIME rectime, const char *fmt, ...) {
    SFMT_buffer text;
    SFMT_init_buffer(&text);
    va_list args;
    va_start(args, fmt);
    SFMT_valtprintf(&text, fmt, args);
    va_end(args);
    NET_LOG_MonitorMessage record = {};
    record.flags = flags;
    record.msgtime = rectime;
    const char *formatted = SFMT_get_buffer(&text);
    UTIL_strncpynt(record.msg, formatted != nullptr ? formatted : "", sizeof record.msg);
    SFMT_destroy_buffer(&text);
    ZEBMSG_queue_message_lib(lnk, MSG_LOG_MONITOR, 1, nullptr, &record, sizeof record,
                             "NET_LOG_MonitorMessage", TRUE);
}
