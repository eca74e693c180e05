#include "log_int.h"

#include "eventat.h"
#include "zebmsg.h"

#include <cmath>
#include <cstring>

using namespace zeb;

namespace {

// The record of a message, or null when it carries none.
template <class T> const T *record_of(const ZEBMSG_proc_msg *pm) {
    if (pm->dsd != nullptr && pm->dsd->total_size < sizeof(T))
        return nullptr;
    return static_cast<const T *>(pm->pds);
}

// ---- Monitor and average lines ----

void pending_monitor(EVENTAT_params *p, EVENTAT_action *, void *param) {
    const auto *registered = static_cast<const LOG_message_proc_param *>(param);
    registered->wr_mon(registered->pf, p->sched_time);
}

void pending_average(EVENTAT_params *p, EVENTAT_action *, void *param) {
    const auto *registered = static_cast<const LOG_message_proc_param *>(param);
    registered->wr_avg(registered->pf, p->sched_time);
}

constexpr FTIME k_no_time = -1.0; // also marks an event that is running, which nobody finds

// An infinite time would never come, and keep every other from coming; an event at no time could
// not be forgotten with its file.
void schedule(FTIME at, EVENTAT_callback cb, const LOG_message_proc_param *param) {
    if (std::isfinite(at) && at != k_no_time &&
        EVENTAT_findnext(EVENTAT_match_callback, reinterpret_cast<void *>(cb)) == nullptr)
        EVENTAT_add(at, cb, param, sizeof *param);
}

BOOL is_request_of(EVENTAT_matchparams *mps, void *pd) {
    return (mps->ev_cb == pending_monitor || mps->ev_cb == pending_average) &&
           static_cast<const LOG_message_proc_param *>(mps->ev_pd)->pf == pd;
}

// ---- Messages ----

void set_state(LOG_file *f, BOOL enable, ZEBMSG_link *lnk) {
    if ((enable != FALSE) == (f->info.enabled != FALSE))
        return;
    f->info.enabled = enable;
    post_state(lnk, &f->info);
}

// The messages that are served alike however they come; false for others.
bool serve_at_once(LOG_file *f, const ZEBMSG_proc_msg *pm, ZEBMSG_link *lnk) {
    switch (pm->msg->msg) {
    case MSG_LOG_FLUSH:
        LOG_flush(f);
        return true;
    case MSG_LOG_SET_STATE:
        if (const auto *state = record_of<NET_LOG_SetState>(pm))
            set_state(f, state->enable, lnk);
        return true;
    case MSG_LOG_SWITCHFILES:
        if (const auto *request = record_of<NET_LOG_SwitchFiles>(pm))
            LOG_switch(f, request->switchtime);
        return true;
    default:
        return false;
    }
}

// The time for which a message asks for monitor or average lines; false for other messages.
bool monitor_time(const ZEBMSG_proc_msg *pm, FTIME *time) {
    const auto *request =
        pm->msg->msg == MSG_LOG_MONITOR_RECORD ? record_of<NET_LOG_MonitorSnapshot>(pm) : nullptr;
    if (request != nullptr)
        *time = request->montime;
    return request != nullptr;
}

bool average_time(const ZEBMSG_proc_msg *pm, FTIME *time) {
    const auto *request =
        pm->msg->msg == MSG_LOG_NEW_AVERAGE ? record_of<NET_LOG_NewAverage>(pm) : nullptr;
    if (request != nullptr)
        *time = request->starttime;
    return request != nullptr;
}

void serve_registered(ZEBMSG_proc_msg *pm, ZEBMSG_link *lnk, void *param) {
    const auto *registered = static_cast<const LOG_message_proc_param *>(param);
    FTIME time;
    if (pm->msg == nullptr || serve_at_once(registered->pf, pm, lnk))
        return;
    if (registered->wr_mon != nullptr && monitor_time(pm, &time))
        schedule(time, pending_monitor, registered);
    if (registered->wr_avg != nullptr && average_time(pm, &time))
        schedule(time, pending_average, registered);
}

} // namespace

namespace zeb {

void post_state(ZEBMSG_link *lnk, const NET_LOG_Info *info) {
    if (lnk != nullptr)
        ZEBMSG_queue_message_lib(lnk, MSG_LOG_INFO, 3, nullptr, info, sizeof *info, "NET_LOG_Info",
                                 TRUE);
}

void forget_requests(LOG_file *f) {
    while (EVENTAT_event *event = EVENTAT_findnext(is_request_of, f))
        EVENTAT_delete(event);
}

} // namespace zeb

void LOG_register_link(LOG_file *f, ZEBMSG_link *lnk, LOG_write_record wr_mon,
                       LOG_write_record wr_avg) {
    const LOG_message_proc_param param = {f, wr_mon, wr_avg};
    ZEBMSG_register_library_msg_proc(lnk, serve_registered, &param, sizeof param);
}

void LOG_internal_message_proc(LOG_file *f, ZEBMSG_proc_msg *pm, ZEBMSG_link *lnk,
                               LOG_write_record wr_mon, LOG_write_record wr_avg) {
    FTIME time;
    if (pm->msg == nullptr || serve_at_once(f, pm, lnk))
        return;
    if (wr_mon != nullptr && monitor_time(pm, &time))
        wr_mon(f, time);
    if (wr_avg != nullptr && average_time(pm, &time))
        wr_avg(f, time);
}
