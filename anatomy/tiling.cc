// SPDX-License-Identifier: Apache-2.0

#include "anatomy/tiling.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Quill::Anatomy {
namespace {

// Cuts a field off at `end`.
void CutAt(Field& field, uint64_t end) {
  const bool isLeaf = field.fields.empty();
  while (!field.fields.empty() && field.fields.back().offset >= end) field.fields.pop_back();
  if (field.End() <= end) return;
  field.size = end - field.offset;
  if (isLeaf) field.shape = Shape::kBytes;  // the bytes that are left do not have its meaning
  if (!field.fields.empty()) CutAt(field.fields.back(), end);
}

Field Marker(const char* name, uint64_t begin, uint64_t end) {
  Field field;
  field.name = name;
  field.shape = Shape::kBytes;
  field.offset = begin;
  field.size = end - begin;
  return field;
}

}  // namespace

std::vector<Tiling::Range> Tiling::TakeFree(Range range) {
  std::vector<Range> parts;
  uint64_t begin = range.begin;
  uint64_t end = range.end;
  auto next = owned_.upper_bound(begin);
  if (next != owned_.begin() && std::prev(next)->second >= begin) --next;
  // Joins the range with what it touches.
  while (next != owned_.end() && next->first <= range.end) {
    if (range.begin < next->first) parts.push_back({range.begin, next->first});
    range.begin = std::max(range.begin, next->second);
    begin = std::min(begin, next->first);
    end = std::max(end, next->second);
    next = owned_.erase(next);
  }
  if (range.begin < range.end) parts.push_back(range);
  if (begin < end) owned_[begin] = end;
  return parts;
}

void Tiling::Claim(Field field) {
  const Range whole = {field.offset, field.End()};
  const std::vector<Range> parts = TakeFree(whole);
  Piece piece;
  piece.place = whole.begin;
  const bool ownsStart = !parts.empty() && parts.front().begin == whole.begin;
  if (ownsStart && parts.front().end == whole.end) {
    piece.field = std::move(field);
    pieces_.push_back(std::move(piece));
    return;
  }
  const std::string name = field.Name();
  piece.claimed = whole;
  const uint64_t ownEnd = ownsStart ? parts.front().end : whole.begin;
  piece.taken = ownEnd;
  CutAt(field, ownEnd);
  piece.field = std::move(field);
  pieces_.push_back(std::move(piece));
  for (const Range& part : parts) {
    if (part.begin < ownEnd) continue;
    Piece rest;
    rest.field = Marker("continued", part.begin, part.end);
    rest.field.AddNote("of " + name);
    rest.place = part.begin;
    pieces_.push_back(std::move(rest));
  }
}

void Tiling::AddNotes() {
  std::vector<const Field*> owners;  // in order of offset
  for (const Piece& piece : pieces_) {
    if (piece.field.size != 0) owners.push_back(&piece.field);
  }
  for (Piece& piece : pieces_) {
    if (piece.claimed.begin == piece.claimed.end) continue;
    const auto behind = std::upper_bound(
        owners.begin(), owners.end(), piece.taken,
        [](uint64_t offset, const Field* owner) { return offset < owner->offset; });
    const auto size = piece.claimed.end - piece.claimed.begin;
    piece.field.AddNote("claims " + std::to_string(size) + " bytes at " +
                        std::to_string(piece.claimed.begin) + ", but from " +
                        std::to_string(piece.taken) + " on they belong to " +
                        (*std::prev(behind))->Name());
  }
}

Field Tiling::Finish() {
  // Those without bytes come first, so that they stand at their own offset where they can.
  std::stable_sort(pieces_.begin(), pieces_.end(), [](const Piece& left, const Piece& right) {
    return std::pair(left.place, left.field.size != 0) <
           std::pair(right.place, right.field.size != 0);
  });
  AddNotes();
  Field file = Marker("file", 0, fileSize_);
  file.shape = Shape::kGroup;
  file.fields.reserve(pieces_.size());
  uint64_t position = 0;
  for (Piece& piece : pieces_) {
    Field& field = piece.field;
    if (field.size == 0) {
      field.offset = position;
    } else if (field.offset > position) {
      file.fields.push_back(Marker("gap", position, field.offset));
    }
    position = field.End();
    file.fields.push_back(std::move(field));
  }
  if (position < fileSize_) file.fields.push_back(Marker("gap", position, fileSize_));
  pieces_.clear();
  return file;
}

}  // namespace Quill::Anatomy
