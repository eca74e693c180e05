#ifndef ZEB2_ZEBMSG_H
#define ZEB2_ZEBMSG_H

#include "conf.h"
#include "definitions/server.h"
#include "ll.h"
#include "netmsg.h"
#include "netpack.h"
#include "port.h"
#include <pthread.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum ZEBMSG_LINK_STATUS {
    ZEBMSG_S_UNINITIALIZED = 0,
    ZEBMSG_S_UNLINKED = 1,
    ZEBMSG_S_AWAITING_HANDSHAKE = 2,
    ZEBMSG_S_OPEN = 3
} ZEBMSG_LINK_STATUS;

typedef struct ZEBMSG_link {
    int fh;
    int clear_fh;
    char name[32];
    NETMSG_buffer tx_stream;
    NETMSG_buffer rx_stream;
    BYTE tx_buff[256];
    size_t tx_buff_size;
    LL_TYPE tx_queue;
    LL_TYPE rx_queue;
    LL_TYPE rx_lib_queue;
    ZEBMSG_LINK_STATUS stat;
    double next_hb_time;
    unsigned int last_hb;
    FTIME last_rx_time;
    LL_TYPE known_insts;
    pthread_mutex_t mtx;
    pthread_t *thd;
    LL_TYPE cl_rx;
    LL_TYPE cl_rx_lib;
    LL_TYPE cl_lib_cbs;
    DWORD msg_filter_next_uid;
} ZEBMSG_link;

typedef struct ZEBMSG_connect_params {
    const char *id_str;
    const char *host_override;
} ZEBMSG_connect_params;

typedef struct ZEBMSG_known_info {
    char name[32];
    NET_SERVER_InstrumentInfo ii;
} ZEBMSG_known_info;

typedef struct ZEBMSG_proc_msg {
    const NETMSG_entry *msg;
    const NETDSD_entry *dsd;
    DWORD flags;
    char *src_name;
    char *dest_name;
    void *pds;
} ZEBMSG_proc_msg;

typedef void (*ZEBMSG_process_message_cb)(ZEBMSG_proc_msg *pm, void *param);
typedef void (*ZEBMSG_process_message_lib_cb)(ZEBMSG_proc_msg *pm, ZEBMSG_link *lnk, void *param);

typedef struct ZEBMSG_library_msg_process {
    ZEBMSG_process_message_lib_cb cb;
    void *param;
} ZEBMSG_library_msg_process;

ZEB_API void ZEBMSG_init_params(ZEBMSG_connect_params *cp);
ZEB_API char *ZEBMSG_get_host_str(CONF_node *root, CONF_node *local);
ZEB_API BOOL ZEBMSG_connect(ZEBMSG_connect_params *cp, ZEBMSG_link *conn);
ZEB_API BOOL ZEBMSG_multi_connect(ZEBMSG_connect_params *cp, ZEBMSG_link *conn);
ZEB_API BOOL ZEBMSG_dispatch_init(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max, pthread_t *parent_thd);
ZEB_API BOOL ZEBMSG_dispatch_pre_select(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max);
ZEB_API BOOL ZEBMSG_dispatch_post_select(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, fd_set *sel_rx_fds, fd_set *sel_tx_fds, int *fd_max);
ZEB_API BOOL ZEBMSG_dispatch_loop_continue(ZEBMSG_link *lnk, fd_set *rx_fds, fd_set *tx_fds, int *fd_max);
ZEB_API BOOL ZEBMSG_test_connected(ZEBMSG_link *lnk);
ZEB_API int ZEBMSG_test_connected_ext(ZEBMSG_link *lnk);
ZEB_API BOOL ZEBMSG_wait_connected(ZEBMSG_link *lnk);
ZEB_API void ZEBMSG_disconnect(ZEBMSG_link *lnk);
ZEB_API void ZEBMSG_multi_disconnect(ZEBMSG_link *lnk);
ZEB_API void ZEBMSG_multi_destroy(ZEBMSG_link *lnk);

ZEB_API void ZEBMSG_queue_message(ZEBMSG_link *lnk, NETMSG_type type, DWORD flags, const char *dest_name, const void *pds, size_t sz_ds, const char *ds_name);
ZEB_API void ZEBMSG_queue_message_lib(ZEBMSG_link *lnk, NETMSG_type type, DWORD flags, const char *dest_name, const void *pds, size_t sz_ds, const char *ds_name, BOOL do_lock);
ZEB_API DWORD ZEBMSG_add_filter(ZEBMSG_link *lnk, BOOL accept, const char *src_match, const char *dest_match, int msg_type_match, const char *inst_type_match, const char *tag_matches, const char *msg_metatype_matches);
ZEB_API void ZEBMSG_delete_filter(ZEBMSG_link *lnk, DWORD uid);
ZEB_API void ZEBMSG_clear_filters(ZEBMSG_link *lnk);
ZEB_API void ZEBMSG_register_library_msg_proc(ZEBMSG_link *lnk, ZEBMSG_process_message_lib_cb cb, const void *param, size_t sz_param);
ZEB_API BOOL ZEBMSG_netpack_to_zebmsgproc(NETPACK_message *msg, ZEBMSG_link *lnk, ZEBMSG_proc_msg *pm);
ZEB_API BOOL ZEBMSG_netpack_to_zebmsgproc_lib(NETPACK_message *msg, ZEBMSG_link *lnk, ZEBMSG_proc_msg *pm);
ZEB_API void ZEBMSG_process_messages(ZEBMSG_link *lnk, ZEBMSG_process_message_cb cb, void *param);

ZEB_API void ZEBMSG_register_init(NET_SERVER_InstrumentInfo *ii);
ZEB_API void ZEBMSG_do_tags(NET_SERVER_InstrumentInfo *ii, CONF_node *root, CONF_node *local);
ZEB_API void ZEBMSG_register_instrument(ZEBMSG_link *lnk, const NET_SERVER_InstrumentInfo *ii);
ZEB_API BOOL ZEBMSG_instrument_info_by_name(ZEBMSG_link *lnk, const char *name, NET_SERVER_InstrumentInfo *ii);
ZEB_API BOOL ZEBMSG_instrument_info_by_tag(ZEBMSG_link *lnk, const char *tag, NET_SERVER_InstrumentInfo *ii, char *inst_name);
ZEB_API char *ZEBMSG_name_for_tag(ZEBMSG_link *lnk, const char *tag);
ZEB_API BOOL ZEBMSG_filter_name_and_tag(ZEBMSG_link *lnk, const char *name, const char *tag);
ZEB_API void ZEBMSG_writemonitor(ZEBMSG_link *lnk, BYTE flags, FTIME rectime, const char *fmt, ...);

#ifdef __cplusplus
}
#endif
#endif
