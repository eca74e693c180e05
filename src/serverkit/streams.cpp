#include "streams.h"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace serverkit {

// The lowest number that is free is the one that is opened.
void hold_standard_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(stream, F_GETFD) == -1)
            open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

} // namespace serverkit
