#ifndef ZEB2_NETMSG_H
#define ZEB2_NETMSG_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct NETMSG_buffer {
    BYTE *buff;
    size_t start_buff;
    size_t end_buff;
    size_t sz_buff;
} NETMSG_buffer;

typedef void (*NETMSG_recv_msg)(void *data, size_t size, void *param);
typedef void (*NETMSG_send_msg)(void **data, size_t *size, void *param);

ZEB_API void NETMSG_init_buffer(NETMSG_buffer *buff);
ZEB_API void NETMSG_delete_buffer(NETMSG_buffer *buff);
ZEB_API BOOL NETMSG_buffer_pending(NETMSG_buffer *buff);
ZEB_API void NETMSG_accept_data(const void *in, size_t in_len, NETMSG_buffer *buff, NETMSG_recv_msg cb, void *param);
ZEB_API void NETMSG_generate_data(void *dest, size_t dest_size, size_t *bytes_generated, NETMSG_buffer *buff, NETMSG_send_msg cb, void *param);

#ifdef __cplusplus
}
#endif
#endif
