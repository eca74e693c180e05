// A configuration file: what is loaded, is found; what is written, loads to the same tree.
#include "fuzz.h"

#include "conf.h"

namespace {

constexpr size_t k_longest_line = 1023; // that is read as one

struct FreeTree {
    void operator()(CONF_node *root) const { CONF_free(root); }
};
using Tree = std::unique_ptr<CONF_node, FreeTree>;

// A comment that a later line replaces is never freed, for somebody may hold it. It is taken out of
// the tree before, or each such input would look like a leak.
void take_comments(CONF_node *node) {
    free(node->comment);
    node->comment = nullptr;
    for (size_t i = 0; i < node->n_children; ++i)
        take_comments(node->children[i]);
}

Tree load(std::string_view text) {
    Tree tree(CONF_alloc());
    if (text.find('!') == text.npos)
        return CONF_load(tree.get(), fuzz::stream_of(text).get()), std::move(tree);
    while (!text.empty()) {
        const size_t line = std::min(text.find('\n'), k_longest_line - 1) + 1;
        CONF_load(tree.get(), fuzz::stream_of(text.substr(0, line)).get());
        take_comments(tree.get());
        text.remove_prefix(std::min(line, text.size()));
    }
    return tree;
}

std::string written(CONF_node *tree) {
    char *text = nullptr;
    size_t size = 0;
    fuzz::Stream stream(open_memstream(&text, &size));
    CONF_write(tree, stream.get());
    stream.reset();
    const std::string result(text, size);
    free(text);
    return result;
}

// Nodes without a name below, which a path cannot spell, and values of the tree.
void check_found(CONF_node *root, const CONF_node *node, const std::string &path) {
    for (size_t i = 0; i < node->n_children; ++i) {
        CONF_node *child = node->children[i];
        MUST(child->value == nullptr || *child->value != '\0');
        if (*child->name == '\0')
            continue;
        const std::string below = path.empty() ? child->name : path + ";" + child->name;
        MUST(CONF_lookup_tree(root, below.c_str()) == child);
        MUST(CONF_lookup(root, below.c_str()) == child->value);
        check_found(root, child, below);
    }
}

bool equal(const CONF_node *a, const CONF_node *b) {
    const std::string_view value = a->value == nullptr ? "" : a->value;
    if (strcmp(a->name, b->name) != 0 || value != (b->value == nullptr ? "" : b->value) ||
        a->n_children != b->n_children)
        return false;
    for (size_t i = 0; i < a->n_children; ++i)
        if (!equal(a->children[i], b->children[i]))
            return false;
    return true;
}

bool has_unnamed(const CONF_node *node) {
    for (size_t i = 0; i < node->n_children; ++i)
        if (*node->children[i]->name == '\0' || has_unnamed(node->children[i]))
            return true;
    return false;
}

// Not so: values with quotes of their own, which are not escaped when written; names of one
// character, which are short for a line, though "!x" and "x " set them; what is below a name that
// is empty, as in "a; ;b".
bool survives(std::string_view text, const CONF_node *root) {
    for (size_t i = 0; i < root->n_children; ++i)
        if (strlen(root->children[i]->name) < 2)
            return false;
    return text.find('"') == text.npos && !has_unnamed(root);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const Tree tree = load(text);
    check_found(tree.get(), tree.get(), "");
    const Tree again = load(written(tree.get()));
    if (survives(text, tree.get()))
        MUST(equal(tree.get(), again.get()));
    return 0;
}
