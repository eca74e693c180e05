#include "settings.h"

#include "report.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

namespace serverkit {
namespace {

bool parse_count(const char *text, int base, size_t &value) {
    const char *end = text + strlen(text);
    const auto [stop, error] = std::from_chars(text, end, value, base);
    return error == std::errc() && stop == end && stop != text;
}

} // namespace

std::string Settings::text(const char *key, const char *standard) {
    const char *value = root_ == nullptr ? nullptr : CONF_lookup(root_, key);
    return value == nullptr ? standard : value;
}

size_t Settings::count(const char *key, size_t standard, size_t lowest, size_t highest) {
    const char *value = root_ == nullptr ? nullptr : CONF_lookup(root_, key);
    if (value == nullptr)
        return standard;
    size_t number = 0;
    if (parse_count(value, 10, number) && number >= lowest && number <= highest)
        return number;
    refuse(key, value,
           "a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest));
    return standard;
}

double Settings::seconds(const char *key, double standard, double lowest, double highest) {
    const char *value = root_ == nullptr ? nullptr : CONF_lookup(root_, key);
    if (value == nullptr)
        return standard;
    char *end = nullptr;
    const double number = strtod(value, &end);
    if (end != value && *end == '\0' && std::isfinite(number) && number >= lowest &&
        number <= highest)
        return number;
    char limits[64];
    snprintf(limits, sizeof limits, "a number of seconds from %g to %g", lowest, highest);
    refuse(key, value, limits);
    return standard;
}

unsigned Settings::mode(const char *key, unsigned standard) {
    const char *value = root_ == nullptr ? nullptr : CONF_lookup(root_, key);
    if (value == nullptr)
        return standard;
    size_t number = 0;
    if (parse_count(value, 8, number) && number <= 0777)
        return static_cast<unsigned>(number);
    refuse(key, value, "an octal mode up to 777");
    return standard;
}

void Settings::refuse(const char *key, const std::string &value, const std::string &what) {
    report("configuration: %s: \"%s\" is not %s", key, printable(value).c_str(), what.c_str());
    good_ = false;
}

bool load_configuration(const char *file, CONF_node **tree) {
    *tree = nullptr;
    if (file == nullptr) {
        *tree = CONF_get_default();
        return true;
    }
    FILE *stream = fopen(file, "r");
    if (stream == nullptr) {
        report_errno("cannot open the configuration file \"%s\"", file);
        return false;
    }
    struct stat info {};
    const bool readable = fstat(fileno(stream), &info) == 0 && !S_ISDIR(info.st_mode);
    if (!readable)
        report("the configuration file \"%s\" is a directory", file);
    else if ((*tree = CONF_alloc()) != nullptr)
        CONF_load(*tree, stream);
    fclose(stream);
    return *tree != nullptr;
}

} // namespace serverkit
