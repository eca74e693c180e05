/* netmsg.h - packets on a byte stream: cuts what arrives into payloads, turns payloads into a
 * stream.
 *
 * A packet is a ten-byte header (docs/formats/frame.md) and a payload of less than 0xFFFFF bytes.
 * The module does no input or output itself; a link keeps one buffer for each direction.
 *
 *   NETMSG_buffer in;
 *   NETMSG_init_buffer(&in);
 *   while ((n = read(fd, block, sizeof block)) > 0)
 *       NETMSG_accept_data(block, n, &in, handle_payload, link);
 *   NETMSG_delete_buffer(&in);
 *
 * Arguments: a null pointer where "not null" is said is reported as a failed assertion and the
 * operation does nothing.
 * Threads: a buffer belongs to one thread at a time; nothing locks. */
#ifndef ZEB2_NETMSG_H
#define ZEB2_NETMSG_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Payloads are always shorter than this many bytes. */
#define NETMSG_PAYLOAD_LIMIT 0xFFFFF

/* The caller owns this record, the module owns its storage. */
typedef struct NETMSG_buffer {
    BYTE *buff;        /* storage, or null */
    size_t start_buff; /* receiving: bytes of the packet gathered, header included; sending: where
                        * the rest of the current packet begins */
    size_t end_buff;   /* sending: where it ends */
    size_t sz_buff;    /* capacity of the storage */
} NETMSG_buffer;

/* Takes one payload of `size` bytes, which is valid during the call only. May delete the buffer. */
typedef void (*NETMSG_recv_msg)(void *data, size_t size, void *param);
/* Supplies the next payload: a block from malloc, which the module frees, and its size. Null or no
 * bytes: nothing to send now. Both are null and 0 before the call. */
typedef void (*NETMSG_send_msg)(void **data, size_t *size, void *param);

/* Makes a buffer empty without freeing anything: for fresh storage.
 * buff: not null.
 * Threads: the buffer's owner. */
ZEB_API void NETMSG_init_buffer(NETMSG_buffer *buff);

/* Frees a buffer's storage and makes it empty.
 * buff: not null; may be empty already.
 * Threads: the buffer's owner. */
ZEB_API void NETMSG_delete_buffer(NETMSG_buffer *buff);

/* Tells whether a sending buffer holds bytes that still have to go out.
 * buff: not null; only read.
 * Threads: the buffer's owner. */
ZEB_API BOOL NETMSG_buffer_pending(NETMSG_buffer *buff);

/* Takes received bytes in pieces of any size and hands on each payload that is complete. Bytes that
 * belong to no packet are skipped; a header that announces 0xFFFFF bytes or more is reported, and
 * the search for the next one goes on behind its first byte. The work is in proportion to `in_len`,
 * and the buffer grows by powers of two to what one packet and the input need. Without memory the
 * input is dropped with a report.
 * in: `in_len` bytes, null only when that is 0.
 * buff: not null; used for receiving only.
 * cb: not null; called once for each payload, with `param`. An empty payload counts.
 * Threads: the buffer's owner. */
ZEB_API void NETMSG_accept_data(const void *in, size_t in_len, NETMSG_buffer *buff,
                                NETMSG_recv_msg cb, void *param);

/* Fills `dest` with the stream to send, asking for payloads until it is full or there are no more.
 * A payload of 0xFFFFF bytes or more is reported and dropped and ends the call. Without memory the
 * process ends with exit(-1).
 * dest: room for `dest_size` bytes, null only when that is 0.
 * bytes_generated: not null; receives how many bytes were written.
 * buff: not null; used for sending only.
 * cb: not null; called with `param`.
 * Threads: the buffer's owner. */
ZEB_API void NETMSG_generate_data(void *dest, size_t dest_size, size_t *bytes_generated,
                                  NETMSG_buffer *buff, NETMSG_send_msg cb, void *param);

#ifdef __cplusplus
}
#endif
#endif
