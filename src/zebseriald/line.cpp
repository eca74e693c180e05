#include "line.h"

#include <cerrno>
#include <cstring>

namespace zebseriald {
namespace {

struct Rate {
    DWORD baud;
    speed_t speed;
};

constexpr Rate k_rates[] = {
    {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},
    {38400, B38400},     {57600, B57600},     {115200, B115200},   {230400, B230400},
    {460800, B460800},   {500000, B500000},   {576000, B576000},   {921600, B921600},
    {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000}, {2000000, B2000000},
    {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000}};

constexpr tcflag_t k_sizes[] = {CS5, CS6, CS7, CS8};
constexpr tcflag_t k_line_flags = CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS;
constexpr tcflag_t k_software_flow = IXON | IXOFF;

// What the driver was asked for and did not do; null when it did all.
const char *refused_by_driver(const termios &wanted, const termios &got) {
    if (cfgetospeed(&wanted) != cfgetospeed(&got) || cfgetispeed(&wanted) != cfgetispeed(&got))
        return "the baud rate";
    const tcflag_t flags = (wanted.c_cflag ^ got.c_cflag) & k_line_flags;
    if ((flags & CSIZE) != 0)
        return "the number of data bits";
    if ((flags & (PARENB | PARODD)) != 0)
        return "the parity";
    if ((flags & CSTOPB) != 0)
        return "the number of stop bits";
    if ((flags & CRTSCTS) != 0 || ((wanted.c_iflag ^ got.c_iflag) & k_software_flow) != 0)
        return "the flow control";
    return nullptr;
}

} // namespace

std::optional<speed_t> speed_of(DWORD baud) {
    for (const Rate &rate : k_rates)
        if (rate.baud == baud)
            return rate.speed;
    return std::nullopt;
}

std::string fault_of(const Line &line) {
    if (!speed_of(line.baud))
        return "baud rate " + std::to_string(line.baud);
    if (line.bits < 5 || line.bits > 8)
        return "number of data bits " + std::to_string(line.bits);
    if (line.parity > k_parity_even)
        return "parity " + std::to_string(line.parity);
    if (line.stop_bits < 1 || line.stop_bits > 2)
        return "number of stop bits " + std::to_string(line.stop_bits);
    if (line.flow_cont > k_flow_hardware)
        return "flow control " + std::to_string(line.flow_cont);
    return "";
}

std::string describe(const Line &line) {
    static constexpr const char *k_flow[] = {"", ", software flow control",
                                             ", hardware flow control"};
    std::string text = std::to_string(line.baud) + " baud, " + std::to_string(line.bits);
    text += "noe"[line.parity];
    return text + std::to_string(line.stop_bits) + k_flow[line.flow_cont];
}

termios with_line(termios from, const Line &line) {
    cfmakeraw(&from);
    from.c_iflag &= ~(k_software_flow | IXANY | INPCK);
    from.c_iflag |= IGNBRK; // a line that is pulled out is no stream of zeros
    from.c_cflag &= ~k_line_flags;
    from.c_cflag |= CLOCAL | CREAD | k_sizes[line.bits - 5];
    if (line.parity != k_parity_none)
        from.c_cflag |= line.parity == k_parity_odd ? PARENB | PARODD : PARENB;
    if (line.stop_bits == 2)
        from.c_cflag |= CSTOPB;
    if (line.flow_cont == k_flow_software)
        from.c_iflag |= k_software_flow;
    if (line.flow_cont == k_flow_hardware)
        from.c_cflag |= CRTSCTS;
    from.c_cc[VMIN] = 1; // with 0 a read of nothing would look like the end of the line
    from.c_cc[VTIME] = 0;
    const speed_t speed = *speed_of(line.baud);
    cfsetispeed(&from, speed);
    cfsetospeed(&from, speed);
    return from;
}

bool apply_line(int fd, const Line &line, bool pseudo, std::string &why) {
    termios before;
    termios after;
    if (tcgetattr(fd, &before) != 0) {
        why = strerror(errno);
        return false;
    }
    const termios wanted = with_line(before, line);
    // At once: waiting for the line to drain would stop the server.
    if (tcsetattr(fd, TCSANOW, &wanted) != 0 || tcgetattr(fd, &after) != 0) {
        why = strerror(errno);
        tcsetattr(fd, TCSANOW, &before);
        return false;
    }
    const char *refused = pseudo ? nullptr : refused_by_driver(wanted, after);
    if (refused == nullptr)
        return true;
    why = "the driver does not accept " + std::string(refused) + " of " + describe(line);
    tcsetattr(fd, TCSANOW, &before);
    return false;
}

double character_time(const Line &line) {
    const int bits = 1 + line.bits + (line.parity != k_parity_none ? 1 : 0) + line.stop_bits;
    return static_cast<double>(bits) / line.baud;
}

} // namespace zebseriald
