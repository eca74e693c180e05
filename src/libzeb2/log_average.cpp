#include "log.h"

#include "definitions/cutpoints.h"
#include "util.h"
#include "util_int.h"

#include <cctype>
#include <cmath>
#include <cstring>

namespace {

// Flags of an average.
constexpr WORD k_contaminated = 1;
constexpr WORD k_contaminated_other = 2;
constexpr WORD k_contaminated_bit_4 = 4;
constexpr WORD k_cut_point = 16;
constexpr WORD k_contamination = k_contaminated | k_contaminated_other | k_contaminated_bit_4;
constexpr WORD k_kept = 0xFFE8; // of the finished average: what is not judged anew

// Bits of the contamination flags that a message reports.
constexpr WORD k_reported_kind = 6;
constexpr WORD k_reported_bit_4 = 4;

constexpr FTIME k_no_time = -1.0;

// ---- Configuration ----

bool is_true(const char *value, bool otherwise) {
    return value != nullptr ? zeb::reads_as_true(value) : otherwise;
}

const char *daemon_name(CONF_node *local) {
    if (local == nullptr)
        return "";
    const char *name = CONF_lookup(local, "fil;Name");
    return name != nullptr ? name : local->name;
}

// The instruments of the first line, A11 and its like, are those that a bypass concerns.
bool is_first_line(const char *name) {
    const size_t length = strlen(name);
    return length > 2 && isdigit(static_cast<unsigned char>(name[length - 1])) != 0 &&
           name[length - 2] == '1';
}

FTIME end_of_spinup(CONF_node *root, CONF_node *local) {
    const char *time = CONF_lookup(local, "SpinupTime");
    if (time == nullptr)
        time = CONF_lookup(root, "Global;SpinupTime");
    return time != nullptr ? UTIL_ftime() + UTIL_parse_delimited_inc(time, ":", 60) : k_no_time;
}

// ---- Messages ----

// What is no number would end all flushes: nothing is later.
void extend_flush(LOG_avg_control *lac, FTIME until) {
    if (std::isnan(until))
        return;
    if (until != k_no_time && (lac->flush_until == k_no_time || until > lac->flush_until))
        lac->flush_until = until;
}

void collect_flags(LOG_avg_control *lac, WORD reported) {
    if (!lac->contaminated)
        return;
    lac->persistflags |= (reported & k_reported_kind) != 0 ? k_contaminated : k_contaminated_other;
    if ((reported & k_reported_bit_4) != 0)
        lac->persistflags |= k_contaminated_bit_4;
}

void set_contaminated(LOG_avg_control *lac, const NET_LOG_AVG_Contamination &record) {
    lac->contaminated = record.contaminated;
    if (!lac->avg_on_contam)
        extend_flush(lac, record.flush_until);
}

void set_bypassed(LOG_avg_control *lac, const NET_LOG_AVG_Bypass &record) {
    lac->bypassed = record.bypassed;
    if (!lac->avg_on_bypass)
        extend_flush(lac, record.flush_until);
}

void set_cut(LOG_avg_control *lac, int val) {
    if (val == 1)
        lac->persistflags |= k_cut_point;
    lac->cp_val = val;
}

WORD without(WORD flags, WORD cleared) {
    return static_cast<WORD>(flags & ~cleared);
}

void start_average(LOG_avg_control *lac) {
    lac->systemflags = lac->persistflags;
    if (!lac->contaminated)
        lac->persistflags = without(lac->persistflags, k_contamination);
    if (lac->cp_val == 0)
        lac->persistflags = without(lac->persistflags, k_cut_point);
    else if (lac->cp_val == 2)
        lac->persistflags |= k_cut_point;
}

void serve_record(LOG_avg_control *lac, NETMSG_type type, const void *record) {
    switch (type) {
    case MSG_LOG_AVG_CONTAMINATION:
        set_contaminated(lac, *static_cast<const NET_LOG_AVG_Contamination *>(record));
        break;
    case MSG_LOG_AVG_BYPASS:
        set_bypassed(lac, *static_cast<const NET_LOG_AVG_Bypass *>(record));
        break;
    case MSG_LOG_AVG_FLUSH:
        extend_flush(lac, static_cast<const NET_LOG_AVG_Flush *>(record)->flush_until);
        break;
    case MSG_LOG_AVG_CONTAM_FLAGS:
        collect_flags(lac, static_cast<const NET_LOG_AVG_ContamFlags *>(record)->flags);
        break;
    case MSG_CUTPOINTS_STATUS:
        set_cut(lac, static_cast<const NET_CUTPOINTS_Status *>(record)->cp_cur.val);
        break;
    default:
        break;
    }
}

// `param` is a copy of the pointer to the control.
void serve_message(ZEBMSG_proc_msg *pm, ZEBMSG_link *, void *param) {
    LOG_avg_control *lac = *static_cast<LOG_avg_control **>(param);
    if (pm->msg == nullptr)
        return;
    if (pm->msg->msg == MSG_LOG_NEW_AVERAGE)
        start_average(lac);
    else if (pm->pds != nullptr)
        serve_record(lac, pm->msg->msg, pm->pds);
}

} // namespace

BOOL LOG_avg_control_init(LOG_avg_control *lac, CONF_node *root, CONF_node *local) {
    lac->contaminated = FALSE;
    lac->flush_until = k_no_time;
    lac->cp_val = 0;
    lac->systemflags = 0;
    lac->persistflags = 0;
    lac->avg_on_contam = is_true(CONF_lookup(local, "AverageOnContam"), true);
    lac->avg_on_bypass =
        is_true(CONF_lookup(local, "AverageOnBypass"), !is_first_line(daemon_name(local)));
    lac->ignore_flush = is_true(CONF_lookup(local, "IgnoreFlush"), lac->avg_on_bypass);
    lac->spinup_done = end_of_spinup(root, local);
    return TRUE;
}

void LOG_avg_control_delete(LOG_avg_control *) {}

void LOG_avg_register_link(LOG_avg_control *lac, ZEBMSG_link *lnk) {
    ZEBMSG_register_library_msg_proc(lnk, serve_message, &lac, sizeof lac);
}

BOOL LOG_avg_averaging(LOG_avg_control *lac) {
    const FTIME now = UTIL_ftime();
    if (lac->contaminated && !lac->avg_on_contam)
        return FALSE;
    if (lac->bypassed && !lac->avg_on_bypass)
        return FALSE;
    if (lac->flush_until != k_no_time && lac->flush_until > now && !lac->ignore_flush)
        return FALSE;
    return lac->spinup_done == k_no_time || lac->spinup_done <= now;
}

WORD LOG_avg_effective_flags(LOG_avg_control *lac) {
    WORD flags = lac->systemflags & k_kept;
    if (lac->contaminated)
        flags |= lac->persistflags & k_contamination;
    if (lac->cp_val != 0)
        flags |= k_cut_point;
    return flags;
}
