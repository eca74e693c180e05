/* sfmt.h - text that grows: a heap string with copying, appending and formatting, and the format
 * language of log columns, whose fields keep their shape for missing and out-of-range values.
 *
 *   SFMT_buffer line;
 *   SFMT_init_buffer(&line);
 *   SFMT_altprintf(&line, "%s,*3.2f,*~4.1f", "S11", 3.14159, MVC);
 *   // the text is now "S11,  3.14,      "
 *   SFMT_appendstr(&line, "\n");
 *   fputs(SFMT_get_buffer(&line), stdout);
 *   SFMT_destroy_buffer(&line);
 *
 * A buffer belongs to one owner and one thread at a time; nothing here takes a lock. Buffers must
 * have been initialised, and pointers to them are never null. A block of a buffer is always one
 * that malloc made; its bytes never written are 0.
 *
 * Growth: where an operation needs n bytes and the block is smaller, the block is reallocated to
 * UTIL_roundup_p2(n) bytes, the power of two above n. Only the operations of the second half shrink
 * a block. A text of 1 GiB or more is refused with a report and leaves the buffer as it was. When
 * an allocation fails, that is reported, the text is lost and the operation returns; the buffer is
 * then without a block (an empty text) and may be used on.
 */
#ifndef ZEB2_SFMT_H
#define ZEB2_SFMT_H

#include "port.h"
#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct SFMT_buffer {
    char *buffer;     /* the NUL-terminated text, owned; null until first needed: an empty text */
    size_t sz_buffer; /* bytes of the block; means nothing while `buffer` is null */
} SFMT_buffer;

/* Where SFMT_cbaltprintf takes its arguments from. Each getter is called with the caller's `param`,
 * on the caller's thread, in the order of the format, and must leave the buffer alone. One that the
 * format does not need may be null; if it is needed after all, that is reported and the argument is
 * MVC, 0 or null. */
typedef struct SFMT_altprintf_cbs {
    void *(*get_ptr)(void *param); /* "s", "p"; a string need live only until the next call */
    double (*get_dbl)(void *param);
    int (*get_int)(void *param);
    long long (*get_ll)(void *param); /* integers with "l" or "L" */
} SFMT_altprintf_cbs;

/* Makes `bf` an empty buffer without a block. Allocates nothing. */
ZEB_API void SFMT_init_buffer(SFMT_buffer *bf);
/* Frees the text and leaves `bf` without a block, its size field as it was; it may be used on. */
ZEB_API void SFMT_destroy_buffer(SFMT_buffer *bf);
/* The text, never null: a static "" when there is no block. The buffer owns it; it is valid until
 * the next operation on the buffer. */
ZEB_API char *SFMT_get_buffer(SFMT_buffer *bf);

/* Copies: `dest` takes the text of the source, which is copied and may be a part of `dest` itself.
 * A source that is null or empty makes `dest` "", with a block of 2 bytes when there was none;
 * SFMT_copy of an empty buffer allocates nothing. */
ZEB_API void SFMT_copy(SFMT_buffer *dest, SFMT_buffer *src);
ZEB_API void SFMT_copystr(SFMT_buffer *dest, const char *src);
/* Copies the first `n` characters of `src`, or all if it has fewer, over the beginning of `dest`
 * and writes NO terminator: the text then ends where the block had one (after "abcdef", copying 2
 * of "XYZ" gives "XYcdef"), at the end of the block at the latest. A caller that wants the prefix
 * writes dest->buffer[n] itself. n = 0 makes `dest` "". */
ZEB_API void SFMT_copystrn(SFMT_buffer *dest, const char *src, size_t n);

/* Appends: the source, or at most `n` characters of it, is copied to the end of `dest` and
 * terminated. It may be a part of `dest` itself. A null or empty source, or n = 0, does nothing. */
ZEB_API void SFMT_append(SFMT_buffer *dest, SFMT_buffer *src);
ZEB_API void SFMT_appendstr(SFMT_buffer *dest, const char *src);
ZEB_API void SFMT_appendstrn(SFMT_buffer *dest, const char *src, size_t n);

/* The platform's printf: the first two replace the text, the "cat" forms append to it. The first
 * block has 128 bytes. `args` is left as it was; arguments must not point into `bf`. A text that
 * vsnprintf cannot format (an unconvertible wide character) is given up with a report after the
 * block has been doubled up to 1 MiB; the buffer keeps what it held before the appended part.
 * The "cat" forms find a block whose text is longer than the block corrupted: they report it and
 * raise SIGSEGV, so that the daemon dies with a core at this place. */
ZEB_API void SFMT_printf(SFMT_buffer *bf, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
ZEB_API void SMFT_vprintf(SFMT_buffer *bf, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));
ZEB_API void SFMT_printfcat(SFMT_buffer *bf, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
ZEB_API void SFMT_vprintfcat(SFMT_buffer *bf, const char *format, va_list args)
    __attribute__((format(printf, 2, 0)));

/* The alternate printf. A format mixes characters, which are copied, "%" conversions, which go to
 * the platform's printf, and "*" directives, formatted here; "%%" and "**" write one of the sign.
 * What is wrong with a format is reported once in a row, not for every line it formats.
 *
 * "%" conversions: of at most 63 characters, ended by one of aAeEfFgG (a double), cdiouxX (an int,
 * or a long long on every host when there is an "l" or "L" anywhere), p or s (a pointer; a null
 * string prints as "(null)"). Flags, width, precision and "h" are the platform's. Widths, and
 * precisions but for strings, are limited to 4096. Any other length is not passed on: the argument
 * is always one of the four above. A conversion that is not of the form
 * %[flags][width][.precision][lengths]character ("*" for a width, "%n", "%1$d") takes the argument
 * of its last character and writes nothing. One that has no end within the format or within 63
 * characters is dropped, and the text goes on after what was collected.
 *
 * "*" directives: *[flags]W.F[flags].X.Cf with all parts optional, ended by one of
 *   f F        fixed point, a double is taken
 *   e E        exponent form with that letter, a double is taken
 *   d D i I x X and any other character: nothing is written, no argument is taken
 * Numbers: W integer digits, F digits of the fraction (6), X digits of the exponent (2), C least
 * integer digits of a coefficient; at most 300 each. A "0" before W or X pads with zeros; a W of 0
 * is therefore written "00". Flags, before the second point for the number, after it for X:
 *   " "  keep a position for the sign, blank for positive values (before the first or after the
 *        second point)
 *   "+"  always print the sign
 *   "-"  align left       "^"  no padding at all
 *   "@"  no clipping      "~"  a missing value is blank instead of nines (both anywhere)
 *
 * Fixed point. W counts the integer digits only; when no sign position was asked for and W is 2 or
 * more, the "-" takes one of them. Wider values are clipped: nines in every position, after the
 * sign. MVC, NaN and infinities are nines in every position, or blanks. Without W the number is as
 * long as it needs to be; with a W of 0 the integer part is "0" and without sign.
 *   s = round(value * 10^F) / 10^F + 0.5 * 10^-F
 *   the digit of weight 10^i is floor(s / 10^i) mod 10, all in double arithmetic
 *
 *   3.14159 under *3.2f    "  3.14"        -5 under *3.0f       " -5"
 *   3.14159 under *-3.2f   "3.14  "        -5 under *03.0f      "-05"
 *   3.14159 under *+03.1f  "+003.1"        999.96 under *3.1f   "999.9"
 *   MVC under *4.2f        "9999.99"       123456 under *3.1f   "999.9"
 *   MVC under *~4.2f       "       "       123456 under *@3.1f  "123456.0"
 *
 * Exponent form. The field is: the number's sign as in fixed point; max(W, C) positions; the point
 * and F digits when F is not 0; the letter; a sign position; X positions. The value is scaled to W
 * integer digits (1 unless given; 0: the coefficient is below 1), rounding included. C fills up
 * with zeros to its left; W is filled up for the value 0 only, which has one integer digit. The
 * exponent's sign position holds "-", "+" if asked for, or a blank; it is missing under "^" unless
 * " " or "+" asks for it. The exponent's digits stand to the right, to the left, or after zeros. An
 * exponent that X digits cannot hold turns all digits of the field into nines when it is positive
 * and into zeros when it is negative; MVC, NaN and infinities are nines, or blanks. The field has
 * one width for all values, but for negative ones that have no position for their "-".
 *
 *   12345.678 under *e           "1.234568e  4"     12345.678 under *1.2.^e     "1.23e4"
 *   12345.678 under *1.2.+02e    "1.23e+04"         12345.678 under *2.2.+02e   "12.35e+03"
 *   0.00012345 under *1.2.+02E   "1.23E-04"         -12345.678 under *2.2.+02e  "-1.23e+04"
 *   12345.678 under *1.2.02e     "1.23e 04"         12345.678 under *00.3.+02e  "0.123e+05"
 *   0.00012345 under *1.2e       "1.23e -4"         12 under *1.1.+02.3e        "001.2e+01"
 *   0.00012345 under *1.2.-3e    "1.23e-4  "        0 under *3.1.+02e           "  0.0e+00"
 *   1e100 under *1.2.+02e        "9.99e+99"         1e-100 under *1.2.+02e      "0.00e+00"
 *   MVC under *1.2e              "9.99e 99"         MVC under *~1.2e            "        "
 *
 * Formatting begins and ends by reallocating the block to the size of the text, so it may shrink.
 * A null `fmt` is reported and taken as empty. Arguments must not point into `bf`. */
/* The text becomes, or in the "cat" forms continues with, the formatted text; `args` is left as it
 * was. */
ZEB_API void SFMT_altprintf(SFMT_buffer *bf, const char *fmt, ...);
ZEB_API void SFMT_valtprintf(SFMT_buffer *bf, const char *fmt, va_list args);
ZEB_API void SFMT_altprintfcat(SFMT_buffer *bf, const char *fmt, ...);
ZEB_API void SFMT_valtprintfcat(SFMT_buffer *bf, const char *fmt, va_list args);
/* The text becomes the formatted text, the arguments coming from `cbs` called with `param`. A null
 * `cbs` is reported and nothing happens. */
ZEB_API void SFMT_cbaltprintf(SFMT_buffer *bf, const char *fmt, SFMT_altprintf_cbs *cbs,
                              void *param);

#ifdef __cplusplus
}
#endif
#endif
