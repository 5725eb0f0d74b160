// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "anatomy/package.h"
#include "findings/recorder.h"

namespace Quill::Anatomy {

// What became of the verification of a package.
struct Outcome {
  int scheme = 0;  // that was tried last; 0: none was
  bool isVerified = false;
  std::vector<Refusal> refusals;
};

// How a signature covers bytes.
enum class How {
  kContentDigest,  // by the digest of the package's content in the signed data
  kSignedData,     // they are signed, or are digested in what is signed
  kNamed,          // the JAR manifest names the entry and its digest
  kStructure,      // not signed: what the verifier reads to find the signature and to check it
  kNone,           // not at all
};

enum class Checked {
  kVerified,     // a change of any bit is refused
  kFailed,       // the check failed here
  kNotLookedAt,  // nothing is said about them
};

struct ByteRange {
  uint64_t offset;
  uint64_t size;
};

struct Coverage {
  std::string by;  // the path of the signature, or its entry's name; "nothing" of what is left over
  How how;
  Checked checked;
  std::vector<ByteRange> ranges;  // of the file; in order, and none touches the next
};

// Returns which bytes of the file each signature covers, and last, by "nothing", those that none
// covers. A bit of the latter changes neither the verdict on a verified package nor its identity.
// Bytes can be covered more than once; together the ranges are the whole file.
//
// A JAR signature covers what is extracted from an entry. Deflated data count as covered, although
// a stream can have bits that change without a change of what is extracted.
[[nodiscard]] std::vector<Coverage> CoverageOf(const Package& package, const Outcome& outcome);

[[nodiscard]] const char* TextOf(How how);          // such as "content digest"
[[nodiscard]] const char* TextOf(Checked checked);  // such as "not looked at"

// Returns the index of the signature, of a signer's "signatures" or "digests", whose algorithm the
// verifier uses; -1: it supports none.
[[nodiscard]] int32_t ChosenAlgorithm(const Package& package, const Field& sequence);

// Returns the index of the signer of a v3 pair for the running platform, as the verifier chooses
// it; -1: there is not exactly one. All signers of a v2 pair count.
[[nodiscard]] int32_t ChosenSigner(const Package& package, const Field& pair);

}  // namespace Quill::Anatomy
