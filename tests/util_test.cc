// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include <quillon/base64.h>
#include <quillon/file_name.h>
#include <quillon/strings.h>

#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"

namespace Quill {

TEST(FileName, UnifiesTheFormsOfAnInstalledPackagesPath) {
  const std::string token = "WxYzAbCdEfGhIjKlMnOpQr==";
  const std::pair<std::string, std::string> kCases[] = {
      {"/data/app/~~AbCdEfGhIjKlMnOpQrStUv==/com.x-" + token + "/base.apk", "com.x/base.apk"},
      {"/data/app/com.x-" + token + "/lib/arm64/liba.so", "com.x/lib/arm64/liba.so"},
      {"/system/app/x-" + token + "/x.apk", "/system/app/x-" + token + "/x.apk"},
      {"/data/app/Foo/Foo.apk", "/data/app/Foo/Foo.apk"},
      {"/data/app/0123456789012==/a", "/a"},  // the name would start after its end
      {"/data/app/012345678901==/a", "/data/app/012345678901==/a"},  // too short for a token
      {"", ""},
  };
  for (const auto& [path, name] : kCases) EXPECT_EQ(name, GetUnifyFilenameByPath(path));
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

TEST(Base64, EncodesAllButTheShortestInputs) {
  const std::map<std::string, std::string> kTexts = {{"", ""},
                                                     {"ab", ""},
                                                     {"abcd", ""},
                                                     {"abc", "YWJj"},
                                                     {"foobarx", "Zm9vYmFyeA=="},
                                                     {"hello", "aGVsbG8="},
                                                     {"\xfb\xff\xfe", "+//+"},
                                                     {"abcde", "YWJjZGU="}};
  for (const auto& [bytes, text] : kTexts) EXPECT_EQ(text, Base64Encode(bytes));
  // Every capacity below the need fails, with the output so far and nothing past it.
  for (size_t capacity = 0; capacity <= 9; ++capacity) {
    std::string out(10, '!');
    const auto* in = reinterpret_cast<const unsigned char*>("hello");
    EXPECT_EQ(capacity == 9 ? 0 : 1, base64encode(in, 5, out.data(), capacity));
    EXPECT_EQ(std::string("aGVsbG8=\0", 9).substr(0, capacity) + std::string(10 - capacity, '!'),
              out);
  }
}

TEST(Base64, DecodesLeniently) {
  const std::map<std::string, std::string> kBytes = {
      {"YWJj=!!", "abc"}, {"YW\r\nJj", "abc"}, {"YW Jj", ""}, {"YWJjZ", "abc"}, {"QQ", "A"},
      {"QQ==", "A"},      {"QUI", "AB"},       {"=QQ", ""},   {"YWJj\x80", ""}, {"YWJ", "ab"}};
  for (const auto& [text, bytes] : kBytes) {
    EXPECT_EQ(StringToVector(bytes), Base64Decode(text)) << text;
  }
  EXPECT_EQ(StringToVector("\xfb\xff\xbf"), Base64Decode("+/+/"));
  EXPECT_EQ(StringToVector("abc"), Base64Decode(std::string("Y\0WJj", 5)));
  unsigned char out[3];
  size_t length = 2;
  EXPECT_EQ(1, base64decode("YWJj", 4, out, &length));
  EXPECT_EQ(0, base64decode("YWI=", 4, out, &length));
  EXPECT_EQ(2u, length);
}

}  // namespace Quill
