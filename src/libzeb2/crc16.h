#ifndef ZEB2_CRC16_H
#define ZEB2_CRC16_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

ZEB_API void CRC16_inittable(void);
ZEB_API WORD CRC16_calccrc(const void *ptr, size_t count);

#ifdef __cplusplus
}
#endif
#endif
