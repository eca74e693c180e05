// conf.cpp - the configuration tree: paths, look-ups, setting, loading and writing.
//
// Trees may be as deep as a path is long, so nothing here recurses.
#include "conf.h"

#include "conf_int.h"
#include "diag.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <memory>

namespace {

constexpr char k_default_file[] = "etc/zeb.conf";

struct FreeText {
    void operator()(char *text) const { free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

struct CloseFile {
    void operator()(FILE *stream) const { fclose(stream); }
};
using OwnedFile = std::unique_ptr<FILE, CloseFile>;

OwnedText copy_text(const char *text) {
    OwnedText copy(strdup(text));
    (void)ZEB_CHECK_ERRNO(copy != nullptr);
    return copy;
}

// An array of plain values, 32 at first and doubled when full.
template <typename Item> class GrowingArray {
  public:
    GrowingArray() = default;
    ~GrowingArray() { free(items_); }
    GrowingArray(const GrowingArray &) = delete;
    GrowingArray &operator=(const GrowingArray &) = delete;

    bool reserve(size_t count) {
        size_t capacity = capacity_ == 0 ? 32 : capacity_;
        while (capacity < count)
            capacity *= 2;
        if (capacity == capacity_)
            return true;
        void *grown = realloc(static_cast<void *>(items_), capacity * sizeof(Item));
        if (!ZEB_CHECK_ERRNO(grown != nullptr))
            return false;
        items_ = static_cast<Item *>(grown);
        capacity_ = capacity;
        return true;
    }
    bool push(const Item &item) {
        if (!reserve(size_ + 1))
            return false;
        items_[size_++] = item;
        return true;
    }
    void resize(size_t size) { size_ = size; } // within what is reserved
    size_t size() const { return size_; }
    Item *data() { return items_; }
    Item &back() { return items_[size_ - 1]; }
    Item *release() {
        Item *items = items_;
        items_ = nullptr;
        size_ = capacity_ = 0;
        return items;
    }

  private:
    Item *items_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

// The normal form of a path; null when nothing is left of it or memory ran out.
OwnedText normalised(const char *path) {
    if (path == nullptr)
        return nullptr;
    OwnedText out(static_cast<char *>(malloc(strlen(path) + 1)));
    if (!ZEB_CHECK_ERRNO(out != nullptr) || zeb::conf_normalise_path(path, out.get()) == 0)
        return nullptr;
    return out;
}

bool append_piece(GrowingArray<char> &path, const char *piece) {
    const bool joins = *piece == '\0' || *piece == ';';
    if (path.size() > 0 && !joins && path.back() != ';' && !path.push(';'))
        return false;
    if (!path.reserve(path.size() + strlen(piece) + 1))
        return false;
    const size_t length = zeb::conf_normalise_path(piece, path.data() + path.size());
    path.resize(path.size() + length);
    return true;
}

// Joins path pieces up to a null pointer. Each piece is normalised by itself: a separator that ends
// one and a separator that begins the next both stay.
OwnedText joined(va_list pieces) {
    GrowingArray<char> path;
    while (const char *piece = va_arg(pieces, const char *))
        if (!append_piece(path, piece))
            return nullptr;
    if (path.size() == 0 || !path.push('\0'))
        return nullptr;
    return OwnedText(path.release());
}

// Ends the first component of a normalised path and returns the rest.
char *split_head(char *path) {
    char *end = path + strcspn(path, ";");
    if (*end == '\0')
        return end;
    *end = '\0';
    return end + 1;
}

CONF_node *bisect_children(CONF_node *const *children, size_t high, const char *name) {
    for (size_t low = 0; low != high;) {
        const size_t middle = (low + high) / 2;
        const int order = UTIL_strcasecmp(children[middle]->name, name);
        if (order == 0)
            return children[middle];
        if (middle == low || middle == high)
            return nullptr;
        (order > 0 ? high : low) = middle;
    }
    return nullptr;
}

CONF_node *find_child(const CONF_node *node, const char *name) {
    if (node->n_children == 0)
        return nullptr;
    const size_t last = node->n_children - 1;
    if (UTIL_strcasecmp(node->children[0]->name, name) == 0)
        return node->children[0];
    if (UTIL_strcasecmp(node->children[last]->name, name) == 0)
        return node->children[last];
    return last < 2 ? nullptr : bisect_children(node->children, last, name);
}

// A path of separators only names nothing, even where such a line was loaded.
bool names_nothing(const char *path) {
    return path[strspn(path, ";")] == '\0';
}

CONF_node *find_node(CONF_node *root, OwnedText path) {
    if (root == nullptr || path == nullptr || names_nothing(path.get()))
        return nullptr;
    CONF_node *node = root;
    for (char *head = path.get(), *rest; node != nullptr && *head != '\0'; head = rest) {
        rest = split_head(head);
        node = find_child(node, head);
    }
    return node;
}

char *value_of(CONF_node *node) {
    if (node == nullptr || node->value == nullptr || *node->value == '\0')
        return nullptr;
    return node->value;
}

// The first index whose name is not less than the wanted one. Files tend to be sorted, so the end
// is tried first.
size_t insertion_index(const CONF_node *node, const char *name) {
    size_t low = 0, high = node->n_children;
    if (high > 0 && UTIL_strcasecmp(node->children[high - 1]->name, name) < 0)
        return high;
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        if (UTIL_strcasecmp(node->children[middle]->name, name) < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// Without memory for a larger array the old one is given up. The children themselves stay
// allocated: callers hold values of theirs.
bool enlarge_children(CONF_node *node) {
    const size_t count = node->n_children + 1;
    void *grown = realloc(static_cast<void *>(node->children), count * sizeof *node->children);
    if (!ZEB_CHECK_ERRNO(grown != nullptr)) {
        free(static_cast<void *>(node->children));
        node->children = nullptr;
        node->n_children = 0;
        return false;
    }
    node->children = static_cast<CONF_node **>(grown);
    return true;
}

CONF_node *alloc_node(const char *name) {
    auto *node = static_cast<CONF_node *>(calloc(1, sizeof(CONF_node)));
    if (!ZEB_CHECK_ERRNO(node != nullptr))
        return nullptr;
    node->name = copy_text(name).release();
    if (node->name == nullptr) {
        free(node);
        return nullptr;
    }
    return node;
}

CONF_node *insert_child(CONF_node *parent, size_t index, const char *name) {
    if (!enlarge_children(parent))
        return nullptr;
    CONF_node *child = alloc_node(name);
    if (child == nullptr)
        return nullptr;
    CONF_node **place = parent->children + index;
    memmove(static_cast<void *>(place + 1), static_cast<const void *>(place),
            (parent->n_children - index) * sizeof *place);
    *place = child;
    ++parent->n_children;
    return child;
}

CONF_node *find_or_add_child(CONF_node *parent, const char *name) {
    const size_t index = insertion_index(parent, name);
    if (index < parent->n_children && UTIL_strcasecmp(parent->children[index]->name, name) == 0)
        return parent->children[index];
    return insert_child(parent, index, name);
}

// The new value is copied before the old one goes: it may be that very string.
void store_value(CONF_node *node, const char *value) {
    OwnedText copy;
    if (value != nullptr && *value != '\0')
        copy = copy_text(value);
    free(node->value);
    node->value = copy.release();
}

void set_node(CONF_node *root, OwnedText path, const char *value) {
    if (path == nullptr || !ZEB_CHECK(root != nullptr))
        return;
    CONF_node *node = root;
    for (char *head = path.get(), *rest; node != nullptr && *head != '\0'; head = rest) {
        rest = split_head(head);
        node = find_or_add_child(node, head);
    }
    if (node != nullptr)
        store_value(node, value);
}

// A comment that the node had is left allocated: whoever read it may still point at it.
void attach_comment(CONF_node *root, const char *key, OwnedText comment) {
    if (comment == nullptr)
        return;
    if (CONF_node *node = CONF_lookup_tree(root, key))
        node->comment = comment.release();
}

// Merges one line; false when memory ran out.
bool load_line(CONF_node *root, char *line) {
    if (!zeb::conf_trim_line(line))
        return true;
    OwnedText comment;
    if (const char *text = zeb::conf_find_comment(line)) {
        comment = copy_text(text);
        if (comment == nullptr)
            return false;
    }
    char *key, *value;
    if (zeb::conf_split_line(line, &key, &value) != zeb::ConfLine::setting)
        return true;
    CONF_set(root, key, value);
    attach_comment(root, key, std::move(comment));
    return true;
}

// A node whose line is written and whose children are being written. The prefix of the children is
// a stretch of the path text, empty for none.
struct WriteLevel {
    const CONF_node *node;
    size_t next_child;
    size_t prefix_begin;
    size_t prefix_end;
};

class Writer {
  public:
    explicit Writer(FILE *stream) : stream_(stream) {}

    // Parents before children, children in their order.
    void write(const CONF_node *root) {
        bool ok = enter(root, 0, 0);
        while (ok && levels_.size() > 0) {
            WriteLevel &level = levels_.back();
            if (level.next_child == level.node->n_children)
                levels_.resize(levels_.size() - 1);
            else
                ok = enter(level.node->children[level.next_child++], level.prefix_begin,
                           level.prefix_end);
        }
    }

  private:
    bool enter(const CONF_node *node, size_t prefix_begin, size_t prefix_end) {
        write_line(node, prefix_begin, prefix_end);
        if (node->n_children == 0)
            return true;
        const WriteLevel level = {node, 0, prefix_begin, prefix_end};
        return levels_.push(level) && extend_prefix(levels_.back());
    }

    // Below a node without a name the prefix starts afresh.
    bool extend_prefix(WriteLevel &level) {
        const char *name = level.node->name;
        path_.resize(level.prefix_end);
        if (*name == '\0')
            level.prefix_begin = level.prefix_end;
        else if (level.prefix_begin != level.prefix_end && !path_.push(';'))
            return false;
        for (; *name != '\0'; ++name)
            if (!path_.push(*name))
                return false;
        level.prefix_end = path_.size();
        return true;
    }

    void write_line(const CONF_node *node, size_t prefix_begin, size_t prefix_end) {
        const char *value = node->value;
        if (value == nullptr || *value == '\0')
            return;
        if (prefix_begin != prefix_end) {
            fwrite(path_.data() + prefix_begin, 1, prefix_end - prefix_begin, stream_);
            fputc(';', stream_);
        }
        const bool quoted =
            zeb::conf_is_space(value[0]) || zeb::conf_is_space(value[strlen(value) - 1]);
        fprintf(stream_, quoted ? "%s,\"%s\"\n" : "%s,%s\n", node->name, value);
    }

    FILE *stream_;
    GrowingArray<char> path_;
    GrowingArray<WriteLevel> levels_;
};

OwnedText default_file_name() {
    const char *home = getenv("ZEB2");
    const size_t size = (home != nullptr ? strlen(home) : 0) + 1 + sizeof k_default_file;
    OwnedText name(static_cast<char *>(malloc(size)));
    if (ZEB_CHECK_ERRNO(name != nullptr))
        UTIL_make_relative(k_default_file, name.get());
    return name;
}

} // namespace

CONF_node *CONF_alloc(void) {
    return alloc_node("");
}

// Nodes that wait to be freed are chained through their name pointers: no recursion, no memory.
void CONF_free(CONF_node *root) {
    CONF_node *waiting = nullptr;
    const auto put = [&waiting](CONF_node *node) {
        free(node->name);
        node->name = reinterpret_cast<char *>(waiting);
        waiting = node;
    };
    if (root != nullptr)
        put(root);
    while (waiting != nullptr) {
        CONF_node *node = waiting;
        waiting = reinterpret_cast<CONF_node *>(node->name);
        for (size_t i = 0; i < node->n_children; ++i)
            put(node->children[i]);
        free(static_cast<void *>(node->children));
        free(node->value);
        free(node->comment);
        free(node);
    }
}

void CONF_load(CONF_node *root, FILE *stream) {
    if (!ZEB_CHECK(root != nullptr) || !ZEB_CHECK(stream != nullptr))
        return;
    char line[zeb::k_conf_line_size];
    while (fgets(line, sizeof line, stream) != nullptr)
        if (!load_line(root, line))
            return;
    // Half a configuration looks like a whole one.
    if (ferror(stream) != 0)
        ZEB_REPORT_ERRNO("The configuration cannot be read to its end");
}

CONF_node *CONF_get_default(void) {
    const OwnedText name = default_file_name();
    if (name == nullptr)
        return nullptr;
    const OwnedFile stream(fopen(name.get(), "r"));
    if (stream == nullptr)
        return nullptr;
    CONF_node *root = CONF_alloc();
    if (root != nullptr)
        CONF_load(root, stream.get());
    return root;
}

void CONF_write(CONF_node *root, FILE *stream) {
    if (ZEB_CHECK(root != nullptr) && ZEB_CHECK(stream != nullptr))
        Writer(stream).write(root);
}

char *CONF_lookup(CONF_node *root, const char *path) {
    return value_of(CONF_lookup_tree(root, path));
}

CONF_node *CONF_lookup_tree(CONF_node *root, const char *path) {
    return find_node(root, normalised(path));
}

char *CONF_lookup_va(CONF_node *root, ...) {
    va_list pieces;
    va_start(pieces, root);
    OwnedText path = joined(pieces);
    va_end(pieces);
    return value_of(find_node(root, std::move(path)));
}

CONF_node *CONF_lookup_tree_va(CONF_node *root, ...) {
    va_list pieces;
    va_start(pieces, root);
    OwnedText path = joined(pieces);
    va_end(pieces);
    return find_node(root, std::move(path));
}

void CONF_set(CONF_node *root, const char *path, const char *value) {
    set_node(root, normalised(path), value);
}

void CONF_set_va(CONF_node *root, const char *value, ...) {
    va_list pieces;
    va_start(pieces, value);
    OwnedText path = joined(pieces);
    va_end(pieces);
    set_node(root, std::move(path), value);
}
