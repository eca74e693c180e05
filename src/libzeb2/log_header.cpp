#include "log_int.h"

#include "diag.h"
#include "libzeb2.h"
#include "util.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

using namespace zeb;

namespace {

constexpr size_t k_name_line_size = 256; // bytes of the line with the file's name

const char *text_of(const LL_NODE *node) {
    return static_cast<const char *>(node->data);
}

// The line with the name of the file, cut where it is too long; returns its length.
size_t name_line(const char *filename, char (&line)[k_name_line_size]) {
    const char *slash = strrchr(filename, '/');
    // One less: the line end is never cut off.
    snprintf(line, sizeof line - 1, "!fil;FileName,%s", slash != nullptr ? slash + 1 : filename);
    strcat(line, "\n");
    return strlen(line);
}

} // namespace

namespace zeb {

void insert_header(LOG_file *f, const char *text) {
    if (text == nullptr)
        return;
    LL_NODE *node = f->headers.head;
    int order = -1;
    while (node != nullptr && (order = UTIL_strcasecmp(text_of(node), text)) < 0)
        node = node->next;
    if (node == nullptr)
        LL_insert_tail(&f->headers, text, strlen(text) + 1);
    else if (order != 0)
        LL_insert_before(&f->headers, node, text, strlen(text) + 1);
}

void insert_standard_headers(LOG_file *f) {
    char line[64];
    snprintf(line, sizeof line, "!fil;zeb2;librev,%s", g_libzeb2_revision);
    insert_header(f, line);
    insert_header(f, "!fil;version,zeb2");
    insert_header(f, "!var;STN;FieldDesc,Station ID code");
    insert_header(f, "!var;EPOCH;FieldDesc,Epoch time: seconds from Jan 1 1970");
    insert_header(f, "!var;DateTime;FieldDesc,Date String (YYYY-MM-DDThh:mm:ssZ)");
}

OwnedBlock<char> header_text(const LOG_file *f, const char *filename) {
    char first[k_name_line_size];
    size_t size = name_line(filename, first) + 1;
    for (const LL_NODE *node = f->headers.head; node != nullptr; node = node->next)
        size += strlen(text_of(node)) + 1;
    OwnedBlock<char> text(static_cast<char *>(malloc(size)));
    if (!ZEB_CHECK_ERRNO(text != nullptr))
        return text;
    char *end = stpcpy(text.get(), first);
    for (const LL_NODE *node = f->headers.head; node != nullptr; node = node->next) {
        end = stpcpy(end, text_of(node));
        end = stpcpy(end, "\n");
    }
    return text;
}

} // namespace zeb

void LOG_add_conf_headers(LOG_file *f, CONF_node *node) {
    if (node == nullptr)
        return;
    if (node->comment != nullptr && node->comment[0] != '\0')
        insert_header(f, node->comment);
    for (size_t i = 0; i < node->n_children; ++i)
        LOG_add_conf_headers(f, node->children[i]);
}
