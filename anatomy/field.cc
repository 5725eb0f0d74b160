// SPDX-License-Identifier: Apache-2.0

#include "anatomy/field.h"

#include <algorithm>

namespace Quill::Anatomy {

std::string Field::Name() const {
  return index < 0 ? name : std::string(name) + '[' + std::to_string(index) + ']';
}

std::string_view Field::Note() const { return extras ? extras->note : std::string_view(); }

void Field::AddNote(const std::string& note) {
  if (!extras) extras = std::make_unique<Extras>();
  extras->note += (extras->note.empty() ? "" : "; ") + note;
}

const Field* Field::Child(std::string_view childName, int32_t childIndex) const {
  const auto found = std::find_if(fields.begin(), fields.end(), [&](const Field& child) {
    return child.index == childIndex && child.name == childName;
  });
  return found == fields.end() ? nullptr : &*found;
}

namespace {

// Takes a name off the start of a path, with the dot behind it. Returns false when the path does
// not start with the whole name, or ends with the dot.
bool TakeName(std::string_view& path, std::string_view name) {
  if (path.substr(0, name.size()) != name) return false;
  const std::string_view rest = path.substr(name.size());
  if (!rest.empty() && rest[0] != '.' && rest[0] != '[') return false;
  if (rest == ".") return false;
  path = rest;
  if (!path.empty() && path[0] == '.') path.remove_prefix(1);
  return true;
}

// As deep as the tree, whose depth no file decides.
Place FindBelow(const Field& field, std::string_view path, const Decoded* in) {
  if (path.empty()) return {&field, in};
  for (const Field& child : field.fields) {
    std::string_view rest = path;
    if (!TakeName(rest, child.Name())) continue;
    // "v3[1]" is the second of that name, and may be a list in the first one too.
    if (const Place place = FindBelow(child, rest, in); place.field != nullptr) return place;
  }
  const Decoded* decoded = field.DecodedBytes();
  if (decoded == nullptr || !TakeName(path, "decoded")) return {};
  return FindBelow(decoded->root, path, decoded);
}

}  // namespace

Place FindPlace(const Field& root, std::string_view path) { return FindBelow(root, path, nullptr); }

const Field* Find(const Field& root, std::string_view path) { return FindPlace(root, path).field; }

std::string JoinPath(const std::string& path, const std::string& name) {
  return path.empty() || name[0] == '[' ? path + name : path + '.' + name;
}

bool IsTiled(const Field& field) {
  uint64_t position = field.offset;
  for (const Field& child : field.fields) {
    if (child.offset != position || !IsTiled(child)) return false;
    position = child.End();
  }
  if (!field.fields.empty() && position != field.End()) return false;
  const Decoded* decoded = field.DecodedBytes();
  return decoded == nullptr ||
         (decoded->root.offset == 0 && decoded->root.size == decoded->bytes.size() &&
          IsTiled(decoded->root));
}

}  // namespace Quill::Anatomy
