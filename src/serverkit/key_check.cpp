#include "key_check.h"

#include <algorithm>

#include "nearest.h"
#include "report.h"

namespace serverkit {
namespace {

using zeb::ConfFinding;
using zeb::ConfSetting;
using zeb::ConfSeverity;
using Programs = std::vector<const Keys *>;

// Branches in which every program of a station may keep something.
bool is_shared(const std::string &section) {
    for (const char *shared : {"Global", "Disk", "Control"})
        if (same_name(section, shared))
            return true;
    return false;
}

// Two of a kind are told apart by their numbers: gps, gps2, flow11.
bool differ_in_number(const std::string &a, const std::string &b) {
    const auto without_digits = [](std::string text) {
        std::erase_if(text, [](char c) { return c >= '0' && c <= '9'; });
        return text;
    };
    return same_name(without_digits(a), without_digits(b));
}

// Short names that differ in one letter are two programs; only swapped letters are a slip.
constexpr size_t k_short_name = 3;

bool have_the_same_letters(const std::string &a, const std::string &b) {
    return std::is_permutation(a.begin(), a.end(), b.begin(), b.end(),
                               [](char x, char y) { return same_name({x}, {y}); });
}

bool has_section(const std::vector<ConfSetting> &settings, const std::string &section) {
    return std::any_of(settings.begin(), settings.end(), [&](const ConfSetting &setting) {
        return same_name(split_path(setting.path).front(), section);
    });
}

class Judge {
  public:
    Judge(const std::vector<ConfSetting> &settings, const Programs &programs)
        : settings_(settings), programs_(programs) {
        for (const Keys *keys : programs)
            for (const Keys::Entry &entry : keys->entries())
                patterns_.push_back(entry.pattern);
    }

    std::vector<ConfFinding> run() {
        for (const ConfSetting &setting : settings_)
            judge(setting);
        return std::move(findings_);
    }

  private:
    void judge(const ConfSetting &setting) {
        if (const Key *key = find(setting.path)) {
            if (const auto fault = fault_in_file(*key, setting.value))
                add(setting, "\"" + printable(setting.value) + "\" is not " + *fault);
        } else if (!setting.is_header) {
            judge_unknown(setting);
        }
    }

    const Key *find(const std::string &path) const {
        for (const Keys *keys : programs_)
            if (const Key *key = keys->find(path))
                return key;
        return nullptr;
    }

    bool is_known_section(const std::string &section) const {
        return std::any_of(programs_.begin(), programs_.end(), [&](const Keys *keys) {
            const Names sections = keys->sections();
            return std::any_of(sections.begin(), sections.end(),
                               [&](const std::string &known) { return same_name(known, section); });
        });
    }

    void judge_unknown(const ConfSetting &setting) {
        const Names names = split_path(setting.path);
        if (!is_known_section(names.front()))
            return judge_section(setting, names);
        const auto nearest = nearest_path(setting.path, patterns_);
        if (nearest)
            add(setting, "unknown key; did you mean " + *nearest + "?");
        else if (!is_shared(names.front()))
            add(setting, "unknown key");
    }

    // Another branch's name is a slip when the key would be known with ours.
    void judge_section(const ConfSetting &setting, const Names &names) {
        for (const Keys *keys : programs_)
            for (const std::string &section : keys->sections()) {
                Names meant = names;
                meant.front() = section;
                if (is_slip(names.front(), section, *keys) && find(join_path(meant)) != nullptr)
                    return add(setting, "unknown section; did you mean " + join_path(meant) + "?");
            }
    }

    // A branch that is named as a program is another program's as long as ours is there too.
    bool is_slip(const std::string &written, const std::string &section, const Keys &keys) const {
        return slips(written, section) && !differ_in_number(written, section) &&
               (section.size() > k_short_name || have_the_same_letters(written, section)) &&
               !(same_name(section, keys.name()) && has_section(settings_, section));
    }

    void add(const ConfSetting &setting, const std::string &text) {
        findings_.push_back({setting.line, ConfSeverity::error,
                             printable(setting.path, 200) + ": " + text, setting.path});
    }

    const std::vector<ConfSetting> &settings_;
    const Programs &programs_;
    std::vector<Names> patterns_;
    std::vector<ConfFinding> findings_;
};

bool concerns(const ConfFinding &finding, const Programs &programs) {
    if (finding.severity == ConfSeverity::note)
        return false;
    return finding.path.empty() ||
           std::any_of(programs.begin(), programs.end(),
                       [&](const Keys *keys) { return keys->find(finding.path) != nullptr; });
}

size_t line_of(const std::vector<ConfSetting> &settings, const std::string &path) {
    for (const ConfSetting &setting : settings)
        if (same_name(setting.path, path))
            return setting.line;
    return 0;
}

// What the program itself refuses, unless that was said.
void add_refusals(std::vector<ConfFinding> &findings, const zeb::ConfCheck &file,
                  const Keys &keys) {
    if (keys.program().read == nullptr)
        return;
    const Tree tree = tree_of(file);
    Settings settings(keys, tree.get(), Settings::Tell::no);
    keys.program().read(settings);
    for (const Settings::Refusal &refusal : settings.refusals()) {
        const bool said =
            std::any_of(findings.begin(), findings.end(), [&](const ConfFinding &finding) {
                return same_name(finding.path, refusal.path);
            });
        if (!said)
            findings.push_back({line_of(file.settings, refusal.path), ConfSeverity::error,
                                printable(refusal.path, 200) + ": " + refusal.text, refusal.path});
    }
}

} // namespace

std::vector<ConfFinding> judge_settings(const std::vector<ConfSetting> &settings,
                                        const Programs &programs) {
    return Judge(settings, programs).run();
}

Tree tree_of(const zeb::ConfCheck &file) {
    Tree tree(CONF_alloc());
    for (const ConfSetting &setting : file.settings)
        if (tree)
            CONF_set(tree.get(), setting.path.c_str(), setting.value.c_str());
    return tree;
}

std::vector<ConfFinding> check_keys(const zeb::ConfCheck &file, const Programs &programs,
                                    bool every_line) {
    std::vector<ConfFinding> findings = judge_settings(file.settings, programs);
    for (const Keys *keys : programs)
        add_refusals(findings, file, *keys);
    for (const ConfFinding &finding : file.findings)
        if (every_line || concerns(finding, programs))
            findings.push_back(finding);
    std::stable_sort(findings.begin(), findings.end(),
                     [](const ConfFinding &a, const ConfFinding &b) { return a.line < b.line; });
    return findings;
}

} // namespace serverkit
