// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace Quill {

// Why a package is refused, or not verified. cli/verdict.cc has the code and the words of each.
enum class Reason {
  // the archive and its manifests
  kNoArchive,  // name: the archive library's error
  // The tool tells these from kNoArchive. Name: the same; number: the offset at which the archive
  // ends by its end record, 0 without one; second: the size of the file.
  kArchiveTruncated,
  kArchiveTrailing,
  kArchiveDamaged,
  kManifestUnreadable,  // AndroidManifest.xml; name: the archive library's error
  kManifestMalformed,
  kManifestOverBudget,  // reading it costs too much
  kJarManifestMalformed,
  kOutsideHalyx,
  kNotMapped,
  // the APK Signing Block
  kBlockMagic,     // the tool finds it; the library sees no block then
  kBlockTooLarge,  // number: its size; second: the largest that fits
  kBlockTooSmall,
  kBlockSizesDiffer,  // number: the size at its start; second: in its footer
  kBlockEndRecord,
  kBlockPairs,
  kBlockNoScheme,
  // schemes v2 and v3
  kMalformed,  // name: the field that does not fit
  kNoSigner,
  kAlgorithmUnsupported,  // number: the first ID
  kKeyUnusable,
  kSignatureMismatch,  // number: the algorithm's ID
  kCertificateMissing,
  kCertificateMalformed,
  kCertificateKeyDiffers,  // expected: the key of the certificate; found: the signer's
  kStripped,
  kAlgorithmsDiffer,
  kDigestMismatch,   // expected: the signed digest; found: the content's
  kSdkRangesDiffer,  // name: the field; expected, second: what is signed; found, number: what is
                     // not
  kSdkUnknown,
  kNoSignerForSdk,  // number: the platform's SDK level; name: the ranges that there are
  kSeveralSigners,  // number: how many
  // the lineage; number: the level, from 1
  kLineageMalformed,
  kLineageEnd,
  kLineageCertificate,
  kLineageAlgorithm,
  kLineageKey,
  kLineageSignature,
  kLineageDuplicate,
  // the JAR signature
  kJarNoManifest,  // name: the archive library's error
  kJarNoSignatureFile,
  kJarSignatureFileMalformed,  // name: the file
  kJarClaimsScheme,            // name: the scheme
  kJarNoBlock,                 // name: the entry without its suffix
  kJarEcKey,                   // the same; its signature is in an entry that nothing reads
  kJarBlockMalformed,
  kJarSignedAttributes,
  kJarBlockDigestUnsupported,  // name: the algorithm, where it is known
  kJarKeyUnusable,
  kJarSignatureMismatch,  // name: the signature file
  kJarManifestMismatch,   // name: the digest
  kJarEntryUnreadable,    // name: the entry, also in the next three
  kJarEntryUnlisted,
  kJarEntryMismatch,
  kJarEntryDiffers,
  kJarDigestUnsupported,  // name: the digest, of an entry or of the manifest
};

// What the place that refuses knows. The bytes and texts are borrowed for the call.
struct Evidence {
  uint64_t number = 0;
  std::string_view name;
  const std::vector<uint8_t>* expected = nullptr;
  const std::vector<uint8_t>* found = nullptr;
  uint64_t second = 0;  // of two numbers
};

// Takes note that what follows on the calling thread is about that signer of the pair; the first is
// 0. In libquillon.so it does nothing.
void LookAtSigner(size_t index);

// Takes note of a refusal on the calling thread, and returns false. Called once for each refusal,
// by the innermost function that knows the reason. libquillon.so links log_only.cc, where this does
// nothing, so that the library keeps no state. The tool and the tests link recorder.cc.
bool Refuse(Reason reason, const Evidence& evidence = {});

// The same for one that has a number, or a name, and no more.
inline bool Refuse(Reason reason, uint64_t number) { return Refuse(reason, {number, {}, {}, {}}); }
inline bool Refuse(Reason reason, std::string_view name) {
  return Refuse(reason, {0, name, nullptr, nullptr});
}

}  // namespace Quill
