/* crc16.h - the CRC-16 that instruments put behind their records.
 *
 * The reflected CRC with polynomial 0x8005 (generator 0xA001), initial value 0 and no final
 * exclusive-or, catalogued as CRC-16/ARC: "123456789" gives 0xBB3D. With c the running value,
 *
 *   table[i] = i shifted right eight times, with "xor 0xA001" whenever a 1 was shifted out
 *   c        = table[(byte xor c) and 0xFF] xor (c >> 8)
 *
 * The CRC of a line:
 *
 *   CRC16_inittable(); // LIBZEB_init has done so
 *   WORD crc = CRC16_calccrc(line, length);
 */
#ifndef ZEB2_CRC16_H
#define ZEB2_CRC16_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Fills the table of 256 values. LIBZEB_init calls it; a program without LIBZEB_init calls it once
 * before the first CRC16_calccrc, whose results mean nothing earlier.
 * Threads: main thread, before others compute a CRC. */
ZEB_API void CRC16_inittable(void);

/* Computes the CRC of a block.
 * ptr: `count` bytes; null only when count is 0. count: bytes.
 * Returns the CRC; 0 for no bytes.
 * Threads: any, once the table is filled. */
ZEB_API WORD CRC16_calccrc(const void *ptr, size_t count);

#ifdef __cplusplus
}
#endif
#endif
