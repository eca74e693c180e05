// command_line.h - the command line of a program: its options and subcommands, what their values
// must be, and the texts and the exit status for whoever asks for help or gets it wrong.
//
//   long count = -1;
//   command_line::Parser parser("Shows messages as they pass.", "watch");
//   parser.set_version_flag("--version", "watch 1.0");
//   parser.add_option("-n,--count", count, "stop after so many").check(command_line::positive());
//   if (const auto status = parser.parse(argc, argv))
//       return *status;
//
// Only command_line.cpp knows the library that does the work, whose templates take long to compile.
// A variable that is given to an option or a flag must live until the line is parsed; so must what
// a callback refers to. One thread at a time uses a parser and what it gave out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace command_line {

// Exit statuses that parse() gives.
constexpr int k_done = 0; // after --help and --version
constexpr int k_usage = 2;

// Thrown by a callback that finds a value wrong, or values that do not fit together: parse() shows
// the text as it shows its own.
struct UsageError : std::runtime_error {
    explicit UsageError(const std::string &text) : std::runtime_error(text) {}
    UsageError(const std::string &option, const std::string &text)
        : UsageError(option + ": " + text) {}
};

// What a value must be.
struct Check {
    // What is wrong with a value; empty: nothing.
    using Test = std::function<std::string(const std::string &value)>;

    Test test;
    std::string shown; // in the help, beside the type; may be empty
};

// Numbers above 0, and from 0 on. Text that is no number is refused, and so are "nan" and "inf".
Check positive();
Check non_negative();
// Numbers from `least` to `most`, both included; of integers, whole ones.
Check in_range(int least, int most);
Check in_range(double least, double most);
// One of these words, as they are written here.
Check one_of(std::initializer_list<const char *> words);
// The name of a file that exists; a directory is refused.
Check existing_file();

// An option, a flag or a positional argument. A handle: copies are the same option, valid as long
// as the parser. What returns an Option returns the same one, to go on with.
class Option {
  public:
    // Its absence is a usage error.
    Option required() const;
    // It is given only together with `other`, or never together with it.
    Option needs(Option other) const;
    Option excludes(Option other) const;
    // Each value that is given must pass, in the order of the checks.
    Option check(Check check) const;
    Option check(Check::Test test) const;
    // The word that the help shows instead of the type.
    Option type_name(const std::string &name) const;
    // The heading that the help shows it beneath; "" hides it.
    Option group(const std::string &heading) const;
    // The help shows the value that the variable has now.
    Option capture_default_str() const;
    // So many values follow it.
    Option expected(int values) const;
    // Whether more than one value may follow it, where its variable is a list. It may be repeated
    // in any case.
    Option allow_extra_args(bool allowed) const;
    // How many values (of a flag: how often) it was given; 0 before parse().
    size_t count() const;

  private:
    friend class Command;
    struct Node;
    explicit Option(Node *node) : node_(node) {}

    Node *node_;
};

// A program or a subcommand. A handle: copies are the same command, valid as long as the parser.
class Command {
  public:
    // `names` are separated by commas, "-n,--count"; one without a dash is a positional argument.
    // A number with anything behind it, or one that `value` cannot hold, is a usage error; only one
    // beyond 64 bits becomes the nearest that has 64, and a uint64_t wraps below 0, which
    // positive() and non_negative() refuse. A list takes every value up to the next option. Without
    // the option `value` stays as it is.
    Option add_option(const std::string &names, std::string &value,
                      const std::string &help = "") const;
    Option add_option(const std::string &names, std::optional<std::string> &value,
                      const std::string &help = "") const;
    Option add_option(const std::string &names, std::vector<std::string> &value,
                      const std::string &help = "") const;
    Option add_option(const std::string &names, int &value, const std::string &help = "") const;
    Option add_option(const std::string &names, unsigned &value,
                      const std::string &help = "") const;
    Option add_option(const std::string &names, long &value, const std::string &help = "") const;
    Option add_option(const std::string &names, uint64_t &value,
                      const std::string &help = "") const;
    Option add_option(const std::string &names, double &value, const std::string &help = "") const;

    // An option whose value is one of the words, or the number that stands behind one.
    template <typename Enum>
    Option add_choice(const std::string &names, Enum &value,
                      std::initializer_list<std::pair<const char *, Enum>> choices,
                      const std::string &help) const {
        std::vector<Choice> numbers;
        for (const auto &[word, meaning] : choices)
            numbers.emplace_back(word, static_cast<int>(meaning));
        return add_numbered_choice(
            names, [&value](int number) { value = static_cast<Enum>(number); }, numbers, help);
    }

    // Of text: "-t{utc},--times{utc}" gives `value` the text in braces, --times=local another.
    Option add_flag(const std::string &names, bool &value, const std::string &help = "") const;
    Option add_flag(const std::string &names, std::string &value,
                    const std::string &help = "") const;
    // A flag that has parse() print the text to standard output.
    void set_version_flag(const std::string &names, const std::string &text) const;
    void set_version_flag(const std::string &names, std::function<std::string()> text) const;

    Command add_subcommand(const std::string &name, const std::string &help) const;
    // Exactly one of the subcommands must be named.
    void require_subcommand() const;
    // Called by parse() when the command was named and all of the line is in order. May throw
    // UsageError. A second one replaces the first.
    void callback(std::function<void()> called) const;
    // The end of the help.
    void footer(const std::string &text) const;

  private:
    friend class Parser;
    using Choice = std::pair<std::string, int>;
    struct Node;
    explicit Command(Node *node) : node_(node) {}
    Option add_numbered_choice(const std::string &names, std::function<void(int)> set,
                               const std::vector<Choice> &choices, const std::string &help) const;
    template <typename Value>
    Option add(const std::string &names, Value &value, const std::string &help) const;

    Node *node_;
};

// The command line of a program. Has -h and --help from the start.
class Parser : public Command {
  public:
    // `name` is shown in the help; empty: the name that the program was called by.
    explicit Parser(const std::string &description, const std::string &name = "");
    Parser(const Parser &) = delete;
    Parser &operator=(const Parser &) = delete;
    ~Parser();

    // Sets the variables and calls the callbacks. Nothing when the program goes on; else its exit
    // status: k_done after --help or --version, which went to standard output, k_usage after a
    // usage error, which was told on standard error.
    std::optional<int> parse(int argc, const char *const *argv);

  private:
    struct Root;
    explicit Parser(std::unique_ptr<Root> root);

    std::unique_ptr<Root> root_;
};

} // namespace command_line
