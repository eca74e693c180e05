#include "files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

namespace zebgen {
namespace {

struct CloseFile {
    void operator()(FILE *file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

bool fail(std::string &error) {
    error = strerror(errno);
    return false;
}

bool write_whole(const std::string &path, const std::string &content) {
    File file(fopen(path.c_str(), "wb"));
    return file && fwrite(content.data(), 1, content.size(), file.get()) == content.size() &&
           fflush(file.get()) == 0;
}

} // namespace

bool read_file(const std::string &path, std::string &content, std::string &error, size_t limit) {
    const File file(fopen(path.c_str(), "rb"));
    if (!file)
        return fail(error);
    content.clear();
    char block[65536];
    while (const size_t got = fread(block, 1, sizeof block, file.get())) {
        content.append(block, got);
        if (content.size() > limit) {
            error = "larger than " + std::to_string(limit) + " bytes";
            return false;
        }
    }
    return !ferror(file.get()) || fail(error);
}

bool write_if_changed(const std::string &path, const std::string &content, bool &changed,
                      std::string &error) {
    std::string old;
    std::string ignored;
    if (read_file(path, old, ignored) && old == content)
        return true;
    changed = true;
    const std::string fresh = path + ".new";
    return (write_whole(fresh, content) && rename(fresh.c_str(), path.c_str()) == 0) || fail(error);
}

bool list_headers(const std::string &directory, std::vector<std::string> &names,
                  std::string &error) {
    std::error_code code;
    for (const auto &entry : std::filesystem::directory_iterator(directory, code))
        if (entry.path().extension() == ".h")
            names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    error = code.message();
    return !code;
}

} // namespace zebgen
