// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>

#include "cli/inspection.h"
#include "util/escape.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Anatomy::Checked;
using Anatomy::Field;
using Anatomy::How;

constexpr size_t kMostChildren = 40;  // shown of one field
constexpr uint64_t kMostHex = 4096;   // bytes
constexpr uint64_t kColumns = 76;     // of the bar
constexpr size_t kMostValue = 72;     // characters

// The letters of the bar, the strongest first.
struct Layer {
  How how;
  Checked checked;
  char letter;
  const char* text;
};
constexpr Layer kLayers[] = {
    {How::kContentDigest, Checked::kFailed, 'X', "content digest, failed"},
    {How::kSignedData, Checked::kFailed, 'X', "signed data, failed"},
    {How::kNamed, Checked::kFailed, 'X', "named in the manifest, failed"},
    {How::kStructure, Checked::kFailed, 'X', "structure, failed"},
    {How::kContentDigest, Checked::kVerified, 'C', "content digest, verified"},
    {How::kSignedData, Checked::kVerified, 'S', "signed data, verified"},
    {How::kNamed, Checked::kVerified, 'N', "named in the manifest, verified"},
    {How::kStructure, Checked::kVerified, 'T', "structure, verified"},
    {How::kContentDigest, Checked::kNotLookedAt, 'c', "content digest, not looked at"},
    {How::kSignedData, Checked::kNotLookedAt, 's', "signed data, not looked at"},
    {How::kNamed, Checked::kNotLookedAt, 'n', "named in the manifest, not looked at"},
    {How::kStructure, Checked::kNotLookedAt, 't', "structure, not looked at"},
    {How::kNone, Checked::kNotLookedAt, '.', "nothing covers it"},
};

// Which layer each byte is in: the first of kLayers that covers it.
class Bar {
 public:
  explicit Bar(const Inspection& inspection) : size_(inspection.package.file.size) {
    for (const Layer& layer : kLayers) {
      for (const Anatomy::Coverage& one : inspection.coverage) {
        if (one.how != layer.how || one.checked != layer.checked) continue;
        for (const Anatomy::ByteRange& range : one.ranges) Paint(range, &layer);
      }
    }
  }

  // One letter for each column: of the layer that most of its bytes are in.
  std::string Line() const {
    const uint64_t columns = std::min(kColumns, size_);
    std::string line;
    auto part = parts_.begin();
    for (uint64_t i = 0; i < columns; ++i) {
      const uint64_t begin = Column(i, columns);
      const uint64_t end = Column(i + 1, columns);
      std::map<const Layer*, uint64_t> counts;
      while (part != parts_.end() && part->second.end <= begin) ++part;
      for (auto next = part; next != parts_.end() && next->first < end; ++next) {
        counts[next->second.layer] +=
            std::min(end, next->second.end) - std::max(begin, next->first);
      }
      const auto most = std::max_element(
          counts.begin(), counts.end(),
          [](const auto& left, const auto& right) { return left.second < right.second; });
      line += most == counts.end() ? '.' : most->first->letter;
    }
    return line;
  }

  // How many bytes are in each layer.
  std::map<const Layer*, uint64_t> Sizes() const {
    std::map<const Layer*, uint64_t> sizes;
    for (const auto& [begin, part] : parts_) sizes[part.layer] += part.end - begin;
    return sizes;
  }

 private:
  struct Part {
    uint64_t end;
    const Layer* layer;
  };

  // Without overflow for any size of a file.
  uint64_t Column(uint64_t i, uint64_t columns) const {
    return size_ / columns * i + size_ % columns * i / columns;
  }

  // Paints what is not painted yet.
  void Paint(const Anatomy::ByteRange& range, const Layer* layer) {
    uint64_t begin = range.offset;
    const uint64_t end = range.offset + range.size;
    auto next = parts_.upper_bound(begin);
    if (next != parts_.begin()) begin = std::max(begin, std::prev(next)->second.end);
    while (begin < end) {
      const uint64_t stop = next == parts_.end() ? end : std::min(end, next->first);
      if (begin < stop) parts_.emplace_hint(next, begin, Part{stop, layer});
      if (next == parts_.end()) return;
      begin = std::max(begin, next->second.end);
      ++next;
    }
  }

  uint64_t size_;
  std::map<uint64_t, Part> parts_;  // by their begin; they do not overlap
};

class TextWriter {
 public:
  TextWriter(const Inspection& inspection, const Sink& sink)
      : inspection_(inspection), package_(inspection.package), sink_(sink) {}

  void WriteAll() {
    // Those that the verifier goes by have numbers, and come first.
    for (const Anatomy::SignerFacts& signer : inspection_.signers) {
      if (signer.isChosen) WriteSigner(signer);
    }
    for (const Anatomy::SignerFacts& signer : inspection_.signers) {
      if (!signer.isChosen) WriteOther(signer);
    }
    WriteCoverage();
    Line("");
    Line("    offset       size  field");
    WriteField(package_.file, package_.Bytes(), "", 0);
  }

  void WriteBranch() {
    const Anatomy::Place place = FindPlace(package_.file, inspection_.field);
    const ByteCursor bytes = place.in != nullptr ? ByteCursor(place.in->bytes) : package_.Bytes();
    isWhole_ = true;
    Line("    offset       size  field");
    WriteField(*place.field, bytes, inspection_.field, 0);
    Line("");
    WriteHex(*place.field, bytes);
  }

 private:
  // Every line goes through here.
  void Line(const std::string& text) { sink_(EscapeForTerminal(text) + '\n'); }

  // Returns a text of the package so that no other text can follow from it.
  static std::string Shown(std::string text) {
    if (text.size() > kMostValue) text = text.substr(0, kMostValue) + "...";
    return text;
  }

  void WriteCertificate(const std::string& who, const Anatomy::CertificateFacts& facts) {
    Line(fmt::format("{} certificate DN: {}", who, facts.subject));
    Line(fmt::format("{} certificate issuer: {}", who, facts.issuer));
    Line(fmt::format("{} certificate serial number: {}", who, facts.serial));
    Line(fmt::format("{} certificate valid from: {} until: {}", who, facts.notBefore,
                     facts.notAfter));
    Line(fmt::format("{} certificate SHA-256 digest: {}", who, facts.sha256));
    WriteKey(who, facts);
  }

  void WriteKey(const std::string& who, const Anatomy::CertificateFacts& facts) {
    if (!facts.key) return;
    Line(fmt::format("{} key algorithm: {}", who, facts.key->type));
    Line(fmt::format("{} key size (bits): {}", who, facts.key->bits));
    Line(fmt::format("{} public key SHA-256 digest: {}", who, facts.key->sha256));
  }

  // Where a signer is, and for which platforms.
  static std::string SignerText(const Anatomy::SignerFacts& signer) {
    std::string text = signer.scheme + ", " + signer.path;
    if (!signer.block.empty()) text += ' ' + Quote(Shown(signer.block));
    if (!signer.minSdk || !signer.maxSdk) return text;
    return text + ", SDK " + SdkRangeText(*signer.minSdk, *signer.maxSdk);
  }

  void WriteOther(const Anatomy::SignerFacts& signer) {
    const Anatomy::CertificateFacts* certificate = signer.Certificate();
    Line(fmt::format("Other signer: {}, {}", SignerText(signer),
                     certificate == nullptr
                         ? "certificate unreadable"
                         : "certificate SHA-256 digest: " + certificate->sha256));
  }

  void WriteSigner(const Anatomy::SignerFacts& signer) {
    const Anatomy::CertificateFacts* certificate = signer.Certificate();
    const std::string who = fmt::format("Signer #{}", number_++);
    Line(fmt::format("{}: {}", who, SignerText(signer)));
    if (certificate == nullptr) {
      Line(who + " certificate: unreadable");
    } else {
      WriteCertificate(who, *certificate);
    }
    for (const Anatomy::AlgorithmFacts& algorithm : signer.signatures) {
      const std::string name(algorithm.Name().empty() ? "unknown" : algorithm.Name());
      Line(
          fmt::format("{} signature algorithm: {}{}", who,
                      algorithm.id ? fmt::format("{:#06x} ({})", *algorithm.id, name) : Shown(name),
                      algorithm.isChosen ? ", chosen" : ""));
    }
    for (size_t i = 0; i < signer.lineage.size(); ++i) {
      const Anatomy::LevelFacts& level = signer.lineage[i];
      const std::string flags = Anatomy::FlagNames(level.flags);
      Line(fmt::format("{} lineage level {}: certificate SHA-256 digest: {}, flags {:#x}{}, DN: {}",
                       who, i + 1, level.certificate ? level.certificate->sha256 : "unknown",
                       level.flags, flags.empty() ? "" : " (" + flags + ")",
                       level.certificate ? level.certificate->subject : "unreadable"));
      if (level.certificate) {
        WriteKey(fmt::format("{} lineage level {}", who, i + 1), *level.certificate);
      }
    }
  }

  void WriteCoverage() {
    const Bar bar(inspection_);
    const uint64_t size = package_.file.size;
    Line("");
    Line(fmt::format("Coverage, {} bytes:", size));
    Line("|" + bar.Line() + "|");
    for (const auto& [layer, bytes] : bar.Sizes()) {
      Line(fmt::format("  {} {:>12} {}", layer->letter, bytes, layer->text));
    }
  }

  // Returns true when the blamed field, or one with a note, stands at that path or below it.
  bool IsRemarkable(const Field& field, const std::string& path) const {
    const std::string& blamed = inspection_.blamed;
    if (!path.empty() && blamed.compare(0, path.size(), path) == 0 &&
        (blamed.size() == path.size() || blamed[path.size()] == '.' ||
         blamed[path.size()] == '[')) {
      return true;
    }
    return HasNote(field);
  }

  // As deep as the tree, whose depth no file decides.
  static bool HasNote(const Field& field) {
    return !field.Note().empty() || std::any_of(field.fields.begin(), field.fields.end(), HasNote);
  }

  // The lengths of items are no reading matter.
  static bool IsFrame(const Field& field) {
    const std::string_view name = field.name;
    return (name == "length" || name == "valueLength" || name == "header") && field.Note().empty();
  }

  bool IsExpanded(const Field& field, const std::string& path) const {
    if (isWhole_ || path.empty() || path.compare(0, 12, "signingBlock") == 0) return true;
    return IsRemarkable(field, path);
  }

  // As deep as the tree, whose depth no file decides.
  void WriteField(const Field& field, ByteCursor bytes, const std::string& path, size_t depth) {
    const std::string value = ValueText(field, bytes);
    const bool isBlamed = !inspection_.blamed.empty() && path == inspection_.blamed;
    Line(fmt::format("{}{:>10} {:>10}  {:{}}{}{}{}{}", isBlamed ? ">" : " ", field.offset,
                     field.size, "", 2 * depth, field.Name(),
                     value.empty() ? "" : " " + Shown(ShownText(field, value)),
                     field.Note().empty() ? "" : "  -- " + std::string(field.Note()),
                     isBlamed ? "  <== " + inspection_.report.verdict.reason.code : ""));
    if (!IsExpanded(field, path)) return;
    WriteFields(field, bytes, path, depth + 1);
    const Anatomy::Decoded* decoded = field.DecodedBytes();
    if (decoded == nullptr || !isWhole_) return;
    Line(fmt::format("{:23}{:{}}decoded, {} bytes:", "", "", 2 * (depth + 1),
                     decoded->bytes.size()));
    WriteFields(decoded->root, ByteCursor(decoded->bytes), Anatomy::JoinPath(path, "decoded"),
                depth + 2);
  }

  void WriteFields(const Field& field, ByteCursor bytes, const std::string& path, size_t depth) {
    size_t shown = 0;
    size_t hidden = 0;
    for (const Field& child : field.fields) {
      if (!isWhole_ && IsFrame(child)) continue;
      const std::string childPath = Anatomy::JoinPath(path, child.Name());
      // What stands out is shown in any case, if it is not everything that does.
      const bool isShown = shown < kMostChildren ||
                           (shown < 2 * kMostChildren && IsRemarkable(child, childPath)) ||
                           (child.index < 0 && path.empty() && shown < 3 * kMostChildren);
      if (!isShown) {
        ++hidden;
        continue;
      }
      ++shown;
      WriteField(child, bytes, childPath, depth);
    }
    if (hidden != 0) {
      Line(fmt::format("{:23}{:{}}and {} more, which --json shows", "", "", 2 * depth, hidden));
    }
  }

  // Text from the package stands in quotes.
  static std::string ShownText(const Field& field, const std::string& value) {
    const bool isText =
        field.shape == Anatomy::Shape::kText || field.shape == Anatomy::Shape::kLine ||
        field.shape == Anatomy::Shape::kCertificate || (field.shape == Anatomy::Shape::kGroup);
    return isText ? Quote(value) : value;
  }

  void WriteHex(const Field& field, ByteCursor bytes) {
    constexpr uint64_t kRow = 16;
    ByteCursor rest = BytesOf(field, bytes);
    const uint64_t hidden = rest.Remaining() - std::min(rest.Remaining(), kMostHex);
    rest = rest.TakeAtMost(kMostHex);
    for (uint64_t offset = field.offset; rest.Remaining() != 0; offset += kRow) {
      const ByteCursor row = rest.TakeAtMost(kRow);
      std::string digits;
      std::string characters;
      for (uint64_t i = 0; i < row.Remaining(); ++i) {
        const uint8_t byte = row.Data()[i];
        digits += fmt::format("{}{:02x}", i == kRow / 2 ? "  " : " ", byte);
        characters += byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.';
      }
      Line(fmt::format("{:08x} {:<49}  |{}|", offset, digits, characters));
    }
    if (hidden != 0) Line(fmt::format("and {} more bytes", hidden));
  }

  const Inspection& inspection_;
  const Anatomy::Package& package_;
  const Sink& sink_;
  size_t number_ = 1;     // of the next signer
  bool isWhole_ = false;  // shows all that is below a field
};

}  // namespace

void WriteText(const Inspection& inspection, const Sink& sink) {
  if (inspection.package.mapping == nullptr) return;
  TextWriter writer(inspection, sink);
  if (inspection.field.empty()) {
    sink(EscapeForTerminal(ToText(inspection.report)) + '\n');
    writer.WriteAll();
  } else {
    writer.WriteBranch();
  }
}

}  // namespace Quill::Tool
