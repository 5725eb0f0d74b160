// SPDX-License-Identifier: Apache-2.0

#include "cli/diff_text.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/output.h"
#include "util/escape.h"

namespace Quill::Tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kMostTexts = 10;    // shown of one list of facts
constexpr size_t kMostEntries = 40;  // shown of one kind of change

// What each kind of change is called: in the first line, and before an entry.
struct ChangeName {
  const char* change;
  const char* summary;
  const char* label;
};
constexpr ChangeName kChanges[] = {{"content", "changed", "changed"},
                                   {"added", "added", "added"},
                                   {"removed", "removed", "removed"},
                                   {"stored", "stored differently", "stored"}};

std::string SignerText(const Json& diff) {
  const std::string signer = diff.at("signer");
  if (signer == "same") {
    return diff.at("signing").empty() ? "same signer" : "same signer, signed differently";
  }
  if (signer == "rotated") return "continued by rotation";
  if (signer == "rolled-back") return "signer rolled back";
  return signer == "another" ? "another signer" : "signer unknown";
}

// Such as "2 entries changed, 1 added".
std::string CountsText(const Json& counts) {
  std::vector<std::string> texts;
  for (const ChangeName& name : kChanges) {
    const size_t count = counts.at(name.change);
    if (count == 0) continue;
    const char* unit = !texts.empty() ? "" : count == 1 ? " entry" : " entries";
    texts.push_back(fmt::format("{}{} {}", count, unit, name.summary));
  }
  return fmt::format("{}", fmt::join(texts, ", "));
}

std::string ContentText(const Json& diff) {
  const std::string same = diff.at("sameContent");
  if (diff.at("identical")) return "identical files";
  if (same == "bytes") return "same content, byte for byte";
  const std::string counts = CountsText(diff.at("counts"));
  const char* where =
      counts.empty() ? "same entries, other bytes around them" : "same entries in another place";
  const std::string text = same == "no"        ? "content differs"
                           : same == "entries" ? where
                                               : "same contents";
  return counts.empty() ? text : text + ": " + counts;
}

[[nodiscard]] bool PrintRow(const std::string& label, const std::string& text) {
  return PrintLine(fmt::format("  {:<14}{}", label, text));
}

// Prints what a package has of one list of facts.
[[nodiscard]] bool PrintFacts(const std::string& label, const char* side, const Json& texts) {
  std::string row = label;
  size_t shown = 0;
  for (const Json& text : texts) {
    if (shown++ == kMostTexts) break;
    if (!PrintRow(row, fmt::format("{}  {}", side, text.get<std::string>()))) return false;
    row.clear();
    side = " ";
  }
  if (texts.size() > kMostTexts) {
    return PrintRow("", fmt::format("   and {} more", texts.size() - kMostTexts));
  }
  return !texts.empty() || PrintRow(row, std::string(side) + "  none");
}

std::string SizeText(uint64_t size) { return fmt::format("{} byte{}", size, size == 1 ? "" : "s"); }

std::string EntryText(const Json& entry) {
  std::string text = Quote(entry.at("name").get<std::string>());
  const Json& a = entry.at("a");
  const Json& b = entry.at("b");
  const auto size = [](const Json& side) { return side.at("size").get<uint64_t>(); };
  if (entry.at("change") == "content" && a.is_object() && b.is_object()) {
    text += fmt::format(", {} -> {}", size(a), SizeText(size(b)));
  } else if (entry.at("change") != "stored" && (a.is_object() || b.is_object())) {
    text += ", " + SizeText(size(a.is_object() ? a : b));
  }
  const std::vector<std::string> ways = entry.at("how");
  return ways.empty() ? text : fmt::format("{}, {}", text, fmt::join(ways, ", "));
}

[[nodiscard]] bool PrintEntries(const Json& diff, const ChangeName& name) {
  size_t shown = 0;
  for (const Json& entry : diff.at("entries")) {
    if (entry.at("change") != name.change) continue;
    if (shown++ == kMostEntries) break;
    if (!PrintRow(name.label, EntryText(entry))) return false;
  }
  const size_t count = diff.at("counts").at(name.change);
  return count <= kMostEntries ||
         PrintRow(name.label, fmt::format("and {} more, which --json shows", count - kMostEntries));
}

}  // namespace

bool PrintDiff(const Json& diff) {
  if (!PrintLine(SignerText(diff) + ", " + ContentText(diff))) return false;
  std::vector<std::string> names = diff.at("signing");
  if (diff.at("signer") == "unknown" && (names.empty() || names.front() != "verdict")) {
    names.insert(names.begin(), "verdict");
  }
  for (const std::string& name : names) {
    if (!PrintFacts(name, "A", diff.at("a").at("signing").at(name)) ||
        !PrintFacts("", "B", diff.at("b").at("signing").at(name))) {
      return false;
    }
  }
  for (const ChangeName& name : kChanges) {
    if (!PrintEntries(diff, name)) return false;
  }
  for (const Json& part : diff.at("archive")) {
    if (!PrintRow("archive",
                  part == "comment"
                      ? "another comment"
                      : "other bytes outside of the entries, or another order of them")) {
      return false;
    }
  }
  return true;
}

}  // namespace Quill::Tool
