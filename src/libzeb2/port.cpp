#include "port.h"

#include <bit>

static_assert(std::endian::native == std::endian::little,
              "the wire formats are copied from memory: little-endian hosts only");
static_assert(sizeof(float) == 4 && sizeof(double) == 8);

int16_t PORT_SwapBytesS(int16_t in) { return static_cast<int16_t>(PORT_SwapBytesUS(static_cast<uint16_t>(in))); }
uint16_t PORT_SwapBytesUS(uint16_t in) { return __builtin_bswap16(in); }
int32_t PORT_SwapBytesI(int32_t in) { return static_cast<int32_t>(PORT_SwapBytesUI(static_cast<uint32_t>(in))); }
uint32_t PORT_SwapBytesUI(uint32_t in) { return __builtin_bswap32(in); }
LONG PORT_SwapBytesL(LONG in) { return PORT_SwapBytesI(in); }
ULONG PORT_SwapBytesUL(ULONG in) { return PORT_SwapBytesUI(in); }

float PORT_SwapBytesF(float in) {
    PORT_SwapBytesIPF(&in);
    return in;
}

double PORT_SwapBytesD(double in) {
    PORT_SwapBytesIPD(&in);
    return in;
}

void PORT_SwapBytesIPF(float *in) {
    char *bytes = reinterpret_cast<char *>(in);
    uint32_t image;
    __builtin_memcpy(&image, bytes, sizeof image);
    image = __builtin_bswap32(image);
    __builtin_memcpy(bytes, &image, sizeof image);
}

void PORT_SwapBytesIPD(double *in) {
    char *bytes = reinterpret_cast<char *>(in);
    uint64_t image;
    __builtin_memcpy(&image, bytes, sizeof image);
    image = __builtin_bswap64(image);
    __builtin_memcpy(bytes, &image, sizeof image);
}
