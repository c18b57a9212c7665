// Shows how texts get from a buffer into a file or device at an offset, and back.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "config_fixture.hh"
#include "qmibtree.h"
#include "qmibtree_testkit/calls.hh"
#include "qmibtree_testkit/flash.hh"
#include "qmibtree_testkit/heap.hh"

using namespace qmibtree_testkit;

namespace {

// Far more than a stream buffers, so that a short write is seen before the close.
const std::string kLong(200000, 'x');

qmibtree_buff_t buff_of(std::string& text) {
  const auto size = static_cast<uint32_t>(text.size() + 1);
  return {text.data(), text.data(), size, size};
}

uint32_t write_at(std::string text, const std::string& path, int32_t offset) {
  qmibtree_buff_t buff = buff_of(text);
  return qmibtree_buff_dump_to_file(&buff, path.c_str(), offset);
}

uint32_t write_end(std::string text, const std::string& path) {
  qmibtree_buff_t buff = buff_of(text);
  return qmibtree_buff_dump_to_file_end(&buff, path.c_str());
}

std::string zeros(size_t count) { return std::string(count, '\0'); }

// --- what both writers do ---

struct Writer {
  const char* name;
  uint32_t (*write)(qmibtree_buff_t* buff, const char* path);
};

const Writer kWriters[] = {
    {"AtOffset", [](qmibtree_buff_t* buff,
                    const char* path) { return qmibtree_buff_dump_to_file(buff, path, 0); }},
    {"AtEnd", qmibtree_buff_dump_to_file_end},
};

class BuffWriter : public ConfigTest, public ::testing::WithParamInterface<Writer> {
 protected:
  uint32_t write(std::string text, const std::string& path) {
    qmibtree_buff_t buff = buff_of(text);
    return GetParam().write(&buff, path.c_str());
  }
};

INSTANTIATE_TEST_SUITE_P(Both, BuffWriter, ::testing::ValuesIn(kWriters),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_P(BuffWriter, WritesTheTextWithoutItsNul) {
  EXPECT_EQ(write("hello", folder.path("f")), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), "hello");
}

TEST_P(BuffWriter, CutsTheTextAtItsFirstNul) {
  EXPECT_EQ(write(std::string("ab\0cd", 5), folder.path("f")), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), "ab");
}

TEST_P(BuffWriter, WritesALongTextWhole) {
  EXPECT_EQ(write(kLong, folder.path("f")), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), kLong);
}

TEST_P(BuffWriter, KeepsNothingOfWhatARegularFileHeld) {
  folder.write("f", "0123456789");
  EXPECT_EQ(write("ab", folder.path("f")), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), "ab");
}

TEST_P(BuffWriter, EmptyTextLeavesARegularFileEmpty) {
  folder.write("f", "0123456789");
  EXPECT_EQ(write("", folder.path("f")), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), "");
}

TEST_P(BuffWriter, FileInAMissingFolderIsAnError) {
  EXPECT_EQ(write("text", folder.path("missing/f")), QMIBTREE_RC_ERROR);
}

TEST_P(BuffWriter, FolderIsAnError) {
  EXPECT_EQ(write("text", folder.path("")), QMIBTREE_RC_ERROR);
}

TEST_P(BuffWriter, MissingDeviceIsAnErrorAndNotCreated) {
  flash_reset();
  flash_remove(kMain);
  EXPECT_EQ(write("text", kMainDevice), QMIBTREE_RC_ERROR);
  EXPECT_EQ(flash_read(kMain), "(missing)");
  flash_reset();
}

// Deliberate: the stream of a short write is given up, not closed.
TEST_P(BuffWriter, ShortWriteIsAnErrorAndLeavesTheStreamOpen) {
  EXPECT_EQ(write(kLong, "/dev/full"), QMIBTREE_RC_ERROR);
  expect_left_open("/dev/full");
}

// A text that the stream buffers whole falls short only when the stream is closed.
TEST_P(BuffWriter, ShortWriteOfAShortTextIsAnErrorToo) {
  EXPECT_EQ(write("text", "/dev/full"), QMIBTREE_RC_ERROR);
}

TEST_P(BuffWriter, LeavesTheBufferAsItWas) {
  std::string text = "hello";
  qmibtree_buff_t buff = buff_of(text);
  buff.pos = buff.start + 5;
  buff.left = 1;
  EXPECT_EQ(GetParam().write(&buff, folder.path("f").c_str()), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), "hello");  // from the start, wherever `pos` is
  EXPECT_EQ(buff.start, text.data());
  EXPECT_EQ(buff.pos, text.data() + 5);
  EXPECT_EQ(buff.size, 6u);
  EXPECT_EQ(buff.left, 1u);
}

// --- at an offset ---

class BuffDumpToFile : public ConfigTest {
 protected:
  BuffDumpToFile() { flash_reset(); }
};

TEST_F(BuffDumpToFile, OffsetEightLeavesEightZeroBytesBeforeTheText) {
  EXPECT_EQ(write_at("text", folder.path("f"), 8), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), zeros(8) + "text");
}

TEST_F(BuffDumpToFile, WhatARegularFileHeldBeforeTheOffsetIsZeroed) {
  folder.write("f", "0123456789");
  EXPECT_EQ(write_at("ab", folder.path("f"), 4), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), zeros(4) + "ab");
}

TEST_F(BuffDumpToFile, EmptyTextAtAnOffsetLeavesAtMostTheHole) {
  folder.write("f", "0123456789");
  EXPECT_EQ(write_at("", folder.path("f"), 8), QMIBTREE_RC_OK);
  EXPECT_EQ(folder.read("f"), zeros(folder.read("f").size()));
  EXPECT_LE(folder.read("f").size(), 8u);
}

TEST_F(BuffDumpToFile, NegativeOffsetIsAnError) {
  EXPECT_EQ(write_at("text", folder.path("f"), -1), QMIBTREE_RC_ERROR);
  EXPECT_EQ(folder.read("f"), "");
}

TEST_F(BuffDumpToFile, PipeIsAnErrorForItCannotBePositioned) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(write_at("no", "/proc/self/fd/" + std::to_string(ends[1]), 0), QMIBTREE_RC_ERROR);
  close(ends[1]);
  char byte;
  EXPECT_EQ(::read(ends[0], &byte, 1), 0);
  close(ends[0]);
}

TEST_F(BuffDumpToFile, DeviceKeepsItsOtherBytes) {
  std::string bytes(65536, 'o');
  flash_write(kMain, bytes);
  EXPECT_EQ(write_at("text", kMainDevice, 8), QMIBTREE_RC_OK);
  EXPECT_EQ(flash_read(kMain), bytes.replace(8, 4, "text"));
}

TEST_F(BuffDumpToFile, EmptyTextLeavesADeviceAsItWas) {
  EXPECT_EQ(write_at("", kMainDevice, 8), QMIBTREE_RC_OK);
  EXPECT_EQ(flash_read(kMain), std::string(65536, '\xff'));
}

TEST_F(BuffDumpToFile, DeviceTooShortForTheTextIsAnErrorAndStaysOpen) {
  flash_resize(kMain, 50000);
  EXPECT_EQ(write_at(kLong, kMainDevice, 8), QMIBTREE_RC_ERROR);
  EXPECT_EQ(flash_read(kMain).size(), 50000u);
  expect_left_open(flash_path(kMain));
}

// --- at the end ---

class BuffDumpToFileEnd : public BuffDumpToFile {};

TEST_F(BuffDumpToFileEnd, NothingFitsBehindTheEndOfADevice) {
  EXPECT_EQ(write_end(kLong, kMainDevice), QMIBTREE_RC_ERROR);
  EXPECT_EQ(flash_read(kMain), std::string(65536, '\xff'));
  expect_left_open(flash_path(kMain));
}

// --- from a file ---

class BuffCreateFromFile : public ConfigTest {
 protected:
  ~BuffCreateFromFile() override { qfree(buff); }

  // The text area with its NUL: what `size` counts.
  std::string area() const { return {buff->start, buff->size}; }

  std::string numbered(size_t size) {
    std::string bytes;
    for (size_t i = 0; i < size; ++i) bytes += static_cast<char>('!' + i % 90);
    return bytes;
  }

  qmibtree_buff_t* create(const std::string& path, int32_t offset, uint32_t length) {
    return buff = qmibtree_buff_create_from_file(path.c_str(), offset, length);
  }

  qmibtree_buff_t* buff = nullptr;
};

TEST_F(BuffCreateFromFile, LengthZeroReadsFromTheOffsetToTheEnd) {
  const std::string bytes = numbered(108);
  ASSERT_NE(create(folder.write("f", bytes), 8, 0), nullptr);
  EXPECT_EQ(buff->size, 101u);
  EXPECT_EQ(buff->left, 100u);
  EXPECT_EQ(area(), bytes.substr(8) + zeros(1));
}

TEST_F(BuffCreateFromFile, LengthIsReadExactlyThoughTheFileIsLonger) {
  const std::string bytes = numbered(108);
  ASSERT_NE(create(folder.write("f", bytes), 8, 50), nullptr);
  EXPECT_EQ(buff->size, 51u);
  EXPECT_EQ(buff->left, 50u);
  EXPECT_EQ(area(), bytes.substr(8, 50) + zeros(1));
}

TEST_F(BuffCreateFromFile, NulInsideEndsTheTextButNotTheReading) {
  const std::string bytes("abc\0def", 7);
  ASSERT_NE(create(folder.write("f", bytes), 0, 7), nullptr);
  EXPECT_STREQ(buff->start, "abc");
  EXPECT_EQ(area(), bytes + zeros(1));
}

TEST_F(BuffCreateFromFile, NothingIsConsumedAndTheTextFollowsTheRecord) {
  ASSERT_NE(create(folder.write("f", "text"), 0, 0), nullptr);
  EXPECT_EQ(buff->start, reinterpret_cast<char*>(buff + 1));
  EXPECT_EQ(buff->pos, buff->start);
}

TEST_F(BuffCreateFromFile, TakesOneBlock) {
  ASSERT_NE(create(folder.write("f", "text"), 0, 0), nullptr);
  EXPECT_EQ(allocation_tags(), std::vector<std::string>{"mibtree buffer"});
}

TEST_F(BuffCreateFromFile, ShortReadIsFilledWithZeros) {
  ASSERT_NE(create(folder.write("f", "0123456789"), 6, 20), nullptr);
  EXPECT_EQ(buff->size, 21u);
  EXPECT_EQ(buff->left, 20u);
  EXPECT_EQ(area(), "6789" + zeros(17));
}

TEST_F(BuffCreateFromFile, LengthPastTheEndGivesOnlyZeros) {
  ASSERT_NE(create(folder.write("f", "0123"), 10, 5), nullptr);
  EXPECT_EQ(area(), zeros(6));
}

TEST_F(BuffCreateFromFile, FailedReadIsNotReported) {
  ASSERT_NE(create(folder.path(""), 0, 5), nullptr);  // a folder opens, but cannot be read
  EXPECT_EQ(area(), zeros(6));
}

TEST_F(BuffCreateFromFile, OffsetAtTheEndGivesTheEmptyText) {
  ASSERT_NE(create(folder.write("f", "0123"), 4, 0), nullptr);
  EXPECT_EQ(buff->size, 1u);
  EXPECT_EQ(buff->left, 0u);
  EXPECT_EQ(area(), zeros(1));
}

TEST_F(BuffCreateFromFile, OffsetPastTheEndGivesNull) {
  EXPECT_EQ(create(folder.write("f", "0123"), 5, 0), nullptr);
}

TEST_F(BuffCreateFromFile, OffsetBeforeTheStartGivesNull) {
  EXPECT_EQ(create(folder.write("f", "0123"), -1, 0), nullptr);
  EXPECT_EQ(create(folder.write("f", "0123"), INT32_MIN, 0), nullptr);
}

TEST_F(BuffCreateFromFile, OffsetBeforeTheStartGivesOnlyZerosOfALengthGiven) {
  ASSERT_NE(create(folder.write("f", "0123"), -1, 5), nullptr);
  EXPECT_EQ(area(), zeros(6));
}

TEST_F(BuffCreateFromFile, FileWhoseEndIsNotFoundGivesNull) {
  const std::string path = folder.write("f", "0123");
  fail_call("fseek", 0);
  EXPECT_EQ(create(path, 0, 0), nullptr);
  EXPECT_TRUE(calls_work());
}

TEST_F(BuffCreateFromFile, PipeGivesNullOrOnlyZerosOfALengthGiven) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(::write(ends[1], "bytes", 5), 5);
  const std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
  EXPECT_EQ(create(path, 0, 0), nullptr);
  ASSERT_NE(create(path, 0, 5), nullptr);
  EXPECT_EQ(area(), zeros(6));
  close(ends[0]);
  close(ends[1]);
}

TEST_F(BuffCreateFromFile, MissingFileGivesNull) {
  EXPECT_EQ(create(folder.path("missing"), 0, 0), nullptr);
}

TEST_F(BuffCreateFromFile, ExhaustedMemoryGivesNullAndClosesTheFile) {
  const std::string path = folder.write("f", "text");
  fail_allocation_after(0);
  EXPECT_EQ(create(path, 0, 0), nullptr);
  EXPECT_TRUE(allocations_work());
}

TEST_F(BuffCreateFromFile, FileTooLargeForABufferGivesNull) {
  const std::string path = folder.write("f", "text");
  std::filesystem::resize_file(path, (1ull << 32) + 4);  // a hole: takes no room
  EXPECT_EQ(create(path, 0, 0), nullptr);
}

TEST_F(BuffCreateFromFile, LengthTooLargeForABufferGivesNull) {
  EXPECT_EQ(create(folder.write("f", "text"), 0, UINT32_MAX), nullptr);
}

// The largest is of no use on a 32-bit target, whose `long` it does not fit.
TEST_F(BuffCreateFromFile, LengthThatJustFitsABufferIsAskedOfTheAllocator) {
  const std::string path = folder.write("f", "text");
  const uint32_t largest = UINT32_MAX - sizeof(qmibtree_buff_t) - 1;
  fail_allocation_after(0);
  EXPECT_EQ(create(path, 0, largest), nullptr);
  EXPECT_EQ(allocations_work(), sizeof(long) > 4);
  fail_allocation_after(0);
  EXPECT_EQ(create(path, 0, largest + 1), nullptr);
  EXPECT_FALSE(allocations_work());
}

TEST_F(BuffCreateFromFile, ReadsADeviceAtAnOffset) {
  flash_reset();
  flash_poke(kMain, 8, "text");
  ASSERT_NE(create(kMainDevice, 8, 5), nullptr);
  EXPECT_EQ(area(), "text\xff" + zeros(1));
}

TEST_F(BuffCreateFromFile, LengthZeroReadsADeviceToItsEnd) {
  flash_reset();
  ASSERT_NE(create(kMainDevice, 8, 0), nullptr);
  EXPECT_EQ(buff->left, 65528u);
}

}  // namespace
