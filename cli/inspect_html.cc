// SPDX-License-Identifier: Apache-2.0

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "cli/html.h"
#include "cli/inspect_picture.h"
#include "cli/inspection.h"
#include "util/escape.h"
#include "util/text.h"

namespace Quill::Tool {
namespace {

using Anatomy::Field;

constexpr uint64_t kMostFields = 24000;     // in the tree
constexpr size_t kMostTreeBytes = 8 << 20;  // of it
constexpr size_t kMostInList = 200;         // that is not divided into groups
constexpr size_t kGroup = 100;              // fields
constexpr size_t kMostCards = 20;           // of signers, and of a lineage's levels
constexpr size_t kMostCharacters = 100;     // of a value in the tree
constexpr uint64_t kMostDumped = 1024;      // bytes
constexpr uint64_t kDumpRow = 16;           // bytes

// Text of the package keeps its direction to itself.
std::string Isolated(std::string_view text, size_t most = 400) {
  return "<bdi>" + HtmlCut(text, most) + "</bdi>";
}

std::string Item(const char* name, const std::string& html) {
  return fmt::format("<dt>{}</dt><dd>{}</dd>\n", name, html);
}

std::string Code(std::string_view text) { return "<code>" + Isolated(text) + "</code>"; }

// How many lines a field takes with all that is below it. As deep as the tree.
uint64_t LinesOf(const Field& field) {
  uint64_t lines = 1;
  for (const Field& child : field.fields) lines += LinesOf(child);
  const Anatomy::Decoded* decoded = field.DecodedBytes();
  return decoded == nullptr ? lines : lines + LinesOf(decoded->root);
}

// Returns true when the path is at `start` or below it.
bool IsBelow(std::string_view path, std::string_view start) {
  return StartsWith(path, start) &&
         (path.size() == start.size() || path[start.size()] == '.' || path[start.size()] == '[');
}

class PageWriter {
 public:
  PageWriter(const Inspection& inspection, const Sink& sink)
      : inspection_(inspection), package_(inspection.package), sink_(sink) {}

  void Write() {
    WriteVerdict();
    Put("<h2>What the signatures cover</h2>\n<div class=\"scroll\">\n");
    Put(PictureOf(inspection_));
    Put("</div>\n<p class=\"dim\">To scale, except that the thinnest marks would be too narrow to be seen. A change of one bit is refused where a row says "
        "verified, and changes nothing where nothing covers the bytes. Not looked at promises "
        "neither. A mark of less height: only some of the bytes there.</p>\n");
    WriteBlamed();
    WriteSigners();
    WriteTree();
    Flush();
  }

 private:
  void Put(std::string_view html) {
    buffer_ += html;
    constexpr size_t kPiece = 1 << 16;
    if (buffer_.size() >= kPiece) Flush();
  }

  void Flush() {
    written_ += buffer_.size();
    sink_(buffer_);
    buffer_.clear();
  }

  void WriteVerdict() {
    const PackageReport& report = inspection_.report;
    const FileReason& reason = report.verdict.reason;
    const bool isVerified = report.verdict.status == Status::kVerified;
    const char* words = isVerified                                  ? "&#x2713; Verified"
                        : report.verdict.status == Status::kRefused ? "&#x2717; Refused"
                                                                    : "? Not verified";
    Put("<h1>" + Isolated(report.file) + "</h1>\n");
    Put(fmt::format("<div class=\"verdict {}\">\n<p><strong>{}</strong> ",
                    NameOf(report.verdict.status), words));
    if (isVerified) {
      Put(fmt::format("by signature scheme v{}</p>\n", static_cast<int>(report.scheme)));
    } else {
      Put(fmt::format("<code>{}</code></p>\n<p>{}.</p>\n", HtmlText(reason.code),
                      Isolated(reason.message)));
      if (!reason.hint.empty()) Put("<p>Next: " + Isolated(reason.hint) + ".</p>\n");
    }
    for (const FileReason& other : report.verdict.others) {
      Put(fmt::format("<p>Also <code>{}</code>: {}.</p>\n", HtmlText(other.code),
                      Isolated(other.message)));
    }
    for (const FileWarning& warning : report.warnings) {
      Put(fmt::format("<p>Warning <code>{}</code>: {}.</p>\n", HtmlText(warning.code),
                      Isolated(warning.message)));
    }
    Put("</div>\n<dl>\n");
    if (report.isApk) {
      Put(Item("Package", report.packageName.empty() ? "unknown" : Code(report.packageName)));
    }
    Put(Item("Size", fmt::format("{} bytes", package_.file.size)));
    if (isVerified) {
      Put(Item("Key",
               fmt::format("<code>sha256:{}</code> ({} bytes)", Sha256Of(report.manufacturerKey),
                           report.manufacturerKey.size())));
    }
    PutBytes("Expected", reason.expected);
    PutBytes("Found", reason.found);
    Put("</dl>\n");
  }

  void PutBytes(const char* name, const std::vector<uint8_t>& bytes) {
    constexpr size_t kMost = 64;
    if (bytes.empty()) return;
    const std::string digits = ToHex(bytes.data(), std::min(bytes.size(), kMost));
    Put(Item(name, "<code>" + digits + (bytes.size() > kMost ? "..." : "") + "</code>"));
  }

  void WriteBlamed() {
    if (inspection_.blamed.empty()) return;
    const Anatomy::Place place = FindPlace(package_.file, inspection_.blamed);
    if (place.field == nullptr) return;
    const Field& field = *place.field;
    const ByteCursor bytes = place.in != nullptr ? ByteCursor(place.in->bytes) : package_.Bytes();
    Put(
        fmt::format("<h2>The field that is blamed</h2>\n<p>{} &#8212; <a href=\"#blamed\">in the "
                    "tree</a></p>\n<p class=\"dim\">{} bytes at offset {}{}",
                    Code(inspection_.blamed), field.size, field.offset,
                    place.in != nullptr ? " of what the entry holds, extracted" : ""));
    if (!field.Note().empty()) Put(": " + Isolated(field.Note()));
    Put("</p>\n");
    WriteDump(field, bytes);
  }

  // Writes the rows of a field with one more before and behind it.
  void WriteDump(const Field& field, ByteCursor bytes) {
    const uint64_t end = std::min(field.End(), field.offset + kMostDumped);
    const uint64_t first = field.offset / kDumpRow * kDumpRow;
    const uint64_t last =
        std::min(bytes.Remaining(), (end + kDumpRow - 1) / kDumpRow * kDumpRow + kDumpRow);
    Put("<pre class=\"hex\">");
    for (uint64_t row = first - std::min(first, kDumpRow); row < last; row += kDumpRow) {
      std::string digits;
      std::string characters;
      for (uint64_t i = row; i < row + kDumpRow; ++i) {
        const bool isIn = i >= field.offset && i < end;
        if (isIn && (i == row || i == field.offset)) Open(digits, characters);
        if (i < bytes.Remaining()) {
          const uint8_t byte = bytes.Data()[i];
          const char shown = static_cast<char>(byte >= 0x20 && byte < 0x7f ? byte : '.');
          digits += fmt::format("{:02x}", byte);
          characters += HtmlText(std::string_view(&shown, 1));
        } else {
          digits += "  ";
        }
        if (isIn && (i + 1 == end || i + 1 == row + kDumpRow)) Close(digits, characters);
        digits += i + 1 == row + kDumpRow / 2 ? "  " : " ";
      }
      Put(fmt::format("{:08x}  {} {}\n", row, digits, characters));
    }
    Put("</pre>\n");
    if (end < field.End()) {
      Put(fmt::format("<p class=\"dim\">and {} more bytes</p>\n", field.End() - end));
    }
  }

  static void Open(std::string& digits, std::string& characters) {
    digits += "<mark>";
    characters += "<mark>";
  }
  static void Close(std::string& digits, std::string& characters) {
    digits += "</mark>";
    characters += "</mark>";
  }

  void WriteSigners() {
    if (inspection_.signers.empty()) return;
    Put("<h2>Signers</h2>\n");
    std::vector<const Anatomy::SignerFacts*> signers;
    for (const Anatomy::SignerFacts& signer : inspection_.signers) signers.push_back(&signer);
    std::stable_partition(signers.begin(), signers.end(),
                          [](const Anatomy::SignerFacts* signer) { return signer->isChosen; });
    for (size_t i = 0; i < signers.size() && i < kMostCards; ++i) WriteSigner(*signers[i]);
    WriteMore(signers.size(), "signers");
  }

  void WriteMore(size_t count, const char* what) {
    if (count <= kMostCards) return;
    Put(fmt::format("<p>and {} more {}, which --json lists</p>\n", count - kMostCards, what));
  }

  void WriteSigner(const Anatomy::SignerFacts& signer) {
    Put(fmt::format("<article class=\"signer\">\n<h3>{} signer, {}</h3>\n<p class=\"dim\">",
                    HtmlText(signer.scheme),
                    signer.isChosen ? "the verifier goes by it" : "the verifier passes over it"));
    Put(Code(signer.path));
    if (!signer.block.empty()) Put(' ' + Code(signer.block));
    if (signer.minSdk && signer.maxSdk) {
      Put(", SDK " + SdkRangeText(*signer.minSdk, *signer.maxSdk));
    }
    Put("</p>\n");
    for (const Anatomy::AlgorithmFacts& algorithm : signer.signatures) {
      const std::string_view name = algorithm.Name();
      if (&algorithm - signer.signatures.data() >= static_cast<ptrdiff_t>(kMostCards)) break;
      Put(fmt::format("<p>Signature: {}{}{}</p>\n",
                      algorithm.id ? fmt::format("<code>{:#06x}</code> ", *algorithm.id) : "",
                      name.empty() ? "unknown algorithm" : HtmlCut(name, kMostCharacters),
                      algorithm.isChosen ? " &#8212; <strong>chosen</strong>" : ""));
    }
    WriteMore(signer.signatures.size(), "signatures");
    WriteChain(signer);
    Put("</article>\n");
  }

  // The levels of the lineage, the oldest first, and the certificate that signs this package.
  void WriteChain(const Anatomy::SignerFacts& signer) {
    const std::vector<Anatomy::LevelFacts>& levels = signer.lineage;
    const Anatomy::CertificateFacts* current = signer.Certificate();
    const bool isLast = !levels.empty() && levels.back().certificate && current != nullptr &&
                        levels.back().certificate->sha256 == current->sha256;
    const size_t before = levels.size() - (isLast ? 1 : 0);
    Put("<ol class=\"chain\">\n");
    for (size_t i = 0; i < before && i < kMostCards; ++i) {
      const auto& certificate = levels[i].certificate;
      WriteLevel(fmt::format("Level {} of {}, an earlier key", i + 1, levels.size()),
                 certificate ? &*certificate : nullptr, &levels[i], false);
    }
    WriteLevel(levels.empty() ? "The signer"
               : isLast       ? fmt::format("Level {0} of {0}, the signer", levels.size())
                              : "The signer, not the end of its lineage",
               current, isLast ? &levels.back() : nullptr, true);
    Put("</ol>\n");
    WriteMore(before, "levels");
  }

  void WriteLevel(const std::string& title, const Anatomy::CertificateFacts* certificate,
                  const Anatomy::LevelFacts* level, bool isSigner) {
    Put(fmt::format("<li><div class=\"level{}\"><h3>{}</h3>\n",
                    !isSigner          ? ""
                    : level == nullptr ? " now wide"
                                       : " now",
                    title));
    if (certificate == nullptr) {
      Put("<p>certificate unreadable</p>\n");
    } else {
      WriteCertificate(*certificate, isSigner);
    }
    if (level != nullptr) {
      const std::string flags = Anatomy::FlagNames(level->flags);
      Put(
          fmt::format("<p><span class=\"dim\">Still good for</span> {} <span class=\"dim\">(flags "
                      "{:#x})</span></p>\n",
                      flags.empty() ? "nothing" : HtmlText(flags), level->flags));
    }
    Put("</div></li>\n");
  }

  void WriteCertificate(const Anatomy::CertificateFacts& certificate, bool isSigner) {
    const auto put = [this](const char* name, const std::string& html) {
      Put(fmt::format("<p><span class=\"dim\">{}</span> {}</p>\n", name, html));
    };
    put("Subject", certificate.subject.empty() ? "none" : Isolated(certificate.subject));
    if (isSigner) {
      put("Issuer", certificate.issuer.empty() ? "none" : Isolated(certificate.issuer));
      put("Serial number", Code(certificate.serial));
      put("Valid", Isolated(certificate.notBefore) + " to " + Isolated(certificate.notAfter));
    }
    put("Certificate SHA-256", Code(certificate.sha256));
    if (!certificate.key) return;
    put("Key", HtmlText(fmt::format("{}, {} bits", certificate.key->type, certificate.key->bits)));
    put("Public key SHA-256", Code(certificate.key->sha256));
  }

  void WriteTree() {
    Put("<h2>Every field</h2>\n<div class=\"tree\">\n"
        "<p class=\"columns dim\"><i>offset</i><u>size</u>field</p>\n");
    Flush();
    treeStart_ = written_;
    const uint64_t all = LinesOf(package_.file);
    if (all > kMostFields) {
      Put("<p class=\"columns\">Not all of them: <a href=\"#left-out\">what is left "
          "out</a></p>\n");
    }
    WriteField(package_.file, package_.Bytes(), "", std::min(all, kMostFields));
    Put("</div>\n");
    if (lines_ == all) return;
    Put(fmt::format(
        "<p id=\"left-out\">{} of {} fields are left out, to keep this page small: those below "
        "fields with &#x2026;, and the ends of long lists. <code>quillon inspect --field "
        "PATH</code> shows any of them, and <code>--json</code> all.</p>\n",
        all - lines_, all));
  }

  bool IsFull() const { return written_ + buffer_.size() - treeStart_ > kMostTreeBytes; }

  bool IsOpen(const std::string& path) const {
    return path.empty() || IsBlamed(path) || IsBelow(path, "signingBlock");
  }

  // Returns true for the blamed field and those around it.
  bool IsBlamed(const std::string& path) const {
    return !inspection_.blamed.empty() && IsBelow(inspection_.blamed, path);
  }

  // Returns the offset, the size and the field in a line.
  std::string LineOf(const Field& field, ByteCursor bytes, const std::string& path) const {
    std::string line = fmt::format("<i>{}</i><u>{}</u><b>{}</b>", field.offset, field.size,
                                   HtmlText(field.Name()));
    const std::string value = Anatomy::ValueText(field, bytes);
    if (!value.empty()) line += ' ' + Isolated(value, kMostCharacters);
    if (!field.Note().empty()) line += " <em>" + HtmlCut(field.Note(), kMostCharacters) + "</em>";
    if (inspection_.blamed.empty() || path != inspection_.blamed) return line;
    return fmt::format("<span class=\"bad\" id=\"blamed\">{} &#x25c0; {}</span>", line,
                       HtmlText(inspection_.report.verdict.reason.code));
  }

  // Writes a field in at most as many lines. As deep as the tree, whose depth no file decides.
  void WriteField(const Field& field, ByteCursor bytes, const std::string& path, uint64_t lines) {
    ++lines_;
    const std::string line = LineOf(field, bytes, path);
    const Anatomy::Decoded* decoded = field.DecodedBytes();
    if (field.fields.empty() && decoded == nullptr) {
      Put("<p>" + line + "</p>\n");
    } else if (lines <= 1 || IsFull()) {
      Put("<p>" + line + " &#x2026;</p>\n");
    } else {
      Put(fmt::format("<details{}><summary>{}</summary><div>\n", IsOpen(path) ? " open" : "",
                      line));
      WriteFields(field, bytes, path, lines - 1);
      if (decoded != nullptr) {
        const std::string below = Anatomy::JoinPath(path, "decoded");
        ++lines_;
        Put(fmt::format("<details{}><summary><u>{}</u>decoded</summary><div>\n",
                        IsOpen(below) ? " open" : "", decoded->bytes.size()));
        WriteFields(decoded->root, ByteCursor(decoded->bytes), below, lines - 2);
        Put("</div></details>\n");
      }
      Put("</div></details>\n");
    }
  }

  // Returns how many of `lines` each child may have; 0 for those that are left out. What is blamed,
  // or has a name of its own, goes before the items of a list.
  std::vector<uint64_t> Share(const Field& field, const std::string& path, uint64_t lines) const {
    std::vector<uint64_t> wanted;
    std::vector<size_t> named;
    std::vector<bool> isNamed;
    uint64_t all = 0;
    uint64_t ofNamed = 0;
    for (const Field& child : field.fields) {
      const bool isBlamed = IsBlamed(Anatomy::JoinPath(path, child.Name()));
      isNamed.push_back(isBlamed || !IsListed(child));
      // The blamed one is the first.
      if (isNamed.back()) named.insert(isBlamed ? named.begin() : named.end(), wanted.size());
      wanted.push_back(LinesOf(child));
      all += wanted.back();
      if (isNamed.back()) ofNamed += wanted.back();
    }
    if (all <= lines) return wanted;
    std::vector<uint64_t> shares = wanted;
    // The short ones before those that take what is left.
    const bool hasBlamed =
        !named.empty() && IsBlamed(Anatomy::JoinPath(path, field.fields[named[0]].Name()));
    std::stable_sort(named.begin() + (hasBlamed ? 1 : 0), named.end(),
                     [&](size_t left, size_t right) { return wanted[left] < wanted[right]; });
    // The others have half of the lines, if they need as many.
    uint64_t rest = lines - std::min(lines / 2, all - ofNamed);
    for (size_t i = 0; i < named.size(); ++i) {
      const uint64_t fair = hasBlamed && i == 0 ? (rest + 1) / 2 : rest / (named.size() - i);
      shares[named[i]] = std::min(wanted[named[i]], fair);
      rest -= shares[named[i]];
      lines -= shares[named[i]];
    }
    // Then a line for each of the others, and what is left over for the first of them.
    const uint64_t others = wanted.size() - named.size();
    uint64_t extra = lines - std::min(lines, others);
    for (size_t i = 0; i < wanted.size(); ++i) {
      if (isNamed[i]) continue;
      const bool isWhole = wanted[i] - 1 <= extra;
      shares[i] = lines == 0 ? 0 : isWhole ? wanted[i] : 1;
      if (shares[i] > 1) extra -= shares[i] - 1;
      lines -= shares[i];
    }
    return shares;
  }

  // Writes the children of a field; those of a long list in groups.
  void WriteFields(const Field& field, ByteCursor bytes, const std::string& path, uint64_t lines) {
    const std::vector<uint64_t> shares = Share(field, path, lines);
    const std::vector<Field>& fields = field.fields;
    for (size_t i = 0; i < fields.size();) {
      size_t end = i + 1;
      while (end < fields.size() && IsListed(fields[i]) && IsListed(fields[end])) ++end;
      const bool isLong = end - i > kMostInList;
      for (; i < end; i += isLong ? std::min(kGroup, end - i) : end - i) {
        WriteGroup(fields, shares, {i, isLong ? std::min(i + kGroup, end) : end}, isLong, bytes,
                   path);
      }
    }
  }

  static bool IsListed(const Field& field) {
    return field.index >= 0 || field.name == std::string_view("gap");
  }

  struct Group {
    size_t begin;
    size_t end;
  };

  void WriteGroup(const std::vector<Field>& fields, const std::vector<uint64_t>& shares,
                  Group group, bool isFolded, ByteCursor bytes, const std::string& path) {
    const auto first = shares.begin() + static_cast<ptrdiff_t>(group.begin);
    const auto last = shares.begin() + static_cast<ptrdiff_t>(group.end);
    if (IsFull() || std::all_of(first, last, [](uint64_t share) { return share == 0; })) return;
    if (isFolded) {
      const Field& start = fields[group.begin];
      const Field& end = fields[group.end - 1];
      bool isOpen = false;
      for (size_t i = group.begin; i < group.end; ++i) {
        isOpen = isOpen || IsBlamed(Anatomy::JoinPath(path, fields[i].Name()));
      }
      Put(fmt::format("<details{}><summary><i>{}</i><u>{}</u>{} to {}</summary><div>\n",
                      isOpen ? " open" : "", start.offset, end.End() - start.offset,
                      HtmlText(start.Name()), HtmlText(end.Name())));
    }
    for (size_t i = group.begin; i < group.end; ++i) {
      if (shares[i] == 0) continue;
      WriteField(fields[i], bytes, Anatomy::JoinPath(path, fields[i].Name()), shares[i]);
    }
    if (isFolded) Put("</div></details>\n");
  }

  const Inspection& inspection_;
  const Anatomy::Package& package_;
  const Sink& sink_;
  std::string buffer_;
  size_t written_ = 0;    // bytes, without those in the buffer
  size_t treeStart_ = 0;  // of those
  uint64_t lines_ = 0;    // of the tree so far
};

}  // namespace

void WriteHtml(const Inspection& inspection, const Sink& sink) {
  PageWriter(inspection, sink).Write();
}

}  // namespace Quill::Tool
