#include "libzeb2.1.file"
#include "libzeb2.1.function"
