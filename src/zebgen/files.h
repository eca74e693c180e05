// files.h - reading definition headers and writing generated files.
#ifndef ZEBGEN_FILES_H
#define ZEBGEN_FILES_H

#include <cstdint>
#include <string>
#include <vector>

namespace zebgen {

// Of a definition header: what is larger is something else, or never ends.
constexpr size_t k_max_header = 4u << 20;

// False with `error` set to the reason, at once when the file is larger than `limit` bytes.
bool read_file(const std::string &path, std::string &content, std::string &error,
               size_t limit = SIZE_MAX);

// Leaves a file that already holds this content untouched, so that nothing that depends on it is
// built again; `changed` becomes true otherwise. A new content replaces the old in one step.
bool write_if_changed(const std::string &path, const std::string &content, bool &changed,
                      std::string &error);

// The names of the headers of a directory, sorted.
bool list_headers(const std::string &directory, std::vector<std::string> &names,
                  std::string &error);

} // namespace zebgen
#endif
