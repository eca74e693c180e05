// What the servers' common parts do when the system refuses a call. Each call below fails with the
// errors that a test lays out for it, in their order; otherwise it is the system's own.
#include "serverkit/loop.h"
#include "serverkit/stream.h"
#include "serverkit/streams.h"

#include "fail_new.h"
#include "support.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <map>
#include <sys/file.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::map<std::string, std::deque<int>> g_errors; // 0: this one works

bool fails(const char *call) {
    const auto found = g_errors.find(call);
    if (found == g_errors.end() || found->second.empty())
        return false;
    const int error = found->second.front();
    found->second.pop_front();
    errno = error;
    return error != 0;
}

} // namespace

#define ZEB_FAILING(result, name, declaration, arguments)                                          \
    result __real_##name declaration;                                                              \
    result __wrap_##name declaration;                                                              \
    result __wrap_##name declaration {                                                             \
        return fails(#name) ? -1 : __real_##name arguments;                                        \
    }

#pragma GCC visibility push(default) // the shared library calls some of them, too
extern "C" {
void *__real_realloc(void *block, size_t size);
void *__wrap_realloc(void *block, size_t size);
void *__wrap_realloc(void *block, size_t size) {
    return fails("realloc") ? nullptr : __real_realloc(block, size);
}
ZEB_FAILING(int, socket, (int domain, int type, int protocol), (domain, type, protocol))
ZEB_FAILING(int, bind, (int fd, const sockaddr *address, socklen_t size), (fd, address, size))
ZEB_FAILING(int, connect, (int fd, const sockaddr *address, socklen_t size), (fd, address, size))
ZEB_FAILING(int, listen, (int fd, int backlog), (fd, backlog))
ZEB_FAILING(int, accept4, (int fd, sockaddr *address, socklen_t *size, int flags),
            (fd, address, size, flags))
ZEB_FAILING(int, chmod, (const char *path, mode_t mode), (path, mode))
ZEB_FAILING(int, chown, (const char *path, uid_t user, gid_t group), (path, user, group))
ZEB_FAILING(int, unlink, (const char *path), (path))
ZEB_FAILING(int, flock, (int fd, int operation), (fd, operation))
ZEB_FAILING(int, epoll_create1, (int flags), (flags))
ZEB_FAILING(int, epoll_ctl, (int epoll, int operation, int fd, epoll_event *event),
            (epoll, operation, fd, event))
ZEB_FAILING(int, epoll_wait, (int epoll, epoll_event *events, int most, int ms),
            (epoll, events, most, ms))
ZEB_FAILING(int, signalfd, (int fd, const sigset_t *set, int flags), (fd, set, flags))
ZEB_FAILING(ssize_t, readv, (int fd, const iovec *blocks, int count), (fd, blocks, count))
ZEB_FAILING(ssize_t, sendmsg, (int fd, const msghdr *message, int flags), (fd, message, flags))
}

#pragma GCC visibility pop

using namespace serverkit;
using testing::HasSubstr;
using testing::IsEmpty;
using zeb::test::occurrences;
using zeb::test::StderrCapture;
using zeb::test::TempDir;

namespace {

class ServerkitFaults : public testing::Test {
  protected:
    ~ServerkitFaults() override { g_errors.clear(); }
    static void fail(const char *call, std::deque<int> errors) {
        g_errors[call] = std::move(errors);
    }
};

bool exists(const std::string &path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0;
}

using WatchFaults = ServerkitFaults;

TEST_F(WatchFaults, AnEventLoopThatCannotBeCreatedIsReported) {
    fail("epoll_create1", {EMFILE});
    StderrCapture errors;
    Watch watch;
    EXPECT_FALSE(watch.open());
    EXPECT_THAT(errors.finish(), HasSubstr("cannot create the event loop: Too many open files\n"));
}

TEST_F(WatchFaults, DescriptorsThatCannotBeWatchedAreReportedOnceUntilOneCan) {
    Watch watch;
    ASSERT_TRUE(watch.open());
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fail("epoll_ctl", {ENOSPC, ENOSPC, 0, ENOMEM});
    StderrCapture errors;
    EXPECT_FALSE(watch.add(ends[0], 1, EPOLLIN));
    EXPECT_FALSE(watch.add(ends[0], 1, EPOLLIN));
    EXPECT_TRUE(watch.add(ends[0], 1, EPOLLIN));
    EXPECT_FALSE(watch.add(ends[1], 1, EPOLLOUT));
    const std::string text = errors.finish();
    EXPECT_EQ(occurrences(text, "cannot watch a descriptor: No space left on device\n"), 1u);
    EXPECT_EQ(occurrences(text, "cannot watch a descriptor: Cannot allocate memory\n"), 1u);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(WatchFaults, AnInterruptedWaitHasNoEventsAndAFailedOneIsReported) {
    Watch watch;
    ASSERT_TRUE(watch.open());
    epoll_event events[1];
    fail("epoll_wait", {EINTR, EINVAL});
    StderrCapture errors;
    EXPECT_EQ(watch.wait(events, 1, 0), 0);
    EXPECT_THAT(errors.text(), IsEmpty());
    EXPECT_EQ(watch.wait(events, 1, 0), -1);
    EXPECT_THAT(errors.finish(), HasSubstr("the event loop failed: Invalid argument\n"));
}

TEST_F(WatchFaults, SignalsThatCannotBeWaitedForAreReported) {
    fail("signalfd", {ENFILE});
    StderrCapture errors;
    EXPECT_FALSE(catch_stop_signals());
    EXPECT_THAT(errors.finish(), HasSubstr("cannot wait for signals: Too many open files in"));
}

TEST_F(WatchFaults, ADescriptorLimitOfTheSystemIsTold) {
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    if (before.rlim_max == RLIM_INFINITY)
        GTEST_SKIP() << "the system sets no limit";
    StderrCapture errors;
    raise_descriptor_limit(before.rlim_max + 1);
    EXPECT_THAT(errors.finish(), HasSubstr("only " + std::to_string(before.rlim_max) +
                                           " descriptors are allowed; the configured limits need " +
                                           std::to_string(before.rlim_max + 1) + "\n"));
    setrlimit(RLIMIT_NOFILE, &before);
}

using AcceptorFaults = ServerkitFaults;

TEST_F(AcceptorFaults, FailuresAreReportedOnceAndTheirEndWithTheirNumber) {
    fail("accept4", {EMFILE, ENFILE, EAGAIN, EAGAIN});
    Acceptor acceptor;
    UniqueFd connection;
    sockaddr_storage address;
    StderrCapture errors;
    EXPECT_EQ(acceptor.accept(0, connection, address), Acceptor::Result::pause);
    EXPECT_EQ(acceptor.accept(0, connection, address), Acceptor::Result::pause);
    EXPECT_EQ(acceptor.failures(), 2u);
    EXPECT_EQ(acceptor.accept(0, connection, address), Acceptor::Result::none);
    EXPECT_EQ(acceptor.accept(0, connection, address), Acceptor::Result::none);
    const std::string text = errors.finish();
    EXPECT_EQ(occurrences(text, "cannot accept connections for now: Too many open files\n"), 1u);
    EXPECT_EQ(occurrences(text, "connections are accepted again, after 2 failures\n"), 1u);
    EXPECT_EQ(occurrences(text, "\n"), 2u);
}

TEST_F(AcceptorFaults, AConnectionThatIsGoneAgainIsPassedOver) {
    fail("accept4", {ECONNABORTED, EINTR});
    Acceptor acceptor;
    UniqueFd connection;
    sockaddr_storage address;
    EXPECT_EQ(acceptor.accept(0, connection, address), Acceptor::Result::again);
    EXPECT_EQ(acceptor.accept(0, connection, address), Acceptor::Result::again);
    EXPECT_EQ(acceptor.failures(), 0u);
}

class ListenerFaults : public ServerkitFaults {
  protected:
    // What listening reports while a call fails.
    std::string refused(const char *call, std::deque<int> errors, const LocalAccess &access = {}) {
        fail(call, std::move(errors));
        StderrCapture capture;
        EXPECT_FALSE(listen_local(path_, access));
        return capture.finish();
    }
    void leave_stale_socket() {
        const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
        ASSERT_EQ(bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    }
    TempDir dir_;
    std::string path_ = dir_ / "s";
};

TEST_F(ListenerFaults, EachStepThatFailsIsNamedAndNoSocketIsLeft) {
    const std::string quoted = "\"" + path_ + "\"";
    EXPECT_THAT(refused("flock", {ENOLCK}),
                HasSubstr("cannot lock the socket directory \"" + dir_.path() + "/\": No locks"));
    EXPECT_THAT(refused("socket", {EMFILE}), HasSubstr("cannot create a local socket: Too many"));
    EXPECT_THAT(refused("bind", {EACCES}),
                HasSubstr("cannot create the socket " + quoted + ": Permission denied\n"));
    EXPECT_THAT(refused("chmod", {EPERM}),
                HasSubstr("cannot set the mode of " + quoted + ": Operation not permitted\n"));
    EXPECT_FALSE(exists(path_));
    EXPECT_THAT(refused("listen", {ENOBUFS}), HasSubstr("cannot listen at " + quoted));
    EXPECT_FALSE(exists(path_));
}

TEST_F(ListenerFaults, AGroupIsANameOrANumberAndMustTakeTheSocket) {
    const std::string number = std::to_string(getgid());
    EXPECT_THAT(refused("chown", {EPERM}, {0660, number}),
                HasSubstr("cannot give \"" + path_ + "\" to the group \"" + number + "\""));
    EXPECT_FALSE(exists(path_));
    EXPECT_TRUE(listen_local(path_, {0660, number}));
    const group *own = getgrgid(getgid());
    ASSERT_NE(own, nullptr);
    EXPECT_TRUE(listen_local(path_, {0660, own->gr_name}));
}

TEST_F(ListenerFaults, AStaleSocketThatCannotBeJudgedOrTakenAwayStays) {
    leave_stale_socket();
    const std::string quoted = "\"" + path_ + "\"";
    EXPECT_THAT(refused("socket", {EMFILE}), HasSubstr("cannot use the socket " + quoted));
    EXPECT_THAT(refused("connect", {EACCES}), HasSubstr("cannot use the socket " + quoted));
    EXPECT_THAT(refused("unlink", {EROFS}),
                HasSubstr("cannot replace the stale socket " + quoted + ": Read-only file system"));
    EXPECT_TRUE(exists(path_));
}

TEST_F(ListenerFaults, AServerWhoseQueueIsFullIsAlive) {
    leave_stale_socket();
    EXPECT_THAT(refused("connect", {EAGAIN}), HasSubstr("a server is already listening"));
    EXPECT_THAT(refused("connect", {EINPROGRESS}), HasSubstr("a server is already listening"));
    EXPECT_TRUE(exists(path_));
}

TEST_F(ListenerFaults, AServerThatStartsAtTheSameTimeIsWaitedFor) {
    fail("flock", {EWOULDBLOCK, EINTR});
    EXPECT_TRUE(listen_local(path_, {}));
}

TEST_F(ListenerFaults, APortThatCannotBeListenedAtIsReported) {
    for (const char *call : {"socket", "bind", "listen"}) {
        fail(call, {EADDRINUSE});
        StderrCapture errors;
        EXPECT_FALSE(listen_tcp("127.0.0.1", 0)) << call;
        EXPECT_THAT(errors.finish(),
                    HasSubstr("cannot listen on 127.0.0.1 port 0: Address already in use\n"));
    }
}

TEST(Addresses, AreShownWithTheirPort) {
    sockaddr_storage address{};
    auto &v4 = reinterpret_cast<sockaddr_in &>(address);
    v4.sin_family = AF_INET;
    v4.sin_port = htons(8567);
    inet_pton(AF_INET, "192.0.2.7", &v4.sin_addr);
    EXPECT_EQ(address_text(address), "192.0.2.7:8567");
    address = {};
    auto &v6 = reinterpret_cast<sockaddr_in6 &>(address);
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(80);
    inet_pton(AF_INET6, "2001:db8::1", &v6.sin6_addr);
    EXPECT_EQ(address_text(address), "[2001:db8::1]:80");
}

TEST(Addresses, OfAnotherFamilyAreInNoList) {
    AddressList everybody;
    ASSERT_TRUE(everybody.add("::/0"));
    sockaddr_storage address{};
    address.ss_family = AF_UNIX;
    EXPECT_FALSE(everybody.contains(address));
}

class StreamFaults : public ServerkitFaults {
  protected:
    StreamFaults() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        ours_.reset(ends[0]);
        theirs_.reset(ends[1]);
    }
    Transfer receive() {
        const auto sink = [](std::string_view) { return true; };
        return serverkit::receive(ours_.get(), in_, scratch_, sizeof scratch_, sink, bytes_);
    }
    void write_theirs(const std::string &bytes) {
        ASSERT_EQ(write(theirs_.get(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }
    UniqueFd ours_, theirs_;
    InBuffer in_;
    char scratch_[256];
    uint64_t bytes_ = 0;
};

TEST_F(StreamFaults, WhatPassesByItselfIsNoFailure) {
    fail("readv", {EAGAIN, EINTR, ENOBUFS, ENOMEM, ECONNRESET});
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(receive(), Transfer::going);
    EXPECT_EQ(receive(), Transfer::failed);
    EXPECT_EQ(bytes_, 0u);
    EXPECT_TRUE(is_hang_up(ECONNRESET));
    EXPECT_TRUE(is_hang_up(EPIPE));
    EXPECT_FALSE(is_hang_up(EIO));
}

TEST_F(StreamFaults, ThePeersEndIsNoFailure) {
    theirs_.reset();
    EXPECT_EQ(receive(), Transfer::ended);
}

TEST_F(StreamFaults, WhatCannotBeSentNowStaysInTheQueue) {
    OutQueue out(1000);
    ASSERT_TRUE(out.push(Frame::of_payload("abc")));
    fail("sendmsg", {EAGAIN, EPIPE});
    EXPECT_EQ(send_queued(ours_.get(), out, bytes_), Transfer::going);
    EXPECT_EQ(send_queued(ours_.get(), out, bytes_), Transfer::failed);
    EXPECT_FALSE(out.empty());
    EXPECT_EQ(send_queued(ours_.get(), out, bytes_), Transfer::going);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(bytes_, 13u); // ten of the header
}

// A packet of 8,192 bytes, of which the first 16 have come.
std::string long_beginning() {
    return std::string(Frame::blank(8192).data(), 10) + std::string(6, 'x');
}

TEST_F(StreamFaults, WithoutMemoryForThePieceOfAPacketNoneIsTaken) {
    write_theirs(long_beginning());
    fail("realloc", {ENOMEM});
    EXPECT_EQ(receive(), Transfer::no_memory);
    EXPECT_THAT(g_errors["realloc"], IsEmpty());
}

TEST_F(StreamFaults, WithoutMemoryForTheRestOfAPacketNoneIsTaken) {
    write_theirs(long_beginning());
    EXPECT_EQ(receive(), Transfer::going);
    fail("realloc", {ENOMEM});
    EXPECT_EQ(receive(), Transfer::no_memory);
    EXPECT_THAT(g_errors["realloc"], IsEmpty());
}

TEST_F(StreamFaults, AFrameWithoutMemoryIsEmpty) {
    zeb::test::g_new_fails = [] { return true; };
    const Frame frame = Frame::of_payload("abc");
    zeb::test::g_new_fails = nullptr;
    EXPECT_FALSE(frame);
}

TEST_F(StreamFaults, ALocalPeerIsItsProcess) {
    EXPECT_EQ(local_origin(ours_.get()), "pid " + std::to_string(getpid()));
    const UniqueFd file(open("/dev/null", O_RDONLY));
    EXPECT_EQ(local_origin(file.get()), "local");
}

// The child's answer: the number of streams that are as they should be.
int look_at_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        close(stream);
    hold_standard_streams();
    hold_standard_streams(); // the second finds them held
    char byte = 0;
    return (read(STDIN_FILENO, &byte, 1) == -1) + (write(STDOUT_FILENO, &byte, 1) == -1) +
           (write(STDERR_FILENO, &byte, 1) == -1);
}

TEST(Streams, ThatAreClosedAreHeldSoThatUsingThemFails) {
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0)
        _exit(look_at_streams());
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

} // namespace
