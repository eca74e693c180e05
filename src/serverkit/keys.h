// keys.h - the keys of the configuration that a program knows: one table from which they are read
// (settings.h), judged (key_check.h) and shown (inspect.h).
//
//   constexpr serverkit::Key k_table[] = {
//       serverkit::count("Server;TCP;Port", "0", 0, 65535, "port of the TCP socket; 0 for none"),
//       serverkit::text("@;DisplayName", "GPS", "name for people"),
//       ...};
//   constexpr serverkit::ProgramKeys k_keys = {"gps", {k_table}};
#pragma once

#include <array>
#include <cmath>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace serverkit {

class Settings;

enum class Kind { text, count, number, mode, word };

// A default that depends on something, and the environment variable that had a say in it, or null.
struct Default {
    std::string value;
    const char *variable = nullptr;
};

struct Key {
    // Names joined by ";". "@" in front is the program's branch, which has its name; "*" is any one
    // name.
    const char *path;
    Kind kind;
    const char *standard; // as it would be written, "@" for the program's name; "" for none
    const char *meaning;
    double lowest = -HUGE_VAL, highest = HUGE_VAL; // of a count or number
    const char *what = nullptr; // number: "a number of seconds"; word: the words, between "|"
    // A further test: what it should be, when the value is not that.
    std::optional<std::string> (*fault)(const std::string &value) = nullptr;
    // In place of `standard`, whose place the meaning then takes in words.
    Default (*derive)(const Settings &settings) = nullptr;
    const char *variable = nullptr; // of the environment, that comes before the file
    bool read_by_library = false;   // a comment behind the value is no fault
};

constexpr Key text(const char *path, const char *standard, const char *meaning) {
    return {path, Kind::text, standard, meaning};
}
constexpr Key count(const char *path, const char *standard, double lowest, double highest,
                    const char *meaning) {
    return {path, Kind::count, standard, meaning, lowest, highest};
}
constexpr Key number(const char *path, const char *standard, double lowest, double highest,
                     const char *meaning) {
    return {path, Kind::number, standard, meaning, lowest, highest, "a number"};
}
constexpr Key seconds(const char *path, const char *standard, double lowest, double highest,
                      const char *meaning) {
    return {path, Kind::number, standard, meaning, lowest, highest, "a number of seconds"};
}
constexpr Key mode(const char *path, const char *standard, const char *meaning) {
    return {path, Kind::mode, standard, meaning};
}
constexpr Key word(const char *path, const char *standard, const char *words, const char *meaning) {
    return {path, Kind::word, standard, meaning, 0, 0, words};
}
constexpr Key tested(Key key, std::optional<std::string> (*fault)(const std::string &)) {
    key.fault = fault;
    return key;
}
constexpr Key derived(Key key, Default (*derive)(const Settings &)) {
    key.derive = derive;
    return key;
}
// A key that the library reads, in its own way.
constexpr Key library(Key key) {
    key.read_by_library = true;
    return key;
}

// What a value should be, when it is not that.
std::optional<std::string> fault_of(const Key &key, const std::string &value);
// As fault_of(), for a value of a file, which may carry a comment where the library reads it.
std::optional<std::string> fault_in_file(const Key &key, const std::string &value);

std::optional<long long> parse_whole(const std::string &text, int base = 10);
std::optional<double> parse_number(const std::string &text);
// Seconds of "90", "1:30" or "24:00:00"; nothing when the text is not of that form.
std::optional<double> parse_interval(const std::string &text);

// What a program declares.
struct ProgramKeys {
    const char *name; // the usual one
    std::array<std::span<const Key>, 8> groups;
    // Reads every key as the program does before it serves, so that what depends on several keys is
    // set and refused as it is then. May be null.
    void (*read)(Settings &settings) = nullptr;
    // Whether a value that cannot be used keeps the program from starting; else its default is used.
    bool strict = false;
};

// Names in the order of a path.
using Names = std::vector<std::string>;
Names split_path(const std::string &path);
std::string join_path(const Names &names);
bool same_name(const std::string &a, const std::string &b);
// Whether the names follow the pattern, in which "*" is any name.
bool matches(const Names &pattern, const Names &names);

// The keys of a program that runs under some name.
class Keys {
  public:
    // An empty name: the usual one.
    explicit Keys(const ProgramKeys &program, const std::string &name = "");

    struct Entry {
        const Key *key;
        Names pattern; // with the program's name
    };
    const std::vector<Entry> &entries() const { return entries_; }
    const std::string &name() const { return name_; }
    bool is_renamed() const { return name_ != program_->name; }
    const ProgramKeys &program() const { return *program_; }
    // The key of a path, or null.
    const Key *find(const std::string &path) const;
    // The branches that hold keys, each once, in the order of the tables.
    Names sections() const;

  private:
    const ProgramKeys *program_;
    std::string name_;
    std::vector<Entry> entries_;
};

} // namespace serverkit
