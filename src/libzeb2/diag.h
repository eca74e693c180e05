// diag.h - diagnostic lines and the mutex retry rule. Internal, ground floor: includes nothing of ours.
//
// Every line of the library goes to standard error in one of six forms, prefixed by the program's
// title. A failed check is reported and execution goes on; the macros return whether the check held,
// so that a caller that must stop can: if (!ZEB_CHECK_ERRNO(p != nullptr)) return nullptr;
#ifndef ZEB2_DIAG_H
#define ZEB2_DIAG_H

#include <cerrno>
#include <pthread.h>

extern "C" {
// The prefix of every diagnostic line: "PREINIT: " until LIBZEB_init has run.
extern __attribute__((visibility("default"))) const char *g_dbg_msg_title;
extern __attribute__((visibility("default"))) char g_dbg_msg_title_static[256];
}

namespace zeb {

// TITLE assertion failed (FILE:LINE): COND
void diag_assertion(const char *file, int line, const char *cond);
// TITLE assertion failed (FILE:LINE): COND: strerror(error)
void diag_assertion_error(const char *file, int line, const char *cond, int error);
// TITLE syscall failed (FILE:LINE): CALL: strerror(error)
void diag_repeated_call(const char *file, int line, const char *call, int error);
// TITLE system call failed (FILE:LINE): CALL: strerror(error)
void diag_single_call(const char *file, int line, const char *call, int error);
// TITLE message (FILE:LINE)
void diag_message(const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
// TITLE message: strerror(errno) (FILE:LINE); errno is read on entry
void diag_message_errno(const char *file, int line, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// Lock and unlock with the retry rule: EINTR and EAGAIN are retried, anything else is reported and
// taken as success, so that a broken mutex never stops a daemon.
void mutex_lock(pthread_mutex_t *mutex, const char *file, int line, const char *call);
void mutex_unlock(pthread_mutex_t *mutex, const char *file, int line, const char *call);

// Holds a mutex for a scope.
class MutexGuard {
  public:
    MutexGuard(pthread_mutex_t *mutex, const char *file, int line, const char *lock_call,
               const char *unlock_call)
        : mutex_(mutex), file_(file), line_(line), unlock_call_(unlock_call) {
        mutex_lock(mutex_, file_, line_, lock_call);
    }
    ~MutexGuard() { mutex_unlock(mutex_, file_, line_, unlock_call_); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

  private:
    pthread_mutex_t *mutex_;
    const char *file_;
    int line_;
    const char *unlock_call_;
};

} // namespace zeb

// Checks of arguments and of results; each yields whether the condition held.
#define ZEB_CHECK(cond) ((cond) ? true : (zeb::diag_assertion(__FILE_NAME__, __LINE__, #cond), false))
#define ZEB_CHECK_ERRNO(cond)                                                                      \
    ((cond) ? true                                                                                 \
            : (zeb::diag_assertion_error(__FILE_NAME__, __LINE__, #cond, errno), false))
// A one-shot call that returns an error number: pthread_create and its like.
#define ZEB_CHECK_CALL(call)                                                                       \
    ([&] {                                                                                         \
        const int zeb_result = (call);                                                             \
        if (zeb_result != 0)                                                                       \
            zeb::diag_single_call(__FILE_NAME__, __LINE__, #call, zeb_result);                     \
        return zeb_result == 0;                                                                    \
    }())
#define ZEB_REPORT(...) zeb::diag_message(__FILE_NAME__, __LINE__, __VA_ARGS__)
#define ZEB_REPORT_ERRNO(...) zeb::diag_message_errno(__FILE_NAME__, __LINE__, __VA_ARGS__)
// Locks for the rest of the scope: ZEB_LOCK(guard, &link->mtx);
#define ZEB_LOCK(guard, mutex)                                                                     \
    zeb::MutexGuard guard(mutex, __FILE_NAME__, __LINE__, "pthread_mutex_lock(" #mutex ")",        \
                          "pthread_mutex_unlock(" #mutex ")")

#endif
