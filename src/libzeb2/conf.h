#ifndef ZEB2_CONF_H
#define ZEB2_CONF_H

#include "port.h"
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct CONF_node_s {
    char *name;
    char *value;
    struct CONF_node_s **children;
    size_t n_children;
    char *comment;
} CONF_node;

ZEB_API CONF_node *CONF_alloc(void);
ZEB_API void CONF_free(CONF_node *root);
ZEB_API void CONF_load(CONF_node *root, FILE *stream);
ZEB_API CONF_node *CONF_get_default(void);
ZEB_API void CONF_write(CONF_node *root, FILE *stream);
ZEB_API char *CONF_lookup(CONF_node *root, const char *path);
ZEB_API CONF_node *CONF_lookup_tree(CONF_node *root, const char *path);
ZEB_API char *CONF_lookup_va(CONF_node *root, ...) __attribute__((sentinel));
ZEB_API CONF_node *CONF_lookup_tree_va(CONF_node *root, ...) __attribute__((sentinel));
ZEB_API void CONF_set(CONF_node *root, const char *path, const char *value);
ZEB_API void CONF_set_va(CONF_node *root, const char *value, ...) __attribute__((sentinel));

#ifdef __cplusplus
}
#endif
#endif
