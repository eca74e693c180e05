#include "zebfile_int.h"

#include "diag.h"
#include "dispatch.h"
#include "util.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

using namespace zeb;

namespace {

pthread_t g_zebfile_dispatcher_thread;

struct ZEBFILE_preselect_trv_params {
    fd_set *rx_fds;
    fd_set *tx_fds;
    int *fd_max;
};

struct ZEBFILE_postselect_trv_params {
    fd_set *sel_rx_fds;
    fd_set *sel_tx_fds;
    fd_set *tx_fds;
};

bool has_queued(const FileEntry *file) {
    return file->buffer != nullptr && file->buffer_off != 0;
}

// A peer that is gone must not end the process by SIGPIPE.
ssize_t write_quietly(const FileEntry *file) {
    const SignalsBlocked blocked;
    const ssize_t count = write(file->fh, file->buffer, file->buffer_off);
    if (count == -1 && errno == EPIPE) {
        sigset_t raised;
        sigemptyset(&raised);
        sigaddset(&raised, SIGPIPE);
        const timespec at_once = {0, 0};
        sigtimedwait(&raised, nullptr, &at_once);
        errno = EPIPE;
    }
    return count;
}

// ---- Ending entries ----

void write_last(FileEntry *file) {
    const ssize_t count = write_quietly(file);
    if (count > 0)
        drop_front(file, static_cast<size_t>(count));
}

// Leaves what is still queued to the entry's owner. Without memory it is lost.
void leave_rest(FileEntry *file) {
    const FileRest rest = {file->id, file->buffer, file->buffer_off};
    if (LL_insert_tail(&g_zebfile_rests, &rest, sizeof rest) != nullptr)
        file->buffer = nullptr;
}

void free_rest(void *data, void *) {
    free(static_cast<FileRest *>(data)->block);
}

// Ends an entry that has left the table.
void end_file(FileEntry *file) {
    if (file->mode != ZEBFILE_READ && file->fh != -1 && has_queued(file))
        write_last(file);
    if (file->claimed && has_queued(file))
        leave_rest(file);
    if (file->refused != 0)
        ZEB_REPORT("File %d closes, %zu writes were refused", file->fh, file->refused);
    if (!file->dettached && file->fh != -1)
        close(file->fh);
    file->fh = -1;
    adopt_block(file, nullptr, 0);
    file->deleted = true;
    if (file->waiters == 0)
        free_file(file);
    else
        pthread_cond_broadcast(&file->nd_cond);
}

BOOL end_if_same(void *data, void *param) {
    FileEntry *file = file_of(data);
    if (file->fh != *static_cast<int *>(param))
        return FALSE;
    end_file(file);
    return TRUE;
}

void end_any(void *data, void *) {
    end_file(file_of(data));
}

void end_requested(int fh, fd_set *rx_fds, fd_set *tx_fds) {
    FD_CLR(fh, &g_zebfile_close_files);
    if (find_file(fh) == nullptr) {
        ZEB_REPORT("Unable to find file entry for handle %d", fh);
        return;
    }
    LL_selective_delete(&g_zebfile_open_files, end_if_same, &fh);
    select_remove(fh, rx_fds);
    select_remove(fh, tx_fds);
}

// ---- Before the select ----

// Whether there is room for input; a full buffer keeps the peer waiting until half is taken.
bool takes_input(FileEntry *file) {
    if (file->buffer_off >= (file->paused ? k_file_resume : k_file_limit)) {
        if (!file->paused)
            ZEB_REPORT("Input of file %d is not taken: reading no more (%zu bytes unread)",
                       file->fh, file->buffer_off);
        file->paused = true;
        return false;
    }
    if (file->paused)
        ZEB_REPORT("Input of file %d is taken again", file->fh);
    file->paused = false;
    return true;
}

// Whether a flush limit holds the queued bytes back; reaching it makes them all go.
bool is_held(FileEntry *file) {
    if (file->in_flush)
        return false;
    if (is_below_limit(file))
        return true;
    file->in_flush = has_limit(file);
    return false;
}

void show_interest(void *data, void *param) {
    FileEntry *file = file_of(data);
    const auto *p = static_cast<ZEBFILE_preselect_trv_params *>(param);
    const bool reads = file->mode == ZEBFILE_READ;
    select_remove(file->fh, reads ? p->tx_fds : p->rx_fds);
    if (reads && takes_input(file))
        select_add(file->fh, p->rx_fds, p->fd_max);
    else if (!reads && !is_held(file) && (file->in_flush || has_queued(file)))
        select_add(file->fh, p->tx_fds, p->fd_max);
    else
        select_remove(file->fh, reads ? p->rx_fds : p->tx_fds);
}

// ---- After the select ----

bool is_passing(int error) {
    return error == EAGAIN || error == EINTR;
}

void write_queued(FileEntry *file, fd_set *tx_fds) {
    const ssize_t count = write_quietly(file);
    if (count == -1) {
        if (is_passing(errno))
            return;
        ZEB_REPORT_ERRNO("Error writing to file %d, flagged for closing", file->fh);
        FD_SET(file->fh, &g_zebfile_close_files);
        return;
    }
    drop_front(file, static_cast<size_t>(count));
    if (file->buffer_off != 0)
        return;
    file->in_flush = FALSE;
    select_remove(file->fh, tx_fds);
}

void serve_writing(FileEntry *file, fd_set *tx_fds) {
    if (is_held(file))
        return;
    if (has_queued(file)) {
        write_queued(file, tx_fds);
        return;
    }
    select_remove(file->fh, tx_fds);
    file->in_flush = FALSE;
    pthread_cond_broadcast(&file->nd_cond);
}

bool make_input_room(FileEntry *file, size_t n) {
    const size_t size = grown_size(file, n);
    if (size == 0)
        return true;
    BYTE *block;
    ZEB_CHECK_ERRNO((block = static_cast<BYTE *>(calloc(size, 1))) != nullptr);
    adopt_block(file, block, size);
    return block != nullptr;
}

void serve_reading(FileEntry *file) {
    BYTE data[k_io_step];
    const ssize_t count = read(file->fh, data, sizeof data);
    if (count == -1 && is_passing(errno))
        return;
    if (count <= 0) {
        if (count == -1)
            ZEB_REPORT_ERRNO("Error reading from file %d, flagged for closing", file->fh);
        else
            ZEB_REPORT("Zero length read on file %d, assuming EOF, flagged for closing", file->fh);
        FD_SET(file->fh, &g_zebfile_close_files);
        return;
    }
    const size_t received = static_cast<size_t>(count);
    if (!make_input_room(file, received))
        return;
    memcpy(file->buffer + file->buffer_off, data, received);
    file->buffer_off += received;
    pthread_cond_broadcast(&file->nd_cond);
}

void serve_ready(void *data, void *param) {
    FileEntry *file = file_of(data);
    const auto *p = static_cast<ZEBFILE_postselect_trv_params *>(param);
    if (file->mode == ZEBFILE_READ) {
        if (select_contains(file->fh, p->sel_rx_fds))
            serve_reading(file);
    } else if (select_contains(file->fh, p->sel_tx_fds)) {
        serve_writing(file, p->tx_fds);
    }
}

// ---- The module's own thread ----

class FileLoop final : public ServiceLoop {
  public:
    void start() {
        const CancelGuard uncancelled;
        ZEBFILE_dispatch_init(&sets_.rx, &sets_.tx, &sets_.fd_max, nullptr);
    }

  private:
    void pre_select() override { ZEBFILE_dispatch_pre_select(&sets_.rx, &sets_.tx, &sets_.fd_max); }
    void post_select() override {
        ZEBFILE_dispatch_post_select(&sets_.rx, &sets_.tx, &sets_.sel_rx, &sets_.sel_tx,
                                     &sets_.fd_max);
    }
    void loop_continue() override {
        ZEBFILE_dispatch_loop_continue(&sets_.rx, &sets_.tx, &sets_.fd_max);
    }
    void select_failed(int error) override {
        if (error != EINTR)
            report_failed_select(&sets_, error, ZEB_HERE);
        loop_continue();
    }
};

void *serve_files(void *) {
    prepare_thread(Wakeups::always);
    FileLoop loop;
    loop.start();
    loop.run(nullptr);
}

} // namespace

BOOL ZEBFILE_multi_init(void) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    LL_init(&g_zebfile_open_files);
    LL_init(&g_zebfile_rests);
    FD_ZERO(&g_zebfile_close_files);
    g_zebfile_signal_thread = nullptr;
    return TRUE;
}

BOOL ZEBFILE_init(void) {
    if (!ZEBFILE_multi_init())
        return FALSE;
    const SignalsBlocked blocked;
    if (!ZEB_CHECK_CALL(
            pthread_create(&g_zebfile_dispatcher_thread, nullptr, serve_files, nullptr)))
        return FALSE;
    g_zebfile_signal_thread = &g_zebfile_dispatcher_thread;
    return TRUE;
}

void ZEBFILE_destroy(void) {
    pthread_t *thread = g_zebfile_signal_thread;
    if (thread != nullptr && (!ZEB_CHECK_CALL(pthread_cancel(*thread)) ||
                              !ZEB_CHECK_CALL(pthread_join(*thread, nullptr))))
        return;
    ZEBFILE_multi_destroy();
}

void ZEBFILE_multi_destroy(void) {
    // The handle may go with its owner.
    g_zebfile_signal_thread = nullptr;
    LL_transverse_forwards(&g_zebfile_open_files, end_any, nullptr);
    LL_clear(&g_zebfile_open_files);
    LL_transverse_forwards(&g_zebfile_rests, free_rest, nullptr);
    LL_clear(&g_zebfile_rests);
}

void ZEBFILE_dispatch_init(fd_set *, fd_set *, int *, pthread_t *parent_thd) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    if (g_zebfile_signal_thread == nullptr && parent_thd != nullptr)
        g_zebfile_signal_thread = parent_thd;
}

void ZEBFILE_dispatch_pre_select(fd_set *rx_fds, fd_set *tx_fds, int *fd_max) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    for (int fh = 0; fh <= std::min(*fd_max, FD_SETSIZE - 1); ++fh) {
        if (FD_ISSET(fh, &g_zebfile_close_files))
            end_requested(fh, rx_fds, tx_fds);
    }
    ZEBFILE_preselect_trv_params params = {rx_fds, tx_fds, fd_max};
    LL_transverse_forwards(&g_zebfile_open_files, show_interest, &params);
}

void ZEBFILE_dispatch_post_select(fd_set *, fd_set *tx_fds, fd_set *sel_rx_fds, fd_set *sel_tx_fds,
                                  int *) {
    ZEB_LOCK(guard, &g_zebfile_open_files_mutex);
    ZEBFILE_postselect_trv_params params = {sel_rx_fds, sel_tx_fds, tx_fds};
    LL_transverse_forwards(&g_zebfile_open_files, serve_ready, &params);
}

void ZEBFILE_dispatch_loop_continue(fd_set *, fd_set *, int *) {}
