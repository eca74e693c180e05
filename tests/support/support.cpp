#include "support.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

// Options of the sanitizers, exported for their libraries to find. A request beyond all memory
// fails as it does without them. And the address sanitizer is not told of the frames that a
// cancelled thread unwinds: it would take the removal of its own signal stack for a use of them.
#define EXPORTED __attribute__((visibility("default")))
extern "C" EXPORTED const char *__asan_default_options() {
    return "allocator_may_return_null=1:use_sigaltstack=0";
}
extern "C" EXPORTED const char *__tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace zeb::test {

StderrCapture::StderrCapture() {
    fflush(stderr);
    saved_ = dup(STDERR_FILENO);
    FILE *file = tmpfile();
    if (file == nullptr || saved_ < 0)
        throw std::runtime_error("cannot capture standard error");
    file_ = dup(fileno(file));
    fclose(file);
    dup2(file_, STDERR_FILENO);
}

StderrCapture::~StderrCapture() {
    finish();
}

std::string StderrCapture::text() const {
    std::string result;
    char block[4096];
    off_t offset = 0;
    for (ssize_t n; (n = pread(file_, block, sizeof block, offset)) > 0; offset += n)
        result.append(block, static_cast<size_t>(n));
    return result;
}

std::string StderrCapture::finish() {
    if (saved_ < 0)
        return {};
    fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    saved_ = -1;
    std::string result = text();
    close(file_);
    return result;
}

TempDir::TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "zeb-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("cannot make a directory like " + name);
    path_ = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

ScopedEnv::ScopedEnv(const char *name, const char *value) : name_(name) {
    if (const char *old = getenv(name)) {
        old_ = old;
        had_ = true;
    }
    if (value != nullptr)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
    if (had_)
        setenv(name_.c_str(), old_.c_str(), 1);
    else
        unsetenv(name_.c_str());
}

bool wait_until(const std::function<bool()> &condition, double seconds) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

namespace {

int hex_digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    throw std::runtime_error(std::string("not a hex digit: ") + c);
}

} // namespace

Bytes from_hex(const std::string &text) {
    Bytes bytes;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '#') {
            while (i < text.size() && text[i] != '\n')
                ++i;
        } else if (c == '"') {
            while (++i < text.size() && text[i] != '"')
                bytes.push_back(static_cast<unsigned char>(text[i]));
        } else if (c != ' ' && c != '\n' && c != '\t' && c != '\r') {
            bytes.push_back(
                static_cast<unsigned char>(hex_digit(c) * 16 + hex_digit(text.at(++i))));
        }
    }
    return bytes;
}

Bytes load_hex(const std::string &name) {
    return from_hex(read_file(data_path(name)));
}

std::string source_path(const std::string &name) {
    return ZEB_SOURCE_DIR "/" + name;
}

std::string data_path(const std::string &name) {
    return source_path("tests/data/" + name);
}

std::string built_path(const std::string &name) {
    return ZEB_BINARY_DIR "/" + name;
}

size_t occurrences(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

std::set<int> open_descriptors() {
    std::set<int> result;
    DIR *dir = opendir("/proc/self/fd");
    while (const dirent *item = readdir(dir))
        if (item->d_name[0] != '.' && atoi(item->d_name) != dirfd(dir))
            result.insert(atoi(item->d_name));
    closedir(dir);
    return result;
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void write_file(const std::string &path, const std::string &content) {
    std::ofstream out(path, std::ios::binary);
    out << content;
    if (!out)
        throw std::runtime_error("cannot write " + path);
}

} // namespace zeb::test
