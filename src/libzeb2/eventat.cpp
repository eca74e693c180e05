#include "eventat.h"

#include "diag.h"
#include "util.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr FTIME k_running = -1.0; // due time of an event while its callback runs

struct EVENTAT_internal {
    EVENTAT_callback cb;
    void *param;
    BOOL deleted;
    FTIME sched_time;
};

LL_TYPE g_eventats;
bool g_pass_active = false;

// Marks the pass for its duration, also when the thread is cancelled in a callback.
class PassScope {
  public:
    PassScope() { g_pass_active = true; }
    ~PassScope() { g_pass_active = false; }
    PassScope(const PassScope &) = delete;
    PassScope &operator=(const PassScope &) = delete;
};

EVENTAT_internal *internal_of(EVENTAT_event *ev) {
    return ev != nullptr ? static_cast<EVENTAT_internal *>(ev->data) : nullptr;
}

// The event behind a handle, unless it is marked deleted.
EVENTAT_internal *pending(EVENTAT_event *ev) {
    EVENTAT_internal *event = internal_of(ev);
    return event != nullptr && !event->deleted ? event : nullptr;
}

void free_param(void *data, void *) {
    free(static_cast<EVENTAT_internal *>(data)->param);
}
void mark_deleted(void *data, void *) {
    static_cast<EVENTAT_internal *>(data)->deleted = TRUE;
}

// Runs a due event; whether it is to run again.
bool run_event(EVENTAT_internal *event, EVENTAT_params *params) {
    EVENTAT_action action = {-1.0};
    params->sched_time = event->sched_time;
    event->sched_time = k_running;
    event->cb(params, &action, event->param);
    if (!(action.repeat_time >= 0.0))
        return false;
    event->sched_time = action.repeat_time;
    return true;
}

// Whether the event goes.
BOOL run_if_due(void *data, void *param) {
    EVENTAT_internal *event = static_cast<EVENTAT_internal *>(data);
    // Each event gets a copy: what a callback writes into its parameters stays its own.
    EVENTAT_params params = *static_cast<EVENTAT_params *>(param);
    if (!event->deleted) {
        if (event->sched_time > params.cur_time || run_event(event, &params))
            return FALSE;
    }
    free(event->param);
    event->param = nullptr;
    return TRUE;
}

void *copy_param(const void *param, size_t sz_param) {
    void *copy = malloc(sz_param);
    if (ZEB_CHECK_ERRNO(copy != nullptr))
        memcpy(copy, param, sz_param);
    return copy;
}

} // namespace

BOOL EVENTAT_init(void) {
    LL_init(&g_eventats);
    g_pass_active = false;
    return TRUE;
}

void EVENTAT_cleanup(void) {
    if (g_pass_active) {
        // The pass still walks these nodes.
        LL_transverse_forwards(&g_eventats, mark_deleted, nullptr);
        return;
    }
    LL_transverse_forwards(&g_eventats, free_param, nullptr);
    LL_clear(&g_eventats);
}

EVENTAT_event *EVENTAT_add(FTIME at_time, EVENTAT_callback cb, const void *param, size_t sz_param) {
    if (cb == nullptr)
        return nullptr;
    EVENTAT_internal event = {cb, nullptr, FALSE, at_time};
    if (param != nullptr && sz_param != 0) {
        event.param = copy_param(param, sz_param);
        if (event.param == nullptr)
            return nullptr;
    }
    EVENTAT_event *node = LL_insert_tail(&g_eventats, &event, sizeof event);
    if (node == nullptr)
        free(event.param);
    return node;
}

void EVENTAT_delete(EVENTAT_event *ev) {
    if (EVENTAT_internal *event = internal_of(ev))
        event->deleted = TRUE;
}

void EVENTAT_reschedule(EVENTAT_event *ev, FTIME new_time) {
    if (EVENTAT_internal *event = internal_of(ev))
        event->sched_time = new_time;
}

void EVENTAT_run(FTIME curtime) {
    if (g_pass_active) {
        // A second pass would run the running event again and free it under the first.
        ZEB_REPORT("EVENTAT_run called from within an event");
        return;
    }
    const PassScope pass;
    EVENTAT_params params = {k_running, curtime > 0.0 ? curtime : UTIL_ftime()};
    LL_selective_delete(&g_eventats, run_if_due, &params);
}

EVENTAT_event *EVENTAT_findnext(EVENTAT_match match, void *pd) {
    if (!ZEB_CHECK(match != nullptr))
        return nullptr;
    EVENTAT_event *best = nullptr;
    FTIME best_time = 0.0;
    for (LL_NODE *node = g_eventats.head; node != nullptr; node = node->next) {
        const EVENTAT_internal *event = pending(node);
        if (event == nullptr || event->sched_time == k_running ||
            (best != nullptr && event->sched_time > best_time))
            continue;
        EVENTAT_matchparams mps = {node, event->cb, event->param, event->sched_time};
        if (match(&mps, pd)) {
            best = node;
            best_time = event->sched_time;
        }
    }
    return best;
}

BOOL EVENTAT_match_callback(EVENTAT_matchparams *mps, void *pd) {
    return mps->ev_cb == reinterpret_cast<EVENTAT_callback>(pd);
}

FTIME EVENTAT_timeofevent(EVENTAT_event *ev) {
    const EVENTAT_internal *event = pending(ev);
    return event != nullptr ? event->sched_time : -1.0;
}

void *EVENTAT_paramofevent(EVENTAT_event *ev) {
    const EVENTAT_internal *event = pending(ev);
    return event != nullptr ? event->param : nullptr;
}
