/* serialcom.h - the link to the station's serial-port server. */
#ifndef ZEB2_SERIALCOM_H
#define ZEB2_SERIALCOM_H

#include "netmsg.h"
#include "port.h"
#include <pthread.h>
#include <sys/select.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Wire records ---- */

#pragma pack(push, 4)

typedef enum SERIALD_REQUEST_TYPE ZEB_ENUM32 {
    SERIALD_REQUEST_HEARTBEAT = 0,
    SERIALD_REQUEST_CLOSE = 1,
    SERIALD_REQUEST_READNEW = 2,
    SERIALD_REQUEST_READNEW_ECHO = 3,
    SERIALD_REQUEST_READUNTIL = 4,
    SERIALD_REQUEST_READUNTIL_EMPTY = 5,
    SERIALD_REQUEST_READBURST = 6,
    SERIALD_REQUEST_FLUSH = 7,
    SERIALD_REQUEST_RESET = 8,
    SERIALD_REQUEST_SET_PORT_PARAMS = 9,
    SERIALD_REQUEST_SET_INT_PARAMS = 10,
    SERIALD_REQUEST_WRITE = 11,
    SERIALD_REQUEST_BLOCKING_WRITE = 12,
    SERIALD_REQUEST_ADD_REPEATER = 13,
    SERIALD_REQUEST_DEL_REPEATER = 14
} SERIALD_REQUEST_TYPE;

typedef enum SERIALD_RESP_TYPE ZEB_ENUM32 {
    SERIALD_RESP_HEARTBEAT = 0,
    SERIALD_RESP_SUCCESS = 1,
    SERIALD_RESP_FAILURE = 2
} SERIALD_RESP_TYPE;

typedef struct SERIALD_connect_params {
    char port_name[256];
} SERIALD_connect_params;

typedef struct SERIALD_request_header {
    SERIALD_REQUEST_TYPE type;
    double timeout;
    double burst_timeout;
} SERIALD_request_header;

typedef struct SERIALD_resp_header {
    SERIALD_RESP_TYPE type;
} SERIALD_resp_header;

typedef struct SERIALD_port_params {
    DWORD baud;
    BYTE bits;
    BYTE parity;
    BYTE stop_bits;
    BYTE flow_cont;
} SERIALD_port_params;

typedef struct SERIALD_int_params {
    DWORD max_buffer_size;
    DWORD max_echo_size;
    BOOL exclusive_mode;
    BYTE padding[3];
} SERIALD_int_params;

typedef struct SERIALD_repeater_add {
    BYTE mode;
    char filename[256];
    BOOL line_buffer;
} SERIALD_repeater_add;

typedef struct SERIALD_repeater_delete {
    char filename[256];
} SERIALD_repeater_delete;

#pragma pack(pop)

/* ---- The link ---- */

typedef enum SERIALCOM_LINK_STATUS {
    SERIALCOM_S_UNINITIALIZED = 0,
    SERIALCOM_S_UNLINKED = 1,
    SERIALCOM_S_SEND_HANDSHAKE = 2,
    SERIALCOM_S_AWAITING_HANDSHAKE = 3,
    SERIALCOM_S_OPEN = 4,
    SERIALCOM_S_NOTIFY_CLOSE = 5,
    SERIALCOM_S_CLOSE_WAIT_NO_TX = 6,
    SERIALCOM_S_CLOSE_DONE = 7
} SERIALCOM_LINK_STATUS;

typedef enum SERIALCOM_REQUEST_STATUS {
    SERIALCOM_RS_NONE = 0,
    SERIALCOM_RS_START = 1,
    SERIALCOM_RS_SENT = 2,
    SERIALCOM_RS_DONE = 3,
    SERIALCOM_RS_FAILURE = 4,
    SERIALCOM_RS_SUCCESS = 5
} SERIALCOM_REQUEST_STATUS;

typedef struct SERIALCOM_link {
    int fh;
    int clear_fh;
    SERIALD_connect_params cps;
    SERIALD_port_params pps;
    NETMSG_buffer rx;
    NETMSG_buffer tx;
    BYTE tx_buff[256];
    size_t tx_buff_size;
    SERIALCOM_LINK_STATUS stat;
    FTIME last_rx_time;
    FTIME next_hb_time;
    SERIALCOM_REQUEST_STATUS rq_stat;
    SERIALD_request_header rq_header;
    SERIALD_resp_header resp_header;
    BYTE *r_buffer;
    size_t r_buffer_size;
    size_t r_buffer_max;
    pthread_mutex_t mtx;
    pthread_cond_t req_cond;
    pthread_t *thd;
    double clock_offset; /* the link's own bookkeeping: wall clock minus steady clock (s) */
} SERIALCOM_link;

typedef struct SERIALCOM_recv_param {
    SERIALCOM_link *lnk;
    fd_set *rx_fds;
    fd_set *tx_fds;
    BOOL stat;
} SERIALCOM_recv_param;

ZEB_API BOOL SERIALCOM_breakdown_port_string(const char *str, SERIALD_connect_params *sc_params,
                                             SERIALD_port_params *port_params);
ZEB_API double SERIALCOM_burst_timeout(SERIALCOM_link *lnk);

/* ---- Connecting ---- */

ZEB_API BOOL SERIALCOM_multi_connect(SERIALD_connect_params *cp, SERIALCOM_link *conn);
ZEB_API BOOL SERIALCOM_connect(SERIALD_connect_params *cp, SERIALCOM_link *conn);
ZEB_API BOOL SERIALCOM_test_connected(SERIALCOM_link *lnk);
ZEB_API int SERIALCOM_test_connected_ext(SERIALCOM_link *lnk);
ZEB_API BOOL SERIALCOM_wait_connected(SERIALCOM_link *lnk);
ZEB_API void SERIALCOM_multi_disconnect(SERIALCOM_link *lnk);
ZEB_API void SERIALCOM_multi_destroy(SERIALCOM_link *lnk);
ZEB_API void SERIALCOM_disconnect(SERIALCOM_link *lnk);

/* ---- The select loop ---- */

ZEB_API BOOL SERIALCOM_dispatch_init(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                     int *fd_max, pthread_t *parent_thd);
ZEB_API BOOL SERIALCOM_dispatch_pre_select(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                           int *fd_max);
ZEB_API BOOL SERIALCOM_dispatch_post_select(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                            fd_set *sel_rx_fds, fd_set *sel_tx_fds, int *fd_max);
ZEB_API BOOL SERIALCOM_dispatch_loop_continue(SERIALCOM_link *lnk, fd_set *rx_fds, fd_set *tx_fds,
                                              int *fd_max);

/* ---- Requests: the core ---- */

ZEB_API void SERIALCOM_issue_request(SERIALCOM_link *lnk, SERIALD_REQUEST_TYPE rqt, double timeout,
                                     double burst_timeout, const void *data, size_t szdata);
ZEB_API BOOL SERIALCOM_poll_request_done(SERIALCOM_link *lnk);
ZEB_API BOOL SERIALCOM_poll_request_success(SERIALCOM_link *lnk);
ZEB_API BOOL SERIALCOM_wait_request_done(SERIALCOM_link *lnk);
ZEB_API size_t SERIALCOM_retrive_request_data(SERIALCOM_link *lnk, BYTE *dest, size_t szdest);

/* ---- Requests ---- */

ZEB_API void SERIALCOM_issue_flush(SERIALCOM_link *lnk, double timeout, double burst_timeout);
ZEB_API BOOL SERIALCOM_flush(SERIALCOM_link *lnk, double timeout, double burst_timeout);
ZEB_API BOOL SERIALCOM_reset(SERIALCOM_link *lnk);
ZEB_API BOOL SERIALCOM_issue_write(SERIALCOM_link *lnk, const void *data, size_t n);
ZEB_API BOOL SERIALCOM_issue_write_string(SERIALCOM_link *lnk, const char *s);
ZEB_API BOOL SERIALCOM_write_blocking(SERIALCOM_link *lnk, const void *data, size_t n,
                                      double timeout);
ZEB_API BOOL SERIALCOM_write_string_blocking(SERIALCOM_link *lnk, const char *s, double timeout);
ZEB_API long SERIALCOM_read_new(SERIALCOM_link *lnk, void *dest, size_t sz_dest);
ZEB_API long SERIALCOM_read_new_echo(SERIALCOM_link *lnk, void *dest, size_t sz_dest);
ZEB_API void SERIALCOM_issue_read_until(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                        double timeout, double burst_timeout);
ZEB_API void SERIALCOM_issue_read_until_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                               double timeout, double burst_timeout);
ZEB_API long SERIALCOM_read_until(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                  double timeout, double burst_timeout, void *dest,
                                  size_t sz_dest);
ZEB_API long SERIALCOM_read_until_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                         double timeout, double burst_timeout, void *dest,
                                         size_t sz_dest);
ZEB_API void SERIALCOM_issue_read_until_empty(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                              double timeout, double burst_timeout);
ZEB_API void SERIALCOM_issue_read_until_empty_string(SERIALCOM_link *lnk,
                                                     const char *stop_chars_str, double timeout,
                                                     double burst_timeout);
ZEB_API long SERIALCOM_read_until_empty(SERIALCOM_link *lnk, const void *stop_chars, size_t n,
                                        double timeout, double burst_timeout, void *dest,
                                        size_t sz_dest);
ZEB_API long SERIALCOM_read_until_empty_string(SERIALCOM_link *lnk, const char *stop_chars_str,
                                               double timeout, double burst_timeout, void *dest,
                                               size_t sz_dest);
ZEB_API void SERIALCOM_issue_read_burst(SERIALCOM_link *lnk, double timeout, double burst_timeout);
ZEB_API long SERIALCOM_read_burst(SERIALCOM_link *lnk, double timeout, double burst_timeout,
                                  void *dest, size_t sz_dest);
ZEB_API void SERIALCOM_set_port_params(SERIALCOM_link *lnk, const SERIALD_port_params *pps);
ZEB_API void SERIALCOM_set_int_params(SERIALCOM_link *lnk, const SERIALD_int_params *ips);
ZEB_API void SERIALCOM_add_repeater(SERIALCOM_link *lnk, const char *filename, BYTE mode,
                                    BOOL line_buffer);
ZEB_API void SERIALCOM_delete_repeater(SERIALCOM_link *lnk, const char *filename);

#ifdef __cplusplus
}
#endif
#endif
