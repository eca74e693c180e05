/* eventat.h - callbacks due at absolute times, run by the daemon's own loop.
 *
 *   void sample(EVENTAT_params *p, EVENTAT_action *a, void *param) {
 *       take_sample(*(struct channel **)param);
 *       a->repeat_time = p->sched_time + 60.0; // once a minute, without drift
 *   }
 *   EVENTAT_add(UTIL_ftime() + 60.0, sample, &channel, sizeof channel);
 *   while (!UTIL_exit_poll()) {
 *       UTIL_fsleep(0.25);
 *       EVENTAT_run(0);
 *   }
 *
 * The process has one list of events, in the order they were added. LIBZEB_init empties it and
 * LIBZEB_cleanup releases it.
 * Threads: no lock is taken. All calls come from the thread that calls EVENTAT_run, in which the
 * callbacks run too, or are serialised by the daemon. */
#ifndef ZEB2_EVENTAT_H
#define ZEB2_EVENTAT_H

#include "ll.h"
#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A handle; valid until the event has run without repeating, or has been deleted and a run or the
 * clean-up has followed. What it points at is private. */
typedef LL_NODE EVENTAT_event;

typedef struct EVENTAT_params {
    FTIME sched_time; /* when this run was due */
    FTIME cur_time;   /* the time of the EVENTAT_run pass */
} EVENTAT_params;

typedef struct EVENTAT_action {
    FTIME repeat_time; /* absolute time of the next run; negative (on entry: -1.0): none */
} EVENTAT_action;

/* What an event calls. `param` is the event's own copy of its parameter block, or null. May add,
 * delete and reschedule events, this one too, though what it leaves in `a` decides about this one.
 * An event that it adds already due runs in the same pass. */
typedef void (*EVENTAT_callback)(EVENTAT_params *p, EVENTAT_action *a, void *param);

typedef struct EVENTAT_matchparams {
    EVENTAT_event *ev;
    EVENTAT_callback ev_cb;
    void *ev_pd; /* the event's parameter copy, or null */
    FTIME ev_sched_time;
} EVENTAT_matchparams;

/* Says whether an event is one looked for; `pd` is what was given to EVENTAT_findnext. */
typedef BOOL (*EVENTAT_match)(EVENTAT_matchparams *mps, void *pd);

/* Makes the list empty, without releasing what it held: for a fresh process.
 * Returns TRUE, always.
 * Threads: main thread, at start-up; not from a callback. */
ZEB_API BOOL EVENTAT_init(void);

/* Releases every event with its parameter copy. From within a callback the events are only marked
 * deleted, and released by the passes that follow.
 * Threads: the events' thread. */
ZEB_API void EVENTAT_cleanup(void);

/* Schedules a callback.
 * at_time: absolute, in seconds since the epoch; one in the past runs at the next pass. cb: null
 * adds nothing. param: `sz_param` bytes, copied; null or size 0: the callback gets null. Returns
 * the event's handle; null when `cb` is null or memory runs out (reported). Threads: the events'
 * thread. */
ZEB_API EVENTAT_event *EVENTAT_add(FTIME at_time, EVENTAT_callback cb, const void *param,
                                   size_t sz_param);

/* Marks an event deleted: it never runs again and the next pass releases it.
 * ev: handle; null is ignored.
 * Threads: the events' thread. */
ZEB_API void EVENTAT_delete(EVENTAT_event *ev);

/* Sets when an event is due. A deleted event stays deleted.
 * ev: handle; null is ignored. new_time: absolute, in seconds since the epoch.
 * Threads: the events' thread. */
ZEB_API void EVENTAT_reschedule(EVENTAT_event *ev, FTIME new_time);

/* Runs, in list order, each event whose time is not after `curtime`, once; removes those that do
 * not repeat and those deleted. An event that repeats at a time already past waits for the next
 * pass. curtime: seconds since the epoch; 0 or less: now. From within a callback the call is
 * reported and does nothing. Threads: the events' thread. */
ZEB_API void EVENTAT_run(FTIME curtime);

/* Finds the earliest pending event that `match` accepts; among equal times the one added last. The
 * event that is running at the moment and deleted ones are passed over, and `match` is not asked
 * about events later than one already accepted.
 * match: not null (reported, finds nothing). pd: handed through to `match`.
 * Returns its handle; null when there is none.
 * Threads: the events' thread. */
ZEB_API EVENTAT_event *EVENTAT_findnext(EVENTAT_match match, void *pd);

/* A match function for EVENTAT_findnext: accepts the events of one callback.
 * pd: the callback's address, (void *)callback.
 * Returns TRUE when the event has this callback.
 * Threads: the events' thread. */
ZEB_API BOOL EVENTAT_match_callback(EVENTAT_matchparams *mps, void *pd);

/* Returns when an event is due: -1.0 for a null handle, a deleted event, and one that is running.
 * Threads: the events' thread. */
ZEB_API FTIME EVENTAT_timeofevent(EVENTAT_event *ev);

/* Returns an event's parameter copy, which stays the event's; null for a null handle, a deleted
 * event, and one without.
 * Threads: the events' thread. */
ZEB_API void *EVENTAT_paramofevent(EVENTAT_event *ev);

#ifdef __cplusplus
}
#endif
#endif
