#include "inputs.h"

#include "checks.h"
#include "files.h"
#include "parser.h"

#include <filesystem>
#include <iostream>
#include <sstream>

namespace zebgen {
namespace {

std::string include_of(const std::string &path, const std::vector<std::string> &include_dirs) {
    for (const std::string &dir : include_dirs) {
        const std::string prefix = dir.empty() || dir.back() == '/' ? dir : dir + "/";
        if (!prefix.empty() && path.size() > prefix.size() &&
            path.compare(0, prefix.size(), prefix) == 0)
            return '"' + path.substr(prefix.size()) + '"';
    }
    return '"' + path + '"';
}

} // namespace

bool complain(const std::string &path, const std::string &reason) {
    std::cerr << path << ": error: " << reason << "\n";
    return false;
}

bool add_station(const std::string &directory, std::vector<Input> &inputs) {
    std::vector<std::string> names;
    std::string error;
    if (!list_headers(directory, names, error))
        return complain(directory, "cannot be listed: " + error);
    for (const std::string &name : names)
        inputs.push_back({directory + "/" + name, "<zeb2/definitions/" + name + ">"});
    return true;
}

void add_definition(const std::string &path, const std::vector<std::string> &include_dirs,
                    std::vector<Input> &inputs) {
    inputs.push_back({path, include_of(path, include_dirs)});
}

bool add_revision(const std::string &list, std::vector<Input> &inputs) {
    std::istringstream parts(list);
    for (std::string part; std::getline(parts, part, ',');) {
        std::error_code code;
        if (!std::filesystem::is_directory(part, code))
            add_definition(part, {}, inputs);
        else if (!add_station(part, inputs))
            return false;
    }
    return !inputs.empty() || complain(list, "holds no definition header");
}

bool read_catalogue(const std::vector<Input> &inputs, Catalogue &catalogue) {
    bool readable = true;
    std::vector<Source> sources;
    Problems problems;
    for (const Input &input : inputs) {
        std::string text;
        std::string error;
        if (read_file(input.path, text, error, k_max_header))
            sources.push_back(parse(input.path, input.include, text, problems));
        else
            readable = complain(input.path, "cannot be read: " + error);
    }
    if (!readable)
        return false;
    catalogue = merge(sources, problems);
    for (const Problem &problem : problems)
        std::cerr << text_of(problem) << "\n";
    return problems.empty();
}

} // namespace zebgen
