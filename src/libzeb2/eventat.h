#ifndef ZEB2_EVENTAT_H
#define ZEB2_EVENTAT_H

#include "ll.h"
#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef LL_NODE EVENTAT_event;

typedef struct EVENTAT_params {
    FTIME sched_time;
    FTIME cur_time;
} EVENTAT_params;

typedef struct EVENTAT_action {
    FTIME repeat_time;
} EVENTAT_action;

typedef void (*EVENTAT_callback)(EVENTAT_params *p, EVENTAT_action *a, void *param);

typedef struct EVENTAT_matchparams {
    EVENTAT_event *ev;
    EVENTAT_callback ev_cb;
    void *ev_pd;
    FTIME ev_sched_time;
} EVENTAT_matchparams;

typedef BOOL (*EVENTAT_match)(EVENTAT_matchparams *mps, void *pd);

ZEB_API BOOL EVENTAT_init(void);
ZEB_API void EVENTAT_cleanup(void);
ZEB_API EVENTAT_event *EVENTAT_add(FTIME at_time, EVENTAT_callback cb, const void *param, size_t sz_param);
ZEB_API void EVENTAT_delete(EVENTAT_event *ev);
ZEB_API void EVENTAT_reschedule(EVENTAT_event *ev, FTIME new_time);
ZEB_API void EVENTAT_run(FTIME curtime);
ZEB_API EVENTAT_event *EVENTAT_findnext(EVENTAT_match match, void *pd);
ZEB_API BOOL EVENTAT_match_callback(EVENTAT_matchparams *mps, void *pd);
ZEB_API FTIME EVENTAT_timeofevent(EVENTAT_event *ev);
ZEB_API void *EVENTAT_paramofevent(EVENTAT_event *ev);

#ifdef __cplusplus
}
#endif
#endif
