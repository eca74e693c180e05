// log_testing.h - what the tests of logging share.
#pragma once

#include "log_int.h"
#include "support.h"
#include "util.h"
#include "zebfile.h"
#include "zebfile_int.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace zeb::test {

inline constexpr LOG_map_defn k_end = {nullptr, nullptr, nullptr, LVT_END, nullptr,
                                       nullptr, nullptr, nullptr, nullptr};

inline LOG_map_defn row(const char *name, LOG_VAR_TYPE type, void *pd = nullptr,
                        const char *format = nullptr, const char *defmvc = nullptr) {
    return {name, format, defmvc, type, pd, nullptr, nullptr, nullptr, nullptr};
}

// A table of variables with its end.
class Table {
  public:
    Table(std::initializer_list<LOG_map_defn> rows) : rows_(rows) { rows_.push_back(k_end); }
    operator const LOG_map_defn *() const { return rows_.data(); }
    LOG_map_defn &at(size_t i) { return rows_.at(i); }

  private:
    std::vector<LOG_map_defn> rows_;
};

// A configuration that is released with the scope.
class Conf {
  public:
    Conf() : root_(CONF_alloc()) {}
    ~Conf() { CONF_free(root_); }
    Conf(const Conf &) = delete;
    Conf &operator=(const Conf &) = delete;
    operator CONF_node *() const { return root_; }
    void set(const char *path, const char *value) { CONF_set(root_, path, value); }
    void load(const std::string &text) {
        FILE *stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
        CONF_load(root_, stream);
        fclose(stream);
    }

  private:
    CONF_node *root_;
};

inline std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

// Records and lines without a file.
class LogRecords : public testing::Test {
  protected:
    LogRecords() { LOG_init(&f); }
    ~LogRecords() override { LOG_close(&f); }

    std::vector<std::string> headers() const {
        std::vector<std::string> lines;
        for (const LL_NODE *node = f.headers.head; node != nullptr; node = node->next)
            lines.emplace_back(static_cast<const char *>(node->data));
        return lines;
    }
    const LOG_record_defn &record(int number = 0) const {
        const LL_NODE *node = f.records.head;
        while (number-- > 0)
            node = node->next;
        return *static_cast<const LOG_record_defn *>(node->data);
    }
    // The line of a record without further arguments.
    std::string line(const char *code = "S", FTIME time = 1400000000.0) {
        char *text = nullptr;
        size_t size = 0;
        FILE *stream = open_memstream(&text, &size);
        LOG_write_file(&f, stream, code, time);
        fclose(stream);
        const std::string result(text, size);
        free(text);
        return result;
    }
    // The columns of that line, each with "," in front.
    std::string columns(const char *code = "S") {
        const std::string text = line(code);
        const std::string start = "S,STN,1400000000,2014-05-13T16:53:20Z";
        EXPECT_EQ(text.substr(0, start.size()), start);
        EXPECT_EQ(text.back(), '\n');
        return text.substr(start.size(), text.size() - start.size() - 1);
    }

    StderrCapture err;
    Conf local;
    LOG_file f;
};

// Files in a private directory, written by a thread as in a daemon.
class LogFiles : public testing::Test {
  protected:
    LogFiles() : db("DB", nullptr), zeb2("ZEB2", nullptr) {
        root.set("Disk;LogDir", dir.path().c_str());
        root.set("Disk;StationID", "abc");
        local.set("fil;name", "X1");
        LOG_init(&f);
    }
    ~LogFiles() override {
        LOG_close(&f);
        ZEBFILE_destroy();
    }
    void SetUp() override { ASSERT_TRUE(ZEBFILE_init()); }

    // One column, an integer.
    void define_simple() { LOG_define_record(&f, "S", "*", simple, local, FALSE); }
    void open() { ASSERT_TRUE(LOG_open(&f, root, local, nullptr)); }
    void write(DWORD value) {
        number = value;
        LOG_write(&f, nullptr, "S", 1400000000.0);
    }
    static std::string line(DWORD value) {
        return "X1S,ABC,1400000000,2014-05-13T16:53:20Z," + std::to_string(value) + "\n";
    }
    std::string content() {
        LOG_flush(&f);
        return read_file(f.filename);
    }
    // The lines of the file that are no header lines.
    std::string data() {
        std::string result;
        for (const std::string &one : lines_of(content()))
            result += one[0] == '!' ? "" : one + "\n";
        return result;
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto &entry : std::filesystem::directory_iterator(dir.path()))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    // A switch to a file of its own name, in a later second.
    BOOL switch_later() {
        const time_t now = time(nullptr);
        wait_until([&] { return time(nullptr) != now; });
        return LOG_switch(&f, 0);
    }

    StderrCapture err;
    ScopedEnv db, zeb2;
    TempDir dir;
    Conf root, local;
    LOG_file f;
    DWORD number = 0;
    Table simple = {row("n", LVT_DWORD, &number, "%u")};
};

} // namespace zeb::test
