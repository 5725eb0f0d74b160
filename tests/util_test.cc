// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>

#include <quillon/base64.h>
#include <quillon/file_name.h>
#include <quillon/strings.h>

#include "tests/support/log_capture.h"
#include "tests/support/table.h"
#include "tests/support/temp_file.h"

namespace Quill {

TEST(FileName, UnifiesTheFormsOfAnInstalledPackagesPath) {
  for (const Row& row : ReadTable("file_names.txt")) {
    EXPECT_EQ(row.fields[1], GetUnifyFilenameByPath(row.fields[0]));
  }
  EXPECT_EQ("", GetUnifyFilenameByPath(""));
  EXPECT_EQ("/dev/null", GetUnifyFilenameByFd(OpenFileRO("/dev/null")->GetFd()));
  EXPECT_EQ("", GetFilenameByFd(-1));
}

TEST(File, ReadsWholeFilesAndRefusesWhatHasNoSize) {
  const TempFolder folder;
  const ByteVector bytes = {'a', '\0', 'b'};
  const std::string path = folder.Write("file", bytes);
  LogCapture log;
  ByteVector contents = {1};
  EXPECT_FALSE(ReadFile("/", contents));
  EXPECT_EQ(ByteVector{1}, contents);
  EXPECT_TRUE(ReadFile(path, contents));
  EXPECT_EQ(bytes, contents);
  EXPECT_TRUE(ReadFile("/nowhere/at-all").empty());
  EXPECT_EQ(
      "E Can't read file: / (streamoff=-1)\n"
      "E Can't open file: /nowhere/at-all\n",
      log.Take());
  const auto mapping = MapFileRO(OpenFileRO(path)->GetFd());
  EXPECT_EQ(bytes, ByteVector(mapping->Data(), mapping->Data() + mapping->Size()));
  EXPECT_EQ(nullptr, MapFileRO(MemoryFile({}).GetFd()));
}

TEST(File, DescriptorsCloseOnceAndLeaveErrno) {
  const int fd = open("/dev/null", O_RDONLY);
  const int closed = dup(fd);
  close(closed);
  errno = ENOTTY;
  { const Fd owner(fd), alreadyClosed(closed); }
  EXPECT_EQ(ENOTTY, errno);
  EXPECT_EQ(-1, fcntl(fd, F_GETFD));
}

TEST(Base64, EncodesAndDecodes) {
  for (const Row& row : ReadTable("base64.txt")) {
    const ByteVector input = Bytes(row.fields[1]), output = Bytes(row.fields[2]);
    const std::string text(input.begin(), input.end());
    const bool isEncode = row.fields[0] == "encode";
    EXPECT_EQ(output, isEncode ? StringToVector(Base64Encode(text)) : Base64Decode(text))
        << row.text;
  }
}

TEST(Base64, StaysWithinTheOutput) {
  // Every capacity below the need fails, with the output so far and nothing past it.
  for (size_t capacity = 0; capacity <= 9; ++capacity) {
    std::string out(10, '!');
    const auto* in = reinterpret_cast<const unsigned char*>("hello");
    EXPECT_EQ(capacity == 9 ? 0 : 1, base64encode(in, 5, out.data(), capacity));
    EXPECT_EQ(std::string("aGVsbG8=\0", 9).substr(0, capacity) + std::string(10 - capacity, '!'),
              out);
  }
  unsigned char bytes[3];
  size_t length = 2;
  EXPECT_EQ(1, base64decode("YWJj", 4, bytes, &length));
  EXPECT_EQ(0, base64decode("YWI=", 4, bytes, &length));
  EXPECT_EQ(2u, length);
}

}  // namespace Quill
