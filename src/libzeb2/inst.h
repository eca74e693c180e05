/* inst.h - one dispatch thread for everything that an instrument daemon talks to. */
#ifndef ZEB2_INST_H
#define ZEB2_INST_H

#include "ll.h"
#include "port.h"
#include "serialcom.h"
#include "zebmsg.h"
#include <pthread.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct INST_link {
    ZEBMSG_link msg_lnk;
    BOOL msg_lnk_up;
    SERIALCOM_link sc_lnk;
    BOOL sc_lnk_enabled;
    BOOL sc_lnk_up;
    SERIALCOM_link log_sc_lnk;
    BOOL log_sc_lnk_enabled;
    BOOL log_sc_lnk_up;
    LL_TYPE ext_sc_links; /* of INST_ext_link */
    BOOL status_ok;
    pthread_mutex_t mtx;
    pthread_t *thd;
} INST_link;

typedef struct INST_ext_link {
    SERIALCOM_link *lnk;
    BOOL lnk_up;
} INST_ext_link;

typedef BOOL (*INST_dispatch_cbst)(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max,
                                   pthread_t *parent_thd);
typedef BOOL (*INST_dispatch_cbmid)(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                    int *fd_max);
typedef BOOL (*INST_dispatch_cbpst)(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                    fd_set *sel_rx_fds, fd_set *sel_tx_fds, int *fd_max);

ZEB_API BOOL INST_connect(INST_link *lnk, ZEBMSG_connect_params *msg_params,
                          SERIALD_connect_params *sc_params, SERIALD_connect_params *log_sc_params,
                          ...);
ZEB_API BOOL INST_test_connected(INST_link *lnk);
ZEB_API BOOL INST_wait_connected(INST_link *lnk);
ZEB_API BOOL INST_sleep(INST_link *lnk, double time);
ZEB_API void INST_logecho(INST_link *lnk, const char *rec);
ZEB_API void INST_disconnect(INST_link *lnk);

#ifdef __cplusplus
}
#endif
#endif
