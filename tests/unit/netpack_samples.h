// netpack_samples.h - a record with a value of every type, and what the tests of iteration, dumps
// and tables read back.
#pragma once

#include "netpack_catalogue.h"
#include "zebfile_int.h"

#include <cstdio>
#include <functional>
#include <string>

namespace zeb::test {

constexpr TIME k_sample_time = 1408631041; // 2014-08-21 14:24:01

inline Every sample_every() {
    return {{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11},
            {0, 7},
            {1, 2, 0xFF},
            {-1, 'A', 0, 1, 2},
            {1.5, -2.25, 9.999e-99},
            {0.5f, -1e10f},
            {0.25, -1.0},
            {-1, 2147483647},
            {INT32_MIN, 5},
            {-1, 0, 32767},
            {0, 4294967295u},
            {0, -1},
            {0, 4294967295u},
            {1, 2},
            {65535, 0},
            1,
            10,
            'z',
            0.0,
            0.125f,
            k_sample_time + 0.25,
            -7,
            -8,
            -9,
            10,
            "hello",
            k_sample_time,
            3000000000u,
            4000000000u,
            60000};
}

// What `print` writes to a stream.
inline std::string printed(const std::function<void(FILE *)> &print) {
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    print(stream);
    fclose(stream);
    const std::string result(text, size);
    free(text);
    return result;
}

// A writing descriptor that nobody services: what is queued stays and can be looked at.
class QueuedText {
  public:
    QueuedText() {
        ZEBFILE_multi_init();
        fh_ = ZEBFILE_open((directory_ / "columns").c_str(), ZEBFILE_WRITE, 0);
    }
    ~QueuedText() { ZEBFILE_multi_destroy(); }
    QueuedText(const QueuedText &) = delete;
    QueuedText &operator=(const QueuedText &) = delete;

    int fh() const { return fh_; }
    // What was queued since the last call.
    std::string take() {
        size_t size;
        bool failed;
        BYTE *block = file_take(fh_, file_id(fh_), &size, &failed);
        const std::string text(reinterpret_cast<char *>(block), size);
        free(block);
        return text;
    }

  private:
    TempDir directory_;
    int fh_;
};

} // namespace zeb::test
