// SPDX-License-Identifier: Apache-2.0

// Writes a signed package (v3, RSA 2048, SHA-256), so that whole programs can run on it.
// usage: make_big_package MEBIBYTES FILE [hole]
//   hole    most of it is a hole, which takes no room on the disk
#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string_view>
#include <system_error>

#include "benchmarks/big_package.h"

int main(int argc, char** argv) {
  const bool isHollow = argc == 4 && std::string_view(argv[3]) == "hole";
  if (argc != 3 && !isHollow) {
    std::cerr << "usage: make_big_package MEBIBYTES FILE [hole]\n";
    return 2;
  }
  try {
    const Quill::Fd file(open(argv[2], O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.GetFd() < 0) throw std::system_error(errno, std::generic_category(), argv[2]);
    const auto write = isHollow ? Quill::WriteHollowPackage : Quill::WriteBigPackage;
    write(file.GetFd(), std::strtoull(argv[1], nullptr, 10) << 20,
          {3, &Quill::TestKey("rsa2048-0"), 0x0103});
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "make_big_package: " << error.what() << '\n';
    return 1;
  }
}
