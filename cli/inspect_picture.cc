// SPDX-License-Identifier: Apache-2.0

#include "cli/inspect_picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <vector>

#include "cli/html.h"

namespace Quill::Tool {
namespace {

using Anatomy::Checked;
using Anatomy::Field;
using Anatomy::How;

// Units of the picture, which are pixels when it is not scaled.
constexpr double kLeft = 250;        // of the strips; labels are left of them
constexpr double kStripWidth = 730;  // of the strips
constexpr double kTotal = 1090;      // with the sizes right of the strips
constexpr double kTileHeight = 26;
constexpr double kRowHeight = 34;
constexpr double kBarHeight = 22;
constexpr double kCharacter = 6.7;  // of a label, a little more than it takes
constexpr size_t kMostRows = 24;    // of a strip

constexpr char kPictureStart[] = R"(<style>
.picture { --ink: #1b1f24; --dim: #57606a; --back: #ffffff; --tile: #eaeef2; --line: #8c959f; --good: #aceebb; --bad: #ffb3ad; --other: #e4e8ec; --alarm: #a40e26; }
@media (prefers-color-scheme: dark) { .picture { --ink: #e6edf3; --dim: #9198a1; --back: #0d1117; --tile: #262c36; --line: #6e7681; --good: #1f5a33; --bad: #7d2a2a; --other: #2a313c; --alarm: #ff8e86; } }
.picture text { font: 11px ui-monospace, "DejaVu Sans Mono", monospace; fill: var(--ink); }
.picture .back { fill: var(--back); }
.picture .title { font: bold 13px system-ui, "DejaVu Sans", sans-serif; }
.picture .what { font: 12px system-ui, "DejaVu Sans", sans-serif; }
.picture .dim { fill: var(--dim); font-size: 10px; }
.picture .letter { font-weight: bold; text-anchor: middle; paint-order: stroke; stroke: var(--back); stroke-width: 4px; }
.picture .tile { fill: var(--tile); stroke: var(--line); }
.picture .lead, .picture .zoom { fill: none; stroke: var(--line); }
.picture .zoom { stroke-dasharray: 2 3; }
.picture .base { stroke: var(--line); stroke-opacity: .5; }
.picture .verified { fill: var(--good); }
.picture .failed { fill: var(--bad); stroke: var(--alarm); stroke-width: 2px; }
.picture .unseen { fill: var(--other); }
.picture .tick { fill: var(--ink); }
.picture .frame { fill: none; stroke: var(--line); }
.picture .hatch { stroke: var(--ink); stroke-opacity: .4; fill: none; }
.picture .dot { fill: var(--ink); fill-opacity: .5; }
.picture .blamed { fill: none; stroke: var(--alarm); stroke-width: 2px; }
.picture .alarm { fill: var(--alarm); font-weight: bold; }
</style>
<defs>
<pattern id="hatch-C" width="7" height="7" patternUnits="userSpaceOnUse"><path class="hatch" d="M-1,1 l2,-2 M0,7 l7,-7 M6,8 l2,-2"/></pattern>
<pattern id="hatch-S" width="7" height="7" patternUnits="userSpaceOnUse"><path class="hatch" d="M-1,6 l2,2 M0,0 l7,7 M6,-1 l2,2"/></pattern>
<pattern id="hatch-N" width="6" height="6" patternUnits="userSpaceOnUse"><path class="hatch" d="M0,3 h6"/></pattern>
<pattern id="hatch-T" width="6" height="6" patternUnits="userSpaceOnUse"><path class="hatch" d="M3,0 v6"/></pattern>
<pattern id="hatch-X" width="7" height="7" patternUnits="userSpaceOnUse"><path class="hatch" d="M0,0 l7,7 M0,7 l7,-7"/></pattern>
<pattern id="hatch-o" width="6" height="6" patternUnits="userSpaceOnUse"><circle class="dot" cx="3" cy="3" r="0.8"/></pattern>
</defs>
)";

// The letters are those of the bar for terminals.
char LetterOf(How how, Checked checked) {
  if (how == How::kNone) return '.';
  if (checked == Checked::kFailed) return 'X';
  const char letter = how == How::kContentDigest ? 'C'
                      : how == How::kSignedData  ? 'S'
                      : how == How::kNamed       ? 'N'
                                                 : 'T';
  return checked == Checked::kVerified ? letter : static_cast<char>(std::tolower(letter));
}

const char* ClassOf(const Anatomy::Coverage& coverage) {
  if (coverage.how == How::kNone) return "frame";
  return coverage.checked == Checked::kVerified ? "verified"
         : coverage.checked == Checked::kFailed ? "failed"
                                                : "unseen";
}

std::string CountText(uint64_t count, const char* unit) {
  return fmt::format("{} {}{}", count, unit, count == 1 ? "" : "s");
}

// A part of the file that is drawn on the full width.
struct Strip {
  std::string title;
  const Field* range;
  std::vector<const Field*> fields;  // in order of offset
};

// One field, or neighbours that are too narrow to be seen.
struct Tile {
  double begin;
  double end;
  std::string name;
  size_t count;
  const Field* first;
};

// A label above a strip, with a line to its place.
struct Callout {
  double place;
  std::string text;
  bool isAlarm;
  double begin = 0;  // of the label

  double Width() const { return static_cast<double>(text.size() + 1) * kCharacter; }
};

// Neighbouring columns that are alike.
struct Stretch {
  double begin;
  double end;
  bool isWhole;  // else something in it is covered
};

// The parts of a package that have names of their own, however narrow they are.
bool StandsAlone(const Field& field) {
  constexpr std::string_view kNames[] = {
      "signingBlock", "centralDirectory", "endRecord",    "comment",    "v2",       "v3",
      "v31",          "signatures",       "certificates", "attributes", "publicKey"};
  return std::find(std::begin(kNames), std::end(kNames), field.name) != std::end(kNames);
}

class Picture {
 public:
  explicit Picture(const Inspection& inspection) : inspection_(inspection) {
    // Something in an entry is shown where the entry's data are.
    const std::string path = inspection.blamed.substr(0, inspection.blamed.find(".decoded"));
    if (!path.empty()) blamed_ = Find(inspection.package.file, path);
    if (blamed_ == nullptr) return;
    const std::string& blamed = inspection.blamed;
    blamedName_ = blamed.substr(blamed.rfind('.') + 1);
  }

  std::string Draw() && {
    const std::vector<Strip> strips = Strips();
    for (size_t i = 0; i < strips.size(); ++i) {
      Draw(strips[i], i + 1 < strips.size() ? strips[i + 1].range : nullptr);
    }
    return fmt::format(
               "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"picture\" viewBox=\"0 0 {} "
               "{:.0f}\" role=\"img\" aria-label=\"The file to scale, with what its signatures "
               "cover\">\n{}<rect class=\"back\" width=\"100%\" height=\"100%\"/>\n",
               kTotal, y_, kPictureStart) +
           body_ + "</svg>\n";
  }

 private:
  std::vector<Strip> Strips() const {
    const Field& file = inspection_.package.file;
    std::vector<Strip> strips;
    strips.push_back({"The whole file: " + CountText(file.size, "byte"), &file, ChildrenOf(file)});
    const Field* block = file.Child("signingBlock");
    if (block == nullptr || block->fields.empty()) return strips;
    strips.push_back({"Enlarged: " + Described("signingBlock", *block), block, ChildrenOf(*block)});
    const std::string path = SignerPath();
    const Field* signer = path.empty() ? nullptr : Find(file, path);
    if (signer == nullptr || signer->fields.empty()) return strips;
    Strip strip = {"Enlarged: " + Described(path, *signer), signer, {}};
    for (const Field* child : ChildrenOf(*signer)) {
      if (child->name != std::string_view("signedData")) {
        strip.fields.push_back(child);
      } else {
        for (const Field* part : ChildrenOf(*child)) strip.fields.push_back(part);
      }
    }
    strips.push_back(std::move(strip));
    return strips;
  }

  static std::vector<const Field*> ChildrenOf(const Field& field) {
    std::vector<const Field*> children;
    for (const Field& child : field.fields) {
      if (child.size != 0) children.push_back(&child);
    }
    return children;
  }

  static std::string Described(const std::string& path, const Field& field) {
    return fmt::format("{}, {} at offset {}", path, CountText(field.size, "byte"), field.offset);
  }

  // The signer in the signing block that is blamed, or the first that the verifier goes by.
  std::string SignerPath() const {
    const std::string& blamed = inspection_.blamed;
    const size_t signers = blamed.find(".signers[");
    if (blamed.compare(0, 12, "signingBlock") == 0 && signers != std::string::npos) {
      return blamed.substr(0, blamed.find(']', signers) + 1);
    }
    for (const Anatomy::SignerFacts& signer : inspection_.signers) {
      if (signer.isChosen && signer.scheme != "v1") return signer.path;
    }
    return "";
  }

  static double X(const Field& range, uint64_t offset) {
    return kLeft + static_cast<double>(offset - range.offset) * kStripWidth /
                       static_cast<double>(std::max<uint64_t>(1, range.size));
  }

  void Put(const std::string& element) { body_ += element + '\n'; }

  void PutText(double x, double y, const char* style, const std::string& text) {
    Put(fmt::format(R"(<text x="{:.1f}" y="{:.1f}" class="{}">{}</text>)", x, y, style,
                    HtmlText(text)));
  }

  // Draws one strip at y_, and moves it behind. `next` is enlarged below it.
  void Draw(const Strip& strip, const Field* next) {
    PutText(0, y_ + 14, "title", strip.title);
    const double top = y_ + 56;  // of the tiles
    const std::vector<Tile> tiles = TilesOf(strip);
    DrawTiles(tiles, top);
    DrawCallouts(strip, tiles, top);
    const double axis = top + kTileHeight + 12;
    for (int i = 0; i <= 4; ++i) {
      const double offset = static_cast<double>(strip.range->size) * i / 4;
      PutAnchored(kLeft + kStripWidth * i / 4, axis,
                  i == 0   ? "start"
                  : i == 4 ? "end"
                           : "middle",
                  strip.range->offset + static_cast<uint64_t>(offset));
    }
    y_ = axis + 10;
    DrawRows(*strip.range);
    DrawBlamed(*strip.range, top);
    if (next != nullptr) {
      const double begin = X(*strip.range, next->offset);
      const double end = X(*strip.range, next->End());
      Put(fmt::format(
          R"(<path class="zoom" d="M{0:.1f},{2:.1f} V{3:.1f} L{4:.1f},{5:.1f} M{1:.1f},{2:.1f} V{3:.1f} L{6:.1f},{5:.1f}"/>)",
          begin, end, top + kTileHeight, y_, kLeft, y_ + 30, kLeft + kStripWidth));
      y_ += 36;
    }
  }

  void PutAnchored(double x, double y, const char* anchor, uint64_t number) {
    Put(fmt::format(R"(<text x="{:.1f}" y="{:.1f}" class="dim" text-anchor="{}">{}</text>)", x, y,
                    anchor, number));
  }

  static std::vector<Tile> TilesOf(const Strip& strip) {
    constexpr double kNarrow = 3;
    constexpr size_t kMostAlone = 200;
    std::vector<Tile> tiles;
    bool canJoin = false;
    for (const Field* field : strip.fields) {
      const double begin = X(*strip.range, field->offset);
      const double end = X(*strip.range, field->End());
      const bool isNarrow =
          end - begin < kNarrow && (!StandsAlone(*field) || tiles.size() > kMostAlone);
      if (isNarrow && canJoin) {
        Tile& last = tiles.back();
        last.end = end;
        ++last.count;
        last.name = fmt::format("{} to {}", last.first->Name(), field->Name());
      } else {
        tiles.push_back({begin, end, field->Name(), 1, field});
      }
      canJoin = isNarrow;
    }
    return tiles;
  }

  static double TextWidth(const std::string& text) {
    return static_cast<double>(text.size()) * kCharacter;
  }

  static bool FitsInside(const Tile& tile) {
    return TextWidth(tile.name) + 4 <= tile.end - tile.begin;
  }

  // The name, and of an entry also what the package calls it.
  std::string TitleOf(const Tile& tile) const {
    const std::string value =
        tile.count == 1 ? ValueText(*tile.first, inspection_.package.Bytes()) : "";
    return HtmlText(tile.name) + (value.empty() ? "" : ' ' + HtmlCut(value, 60));
  }

  void DrawTiles(const std::vector<Tile>& tiles, double top) {
    for (const Tile& tile : tiles) {
      const bool isGap = tile.first->name == std::string_view("gap");
      Put(fmt::format(
          R"(<rect class="{}" x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{}"><title>{}</title></rect>)",
          isGap ? "frame" : "tile", tile.begin, top, tile.end - tile.begin, kTileHeight,
          TitleOf(tile)));
      if (!FitsInside(tile)) continue;
      Put(fmt::format(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="middle">{}</text>)",
                      (tile.begin + tile.end) / 2, top + 17, HtmlText(tile.name)));
    }
  }

  bool IsBlamedIn(const Field& range) const {
    return blamed_ != nullptr && blamed_->offset >= range.offset && blamed_->End() <= range.End();
  }

  // Labels what has no room for its name, as far as labels fit above the strip.
  void DrawCallouts(const Strip& strip, const std::vector<Tile>& tiles, double top) {
    std::vector<Callout> wanted;
    if (IsBlamedIn(*strip.range)) {
      const double place = (X(*strip.range, blamed_->offset) + X(*strip.range, blamed_->End())) / 2;
      wanted.push_back({place, "blamed: " + blamedName_, true});
    }
    std::vector<const Tile*> others;
    for (const Tile& tile : tiles) {
      // The lengths of items are no reading matter.
      const bool isFrame = tile.first->name == std::string_view("length");
      if (!FitsInside(tile) && !isFrame) others.push_back(&tile);
    }
    std::stable_sort(others.begin(), others.end(), [](const Tile* left, const Tile* right) {
      const bool isFirst = StandsAlone(*left->first);
      if (isFirst != StandsAlone(*right->first)) return isFirst;
      return left->end - left->begin > right->end - right->begin;
    });
    for (const Tile* tile : others) {
      wanted.push_back({(tile->begin + tile->end) / 2, tile->name, false});
    }
    double room = kTotal - kLeft;
    std::vector<Callout> placed;
    for (const Callout& callout : wanted) {
      if (callout.Width() > room) continue;
      room -= callout.Width();
      placed.push_back(callout);
    }
    Spread(placed);
    for (const Callout& callout : placed) {
      const double middle = callout.begin + callout.Width() / 2;
      Put(fmt::format(R"(<path class="{}" d="M{:.1f},{:.1f} L{:.1f},{:.1f}"/>)",
                      callout.isAlarm ? "blamed" : "lead", middle, top - 18, callout.place,
                      top - 1));
      Put(fmt::format(R"(<text x="{:.1f}" y="{:.1f}" text-anchor="middle"{}>{}</text>)", middle,
                      top - 22, callout.isAlarm ? " class=\"alarm\"" : "", HtmlText(callout.text)));
    }
  }

  // Gives labels places near those that they belong to, so that none covers another.
  static void Spread(std::vector<Callout>& callouts) {
    std::stable_sort(
        callouts.begin(), callouts.end(),
        [](const Callout& left, const Callout& right) { return left.place < right.place; });
    double left = kLeft;
    for (Callout& callout : callouts) {
      callout.begin = std::max(left, callout.place - callout.Width() / 2);
      left = callout.begin + callout.Width();
    }
    double right = kTotal;
    for (auto callout = callouts.rbegin(); callout != callouts.rend(); ++callout) {
      callout->begin = std::min(callout->begin, right - callout->Width());
      right = callout->begin;
    }
  }

  // Draws a row for each coverage that has bytes in the range.
  void DrawRows(const Field& range) {
    size_t rows = 0;
    size_t hidden = 0;
    for (const Anatomy::Coverage& one : inspection_.coverage) {
      uint64_t covered = 0;
      const std::vector<Stretch> stretches = StretchesOf(one, range, covered);
      if (covered == 0) continue;
      if (rows >= kMostRows && one.how != How::kNone) {
        ++hidden;
        continue;
      }
      ++rows;
      DrawRow(one, stretches, covered);
    }
    if (hidden == 0) return;
    PutText(0, y_ + 12, "what", fmt::format("and {} more, which --json lists", hidden));
    y_ += 20;
  }

  static std::vector<Stretch> StretchesOf(const Anatomy::Coverage& coverage, const Field& range,
                                          uint64_t& covered) {
    constexpr auto kStripColumns = static_cast<size_t>(kStripWidth);
    std::array<double, kStripColumns> parts = {};  // of each column that is covered
    for (const Anatomy::ByteRange& bytes : coverage.ranges) {
      const uint64_t first = std::max(bytes.offset, range.offset);
      const uint64_t last = std::min(bytes.offset + bytes.size, range.End());
      if (first >= last) continue;
      covered += last - first;
      const double begin = X(range, first) - kLeft;
      const double end = X(range, last) - kLeft;
      for (size_t i = static_cast<size_t>(begin); i < kStripColumns && static_cast<double>(i) < end;
           ++i) {
        const auto column = static_cast<double>(i);
        parts[i] += std::min(end, column + 1) - std::max(begin, column);
      }
    }
    // A column at the edge of a wide stretch belongs to it or not; others with anything in them
    // show.
    const auto isWhole = [&](size_t i) { return i < kStripColumns && parts[i] > 0.999; };
    std::vector<Stretch> stretches;
    for (size_t i = 0; i < kStripColumns; ++i) {
      if (parts[i] <= 0) continue;
      const bool isEdge = isWhole(i + 1) || (i > 0 && isWhole(i - 1));
      if (isEdge && parts[i] < 0.5) continue;
      const bool whole = isWhole(i) || isEdge;
      const double begin = kLeft + static_cast<double>(i);
      if (!stretches.empty() && stretches.back().end >= begin &&
          stretches.back().isWhole == whole) {
        stretches.back().end = begin + 1;
      } else {
        stretches.push_back({begin, begin + 1, whole});
      }
    }
    return stretches;
  }

  void DrawRow(const Anatomy::Coverage& one, const std::vector<Stretch>& stretches,
               uint64_t covered) {
    constexpr double kLetterRoom = 15;
    constexpr double kTickLength = 3;
    const char letter = LetterOf(one.how, one.checked);
    const bool isNothing = one.how == How::kNone;
    PutText(4, y_ + 13, "what", fmt::format("{}", letter));
    PutText(20, y_ + 13, "what",
            isNothing ? "nothing covers these bytes"
                      : fmt::format("{}, {}", TextOf(one.how), TextOf(one.checked)));
    // The name of an entry can be anything: an inner picture clips what is too wide.
    if (!isNothing) {
      Put(fmt::format(
          R"(<svg x="20" y="{:.1f}" width="{}" height="14"><text y="10" class="dim">{}</text></svg>)",
          y_ + 14, kLeft - 30, HtmlCut(one.by, 60)));
    }
    PutText(kLeft + kStripWidth + 8, y_ + 15, "", CountText(covered, "byte"));
    Put(fmt::format(R"(<path class="base" d="M{},{:.1f} h{}"/>)", kLeft, y_ + kBarHeight,
                    kStripWidth));
    const char hatch = letter == '.' ? 'o' : static_cast<char>(std::toupper(letter));
    std::string outline;
    std::string ticks;
    for (const Stretch& run : stretches) {
      // Of less height: only a part of these bytes.
      const double height = run.isWhole ? kBarHeight : kBarHeight * 0.4;
      const double length = run.end - run.begin;
      // What is hardly to be seen is drawn in the colour of the text.
      std::string& path = length < kTickLength ? ticks : outline;
      path += fmt::format("M{:.0f},{:.1f}h{:.0f}v{:.1f}H{:.0f}z", run.begin,
                          y_ + kBarHeight - height, std::max(2.0, length), height, run.begin);
    }
    if (!outline.empty()) {
      Put(fmt::format(R"(<path class="{}" d="{}"/>)", ClassOf(one), outline));
      Put(fmt::format(R"_(<path fill="url(#hatch-{})" d="{}"/>)_", hatch, outline));
    }
    if (!ticks.empty()) {
      const char* style = one.checked == Checked::kFailed ? "alarm" : "tick";
      Put(fmt::format(R"(<path class="{}" d="{}"/>)", style, ticks));
    }
    for (const Stretch& run : stretches) {
      if (!run.isWhole || run.end - run.begin < kLetterRoom || isNothing) continue;
      PutText((run.begin + run.end) / 2, y_ + 15, "letter", std::string(1, letter));
    }
    y_ += kRowHeight;
  }

  void DrawBlamed(const Field& range, double top) {
    if (!IsBlamedIn(range)) return;
    const double begin = X(range, blamed_->offset);
    const double width = std::max(2.0, X(range, blamed_->End()) - begin);
    Put(fmt::format(
        R"(<rect class="blamed" x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{:.1f}"/>)", begin,
        top - 1, width, kTileHeight + 2));
  }

  const Inspection& inspection_;
  const Field* blamed_ = nullptr;  // null: none
  std::string blamedName_;
  std::string body_;
  double y_ = 0;  // below what is drawn
};

}  // namespace

std::string PictureOf(const Inspection& inspection) { return Picture(inspection).Draw(); }

}  // namespace Quill::Tool
