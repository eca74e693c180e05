// logfile_testing.h - log files of tests/data through the outputs of zebctl logfile.
#pragma once

#include "log_output.h"
#include "support.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace zeb::test {

using Faults = std::vector<std::pair<size_t, std::string>>;

inline std::string log_data(const std::string &name) {
    return read_file(data_path("logfile/" + name));
}

// Reads the text through the output; what was wrong with it.
inline Faults show(const std::string &text, zebctl::LogOutput &output) {
    const std::unique_ptr<FILE, int (*)(FILE *)> stream(tmpfile(), fclose);
    fwrite(text.data(), 1, text.size(), stream.get());
    rewind(stream.get());
    Faults faults;
    int error = 0;
    const bool was_read = zebctl::show_log(
        stream.get(), output,
        [&](size_t line, const std::string &fault) { faults.emplace_back(line, fault); }, error);
    EXPECT_TRUE(was_read) << error;
    return faults;
}

// A header whose one record, X1S, has the column a with the given lines about it.
inline std::string small_header(const std::string &lines = "") {
    return "!fil;FileName,X\n!fil;version,zeb2\n!row;colhdr;X1S,X1S;STN;EPOCH;DateTime;a\n"
           "!row;mvc;X1S,X1S;ZZZ;0;9999-99-99T99:99:99Z;9\n"
           "!row;varfmt;X1S,X1S;%s;%u;%04d-%02d-%02dT%02d:%02d:%02dZ;*1.0f\n" +
           lines;
}

// A line of it.
inline std::string small_line(int64_t time, const std::string &value) {
    return "X1S,ABC," + std::to_string(static_cast<uint32_t>(time)) + "," + zebctl::log_time(time) +
           "," + value + "\n";
}

} // namespace zeb::test
