#ifndef ZEB2_LL_H
#define ZEB2_LL_H

#include "port.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct LL_NODEs {
    void *data;
    struct LL_NODEs *next;
    struct LL_NODEs *prev;
} LL_NODE;

typedef struct LL_TYPE {
    LL_NODE *head;
    LL_NODE *tail;
    int32_t count;
} LL_TYPE;

typedef void (*LL_func_single)(void *data, void *param);
typedef BOOL (*LL_func_bool_single)(void *data, void *param);

ZEB_API void LL_init(LL_TYPE *list);
ZEB_API void LL_clear(LL_TYPE *list);
ZEB_API LL_NODE *LL_insert_tail(LL_TYPE *list, const void *data, size_t sd);
ZEB_API LL_NODE *LL_insert_head(LL_TYPE *list, const void *data, size_t sd);
ZEB_API LL_NODE *LL_insert_after(LL_TYPE *list, LL_NODE *cur, const void *data, size_t sd);
ZEB_API LL_NODE *LL_insert_before(LL_TYPE *list, LL_NODE *cur, const void *data, size_t sd);
ZEB_API void LL_move_forward(LL_TYPE *list, LL_NODE *cur);
ZEB_API void LL_move_backward(LL_TYPE *list, LL_NODE *cur);
ZEB_API void LL_delete_specfic(LL_TYPE *list, LL_NODE *nd);
ZEB_API void LL_delete_head(LL_TYPE *list);
ZEB_API void LL_delete_tail(LL_TYPE *list);
ZEB_API void LL_selective_delete(LL_TYPE *list, LL_func_bool_single cb, void *param);
ZEB_API void LL_merge_list_back(LL_TYPE *dest, LL_TYPE *source);
ZEB_API void LL_merge_list_front(LL_TYPE *dest, LL_TYPE *source);
ZEB_API void LL_transverse_forwards(LL_TYPE *list, LL_func_single cb, void *param);
ZEB_API void LL_transverse_backwards(LL_TYPE *list, LL_func_single cb, void *param);
ZEB_API void LL_transverse_forwards_loop(LL_TYPE *list, LL_NODE *start, LL_func_single cb, void *param);
ZEB_API void LL_transverse_backwards_loop(LL_TYPE *list, LL_NODE *start, LL_func_single cb, void *param);
ZEB_API LL_NODE *LL_transverse_until_forwards(LL_TYPE *list, LL_func_bool_single cb, void *param);
ZEB_API LL_NODE *LL_transverse_until_backwards(LL_TYPE *list, LL_func_bool_single cb, void *param);

#ifdef __cplusplus
}
#endif
#endif
