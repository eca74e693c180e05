#include "crc16.h"

namespace {

WORD g_generator = 0xA001;
WORD g_table[256];

WORD table_entry(unsigned value) {
    for (int bit = 0; bit < 8; ++bit)
        value = (value & 1) != 0 ? (value >> 1) ^ g_generator : value >> 1;
    return static_cast<WORD>(value);
}

} // namespace

void CRC16_inittable(void) {
    for (unsigned i = 0; i < 256; ++i)
        g_table[i] = table_entry(i);
}

WORD CRC16_calccrc(const void *ptr, size_t count) {
    const BYTE *bytes = static_cast<const BYTE *>(ptr);
    WORD crc = 0;
    for (size_t i = 0; i < count; ++i)
        crc = static_cast<WORD>(g_table[(bytes[i] ^ crc) & 0xFF] ^ (crc >> 8));
    return crc;
}
