// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

#include <quillon/export.h>

// File names for log lines. None of these logs.

// Returns the path that the descriptor refers to, at most 4,096 bytes of it; empty when it cannot
// be found.
[[nodiscard]] QUILLON_EXPORT std::string GetFilenameByFd(int fd);

// Returns the short name of an installed package file: its package name, a slash and the file name,
// without the random tokens of its directories. A path of any other form is returned unchanged.
//
//   /data/app/~~AbCdEfGhIjKlMnOpQrStUv==/com.example.app-WxYzAbCdEfGhIjKlMnOpQr==/base.apk
//   -> com.example.app/base.apk
[[nodiscard]] QUILLON_EXPORT std::string GetUnifyFilenameByPath(std::string_view path);

// Returns GetUnifyFilenameByPath of GetFilenameByFd.
[[nodiscard]] QUILLON_EXPORT std::string GetUnifyFilenameByFd(int fd);
