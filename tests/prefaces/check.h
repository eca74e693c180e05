/* check.h - for the programs beside it, each of which runs the call sequences of one public header
 * as its preface shows them: in C and in C++, with the names around them that they suppose. */
#ifndef PREFACES_CHECK_H
#define PREFACES_CHECK_H

#include <stdio.h>
#include <stdlib.h>

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                \
            exit(1);                                                                               \
        }                                                                                          \
    } while (0)

#endif
