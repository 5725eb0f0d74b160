#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tests/support/log_capture.h"
#include "util/base64.h"
#include "util/byte_cursor.h"
#include "util/digest.h"
#include "util/file.h"
#include "util/file_name.h"
#include "util/strings.h"
#include "util/system.h"

namespace Quill {

using testing::ElementsAre;

TEST(ByteCursor, TakesNothingThatDoesNotFit) {
  const std::vector<uint8_t> bytes = {3, 0, 0, 0, 'a', 'b', 'c', 9, 0, 0, 0, 'd'};
  ByteCursor cursor(bytes);
  ByteCursor field;
  ASSERT_TRUE(cursor.TakeLengthValue(field));
  EXPECT_THAT(field.ToVector(), ElementsAre('a', 'b', 'c'));

  EXPECT_FALSE(cursor.TakeLengthValue(field)) << "nine bytes are announced and one is there";
  uint64_t number;
  EXPECT_FALSE(cursor.TakeU64(number));
  EXPECT_FALSE(cursor.Take(UINT64_MAX, field));
  EXPECT_EQ(5u, cursor.Remaining());
  EXPECT_THAT(field.ToVector(), ElementsAre('a', 'b', 'c')) << "a failed read writes nothing";

  EXPECT_EQ(5u, cursor.TakeAtMost(6).Remaining());
  EXPECT_EQ(0u, cursor.Remaining());
}

TEST(FileName, UnifiesTheFormsOfAnInstalledPackagesPath) {
  const std::string token = "WxYzAbCdEfGhIjKlMnOpQr";
  const struct {
    std::string path, name;
  } kCases[] = {
      {"/data/app/~~AbCdEfGhIjKlMnOpQrStUv==/com.example.app-" + token + "==/base.apk",
       "com.example.app/base.apk"},
      {"/data/app/com.example.app-" + token + "==/base.apk", "com.example.app/base.apk"},
      {"/data/app/com.example.app-" + token + "==/lib/arm64/liba.so",
       "com.example.app/lib/arm64/liba.so"},
      {"/system/app/Foo/Foo.apk", "/system/app/Foo/Foo.apk"},
      {"/data/app/Foo/Foo.apk", "/data/app/Foo/Foo.apk"},
      {"/data/app/0123456789012==/a", "/a"},  // the name would start after its end
      {"/data/app/012345678901==/a", "/data/app/012345678901==/a"},  // too short for a token
      {"/data/app/x-" + token + "==/a", "x/a"},
      {"", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(c.name, GetUnifyFilenameByPath(c.path));
  }
}

TEST(FileName, FollowsTheDescriptor) {
  const int fd = open("/dev/null", O_RDONLY);
  EXPECT_EQ("/dev/null", GetFilenameByFd(fd));
  EXPECT_EQ("/dev/null", GetUnifyFilenameByFd(fd));
  close(fd);
  EXPECT_EQ("", GetFilenameByFd(-1));
}

TEST(File, ReadsWholeFilesAndRefusesWhatHasNoSize) {
  const std::string path = testing::TempDir() + "quillon_read_file";
  std::ofstream(path, std::ios::binary) << std::string("a\0b", 3);
  LogCapture log;
  std::vector<uint8_t> contents = {1};
  EXPECT_TRUE(ReadFile(path, contents));
  EXPECT_THAT(contents, ElementsAre('a', '\0', 'b'));
  EXPECT_EQ(Lines(), log.Take());

  EXPECT_TRUE(ReadFile("/nowhere/at-all").empty());
  EXPECT_EQ(Lines(Error("Can't open file: /nowhere/at-all\n")), log.Take());
  EXPECT_FALSE(ReadFile("/", contents));
  EXPECT_EQ(Lines(Error("Can't read file: / (streamoff=-1)\n")), log.Take());
  EXPECT_THAT(contents, ElementsAre('a', '\0', 'b'));

  EXPECT_EQ(nullptr, OpenFileRO("/nowhere/at-all"));
  std::unique_ptr<MapFile> mapping;
  {
    const auto fd = OpenFileRO(path);
    ASSERT_NE(nullptr, fd);
    EXPECT_EQ(3u, fd->Size());
    mapping = MapFileRO(fd->GetFd());
  }
  ASSERT_NE(nullptr, mapping);
  EXPECT_EQ("a", std::string(reinterpret_cast<const char*>(mapping->Data())));
  EXPECT_EQ(3u, mapping->Size());

  ASSERT_EQ(0, truncate(path.c_str(), 0));
  EXPECT_EQ(nullptr, MapFileRO(OpenFileRO(path)->GetFd())) << "an empty file";
  EXPECT_EQ(nullptr, MapFileRO(-1));
  unlink(path.c_str());
}

TEST(File, DescriptorsCloseOnceAndLeaveErrno) {
  const int fd = open("/dev/null", O_RDONLY);
  errno = ENOTTY;
  { Fd owner(fd); }
  EXPECT_EQ(ENOTTY, errno);
  EXPECT_EQ(-1, fcntl(fd, F_GETFD));
  errno = 0;
  { Fd none(-1); }
  EXPECT_EQ(0, errno);
}

TEST(System, ReadsTheSdkLevel) {
  LogCapture log;
  int level = -1;
  unsetenv("QUILLON_SDK");
  EXPECT_TRUE(GetVersionSDK(level));
  EXPECT_EQ(30, level);
  setenv("QUILLON_SDK", "33", 1);
  EXPECT_TRUE(GetVersionSDK(level));
  EXPECT_EQ(33, level);
  EXPECT_EQ(Lines(), log.Take());
  setenv("QUILLON_SDK", "", 1);
  EXPECT_FALSE(GetVersionSDK(level));
  EXPECT_EQ(33, level);
  EXPECT_EQ(Lines(Error("Can't read property of the current version SDK")), log.Take());
  setenv("QUILLON_SDK", "R", 1);
  EXPECT_THROW(GetVersionSDK(level), std::invalid_argument);
  unsetenv("QUILLON_SDK");

  EXPECT_FALSE(ReadOnlyFS(-1));
  const int writable = open("/dev/shm", O_RDONLY);
  EXPECT_FALSE(ReadOnlyFS(writable));
  close(writable);
}

TEST(Strings, SplitKeepsEmptyPiecesButTheLast) {
  EXPECT_THAT(SplitString("a,,b", ','), ElementsAre("a", "", "b"));
  EXPECT_THAT(SplitString("2, 3,", ','), ElementsAre("2", " 3"));
  EXPECT_THAT(SplitString(",", ','), ElementsAre(""));
  EXPECT_THAT(SplitString("", ','), ElementsAre());
}

TEST(Base64, EncodesAllButTheShortestInputs) {
  const std::pair<std::string, std::string> kCases[] = {
      {"", ""},
      {"a", ""},
      {"ab", ""},
      {"abcd", ""},
      {"abc", "YWJj"},
      {"hello", "aGVsbG8="},
      {"foobar", "Zm9vYmFy"},
      {"foobarx", "Zm9vYmFyeA=="},
      {"\xfb\xff\xfe", "+//+"},
  };
  for (const auto& [bytes, text] : kCases) {
    EXPECT_EQ(text, Base64Encode(bytes));
    EXPECT_EQ(text, Base64Encode(StringToVector(bytes)));
  }
  EXPECT_EQ(1u, base64encode_len(0));
  EXPECT_EQ(5u, base64encode_len(3));
  EXPECT_EQ(9u, base64encode_len(4));

  // Every capacity below the need fails, with the output so far and nothing past it.
  for (size_t capacity = 0; capacity <= 9; ++capacity) {
    char out[10];
    std::memset(out, '!', sizeof out);
    const int result =
        base64encode(reinterpret_cast<const unsigned char*>("hello"), 5, out, capacity);
    EXPECT_EQ(capacity == 9 ? 0 : 1, result);
    EXPECT_EQ(0, std::memcmp(out, "aGVsbG8=", capacity < 8 ? capacity : 8));
    EXPECT_EQ('!', out[capacity]);
  }
}

TEST(Base64, DecodesLeniently) {
  const std::pair<std::string, std::string> kCases[] = {
      {"YWJj", "abc"},
      {"YWJj=!!", "abc"},
      {"YW\r\nJj", "abc"},
      {"YW Jj", ""},
      {"YWJjZ", "abc"},
      {"QQ", "A"},
      {"QQ==", "A"},
      {"QUI", "AB"},
      {"=QQ", ""},
      {"YWJj\x80", ""},
      {"", ""},
      {"+/+/", "\xfb\xff\xbf"},
      {std::string("Y\0WJj", 5), "abc"},
  };
  for (const auto& [text, bytes] : kCases) {
    SCOPED_TRACE(text);
    EXPECT_EQ(StringToVector(bytes), Base64Decode(text));
  }
  // The alphabet, byte by byte: a pair of each character decodes or is refused or skipped.
  size_t accepted = 0;
  for (int c = 0; c < 256; ++c) {
    const char pair[] = {static_cast<char>(c), static_cast<char>(c)};
    unsigned char out[2];
    size_t length = sizeof out;
    if (base64decode(pair, 2, out, &length) == 0 && length == 1) ++accepted;
  }
  EXPECT_EQ(64u, accepted);

  unsigned char out[3];
  size_t length = 2;
  EXPECT_EQ(1, base64decode("YWJj", 4, out, &length));
  EXPECT_EQ(2u, length);
  EXPECT_EQ(0, base64decode("YWI=", 4, out, &length));
  EXPECT_EQ(2u, length);
}

TEST(Digest, FillsEitherForm) {
  std::vector<uint8_t> bytes = StringToVector("abc");
  EXPECT_EQ("qZk+NkcGgWq6PiVxeFDCbJzQ2J0=", Base64Encode(ComputeSHA1Digest(bytes)));
  EXPECT_EQ("ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=",
            Base64Encode(ComputeSHA256Digest(bytes)));
  EXPECT_EQ("kAFQmDzST7DWlj99KOF/cg==", Base64Encode(ComputeMD5Digest(bytes)));
  ComputeSHA1Digest(bytes, bytes);
  EXPECT_EQ("qZk+NkcGgWq6PiVxeFDCbJzQ2J0=", Base64Encode(bytes)) << "in place";
}

}  // namespace Quill
