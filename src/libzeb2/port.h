/* port.h - the shared types of the station's records and interfaces, and byte order.
 *
 * Records travel between daemons and must lie in memory alike on every host, so their members use
 * the fixed-width types below; a bare time_t, long or size_t in a record is refused by zebgen.
 *
 *   #pragma pack(push, 4)
 *   typedef struct { FTIME start_time; double T; WORD flags; } NET_DEMO_Instant;
 *   #pragma pack(pop)
 *   ZEB_MESSAGE(MSG_DEMO_INSTANT, "demo", NET_DEMO_Instant);
 */
#ifndef ZEB2_PORT_H
#define ZEB2_PORT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Marks a function or global of the library's interface; everything else stays hidden. */
#define ZEB_API __attribute__((visibility("default")))

typedef uint8_t BOOL; /* 0 is false, anything else is true */
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* Marks the enumerations that travel or index tables: 32 bits wide, and in C++ able to hold numbers
 * that this build has no name for. */
#ifdef __cplusplus
#define ZEB_ENUM32 : int32_t
#else
#define ZEB_ENUM32
#endif

typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;
typedef uint64_t QWORD;
typedef char STRING;  /* element of a NUL-terminated character array in a record */
typedef double FTIME; /* seconds since 1970-01-01T00:00:00Z with fraction; -1.0: no time */

/* Members of records: the widths of the station computer on every host. */
typedef int32_t TIME;   /* time_t in a record */
typedef int32_t LONG;   /* long in a record */
typedef uint32_t ULONG; /* unsigned long in a record */
typedef uint32_t SIZET; /* size_t in a record */

/* The missing value of a real quantity. */
#define MVC 9.999e-99

/* A message of the catalogue, in a definition header: its constant, the lowercase word of its
 * instrument class or service ("*" for the message server's own), and the record that every message
 * of this type carries. The compiler checks that the record exists; zebgen reads the rest. */
#ifdef __cplusplus
#define ZEB_MESSAGE(NAME, META, RECORD) static_assert(sizeof(RECORD) > 0 && sizeof(META) > 1, #NAME)
#define ZEB_MESSAGE_BARE(NAME, META) static_assert(sizeof(META) > 1, #NAME)
#else
#define ZEB_MESSAGE(NAME, META, RECORD) _Static_assert(sizeof(RECORD) > 0 && sizeof(META) > 1, #NAME)
#define ZEB_MESSAGE_BARE(NAME, META) _Static_assert(sizeof(META) > 1, #NAME)
#endif

/* Each reverses the order of the bytes of its argument and nothing else. Any thread. */
ZEB_API int16_t PORT_SwapBytesS(int16_t in);
ZEB_API uint16_t PORT_SwapBytesUS(uint16_t in);
ZEB_API int32_t PORT_SwapBytesI(int32_t in);
ZEB_API uint32_t PORT_SwapBytesUI(uint32_t in);
/* 32 bits on every host, as in records. */
ZEB_API LONG PORT_SwapBytesL(LONG in);
ZEB_API ULONG PORT_SwapBytesUL(ULONG in);
/* The swapped image need not be a number: prefer the in-place form where a register could quieten
 * a signalling NaN. */
ZEB_API float PORT_SwapBytesF(float in);
ZEB_API double PORT_SwapBytesD(double in);
/* Swap the value at `in` (not null) in place. */
ZEB_API void PORT_SwapBytesIPF(float *in);
ZEB_API void PORT_SwapBytesIPD(double *in);

#ifdef __cplusplus
}
#endif
#endif
