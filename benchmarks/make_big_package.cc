// SPDX-License-Identifier: Apache-2.0

// Writes a signed package, so that compare.sh can run whole programs on it.
// usage: make_big_package MEBIBYTES FILE    v3, RSA 2048, SHA-256
#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <system_error>

#include "benchmarks/big_package.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: make_big_package MEBIBYTES FILE\n";
    return 2;
  }
  try {
    const Quill::Fd file(open(argv[2], O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.GetFd() < 0) throw std::system_error(errno, std::generic_category(), argv[2]);
    Quill::WriteBigPackage(file.GetFd(), std::strtoull(argv[1], nullptr, 10) << 20,
                           {3, &Quill::TestKey("rsa2048-0"), 0x0103});
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "make_big_package: " << error.what() << '\n';
    return 1;
  }
}
