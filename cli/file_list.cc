// SPDX-License-Identifier: Apache-2.0

#include "cli/file_list.h"

#include <cstdlib>
#include <utility>

namespace Quill::Tool {

FileList::FileList(std::vector<std::string> names, const std::string& listPath)
    : names_(std::move(names)),
      hasList_(!listPath.empty()),
      list_(!hasList_         ? nullptr
            : listPath == "-" ? stdin
                              : std::fopen(listPath.c_str(), "re"),
            std::fclose) {}

std::optional<std::string> FileList::Next() {
  if (position_ < names_.size()) return names_[position_++];
  if (list_ == nullptr) return std::nullopt;
  char* name = nullptr;
  size_t size = 0;
  const ssize_t length = getdelim(&name, &size, '\0', list_.get());
  const std::unique_ptr<char, void (*)(void*)> owner(name, std::free);
  if (length < 0) return std::nullopt;
  ++listed_;
  // The last name may lack its zero byte.
  return std::string(name, name[length - 1] == '\0' ? static_cast<size_t>(length) - 1
                                                    : static_cast<size_t>(length));
}

}  // namespace Quill::Tool
