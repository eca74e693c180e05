/* conf.h - the configuration: a tree of named values, read from a text file of one line per value.
 *
 * A value is found by the path of its names, joined by ';', without regard to case. Blanks and '!'
 * are no part of a path and vanish wherever they stand. A module is given the whole tree and a
 * branch of its own, and applies its own default where a look-up yields null.
 *
 *   CONF_node *conf = CONF_get_default(); // etc/zeb.conf below $ZEB2
 *   if (conf == NULL)
 *       conf = CONF_alloc(); // no file: defaults everywhere
 *   const char *dir = CONF_lookup(conf, "Disk;LogDir"); // the file's line: Disk;LogDir,/data
 *   CONF_node *local = CONF_lookup_tree(conf, "Neph");  // a branch, itself usable as a tree
 *   const char *baud = CONF_lookup_va(local, "Port", "Baud", NULL);
 *   CONF_free(conf);
 *
 * Threads: nothing here locks. A tree may be read by any number of threads as long as none loads,
 * sets or frees; whoever changes a tree that others read must serialise that. A call that is out of
 * memory reports it on standard error; nothing ends the program.
 */
#ifndef ZEB2_CONF_H
#define ZEB2_CONF_H

#include "port.h"
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One component of a path. A node may have both a value and children. Everything in it belongs to
 * it and is freed with the tree. */
typedef struct CONF_node_s {
    char *name;                    /* as first written; "" for a root */
    char *value;                   /* null, never "", when there is none */
    struct CONF_node_s **children; /* sorted by name as UTIL_strcasecmp orders; null when none */
    size_t n_children;
    char *comment; /* the '!' text of the line that set this node, '!' included, or null */
} CONF_node;

/* Makes an empty tree. Result: its root, to be freed with CONF_free; null (reported) without
 * memory. Any thread. */
ZEB_API CONF_node *CONF_alloc(void);

/* Frees a node and all below it, and with them every value, comment and branch borrowed from there.
 * `root`: a whole tree, or null, which does nothing. Not a branch: its parent would keep pointing
 * at it. No failure. The thread that owns the tree. */
ZEB_API void CONF_free(CONF_node *root);

/* Merges a configuration text into a tree. Per line, of which more than 1023 characters count as
 * several lines:
 *   - '#' and what follows it is dropped, also between quotes;
 *   - the key is the text before the first ',', the value all text behind it;
 *   - both lose outer blanks, then a double quote at either end; a key quoted at both ends loses
 *     its last character too;
 *   - a line without ',', without text behind it, with an empty value or with a key of less than
 *     two characters is skipped without a word;
 *   - the value is set as by CONF_set: the last line of a path wins;
 *   - from the first '!' of the line on (the last of a run of them), if text follows, the line is
 *     the comment of the node. It stays part of the value where it stands in the value. A comment
 *     that the node had is replaced but not freed, so that a borrowed one stays readable.
 * `root`: not null. `stream`: open for reading, not null; read to its end from where it stands and
 * left open. No result; a null argument is reported and nothing is read; a stream that cannot be
 * read to its end is reported; without memory for a comment that is reported and the rest of the
 * stream left unread. The thread that owns the tree.
 */
ZEB_API void CONF_load(CONF_node *root, FILE *stream);

/* Loads the station's file: "etc/zeb.conf" below the directory that the environment variable "ZEB2"
 * names, or below "/" when that is unset or empty. Result: a tree that the caller frees with
 * CONF_free; null, without a report, when the file cannot be opened, and null, reported, without
 * memory. Any thread, while no other changes the environment. */
ZEB_API CONF_node *CONF_get_default(void);

/* Writes a tree as text that CONF_load reads: one line per value, a node before its children, the
 * children in their order; a value that begins or ends with a blank goes between double quotes.
 * Comments are not written and nothing is escaped: a value with '#' is cut there when read back.
 * `root`: not null; names are written from its children down. `stream`: open for writing, not null;
 * its error flag tells of failed writes. No result; null arguments and want of memory for a deep
 * tree are reported and end the writing. Any thread, see above. */
ZEB_API void CONF_write(CONF_node *root, FILE *stream);

/* Looks a value up. `root`: a tree or a branch; null holds nothing. `path`: names joined by ';', of
 * any length, relative to `root`. Case, blanks and '!' do not count, a run of ';' counts as one, a
 * ';' at the end does not count; null, or a path without any name, names nothing. Result: the
 * value, owned by the tree, valid until this node is set again or the tree freed, not to be written
 * to; null when the path or the value does not exist, and (reported) without memory. Any thread,
 * see above. */
ZEB_API char *CONF_lookup(CONF_node *root, const char *path);

/* Looks a node up, whether it has a value or not. Parameters and failures as for CONF_lookup.
 * Result: the node, owned by the tree and valid as long as that, or null. Any thread, see above. */
ZEB_API CONF_node *CONF_lookup_tree(CONF_node *root, const char *path);

/* Looks a value up by the pieces of its path: `char *` arguments up to a null pointer, which must
 * be there (NULL). Each piece may itself hold ';'; between two pieces one is put unless the first
 * ends or the second begins with it. When both do, both stay and the empty name between them finds
 * nothing. Otherwise, and as to the result, like CONF_lookup on the joined path. */
ZEB_API char *CONF_lookup_va(CONF_node *root, ...) __attribute__((sentinel));

/* Looks a node up by the pieces of its path: like CONF_lookup_tree, with pieces as for
 * CONF_lookup_va. */
ZEB_API CONF_node *CONF_lookup_tree_va(CONF_node *root, ...) __attribute__((sentinel));

/* Sets the value at a path, making the nodes that are missing on the way. An existing node keeps
 * the spelling of its name. `root`: a tree or a branch, not null. `path`: as for CONF_lookup; null,
 * or a path of which nothing is left without blanks and '!', does nothing. `value`: copied, of any
 * length; null or "" removes the value but never the node. It may be a value of this tree. No
 * result; without memory that is reported, the nodes made so far stay, and a node whose array of
 * children could not grow has lost its children. The thread that owns the tree. */
ZEB_API void CONF_set(CONF_node *root, const char *path, const char *value);

/* Sets the value at a path given in pieces: like CONF_set, with pieces as for CONF_lookup_va. */
ZEB_API void CONF_set_va(CONF_node *root, const char *value, ...) __attribute__((sentinel));

#ifdef __cplusplus
}
#endif
#endif
