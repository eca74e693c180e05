/* test.h - records and messages of the tests: every kind of field, alone and nested. */
#ifndef ZEB2_DEFINITIONS_TEST_H
#define ZEB2_DEFINITIONS_TEST_H

#include <zeb2/port.h>

#pragma pack(push, 4)

/* One field of each scalar type. */
typedef struct {
    BOOL t_bool;
    char t_char;
    BYTE t_byte;
    short t_short;
    unsigned short t_ushort;
    WORD t_word;
    int t_int;
    unsigned int t_uint;
    DWORD t_dword;
    LONG t_long;
    ULONG t_ulong;
    SIZET t_sizet;
    TIME t_time;
    FTIME t_ftime;
    double t_double;
    float t_float;
} NET_TEST_Test1;

/* One array of each scalar type. */
typedef struct {
    BOOL a_bool[3];
    char a_char[5];
    BYTE a_byte[7];
    short a_short[3];
    unsigned short a_ushort[3];
    WORD a_word[2];
    int a_int[3];
    unsigned int a_uint[3];
    DWORD a_dword[2];
    LONG a_long[3];
    ULONG a_ulong[3];
    SIZET a_sizet[2];
    TIME a_time[3];
    FTIME a_ftime[3];
    double a_double[4];
    float a_float[5];
} NET_TEST_Test2;

/* Strings of several capacities, between fields that unpack to odd offsets, and a comment of each
 * form. */
typedef struct {
    char before;
    STRING s1[1];
    STRING s2[2];
    STRING s32[32];
    BYTE between;
    STRING s256[256];
    double described;  /* Described value (V) | V_${INST:T\d+} */
    double limited;    /* Limited value (V) | Vl_${INST:T\d+} | 0;10 */
    double indexed[3]; /* Value of each colour (V) | V${INDEX:B:G:R}c_${INST:T\d+} */
    double Upper;      /* Sorts before the lower-case names */
} NET_TEST_Test3;

/* Nested in NET_TEST_Test4. */
typedef struct {
    int index;
    STRING name[16];
    double values[3];
} NET_TEST_Test4a;

/* Nested records, single and as an array. */
typedef struct {
    WORD count;
    NET_TEST_Test4a one; /* *instant */
    NET_TEST_Test4a many[4];
    FTIME time;
} NET_TEST_Test4;

/* Large enough to need many reads from a socket. */
typedef struct {
    DWORD seq;
    STRING text[4096];
    double series[512];
    NET_TEST_Test4 blocks[8];
} NET_TEST_Test5;

typedef struct {
    DWORD seq; /* Running number */
    NET_TEST_Test1 scalars;
    NET_TEST_Test2 arrays;
    NET_TEST_Test3 texts;
} NET_TEST_MsgTest1;

typedef struct {
    DWORD seq; /* Running number */
    NET_TEST_Test4 nested;
    NET_TEST_Test5 large;
} NET_TEST_MsgTest2;

#pragma pack(pop)

ZEB_MESSAGE(MSG_TEST_ONE, "*", NET_TEST_MsgTest1);
ZEB_MESSAGE_BARE(MSG_TEST_THREE, "*");
ZEB_MESSAGE(MSG_TEST_TWO, "*", NET_TEST_MsgTest2);

#endif
