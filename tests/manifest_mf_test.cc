#include "jar/manifest_mf.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/log_capture.h"

namespace Quill {
namespace {

using Sections = std::vector<ManifestMf::Section>;

Sections Parse(const std::string& text) {
  ManifestMf manifest;
  EXPECT_TRUE(manifest.load(text));
  EXPECT_TRUE(static_cast<bool>(manifest));
  return manifest.getSections();
}

}  // namespace

TEST(ManifestMf, ReadsSections) {
  const std::string nul(1, '\0');
  const struct {
    const char* rule;
    std::string text;
    Sections sections;
  } kCases[] = {
      {"empty", "", {}},
      {"CR LF", "A: 1\r\n\r\n", {{{"A", "1"}}}},
      {"LF", "A: 1\nB: 2\n\nC: 3\n\n", {{{"A", "1"}, {"B", "2"}}, {{"C", "3"}}}},
      {"CR", "A: 1\rB: 2\r\rC: 3\r\r", {{{"A", "1"}, {"B", "2"}}, {{"C", "3"}}}},
      {"LF CR", "A: 1\n\rB: 2\n\r\n\rC: 3\n\r\n\r", {{{"A", "1"}, {"B", "2"}}, {{"C", "3"}}}},
      {"a section without a blank line is dropped", "A: 1\n\nB: 2\n", {{{"A", "1"}}}},
      {"no line break at all", "A: 1", {}},
      {"several blank lines make no sections",
       "\n\n  \nA: 1\n\n\n\r\n\nB: 2\n\n",
       {{{"A", "1"}}, {{"B", "2"}}}},
      {"continuation drops one space", "A: 1\n 2\n  3\n\n", {{{"A", "12 3"}}}},
      {"the later of two values", "A: 1\nA: 2\n\n", {{{"A", "2"}}}},
      {"values keep their spaces and colons", "A:  1: 2 \n\n", {{{"A", " 1: 2 "}}}},
      {"a line without a colon joins the next name",
       "A: 1\nB\nC: 2\n\n",
       {{{"A", "1"}, {"B\nC", "2"}}}},
      {"an empty value is dropped", "A: \nB: 2\n\n", {{{"B", "2"}}}},
      {"a colon and LF eat a character", "A:\nBC: 2\n\n", {{{"C", "2"}}}},
      {"a colon and CR LF do not", "A:\r\nBC: 2\r\n\r\n", {{{"BC", "2"}}}},
      {"a colon, CR LF and a continuation", "A:\r\n 1\r\n\r\n", {{{"A", "1"}}}},
      {"a section may be empty", "A: \n\n", {{}}},
      {"a zero ends a value like a line break",
       "A: 1" + nul + "B: 2\n\n",
       {{{"A", "1"}, {"B", "2"}}}},
  };
  LogCapture log;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.rule);
    EXPECT_EQ(c.sections, Parse(c.text));
  }
  EXPECT_EQ(Lines(), log.Take());
}

TEST(ManifestMf, RefusesBadSyntaxAndKeepsWhatCameBefore) {
  const struct {
    std::string text;
    std::string message;
  } kCases[] = {
      {"A: 1\n\nB:v\n\n", "Parse manifest: Error: P_COLON: unexpected 0x76 after colon: v\n"},
      {"A: 1\n\nB:\xe9\n\n", "Parse manifest: Error: P_COLON: unexpected 0xe9 after colon: \xe9\n"},
      {"A: 1\n\nname", "Parse manifest: Error: P_KEY: unexpected end of file after key 'name'\n"},
      {"A: 1\n\nB: 2\nname\n",
       "Parse manifest: Error: P_KEY: unexpected end of file after key 'name\n'\n"},
      {std::string("A: 1\n\nB\0C: 2\n\n", 14),
       "Parse manifest: Error: P_KEY: unexpected end of file after key 'B'\n"},
  };
  for (const auto& c : kCases) {
    LogCapture log;
    ManifestMf manifest;
    EXPECT_TRUE(manifest.load("Old: 1\n\n"));
    EXPECT_FALSE(manifest.load(c.text));
    EXPECT_FALSE(static_cast<bool>(manifest));
    EXPECT_EQ(Sections({{{"A", "1"}}}), manifest.getSections());
    EXPECT_EQ(Lines(Error(c.message)), log.Take());
  }
  // A colon at the very end: what stands behind it is the end itself. The message then stops there.
  LogCapture log;
  EXPECT_FALSE(ManifestMf().load("A:"));
  EXPECT_EQ(Lines(Error("Parse manifest: Error: P_COLON: unexpected 0x00 after colon: ")),
            log.Take());
}

// Any text is answered, in time that grows with its length, and without a read past its end.
TEST(ManifestMf, TakesEveryShortText) {
  const std::string alphabet("A: \n\r\0", 6);
  LogCapture log;
  for (size_t length = 0; length <= 6; ++length) {
    size_t count = 1;
    for (size_t i = 0; i < length; ++i) count *= alphabet.size();
    for (size_t n = 0; n < count; ++n) {
      std::string text;
      for (size_t rest = n; text.size() < length; rest /= alphabet.size()) {
        text += alphabet[rest % alphabet.size()];
      }
      ManifestMf manifest;
      manifest.load(text);
      EXPECT_LE(manifest.getSections().size(), length);
    }
  }
}

}  // namespace Quill
