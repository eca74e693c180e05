#include "settings.h"

#include "report.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include <zeb2/util.h>

namespace serverkit {

std::string Settings::written(const std::string &path) const {
    const char *value = root_ == nullptr ? nullptr : CONF_lookup(root_, path.c_str());
    return value == nullptr ? "" : value;
}

Default Settings::standard(const Key &key) const {
    if (key.derive != nullptr)
        return key.derive(*this);
    Default result{key.standard, nullptr};
    if (const size_t name = result.value.find('@'); name != std::string::npos)
        result.value.replace(name, 1, keys_.name());
    return result;
}

std::string Settings::usable(const std::string &path) const {
    const Key *key = keys_.find(path);
    if (key == nullptr)
        return "";
    const std::string value = written(path);
    const bool used = !value.empty() && (key->read_by_library || !fault_in_file(*key, value));
    return used ? value : standard(*key).value;
}

const Key *Settings::find(const std::string &path) {
    const Key *key = keys_.find(path);
    if (key == nullptr)
        refuse(path, "", "a key that the program has declared");
    return key;
}

std::string Settings::text(const std::string &path) {
    const Key *key = find(path);
    if (key == nullptr)
        return "";
    const std::string value = written(path), usual = standard(*key).value;
    const auto fault = value.empty() || key->read_by_library ? std::nullopt : fault_of(*key, value);
    if (fault)
        refuse(path, value,
               *fault + (tell_ == Tell::with_default && !usual.empty() ? "; using " + usual : ""));
    return value.empty() || fault ? usual : value;
}

size_t Settings::count(const std::string &path) {
    return static_cast<size_t>(parse_whole(text(path)).value_or(0));
}

double Settings::number(const std::string &path) {
    return parse_number(text(path)).value_or(MVC);
}

unsigned Settings::mode(const std::string &path) {
    return static_cast<unsigned>(parse_whole(text(path), 8).value_or(0));
}

size_t Settings::word(const std::string &path) {
    const std::string value = text(path);
    const Key *key = keys_.find(path);
    char word[64];
    for (int i = 0; key != nullptr && UTIL_stringfield(key->what, "|", i, word, sizeof word); ++i)
        if (same_name(word, value))
            return static_cast<size_t>(i);
    return 0;
}

void Settings::provide(const std::string &path) {
    if (const Key *key = find(path))
        provide(path, standard(*key).value);
}

void Settings::provide(const std::string &path, const std::string &value) {
    if (written(path).empty() && !value.empty())
        CONF_set(root_, path.c_str(), value.c_str());
}

void Settings::refuse(const std::string &path, const std::string &value, const std::string &what) {
    complain(path, "\"" + printable(value) + "\" is not " + what);
}

void Settings::complain(const std::string &path, const std::string &text) {
    for (const Refusal &refusal : refusals_)
        if (refusal.path == path && refusal.text == text)
            return;
    refusals_.push_back({path, text});
    if (tell_ != Tell::no)
        report("configuration: %s: %s", path.c_str(), text.c_str());
}

FILE *open_configuration(const std::string &name) {
    FILE *file = fopen(name.c_str(), "re");
    struct stat info;
    if (file == nullptr || fstat(fileno(file), &info) != 0 || !S_ISDIR(info.st_mode))
        return file;
    fclose(file);
    errno = EISDIR;
    return nullptr;
}

bool load_configuration(const std::string &name, CONF_node **tree) {
    *tree = nullptr;
    FILE *stream = open_configuration(name);
    if (stream == nullptr) {
        report_errno("cannot read the configuration %s", name.c_str());
        return false;
    }
    if ((*tree = CONF_alloc()) != nullptr)
        CONF_load(*tree, stream);
    fclose(stream);
    return *tree != nullptr;
}

std::string default_configuration() {
    const char *base = getenv("ZEB2");
    if (base != nullptr && strlen(base) > PATH_MAX)
        return "";
    char path[PATH_MAX + 32];
    UTIL_make_relative("etc/zeb.conf", path);
    return path;
}

} // namespace serverkit
