// zebfile_testing.h - what the tests of buffered descriptors share.
#pragma once

#include "dispatch.h"
#include "support.h"
#include "zebfile.h"
#include "zebfile_int.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace zeb::test {

constexpr size_t k_none = static_cast<size_t>(-1);

// A pipe with both ends open; an end given away or closed is -1.
struct Pipe {
    Pipe() {
        if (pipe2(ends, O_CLOEXEC) == -1)
            throw std::runtime_error("no pipe");
    }
    ~Pipe() {
        close_end(0);
        close_end(1);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    void close_end(int end) {
        if (ends[end] != -1)
            close(ends[end]);
        ends[end] = -1;
    }
    int give(int end) {
        const int fh = ends[end];
        ends[end] = -1;
        return fh;
    }
    int reader() const { return ends[0]; }
    int writer() const { return ends[1]; }
    void put(const std::string &text) const {
        ASSERT_EQ(write(writer(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // What one read of what is there gives; empty when nothing is.
    std::string take() const {
        pollfd ready = {reader(), POLLIN, 0};
        std::string text(65536, '\0');
        const ssize_t n = poll(&ready, 1, 0) == 1 ? read(reader(), text.data(), text.size()) : 0;
        text.resize(n > 0 ? static_cast<size_t>(n) : 0);
        return text;
    }
    int ends[2];
};

inline bool is_open(int fh) {
    return fcntl(fh, F_GETFD) != -1;
}

inline FileEntry *entry(int fh) {
    return find_file(fh);
}

inline std::string buffered(int fh) {
    const FileEntry *file = entry(fh);
    return file == nullptr || file->buffer == nullptr
               ? ""
               : std::string(reinterpret_cast<const char *>(file->buffer), file->buffer_off);
}

// Puts bytes into a buffer as if they had been read or queued.
inline void fill(int fh, const std::string &text) {
    FileEntry *file = entry(fh);
    file->buffer = static_cast<BYTE *>(realloc(file->buffer, text.size() + 1));
    file->buffer_max = text.size() + 1;
    file->buffer_off = text.size();
    memcpy(file->buffer, text.data(), text.size());
}

inline std::string number(int value) {
    return std::to_string(value);
}

// The table serviced by the test itself, cycle by cycle.
class ZebfileTable : public testing::Test {
  protected:
    ZebfileTable() {
        ZEBFILE_multi_init();
        FD_ZERO(&rx);
        FD_ZERO(&tx);
    }
    ~ZebfileTable() override { ZEBFILE_multi_destroy(); }

    void pre_select() { ZEBFILE_dispatch_pre_select(&rx, &tx, &fd_max); }
    // One cycle of a servicing loop that never waits.
    void cycle() {
        pre_select();
        fd_max = select_highest(&rx, &tx, fd_max);
        fd_set sel_rx = rx, sel_tx = tx;
        timespec at_once = {0, 0};
        const int result = pselect(fd_max + 1, &sel_rx, &sel_tx, nullptr, &at_once, nullptr);
        if (result > 0)
            ZEBFILE_dispatch_post_select(&rx, &tx, &sel_rx, &sel_tx, &fd_max);
        else
            ZEBFILE_dispatch_loop_continue(&rx, &tx, &fd_max);
    }
    // The writing end of the pipe as an entry, its reading end left to the test.
    int writing(Pipe *pipe) {
        const int fh = pipe->give(1);
        EXPECT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_WRITE));
        return fh;
    }
    int reading(Pipe *pipe) {
        const int fh = pipe->give(0);
        EXPECT_TRUE(ZEBFILE_associate_fh(fh, ZEBFILE_READ));
        return fh;
    }

    StderrCapture err;
    fd_set rx, tx;
    int fd_max = -1;
    Pipe p;
};

// The table serviced by the module's own thread.
class ZebfileThread : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(ZEBFILE_init()); }
    void TearDown() override { ZEBFILE_destroy(); }

    bool has_entry(int fh) {
        pthread_mutex_lock(&g_zebfile_open_files_mutex);
        const bool found = entry(fh) != nullptr;
        pthread_mutex_unlock(&g_zebfile_open_files_mutex);
        return found;
    }
    unsigned waiters_of(int fh) {
        pthread_mutex_lock(&g_zebfile_open_files_mutex);
        const unsigned waiters = entry(fh)->waiters;
        pthread_mutex_unlock(&g_zebfile_open_files_mutex);
        return waiters;
    }

    StderrCapture err;
    Pipe p;
};

} // namespace zeb::test
