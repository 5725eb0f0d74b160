// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <quillon/file.h>

namespace Quill::Tool {

// A file that appears at a path as a whole, in place of the one that is there, or not at all. A
// symbolic link there is not followed.
class NewFile {
 public:
  // Makes a file beside the path, with the permissions of the umask. Throws std::runtime_error when
  // it cannot, or when something other than a regular file is at the path.
  explicit NewFile(const std::string& path);
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  // Removes the file that is not in place.
  ~NewFile();

  // Throw std::runtime_error.
  void Append(std::string_view text) const;
  void PutInPlace();

 private:
  const std::string path_;
  std::string temporary_;  // empty: in place
  std::unique_ptr<Fd> file_;
};

}  // namespace Quill::Tool
