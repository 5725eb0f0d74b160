// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Quill::Tool {

// The files that a command is to look at, one after the other: those named on the command line,
// then those of a list whose names end with a zero byte each. The list is read as it is needed, so
// it can be of any length.
class FileList {
 public:
  // `listPath` is the list's file, "-" for standard input, or empty for none.
  FileList(std::vector<std::string> names, const std::string& listPath);

  // Returns false when there is a list and it cannot be opened; errno says why.
  bool IsOpen() const { return !hasList_ || list_ != nullptr; }
  // Returns the next file's name, and nothing behind the last one. An empty name is one, too.
  [[nodiscard]] std::optional<std::string> Next();
  // Returns false when the list could not be read to its end. Ask it behind the last file.
  bool IsWhole() const { return list_ == nullptr || std::feof(list_.get()) != 0; }
  // How many there are, as far as is known.
  size_t KnownCount() const { return names_.size() + listed_; }

 private:
  const std::vector<std::string> names_;
  const bool hasList_;
  const std::unique_ptr<FILE, int (*)(FILE*)> list_;
  size_t position_ = 0;
  size_t listed_ = 0;
};

}  // namespace Quill::Tool
