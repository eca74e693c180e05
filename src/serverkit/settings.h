// settings.h - a program's keys, read from the configuration tree by its table of them.
//
//   const serverkit::Keys keys(k_keys);
//   serverkit::Settings settings(keys, root);
//   config.port = settings.count("Server;TCP;Port");
//   if (!settings.good()) ...
//
// A value that cannot be used is reported and remembered, and the default taken. A server with a
// broken configuration does not start, so that a mistake shows when the file is edited and not in
// the field. A key that the table lacks is a fault of the program: reported and remembered, too.
#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <zeb2/conf.h>

#include "keys.h"

namespace serverkit {

struct FreeTree {
    void operator()(CONF_node *root) const { CONF_free(root); }
};
using Tree = std::unique_ptr<CONF_node, FreeTree>;

class Settings {
  public:
    // Whether a refusal is a line on standard error, which names the default that is used instead.
    enum class Tell { yes, no, with_default };

    // `root` may be null: every key then has its default.
    Settings(const Keys &keys, CONF_node *root, Tell tell = Tell::yes)
        : keys_(keys), root_(root), tell_(tell) {}

    // A value that the library reads itself is given as it is.
    std::string text(const std::string &path);
    size_t count(const std::string &path);
    double number(const std::string &path); // MVC for one that is not set and has no default
    unsigned mode(const std::string &path); // octal, at most 0777
    size_t word(const std::string &path);   // the index in the key's list of words

    // What the file says, good or not; "" for nothing.
    std::string written(const std::string &path) const;
    Default standard(const Key &key) const;
    // The value that is used: the file's, unless the program itself reads and cannot use it, or the
    // default; nothing is refused.
    std::string usable(const std::string &path) const;

    // Gives a key its default, or this value, unless the file has one: for what the library reads
    // itself.
    void provide(const std::string &path);
    void provide(const std::string &path, const std::string &value);

    // Says that the value of a key is of no use: "KEY: \"VALUE\" is not WHAT".
    void refuse(const std::string &path, const std::string &value, const std::string &what);
    // "KEY: TEXT". What was said once is not said again.
    void complain(const std::string &path, const std::string &text);
    bool good() const { return refusals_.empty(); }

    struct Refusal {
        std::string path, text;
    };
    const std::vector<Refusal> &refusals() const { return refusals_; }

    const Keys &keys() const { return keys_; }
    CONF_node *root() const { return root_; }
    // The path of a key of the program's branch.
    std::string own(const std::string &key) const { return keys_.name() + ";" + key; }

  private:
    const Key *find(const std::string &path);

    const Keys &keys_;
    CONF_node *root_;
    Tell tell_;
    std::vector<Refusal> refusals_;
};

// A configuration file open for reading, or null with errno set: a directory opens like a file and
// reads as nothing, which would pass for an empty configuration.
FILE *open_configuration(const std::string &name);

// The tree of a configuration file, for CONF_free(). False after a report.
bool load_configuration(const std::string &name, CONF_node **tree);

// The name of the station's default file.
std::string default_configuration();

} // namespace serverkit
