// recording_file.h - a recording that is being written, on a disk or into a pipe.
#pragma once

#include <string>
#include <string_view>

#include "serverkit/sockets.h"

namespace zebctl {

class RecordingFile {
  public:
    enum class Mode { fresh, append, replace };

    // Opens a file, "-" for standard output, and sees to it that it begins as a recording. A fresh
    // one must not exist, or be empty. False after a report.
    bool open(const std::string &path, Mode mode);
    // Appends whole entries with one write. A write that a full disk cut short is taken back as far
    // as that goes. False after a report.
    bool write(std::string_view entries);

  private:
    bool fail(const std::string &what);
    bool begin();

    std::string path_;
    serverkit::UniqueFd own_;
    int fd_ = -1;
};

} // namespace zebctl
