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

// The scheme that a package's verification rests on.
enum class ApkSignatureScheme : int32_t {
  kNone = 0,
  kJar = 1,  // v1
  kV2 = 2,
  kV3 = 3,
};

// One opened package. Construction runs the whole opening sequence: it opens the ZIP archive, reads
// the compiled manifest, decides whether the package falls under the Halyx feature, and verifies
// the signature. It never fails outright: the step that goes wrong is logged and stops the
// sequence, and IsGoodZip, IsApk and IsGoodApk report how far it came. Only the standard library's
// own failures (memory, a thread that cannot be started, an SDK property that is not a number) are
// thrown.
//
// A descriptor that is handed in is borrowed: it must stay open as long as the object, which does
// not close it, but moves its file offset. An object is used by one thread at a time; distinct
// objects are independent.
//
// The archive operations return libziparchive's result codes: 0 for success, negative errors, text
// by its ErrorCodeString. They may be called only when IsGoodZip.
class QUILLON_EXPORT Apk {
 public:
  // "META-INF/MANIFEST.MF".
  static const char* const kMANIFEST_MF;

  explicit Apk(const char* path);
  explicit Apk(int fd);
  // `ignoreHalyxFilter`: verify the package whether or not it falls under the Halyx feature.
  Apk(int fd, bool ignoreHalyxFilter);
  // `path` serves as the file's name; nothing is opened by it unless `fd` is -1.
  Apk(int fd, const char* path);
  Apk(const Apk&) = delete;
  Apk& operator=(const Apk&) = delete;
  ~Apk();

  // The archive was opened.
  bool IsGoodZip() const;
  // The archive has an AndroidManifest.xml: it is a package, not a plain JAR or ZIP.
  bool IsApk() const;
  // The package verified. The first call on a v1 package also checks "classes.dex" and logs when
  // that fails; the answer is then false for good.
  bool IsGoodApk();

  // The manifest's package name; empty when there is none.
  const std::string& GetPackageName() const;
  // The main signer's public key, as the key bytes of its type (see Verifier). On the v1 road it is
  // set even when the signature then does not verify; trust it only when IsGoodApk.
  const std::vector<uint8_t>& GetManufacturerKey() const;
  // The path given to the constructor, else the one behind the descriptor.
  const std::string& GetPath() const;
  // After a path that could not be opened, what open returned.
  int32_t GetFd() const;
  // The scheme that was tried, whether or not it verified.
  ApkSignatureScheme GetApkSignatureSchemeVersion() const;
  // The manifest asks for the Halyx protection, by permission or by meta-data.
  bool IsHalyxPermissionRequired() const;
  // The Halyx requirement is waived for this package, by the constructor or by its name.
  bool ForcedIgnoreHalyxFilter();

  // Fill `entry` with the entry of that name; a string counts up to its first zero.
  int32_t FindEntry(const std::string& name, ZipEntry* entry);
  int32_t FindEntry(std::string_view name, ZipEntry* entry);
  // Extract an entry. On failure a vector holds unspecified bytes and a string is untouched.
  int32_t Extract(ZipEntry* entry, std::vector<uint8_t>& out);
  int32_t Extract(ZipEntry* entry, std::string& out);
  int32_t ExtractByName(const std::string& name, std::vector<uint8_t>& out);
  int32_t ExtractByName(const std::string& name, std::string& out);
  int32_t GetContents(ZipEntry* entry, std::vector<uint8_t>& out);
  // Reads a file of the file system, not of the archive; 0 or -1.
  int32_t GetContents(const std::string& path, std::vector<uint8_t>& out);
  // Iterate over the entries whose names start and end so. A cookie must be given to EndIteration;
  // Next answers non-zero past the last entry. A view lives as long as the object.
  int32_t StartIteration(void** cookie, const std::string& prefix, const std::string& suffix);
  int32_t Next(void* cookie, ZipEntry* entry, std::string_view& name);
  int32_t Next(void* cookie, ZipEntry* entry, std::string& name);
  void EndIteration(void* cookie);

  // Verifies the v2 or v3 signature of the package behind `fd`; `path` serves for log lines.
  // Returns 0 with the main signer's key in `publicKey`; 1 when a signing block was found but did
  // not verify; 2 when there is no usable one or the file cannot be mapped. `scheme` is set as soon
  // as a block was found. Logs the scheme, and the step that failed.
  static int32_t VerifyApkSignature(int32_t fd, const std::string& path, ApkSignatureScheme& scheme,
                                    std::vector<uint8_t>& publicKey);
  // True, with one info line, when a JAR signature file says that the package was also signed with
  // v2 or v3.
  bool HasRollbackProtection(const ManifestMf& signatureFile);

  // Check an entry against its digest in META-INF/MANIFEST.MF, or, when a v2 or v3 package does not
  // list it, against the archive's entry of that name. The data checked are the archive's entry of
  // that name (absent counts as good, and so does a name that no archive can hold), a given entry,
  // or a file on disk. False logs one line.
  bool VerifyFileHash(const std::string& name);
  bool VerifyFileHash(const std::string& name, ZipEntry* entry);
  bool VerifyFileHash(const std::string& name, const std::string& path);
  // True for the seven signature-related names that a v1 package may leave out of its manifest.
  bool CanSkipValidation(const std::string& name);
  // Compares the digest of `data`, by "SHA1-Digest" or "SHA-256-Digest", with `expected`. An
  // unknown name is false and logs one error line.
  bool VerifyData(const std::string& digestName, const std::vector<uint8_t>& expected,
                  const std::vector<uint8_t>& data);

 private:
  using DigestNameAndValue = std::pair<std::string, std::string>;

  Apk() = default;
  void Init(int32_t fd, const char* path);
  bool OpenArchive(const char* path);
  bool VerifySignature(int32_t manifestResult, const std::vector<uint8_t>& manifestBytes);

  template <typename Container>
  int32_t ExtractByNameImpl(const std::string& name, Container& out);

  bool ParseAndroidManifest(std::vector<uint8_t> bytes);

  bool InitCertSf();
  bool ValidateManifest(const std::vector<uint8_t>& manifestBytes);

  template <typename Source>
  bool VerifyFileHashImpl(const std::string& name, Source source);

  std::vector<std::string> halyxIgnoredPackages_{"com.google.android.webview"};
  std::string path_;
  int32_t fd_ = -1;
  ZipArchive* archive_ = nullptr;
  bool isApk_ = false;
  bool verified_ = false;           // the opening sequence succeeded
  bool contentsConfirmed_ = false;  // no check of classes.dex is needed any more
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
