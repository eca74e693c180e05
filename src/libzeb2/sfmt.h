#ifndef ZEB2_SFMT_H
#define ZEB2_SFMT_H

#include "port.h"
#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SFMT_buffer {
    char *buffer;
    size_t sz_buffer;
} SFMT_buffer;

typedef struct SFMT_altprintf_cbs {
    void *(*get_ptr)(void *param);
    double (*get_dbl)(void *param);
    int (*get_int)(void *param);
    long long (*get_ll)(void *param);
} SFMT_altprintf_cbs;

ZEB_API void SFMT_init_buffer(SFMT_buffer *bf);
ZEB_API void SFMT_destroy_buffer(SFMT_buffer *bf);
ZEB_API char *SFMT_get_buffer(SFMT_buffer *bf);
ZEB_API void SFMT_copy(SFMT_buffer *dest, SFMT_buffer *src);
ZEB_API void SFMT_copystr(SFMT_buffer *dest, const char *src);
ZEB_API void SFMT_copystrn(SFMT_buffer *dest, const char *src, size_t n);
ZEB_API void SFMT_append(SFMT_buffer *dest, SFMT_buffer *src);
ZEB_API void SFMT_appendstr(SFMT_buffer *dest, const char *src);
ZEB_API void SFMT_appendstrn(SFMT_buffer *dest, const char *src, size_t n);
ZEB_API void SFMT_printf(SFMT_buffer *bf, const char *format, ...) __attribute__((format(printf, 2, 3)));
ZEB_API void SMFT_vprintf(SFMT_buffer *bf, const char *format, va_list args) __attribute__((format(printf, 2, 0)));
ZEB_API void SFMT_printfcat(SFMT_buffer *bf, const char *format, ...) __attribute__((format(printf, 2, 3)));
ZEB_API void SFMT_vprintfcat(SFMT_buffer *bf, const char *format, va_list args) __attribute__((format(printf, 2, 0)));
ZEB_API void SFMT_altprintf(SFMT_buffer *bf, const char *fmt, ...);
ZEB_API void SFMT_valtprintf(SFMT_buffer *bf, const char *fmt, va_list args);
ZEB_API void SFMT_altprintfcat(SFMT_buffer *bf, const char *fmt, ...);
ZEB_API void SFMT_valtprintfcat(SFMT_buffer *bf, const char *fmt, va_list args);
ZEB_API void SFMT_cbaltprintf(SFMT_buffer *bf, const char *fmt, SFMT_altprintf_cbs *cbs, void *param);

#ifdef __cplusplus
}
#endif
#endif
