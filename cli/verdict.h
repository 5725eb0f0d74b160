// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "findings/recorder.h"

namespace Quill::Tool {

// What several reasons and warnings advise.
inline constexpr char kSignAgain[] = "get it again from its source, or sign it again";
inline constexpr char kAskWho[] = "find out who made this package before you trust it";

// A field of the file, by its path in the tree that quillon inspect shows.
struct FieldPlace {
  std::string in;       // the entry inside which it lies; empty: the file itself
  std::string field;    // empty: not known
  uint64_t offset = 0;  // bytes from the start of the file, or of what the entry holds
  uint64_t size = 0;
};

// Why a file is not verified, for people and for programs.
struct FileReason {
  std::string code;     // such as "v2.digest-mismatch"; stable, docs/reasons.md lists them
  std::string message;  // one sentence without a full stop
  std::string hint;     // what to do next; may be empty
  std::string name;     // of a field, an entry, an algorithm; may be empty
  std::vector<uint8_t> expected = {};
  std::vector<uint8_t> found = {};
  std::optional<Refusal> refusal = {};  // where it comes from
  FieldPlace place = {};                // what it is about
};

enum class Status {
  kVerified,
  kRefused,
  kUnverified,  // the rules do not apply to it
  kUnreadable,  // could not be opened, or is no ZIP archive
  kUndecided,   // the attempt was given up
};

// Not verified unless somebody says so.
struct Verdict {
  Status status = Status::kUndecided;
  FileReason reason = {"no-reason", "nothing was found out about it", "", ""};  // empty: verified
  std::vector<FileReason> others = {};  // of other ways in which the package could have verified
};

// What an archive without a manifest holds.
enum class ArchiveContents { kBundle, kPackages, kOther };

// What a file that is no archive is instead.
struct LookAlike {
  const char* name = nullptr;  // null: not known
  const char* hint = nullptr;
};

// What the tool knows of a file that did not verify, besides the refusals.
struct Circumstances {
  int scheme = 0;                // of the verification that was tried
  bool wasPackage = false;       // an archive without a manifest that was a package once
  bool hasBlockTrace = false;    // of an APK Signing Block
  bool hasJarSignature = false;  // a signature file, or a block of one
  ArchiveContents contents = ArchiveContents::kOther;
  // Of a file that is no usable archive:
  bool startsAsZip = false;
  uint64_t fileSize = 0;
  uint64_t archiveSize = 0;  // where the last end record says that the archive ends; 0: no record
  LookAlike lookAlike;
};

// Judges a file that did not verify, from what the library refused.
[[nodiscard]] Verdict Judge(const Circumstances& file, const std::vector<Refusal>& refusals);

// Returns why an entry of a JAR that verified is refused.
[[nodiscard]] FileReason WhyEntryRefused(const std::vector<Refusal>& refusals);

// The name for programs, such as "refused", and the exit status.
[[nodiscard]] const char* NameOf(Status status);
[[nodiscard]] ExitStatus ExitOf(Status status);

}  // namespace Quill::Tool
