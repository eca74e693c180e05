#include "command_line.h"

#include <cmath>
#include <cstdlib>
#include <list>
#include <map>

#include <CLI/CLI.hpp>

namespace command_line {
namespace {

// Shown in the help as an enumeration, and read as one.
enum class Number : int {};

Check check_of(const CLI::Validator &validator) {
    return {[validator](const std::string &value) { return validator(value); },
            validator.get_description()};
}

// "nan" passes every comparison that asks whether a value is out of bounds.
Check number_check(const CLI::Validator &validator) {
    Check check = check_of(validator);
    check.test = [test = std::move(check.test)](const std::string &value) {
        return std::isnan(strtod(value.c_str(), nullptr)) ? "not a number: " + value : test(value);
    };
    return check;
}

// "a, b or c"
std::string listed(const std::vector<std::pair<std::string, int>> &choices) {
    std::string text;
    for (size_t i = 0; i < choices.size(); i++)
        text += (i == 0 ? "" : i + 1 < choices.size() ? ", " : " or ") + choices[i].first;
    return text;
}

} // namespace

Check positive() {
    return number_check(CLI::PositiveNumber);
}

Check non_negative() {
    return number_check(CLI::NonNegativeNumber);
}

Check in_range(int least, int most) {
    return number_check(CLI::Range(least, most));
}

Check in_range(double least, double most) {
    return number_check(CLI::Range(least, most));
}

Check one_of(std::initializer_list<const char *> words) {
    return check_of(CLI::IsMember(std::vector<std::string>(words.begin(), words.end())));
}

Check existing_file() {
    return check_of(CLI::ExistingFile);
}

// ---- Options ----

struct Option::Node {
    CLI::Option &option;
};

Option Option::required() const {
    node_->option.required();
    return *this;
}

Option Option::needs(Option other) const {
    node_->option.needs(&other.node_->option);
    return *this;
}

Option Option::excludes(Option other) const {
    node_->option.excludes(&other.node_->option);
    return *this;
}

Option Option::check(Check check) const {
    node_->option.check(std::move(check.test), std::move(check.shown));
    return *this;
}

Option Option::check(Check::Test test) const {
    return check(Check{std::move(test), ""});
}

Option Option::type_name(const std::string &name) const {
    node_->option.type_name(name);
    return *this;
}

Option Option::group(const std::string &heading) const {
    node_->option.group(heading);
    return *this;
}

Option Option::capture_default_str() const {
    node_->option.capture_default_str();
    return *this;
}

Option Option::expected(int values) const {
    node_->option.expected(values);
    return *this;
}

Option Option::allow_extra_args(bool allowed) const {
    node_->option.allow_extra_args(allowed);
    return *this;
}

size_t Option::count() const {
    return node_->option.count();
}

// ---- Commands ----

// The lists keep in place what the handles point to.
struct Command::Node {
    CLI::App &app;
    std::list<Option::Node> options = {};
    std::list<Node> commands = {};

    Option keep(CLI::Option *option) {
        return Option(&options.emplace_back(Option::Node{*option}));
    }
};

template <typename Value>
Option Command::add(const std::string &names, Value &value, const std::string &help) const {
    return node_->keep(node_->app.add_option(names, value, help));
}

Option Command::add_option(const std::string &names, std::string &value,
                           const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_option(const std::string &names, std::optional<std::string> &value,
                           const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_option(const std::string &names, std::vector<std::string> &value,
                           const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_option(const std::string &names, int &value, const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_option(const std::string &names, unsigned &value,
                           const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_option(const std::string &names, long &value, const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_option(const std::string &names, uint64_t &value,
                           const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_option(const std::string &names, double &value, const std::string &help) const {
    return add(names, value, help);
}

Option Command::add_numbered_choice(const std::string &names, std::function<void(int)> set,
                                    const std::vector<Choice> &choices,
                                    const std::string &help) const {
    const std::map<std::string, int> words(choices.begin(), choices.end());
    CLI::Option *option = node_->app.add_option_function<Number>(
        names, [set = std::move(set)](Number number) { set(static_cast<int>(number)); }, help);
    option->transform(CLI::CheckedTransformer(words).description(listed(choices)));
    return node_->keep(option);
}

Option Command::add_flag(const std::string &names, bool &value, const std::string &help) const {
    return node_->keep(node_->app.add_flag(names, value, help));
}

Option Command::add_flag(const std::string &names, std::string &value,
                         const std::string &help) const {
    return node_->keep(node_->app.add_flag(names, value, help));
}

void Command::set_version_flag(const std::string &names, const std::string &text) const {
    node_->app.set_version_flag(names, text);
}

void Command::set_version_flag(const std::string &names, std::function<std::string()> text) const {
    node_->app.set_version_flag(names, std::move(text));
}

Command Command::add_subcommand(const std::string &name, const std::string &help) const {
    CLI::App *command = node_->app.add_subcommand(name, help);
    return Command(&node_->commands.emplace_back(Node{*command}));
}

void Command::require_subcommand() const {
    node_->app.require_subcommand(1);
}

void Command::callback(std::function<void()> called) const {
    node_->app.callback(std::move(called));
}

void Command::footer(const std::string &text) const {
    node_->app.footer(text);
}

// ---- The program ----

struct Parser::Root {
    Root(const std::string &description, const std::string &name) : app(description, name) {}

    CLI::App app;
    Command::Node node{app};
};

Parser::Parser(const std::string &description, const std::string &name)
    : Parser(std::make_unique<Root>(description, name)) {}

Parser::Parser(std::unique_ptr<Root> root) : Command(&root->node), root_(std::move(root)) {}

Parser::~Parser() = default;

std::optional<int> Parser::parse(int argc, const char *const *argv) {
    CLI::App &app = root_->app;
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? k_done : k_usage;
    } catch (const UsageError &error) {
        app.exit(CLI::ParseError(error.what(), CLI::ExitCodes::ValidationError));
        return k_usage;
    }
    return std::nullopt;
}

} // namespace command_line
