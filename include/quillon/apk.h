// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <quillon/export.h>
#include <quillon/manifest_mf.h>

// libziparchive's, from <ziparchive/zip_archive.h>.
struct ZipArchive;
struct ZipEntry;

namespace Quill {

// The signature scheme by which a package is verified.
enum class ApkSignatureScheme : int32_t {
  kNone = 0,
  kJar = 1,  // v1
  kV2 = 2,
  kV3 = 3,
};

// One opened package. The constructor opens the ZIP archive, parses META-INF/MANIFEST.MF (none is
// as good as an empty one) and the compiled manifest, decides whether the package falls under the
// Halyx feature, and verifies the signature. Halyx is a protection of the platform; a package that
// asks for it in its manifest falls under the feature. A step that fails is logged and ends this
// sequence. IsGoodZip, IsApk and IsGoodApk return how far it came. The constructor throws only what
// the standard library throws: for lack of memory, for a thread that cannot be started, for an SDK
// property that is not a number.
//
// A descriptor given to a constructor is borrowed. It must stay open as long as the object lives.
// The object moves its file offset, and does not close it. Only one thread at a time may use an
// object; distinct objects are independent.
//
// The archive operations return libziparchive's result codes: 0 for success, negative numbers for
// errors, whose texts its ErrorCodeString returns. Call them only when IsGoodZip is true.
//
// The members are implemented in apk/:
//
//   apk.cc               constructors, the opening sequence, getters
//   apk_archive.cc       FindEntry to EndIteration
//   android_manifest.cc  ParseAndroidManifest, ForcedIgnoreHalyxFilter
//   signature_scheme.cc  VerifyApkSignature, HasRollbackProtection
//   jar_signature.cc     VerifyFileHash to VerifyData, InitCertSf, ValidateManifest
class QUILLON_EXPORT Apk {
 public:
  // "META-INF/MANIFEST.MF".
  static const char* const kMANIFEST_MF;

  explicit Apk(const char* path);
  explicit Apk(int fd);
  // `ignoreHalyxFilter`: verifies the package even if it does not fall under the Halyx feature.
  Apk(int fd, bool ignoreHalyxFilter);
  // `path` is the file's name. The file is opened by that name only when `fd` is -1.
  Apk(int fd, const char* path);
  Apk(const Apk&) = delete;
  Apk& operator=(const Apk&) = delete;
  ~Apk();

  // Returns true when the archive was opened.
  [[nodiscard]] bool IsGoodZip() const;
  // Returns true when the archive has an AndroidManifest.xml: a package, not a plain JAR or ZIP.
  [[nodiscard]] bool IsApk() const;
  // Returns true when the package verified. For a v1 package, the first call also verifies
  // "classes.dex". If that fails, it logs the reason and one more error line, and every call
  // returns false.
  [[nodiscard]] bool IsGoodApk();

  // Returns the manifest's package name; empty when there is none.
  const std::string& GetPackageName() const;
  // Returns the main signer's public key: the modulus of an RSA key, the public value of a DSA key,
  // the encoded point of an EC key without its first two bytes. For a v1 package it is set even
  // when the signature does not verify. Trust it only when IsGoodApk is true.
  const std::vector<uint8_t>& GetManufacturerKey() const;
  // Returns the path given to the constructor; without one, the path of the descriptor.
  const std::string& GetPath() const;
  // Returns the descriptor. After a path that could not be opened, what open(2) returned.
  int32_t GetFd() const;
  // Returns the scheme of the verification, even of one that failed.
  ApkSignatureScheme GetApkSignatureSchemeVersion() const;
  // Returns true when the manifest asks for the Halyx protection, by permission or by meta-data.
  [[nodiscard]] bool IsHalyxPermissionRequired() const;
  // Returns true when the package is verified whether or not it asks for that protection: by the
  // constructor's argument, or by the package's name.
  [[nodiscard]] bool ForcedIgnoreHalyxFilter();

  // Fill `entry` with the entry of that name. A std::string counts only up to its first zero.
  [[nodiscard]] int32_t FindEntry(const std::string& name, ZipEntry* entry);
  [[nodiscard]] int32_t FindEntry(std::string_view name, ZipEntry* entry);
  // Extract an entry. On failure a vector holds unspecified bytes, and a string is unchanged.
  [[nodiscard]] int32_t Extract(ZipEntry* entry, std::vector<uint8_t>& out);
  [[nodiscard]] int32_t Extract(ZipEntry* entry, std::string& out);
  [[nodiscard]] int32_t ExtractByName(const std::string& name, std::vector<uint8_t>& out);
  [[nodiscard]] int32_t ExtractByName(const std::string& name, std::string& out);
  [[nodiscard]] int32_t GetContents(ZipEntry* entry, std::vector<uint8_t>& out);
  // Reads a file of the file system, not of the archive. Returns 0 or -1.
  [[nodiscard]] int32_t GetContents(const std::string& path, std::vector<uint8_t>& out);
  // Iterate over the entries whose names have that prefix and that suffix. EndIteration must be
  // called for every cookie. Next returns non-zero after the last entry. A view is valid as long as
  // the object lives.
  int32_t StartIteration(void** cookie, const std::string& prefix, const std::string& suffix);
  [[nodiscard]] int32_t Next(void* cookie, ZipEntry* entry, std::string_view& name);
  [[nodiscard]] int32_t Next(void* cookie, ZipEntry* entry, std::string& name);
  void EndIteration(void* cookie);

  // Verifies the v2 or v3 signature of the package behind `fd`. `path` is used in log lines only.
  // Returns 0 with the main signer's key in `publicKey`; 1 when a signing block was found but did
  // not verify; 2 when there is no usable block or the file cannot be mapped. Sets `scheme` when a
  // block was found, even if it does not verify. Logs the scheme, and the step that failed.
  [[nodiscard]] static int32_t VerifyApkSignature(int32_t fd, const std::string& path,
                                                  ApkSignatureScheme& scheme,
                                                  std::vector<uint8_t>& publicKey);
  // Returns true, and logs one info line, when a JAR signature file says that the package was also
  // signed with v2 or v3.
  [[nodiscard]] bool HasRollbackProtection(const ManifestMf& signatureFile);

  // Verify the contents of an entry against its digest in META-INF/MANIFEST.MF. If the manifest of
  // a v2 or v3 package does not list the name, compare them with the archive's entry of that name.
  // The contents are those of the archive's entry of that name, of `entry`, or of the file at
  // `path`. The first form returns true when the archive has no entry of that name, or cannot have
  // one. False logs one line.
  [[nodiscard]] bool VerifyFileHash(const std::string& name);
  [[nodiscard]] bool VerifyFileHash(const std::string& name, ZipEntry* entry);
  [[nodiscard]] bool VerifyFileHash(const std::string& name, const std::string& path);
  // Returns true for the seven names of signature files that the manifest of a v1 package need not
  // list.
  [[nodiscard]] bool CanSkipValidation(const std::string& name);
  // Returns true when the digest of `data` is `expected`. `digestName` is "SHA1-Digest" or
  // "SHA-256-Digest"; any other name returns false and logs one error line.
  [[nodiscard]] bool VerifyData(const std::string& digestName, const std::vector<uint8_t>& expected,
                                const std::vector<uint8_t>& data);

 private:
  using DigestNameAndValue = std::pair<std::string, std::string>;

  Apk() = default;
  void Init(int32_t fd, const char* path);
  [[nodiscard]] bool OpenArchive(const char* path);
  [[nodiscard]] bool VerifySignature(int32_t manifestResult,
                                     const std::vector<uint8_t>& manifestBytes);

  template <typename Container>
  [[nodiscard]] int32_t ExtractByNameImpl(const std::string& name, Container& out);

  [[nodiscard]] bool ParseAndroidManifest(std::vector<uint8_t> bytes);

  [[nodiscard]] bool InitCertSf();
  [[nodiscard]] bool ValidateManifest(const std::vector<uint8_t>& manifestBytes);

  template <typename Source>
  [[nodiscard]] bool VerifyFileHashImpl(const std::string& name, Source source);

  std::vector<std::string> halyxIgnoredPackages_{"com.google.android.webview"};
  std::string path_;
  int32_t fd_ = -1;
  ZipArchive* archive_ = nullptr;
  bool isApk_ = false;
  bool verified_ = false;           // the opening sequence succeeded
  bool contentsConfirmed_ = false;  // classes.dex was verified or need not be
  bool isGoodZip_ = false;
  ApkSignatureScheme signatureScheme_ = ApkSignatureScheme::kNone;
  std::map<std::string, DigestNameAndValue> entryDigests_;  // base64 values by entry name
  ManifestMf manifest_;
  ManifestMf certSf_;
  std::vector<uint8_t> manufacturerKey_;
  bool halyxPermissionRequired_ = false;
  bool ignoreHalyxFilter_ = false;
  std::string packageName_;
};

}  // namespace Quill
