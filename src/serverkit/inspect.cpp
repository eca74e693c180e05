#include "inspect.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>

#include <nlohmann/json.hpp>

#include <zeb2/util.h>

#include "command_line/command_line.h"

#include "report.h"

namespace serverkit {
namespace {

using Source = EffectiveKey::Source;

constexpr int k_good = 0, k_faulty = 1;

struct File {
    std::string name;
    bool exists = false;
    zeb::ConfCheck content;
};

// Nothing after a report.
std::optional<File> read_file(const Subject &subject) {
    File file;
    file.name = subject.file.empty() ? default_configuration() : subject.file;
    FILE *stream = open_configuration(file.name);
    if (stream != nullptr) {
        file.exists = true;
        file.content = zeb::check_conf(stream);
        const bool failed = ferror(stream) != 0;
        fclose(stream);
        if (!failed)
            return file;
    } else if (errno == ENOENT && subject.file.empty() && subject.missing == Missing::allowed) {
        return file;
    }
    report_errno("cannot read the configuration %s", file.name.c_str());
    return std::nullopt;
}

int check(const File &file, const Keys &keys) {
    const char *const name = file.name.c_str();
    const auto findings = check_keys(file.content, {&keys});
    print_findings(file.name, findings);
    if (findings.empty() && file.exists)
        printf("%s: good for %s\n", name, keys.name().c_str());
    else if (findings.empty())
        printf("%s is not there: every key has its default\n", name);
    return findings.empty() ? k_good : k_faulty;
}

// ---- Showing ----

// The names that a tree has where a pattern says any; the last name need not be there.
void expand(const Names &pattern, CONF_node *node, Names path, std::vector<std::string> &paths) {
    const size_t depth = path.size();
    if (depth == pattern.size()) {
        paths.push_back(join_path(path));
        return;
    }
    if (pattern[depth] != "*") {
        path.push_back(pattern[depth]);
        CONF_node *child =
            node == nullptr ? nullptr : CONF_lookup_tree(node, pattern[depth].c_str());
        return expand(pattern, child, std::move(path), paths);
    }
    path.emplace_back();
    for (size_t i = 0; node != nullptr && i < node->n_children; ++i) {
        path.back() = node->children[i]->name;
        expand(pattern, node->children[i], path, paths);
    }
}

size_t line_of(const zeb::ConfCheck &file, const std::string &path) {
    const auto found = std::find_if(
        file.settings.begin(), file.settings.end(),
        [&](const zeb::ConfSetting &setting) { return same_name(setting.path, path); });
    return found == file.settings.end() ? 0 : found->line;
}

const char *from_environment(const Key &key) {
    const char *value = key.variable != nullptr ? getenv(key.variable) : nullptr;
    return value != nullptr && *value != '\0' ? value : nullptr;
}

EffectiveKey effective(const zeb::ConfCheck &file, const Settings &settings, const Key &key,
                       const std::string &path) {
    EffectiveKey result;
    result.path = path;
    result.value = settings.usable(path);
    result.meaning = key.meaning;
    result.line = result.value == settings.written(path) ? line_of(file, path) : 0;
    const char *const value = from_environment(key);
    if (value != nullptr) {
        result.value = value;
        result.variable = key.variable;
    }
    if (value != nullptr || result.line != 0) {
        result.source = value != nullptr ? Source::environment : Source::file;
    } else if (const char *variable = settings.standard(key).variable) {
        result.source = Source::environment;
        result.variable = variable;
    } else if (strchr(key.standard, '@') != nullptr && settings.keys().is_renamed()) {
        result.source = Source::command_line;
    }
    return result;
}

std::string origin_of(const EffectiveKey &key, const std::string &file) {
    switch (key.source) {
    case Source::file:
        return file + ":" + std::to_string(key.line);
    case Source::environment:
        return "environment " + key.variable;
    case Source::command_line:
        return "command line";
    case Source::standard:
        break;
    }
    return "default";
}

void print_text(const std::vector<EffectiveKey> &keys, const std::string &file) {
    const auto shown = [](const std::string &value) {
        return value.empty() ? std::string("-") : printable(value, 1024);
    };
    size_t key_width = 0, value_width = 0;
    for (const EffectiveKey &key : keys) {
        key_width = std::max(key_width, printable(key.path, 1024).size());
        value_width = std::max(value_width, shown(key.value).size());
    }
    for (const EffectiveKey &key : keys)
        printf("%-*s  %-*s  %s\n", static_cast<int>(key_width), printable(key.path, 1024).c_str(),
               static_cast<int>(value_width), shown(key.value).c_str(),
               origin_of(key, file).c_str());
}

nlohmann::json json_of(const EffectiveKey &key, const std::string &file) {
    const std::map<Source, const char *> names = {{Source::file, "file"},
                                                  {Source::standard, "default"},
                                                  {Source::environment, "environment"},
                                                  {Source::command_line, "command line"}};
    nlohmann::json object = {
        {"key", key.path}, {"source", names.at(key.source)}, {"meaning", key.meaning}};
    object["value"] = key.value.empty() ? nlohmann::json() : nlohmann::json(key.value);
    if (key.source == Source::file) {
        object["file"] = file;
        object["line"] = key.line;
    }
    if (key.source == Source::environment)
        object["variable"] = key.variable;
    return object;
}

void print_json(const std::vector<EffectiveKey> &keys, const File &file, const Keys &of) {
    nlohmann::json document = {{"program", of.program().name}, {"name", of.name()}};
    document["file"] = file.exists ? nlohmann::json(file.name) : nlohmann::json();
    document["keys"] = nlohmann::json::array();
    for (const EffectiveKey &key : keys)
        document["keys"].push_back(json_of(key, file.name));
    // A file may hold any bytes.
    printf("%s\n", document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

// What the program refuses is told as it does at its start, and shown as it would be without.
int print(const File &file, const Keys &keys, bool json) {
    const Tree tree = tree_of(file.content);
    Settings settings(keys, tree.get());
    const auto effective = effective_keys(file.content, settings);
    if (json)
        print_json(effective, file, keys);
    else
        print_text(effective, file.name);
    return settings.good() ? k_good : k_faulty;
}

} // namespace

void add_inspection(command_line::Command app, Inspection &inspection) {
    const command_line::Option check = app.add_flag(
        "--check-config", inspection.check, "Check the configuration, open nothing else, and exit");
    const command_line::Option show =
        app.add_flag("--print-config", inspection.print,
                     "Print every key with its value and where that comes from");
    show.excludes(check);
    app.add_flag("--json", inspection.json, "Print it as JSON").needs(show);
}

void print_findings(const std::string &file, const std::vector<zeb::ConfFinding> &findings) {
    for (const zeb::ConfFinding &finding : findings)
        if (finding.line != 0)
            printf("%s:%zu: %s\n", file.c_str(), finding.line, finding.text.c_str());
        else
            printf("%s: %s\n", file.c_str(), finding.text.c_str());
}

std::vector<EffectiveKey> effective_keys(const zeb::ConfCheck &file, Settings &settings) {
    if (settings.keys().program().read != nullptr)
        settings.keys().program().read(settings);
    std::vector<EffectiveKey> result;
    for (const Keys::Entry &entry : settings.keys().entries()) {
        std::vector<std::string> paths;
        expand(entry.pattern, settings.root(), {}, paths);
        for (const std::string &path : paths)
            result.push_back(effective(file, settings, *entry.key, path));
    }
    std::stable_sort(result.begin(), result.end(), [](const auto &a, const auto &b) {
        const Names left = split_path(a.path), right = split_path(b.path);
        return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                            [](const std::string &x, const std::string &y) {
                                                return UTIL_strcasecmp(x.c_str(), y.c_str()) < 0;
                                            });
    });
    return result;
}

int inspect(const Inspection &inspection, const Subject &subject) {
    const auto file = read_file(subject);
    if (!file)
        return k_faulty;
    const int status =
        inspection.check ? check(*file, subject.keys) : print(*file, subject.keys, inspection.json);
    if (fflush(stdout) == 0 && ferror(stdout) == 0)
        return status;
    report_errno("standard output");
    return k_faulty;
}

} // namespace serverkit
