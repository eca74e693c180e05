// settings.h - a server's keys, read from the configuration tree with their defaults and limits.
//
// A value that cannot be used is reported and remembered: a server with a broken configuration does
// not start, so that a mistake shows when the file is edited and not in the field.
#pragma once

#include <cstddef>
#include <string>

#include <zeb2/conf.h>

namespace serverkit {

class Settings {
  public:
    // `root` may be null: every key then has its default.
    explicit Settings(CONF_node *root) : root_(root) {}

    std::string text(const char *key, const char *standard);
    size_t count(const char *key, size_t standard, size_t lowest, size_t highest);
    double seconds(const char *key, double standard, double lowest, double highest);
    unsigned mode(const char *key, unsigned standard); // octal, at most 0777

    // Reports that the value of a key is of no use: "KEY: \"VALUE\" is not WHAT".
    void refuse(const char *key, const std::string &value, const std::string &what);
    bool good() const { return good_; }

  private:
    CONF_node *root_;
    bool good_ = true;
};

// Opens the tree: `file` when not null, else the station's default file, whose absence is no
// failure. False when the file cannot be read (reported); the tree is freed by the caller.
bool load_configuration(const char *file, CONF_node **tree);

} // namespace serverkit
