// Recordings and streams of frames, whole, cut and damaged.

#include "byte_window.h"
#include "frame_reader.h"
#include "packets.h"
#include "recording.h"
#include "recording_file.h"
#include "support.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <zeb2/crc16.h>

using namespace zeb::test;
using namespace zebctl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

// Bytes in pieces of a given size.
ByteSource source_of(const std::string &bytes, size_t piece = SIZE_MAX) {
    auto at = std::make_shared<size_t>(0);
    return [bytes, piece, at](char *to, size_t size) -> ssize_t {
        const size_t count = std::min({size, piece, bytes.size() - *at});
        memcpy(to, bytes.data() + *at, count);
        *at += count;
        return static_cast<ssize_t>(count);
    };
}

std::string flush_of(const std::string &source) {
    return framed(packed(1, "MSG_LOG_FLUSH", "", source));
}

struct Read {
    bool is_recording = false;
    std::vector<std::string> frames;
    std::vector<double> times;
    std::vector<uint64_t> offsets;
    std::vector<std::string> faults; // "OFFSET: what"
};

Read read_recording(const std::string &bytes, size_t piece = SIZE_MAX) {
    Read result;
    ByteWindow window(source_of(bytes, piece));
    RecordingReader reader(window, [&](uint64_t offset, const std::string &what) {
        result.faults.push_back(std::to_string(offset) + ": " + what);
    });
    result.is_recording = reader.open();
    RecordingEntry entry;
    while (result.is_recording && reader.next(entry)) {
        result.frames.emplace_back(entry.frame);
        result.times.push_back(entry.time);
        result.offsets.push_back(entry.offset);
    }
    return result;
}

Read read_frames(const std::string &bytes, size_t piece = SIZE_MAX) {
    Read result;
    ByteWindow window(source_of(bytes, piece));
    FrameReader reader(window, [&](uint64_t offset, const std::string &what) {
        result.faults.push_back(std::to_string(offset) + ": " + what);
    });
    uint64_t offset;
    std::string_view frame;
    while (reader.next(offset, frame)) {
        result.frames.emplace_back(frame);
        result.offsets.push_back(offset);
    }
    return result;
}

class Recording : public ::testing::Test {
  protected:
    Recording() {
        CRC16_inittable();
        for (const char *source : {"a", "bb", "ccc"}) {
            frames_.push_back(flush_of(source));
            std::string one;
            append_entry(one, static_cast<double>(frames_.size()), frames_.back());
            entries_.push_back(one);
        }
        whole_ = std::string(k_recording_line) + entries_[0] + entries_[1] + entries_[2];
    }
    size_t begin_of(size_t entry) const {
        size_t at = k_recording_line.size();
        for (size_t i = 0; i < entry; ++i)
            at += entries_[i].size();
        return at;
    }
    std::vector<std::string> frames_, entries_;
    std::string whole_;
};

} // namespace

TEST_F(Recording, IsLaidOutAsDocumented) {
    const Bytes bytes = load_hex("flush.recording.hex");
    std::string made(k_recording_line);
    append_entry(made, 1044100800.5, flush_of("a"));
    EXPECT_EQ(made, std::string(bytes.begin(), bytes.end()));
}

TEST_F(Recording, GivesBackTimesAndFramesInPiecesOfAnySize) {
    for (const size_t piece : {size_t{1}, size_t{7}, SIZE_MAX}) {
        const Read read = read_recording(whole_, piece);
        EXPECT_EQ(read.frames, frames_);
        EXPECT_THAT(read.times, ElementsAre(1, 2, 3));
        EXPECT_THAT(read.faults, IsEmpty());
    }
}

TEST_F(Recording, CutAnywhereLosesOnlyTheTornEntry) {
    for (size_t size = 0; size < whole_.size(); ++size) {
        const Read read = read_recording(whole_.substr(0, size));
        EXPECT_EQ(read.is_recording, size >= k_recording_line.size()) << size;
        if (!read.is_recording)
            continue;
        size_t whole = 0;
        while (whole < 3 && begin_of(whole + 1) <= size)
            ++whole;
        EXPECT_EQ(read.frames.size(), whole) << size;
        if (size == begin_of(whole))
            EXPECT_THAT(read.faults, IsEmpty()) << size;
        else
            EXPECT_THAT(read.faults,
                        ElementsAre(std::to_string(begin_of(whole)) + ": a torn entry"))
                << size;
    }
}

TEST_F(Recording, CutAnywhereAndGoneOnWithLosesOnlyTheTornEntry) {
    for (size_t size = begin_of(1); size < begin_of(2); ++size) {
        const Read read = read_recording(whole_.substr(0, size) + entries_[2]);
        EXPECT_THAT(read.frames, ElementsAre(frames_[0], frames_[2])) << size;
        EXPECT_EQ(read.faults.size(), size == begin_of(1) ? 0u : 1u) << size;
    }
}

TEST_F(Recording, AChangedByteAnywhereLosesOnlyItsEntry) {
    for (size_t at = begin_of(1); at < begin_of(2); ++at) {
        std::string bytes = whole_;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x10);
        const Read read = read_recording(bytes);
        EXPECT_THAT(read.frames, ElementsAre(frames_[0], frames_[2])) << at;
        ASSERT_EQ(read.faults.size(), 1u) << at;
        EXPECT_THAT(read.faults[0], HasSubstr(std::to_string(begin_of(1)) + ": ")) << at;
    }
}

TEST_F(Recording, ForeignBytesAreNamedWithTheirPlaceAndLength) {
    const Read read =
        read_recording(std::string(k_recording_line) + entries_[0] + "noise" + entries_[1]);
    EXPECT_THAT(read.frames, ElementsAre(frames_[0], frames_[1]));
    EXPECT_THAT(read.faults,
                ElementsAre(std::to_string(begin_of(1)) + ": 5 bytes that belong to no entry"));
}

TEST_F(Recording, AnotherFileIsNone) {
    EXPECT_FALSE(read_recording("ZEB2 recording 2\n" + entries_[0]).is_recording);
    EXPECT_FALSE(read_recording("").is_recording);
}

TEST_F(Recording, FalseEntriesCannotHoldAReaderUp) {
    // Each announces the longest frame; checked one by one they would cost 70,000 times a megabyte.
    std::string bytes(k_recording_line);
    std::string false_entry = entries_[0].substr(0, k_entry_header);
    const size_t longest = 0xFFFFF + 9;
    false_entry.replace(6, 4, u32(longest));
    false_entry += std::string("2BEZ\x01\x01", 6) + u32(longest - 10);
    while (bytes.size() < 2 * 1024 * 1024)
        bytes += false_entry;
    EXPECT_THAT(read_recording(bytes).frames, IsEmpty());
}

TEST_F(Recording, AFileIsBegunGoneOnWithAndNeverReplacedUnasked) {
    using Mode = RecordingFile::Mode;
    TempDir dir;
    const std::string path = dir / "traffic.zrec";
    for (const Mode mode : {Mode::fresh, Mode::append}) {
        RecordingFile file;
        ASSERT_TRUE(file.open(path, mode));
        ASSERT_TRUE(file.write(entries_[mode == Mode::fresh ? 0 : 1]));
    }
    EXPECT_EQ(read_file(path), std::string(k_recording_line) + entries_[0] + entries_[1]);
    StderrCapture errors;
    EXPECT_FALSE(RecordingFile().open(path, Mode::fresh));
    EXPECT_THAT(errors.text(), HasSubstr("--append"));
    EXPECT_TRUE(RecordingFile().open(path, Mode::replace));
    EXPECT_EQ(read_file(path), k_recording_line);
}

TEST_F(Recording, AFileCutInItsFirstLineBeginsAnewAndAnotherFileIsLeftAlone) {
    TempDir dir;
    write_file(dir / "cut", "ZEB2 rec");
    EXPECT_TRUE(RecordingFile().open(dir / "cut", RecordingFile::Mode::append));
    EXPECT_EQ(read_file(dir / "cut"), k_recording_line);
    write_file(dir / "other", "ZEB2, a text");
    StderrCapture errors;
    EXPECT_FALSE(RecordingFile().open(dir / "other", RecordingFile::Mode::append));
    EXPECT_EQ(read_file(dir / "other"), "ZEB2, a text");
    EXPECT_FALSE(RecordingFile().open(dir / "no/such/place", RecordingFile::Mode::append));
}

TEST(Frames, AreCutWithTheirPlacesInPiecesOfAnySize) {
    const std::string a = flush_of("a"), b = flush_of("bb");
    for (const size_t piece : {size_t{1}, SIZE_MAX}) {
        const Read read = read_frames(a + "noise 2BE" + b, piece);
        EXPECT_THAT(read.frames, ElementsAre(a, b));
        EXPECT_THAT(read.offsets, ElementsAre(0, a.size() + 9));
        EXPECT_THAT(read.faults,
                    ElementsAre(std::to_string(a.size()) + ": 9 bytes that belong to no frame"));
    }
}

TEST(Frames, AFrameCutShortDoesNotSwallowTheNext) {
    const std::string a = flush_of("a"), b = flush_of("bb"), c = flush_of("ccc");
    for (size_t size = 10; size < a.size(); ++size) {
        const Read read = read_frames(a.substr(0, size) + b + c);
        EXPECT_THAT(read.frames, ElementsAre(b, c)) << size;
        EXPECT_THAT(read.faults, ElementsAre("0: a torn frame")) << size;
    }
}

TEST(Frames, TheLastMayBeCutAnywhere) {
    const std::string a = flush_of("a"), b = flush_of("bb");
    for (size_t size = 1; size < b.size(); ++size) {
        const Read read = read_frames(a + b.substr(0, size));
        EXPECT_THAT(read.frames, ElementsAre(a)) << size;
        EXPECT_THAT(read.faults, ElementsAre(std::to_string(a.size()) + ": a torn frame")) << size;
    }
}

TEST(Frames, AnOversizedHeaderIsNone) {
    const std::string a = flush_of("a");
    const Read read = read_frames(std::string("2BEZ\x01\x01", 6) + u32(0xFFFFF) + a);
    EXPECT_THAT(read.frames, ElementsAre(a));
    EXPECT_THAT(read.faults, ElementsAre("0: 10 bytes that belong to no frame"));
}
