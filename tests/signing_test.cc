// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <set>
#include <string>

#include <quillon/apk.h>
#include <quillon/certificate.h>
#include <quillon/entry_points.h>
#include <quillon/signing.h>
#include <quillon/tarn.h>

#include "simulator/simulator.h"
#include "tests/support/log_capture.h"
#include "tests/support/package_builder.h"
#include "tests/support/temp_file.h"

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names for --wrap
extern "C" {
void __real_free(void* block);
// A C library may leave errno changed.
void __wrap_free(void* block) {
  __real_free(block);
  errno = ENOTUNIQ;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace Quill {
namespace {

using tarnsim::Call;
using tarnsim::Fault;
using tarnsim::KernelSetup;
using tarnsim::Request;
using tarnsim::Simulation;

// Every test uses these descriptors, so that log lines are literals.
constexpr int kApk = 100;
constexpr int kOat = 101;
constexpr int kVdex = 102;

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  for (size_t at; (at = text.find(what)) != std::string::npos;) text.replace(at, what.size(), with);
  return text;
}

// The log, with "PATH" for the path of a file in memory.
std::string Text(LogCapture& log) {
  return Replaced(log.Take(), "/memfd:quillon-test (deleted)", "PATH");
}

// The lines with every "@" replaced by the descriptor.
std::string For(int fd, std::string lines) {
  return Replaced(std::move(lines), "@", std::to_string(fd));
}

// What the kernel was asked, with the target where it is a file.
std::string Requests(Simulation& simulation) {
  std::string text;
  for (const Request& request : simulation.TakeJournal()) {
    text += std::string(text.empty() ? "" : ", ") + NameOf(request.call);
    if (!request.file.empty()) text += " " + std::to_string(request.target);
  }
  return text;
}

ByteVector Package() {
  const XmlElement permission = {"uses-permission",
                                 {{"name", std::string("com.vrk.android.SECURE_STORAGE")}}};
  return PackageBuilder().Manifest(ManifestXml("org.quillon.test", {permission})).V3().Build();
}

ByteVector OutsideHalyx() { return PackageBuilder().Manifest().V3().Build(); }

ByteVector ChangedPackage() {
  ByteVector package = Package();
  package[10] ^= 1;  // the time stamp of the first entry
  return package;
}

ByteVector Jar() { return PackageBuilder().Entry("a", {1}).Build(); }

// Whatever a workflow does, the caller's descriptors stay open and no other does.
class Workflows : public testing::Test {
 protected:
  Workflows() {
    for (const int fd : {kApk, kOat, kVdex}) Open(fd, {1});
    descriptors_ = OpenDescriptors();
  }
  ~Workflows() override {
    EXPECT_EQ(descriptors_, OpenDescriptors());
    for (const int fd : {kApk, kOat, kVdex}) EXPECT_EQ(0, close(fd));
  }

  static void Open(int fd, const ByteVector& contents) { dup2(MemoryFile(contents).GetFd(), fd); }

 private:
  ptrdiff_t descriptors_;
};

const char* const kVerified =
    "I Use APK V3 signature. APK: PATH\n"
    "I Found the best signature algorithm ID: 0x201~\n";
const char* const kOutside = "I HALYX permissions are absent.\n";
const char* const kPlainArchive = "I Can't extract Android Manifest: Entry not found\n";
const char* const kCertified = "I HxAddCertificate: HxNewCertificate return 0.\n";

struct Archive {
  ByteVector bytes;
  std::string opening;  // what opening it logs
  std::string kind;     // what signing a file for it logs first
  bool hasLabel = false;
};

Fault Always(Call call, int error, int result = -1) { return {call, 0, error, result}; }

struct Scenario {
  const char* name;
  Archive archive;
  std::string signing;   // what the file "@" logs
  std::string error;     // in the entry point's own line; none: success
  std::string requests;  // of the OAT and VDEX files; certificates go without saying
  std::string certificate;
  Fault fault = Always(Call::kUnknown, 0);
  bool targetsAreEmpty = false;
};

std::vector<Scenario> Scenarios() {
  const Archive package = {Package(), kVerified, "I TarnSignOat: Apk case.\n"};
  const Archive unlabelled = {Jar(), kPlainArchive, "I TarnSignOat: non-Apk (Jar) case\n"};
  const Archive jar = {Jar(), kPlainArchive, unlabelled.kind, /*hasLabel=*/true};
  const Archive outside = {OutsideHalyx(), kOutside, kOutside};
  const Archive changed = {ChangedPackage(),
                           std::string(kVerified) +
                               "E Can't verify digests of APK~\n"
                               "E Can't verify APK signature block~\n"
                               "E Can't verify signature APK V3: PATH\n",
                           package.kind};
  const Archive none = {{1}, "E OpenArchiveFd(100) [file: PATH] returned: -3: Invalid file\n", ""};
  const std::string unmapped = "E Can't map file: @\nE Can't calculate hash of file: @.\n";
  const std::string done = "I TarnSign finished: 0.\n", failed = "I TarnSign finished: 65536.\n";
  const std::string refused =
      "result=fffffffb, errno 5: Input/output error).\nI TarnSign finished: 4294967291.\n";
  const std::string reads = "read-integrity, read-integrity";
  const std::string signs = "read-integrity, sign 101, read-integrity, sign 102";
  const std::string stored = "I HxAddCertificate: HxNewCertificate return 65540.\n";
  const std::string notStored = "E HxAddCertificate: HxNewCertificate failed -5.\n";
  return {
      {"v3", package, done, "", signs, kCertified},
      {"outside the feature", outside, done, "", "close 101, close 102", ""},
      {"refused package", changed, failed, "Success", reads,
       "E Apk archive is not valid for fd=100, path=PATH\n"},
      {"no archive", none, "E Zip archive is not valid for fd=100\n", "Success", reads, ""},
      {"JAR that the kernel verifies", jar, done, "",
       "verify 100, read-integrity, sign 101, verify 100, read-integrity, sign 102", ""},
      {"JAR that it does not verify", unlabelled,
       "I TARN can't verify a file 61: /No data available.\nI TarnSign finished: 4294967235.\n",
       "No data available", "verify 100, read-integrity, verify 100, read-integrity", ""},
      {"unmapped targets", package, unmapped + failed, "Invalid argument", reads, kCertified,
       Always(Call::kUnknown, 0), true},
      {"labels refused", package, "E TARN can't sign a file (" + refused, "Input/output error",
       "read-integrity, sign 101, read-integrity, read-integrity, sign 102, read-integrity",
       kCertified, Always(Call::kSign, EIO)},
      {"a JAR's labels refused", jar, "E TARN can't sign a non-APK file (" + refused,
       "Input/output error",
       "verify 100, read-integrity, sign 101, read-integrity, "
       "verify 100, read-integrity, sign 102, read-integrity",
       "", Always(Call::kSign, EIO)},
      {"stored before", package, done, "", signs, stored, Always(Call::kCertificate, 0, 0x10004)},
      {"not stored", package, done, "", signs, notStored, Always(Call::kCertificate, 0, -5)},
  };
}

TEST_F(Workflows, ProvisioningLogsEachFateWholeAndInOrder) {
  for (const Scenario& c : Scenarios()) {
    SCOPED_TRACE(c.name);
    Open(kApk, c.archive.bytes);
    for (const int fd : {kOat, kVdex}) Open(fd, ByteVector(c.targetsAreEmpty ? 0 : 1));
    KernelSetup setup;
    setup.faults = {c.fault};
    if (c.archive.hasLabel) setup.labels = {{kApk, {0, 0}}};
    Simulation simulation(setup);
    LogCapture log;
    const auto signing = [&](int fd, const std::string& failure) {
      std::string lines =
          For(fd, "I TarnSign starts: zip_fd = 100, fd = @.\n" + c.archive.kind + c.signing);
      if (c.error.empty()) return lines;
      return lines + "E TARN can't sign a file: apk_fd=100, " + failure + ", error: " + c.error +
             "~\nI TARN current integrity: 0x1~\n";
    };

    errno = EILSEQ;  // of an earlier call
    RunOEMFuncForProvisionOat(kApk, kOat, kVdex);
    EXPECT_EQ(
        "I <TARN>: Enter to ProvisionOat\n"
        "I <TARN>: Enter ProvisionOat APK: 100 PATH\n"
        "I <TARN>: Enter ProvisionOat OAT: 101 PATH\n"
        "I <TARN>: Enter ProvisionOat VDEX: 102 PATH\n" +
            c.archive.opening + signing(kOat, "oat_fd=101") + signing(kVdex, "vdex_fd=102") +
            c.certificate + c.certificate + "I <TARN>: Exit from ProvisionOat\n",
        Text(log));
    const bool certifies = c.certificate.find("HxNewCertificate") != std::string::npos;
    EXPECT_EQ(c.requests + (certifies ? ", certificate 101, certificate 102" : ""),
              Requests(simulation));
  }
}

TEST_F(Workflows, BootArtRefusesNegativeDescriptors) {
  const Simulation simulation;
  LogCapture log;
  RunOEMFuncForProvisionBootArt(-1, kOat);
  EXPECT_EQ(
      "I <TARN>: Enter to ProvisionBootArt\n"
      "I <TARN>: Enter ProvisionBootArt APK: -1 \n"
      "I <TARN>: Enter ProvisionBootArt ART: 101 PATH\n"
      "E TARN incorrect arguments: apk_fd=-1, target_fd=101~\n"
      "I TARN current integrity: 0x1~\n"
      "I <TARN>: Exit from ProvisionBootArt\n",
      Text(log));
}

TEST_F(Workflows, StartOfProvisioningOpensVdexBeforeOat) {
  KernelSetup setup;
  setup.faults = {{Call::kEdit, 1, EBUSY}, {Call::kReadIntegrity, 2, EIO}};
  Simulation simulation(setup);
  LogCapture log;
  RunOEMFuncForStartProvisionOat(kOat, kVdex);
  EXPECT_EQ(
      "I <TARN>: Enter to StartProvisionOat\n"
      "I <TARN>: Enter StartProvisionOat OAT: 101 VDEX: 102\n"
      "E TARN can't edit a VDEX file fd=102 (result=fffffff0, errno 16: Device or resource "
      "busy).\n"
      "E TARN can't edit an OAT file fd=101 (result=10000, errno 5: Input/output error).\n"
      "I <TARN>: Exit from StartProvisionOat\n",
      Text(log));
  EXPECT_EQ("read-integrity, edit 102, read-integrity", Requests(simulation));
}

TEST_F(Workflows, LabelOfASampleIsKnownByteForByte) {
  const auto sample = OpenFileRO(QUILLON_SAMPLES_DIR "/v3.apk");
  Open(kOat, {'f', 'i', 'l', 'e'});
  Simulation simulation;
  const LogCapture log;
  EXPECT_EQ(0u, TarnSign(sample->GetFd(), kOat));
  EXPECT_EQ(
      "ffff02000002971c419dd609331343dee105fffd0f4608dc0bf2" +  // SHA-1 of "file", in 64 bytes
          std::string(88, '0') +
          "2000"  // SHA-256 of the signer's key
          "16c2e52936dd87b7455c85628658c6719e19017c7f93919e70be1a610d5b2d8e",
      Hex(simulation.LabelOf(kOat)));
}

TEST_F(Workflows, AJarIsCertifiedByItsAttributeAndPath) {
  const TempFolder folder;
  const std::string path = folder.Write("a.jar", Jar());
  const auto jar = OpenFileRO(path);
  Simulation simulation;
  LogCapture log;
  if (setxattr(path.c_str(), "user.hx", "", 0, 0) != 0) GTEST_SKIP() << "no attributes here";
  HxSign(jar->GetFd(), kOat);
  EXPECT_EQ(kPlainArchive, Text(log));
  ASSERT_EQ(0, setxattr(path.c_str(), "user.hx", "1", 1, 0));
  HxSign(jar->GetFd(), -1);
  EXPECT_EQ(Replaced("JARE Can't get oat location from fd=-1\n", "JAR", kPlainArchive) +
                "I HxAddCertificate: Call HxNewCertificate for JAR.\n" + kCertified,
            Text(log));
  const Request request = simulation.TakeJournal().at(0);
  EXPECT_EQ(path, request.identity);
  ByteVector chain;
  for (ByteVector link(path.begin(), path.end()); chain.size() < 128;) {
    link = DigestOf(EVP_sha256(), link);
    chain.insert(chain.end(), link.begin(), link.end());
  }
  EXPECT_EQ(chain, request.certificate);
}

TEST_F(Workflows, APackageIsCertifiedByNameAndKeyUnlessOnlyWaived) {
  Simulation simulation;
  LogCapture log;
  Open(kApk, Package());
  Apk apk(kApk);
  HxSign(apk, kApk, kOat);
  const Request request = simulation.TakeJournal().at(0);
  EXPECT_EQ("org.quillon.test", request.identity);
  EXPECT_EQ(apk.GetManufacturerKey(), request.certificate);

  Open(kApk, OutsideHalyx());
  Apk waived(kApk, /*ignoreHalyxFilter=*/true);
  HxSign(waived, kApk, kOat);
  EXPECT_EQ("", Requests(simulation));
}

TEST_F(Workflows, NativeLibrariesBesideThePackageAreLabelled) {
  const TempFolder folder;
  PackageBuilder builder = PackageBuilder().Manifest();
  for (const char* name :
       {"lib/armeabi-v7a/7.so", "lib/armeabi-v8a/8.so", "lib/arm64-v8a/64.so", "lib/armeabi/5.so",
        "lib/armeabi/deep/5.so", "lib/x86/86.so", "lib/arm64-v8a/absent.so",
        "lib/armeabi/notes.txt", "lib/arm64-v8a/../../../outside.so", "lib/arm64-v8a/./64.so",
        "lib/arm64-v8a//64.so"}) {
    builder.Entry(name, {1});
  }
  const std::string package = folder.Write("app/base.apk", builder.V3().Build());
  std::set<std::string> expected = {package};
  for (const char* name : {"arm/5.so", "arm/7.so", "arm/deep/5.so", "arm64/64.so", "arm64/8.so"}) {
    expected.insert(folder.Write(std::string("app/lib/") + name, {1}));
  }
  for (const char* name :
       {"outside.so", "app/outside.so", "app/lib/x86/86.so", "app/lib/arm/notes.txt"}) {
    folder.Write(name, {1});
  }

  const auto file = OpenFileRO(package);
  Simulation simulation;
  LogCapture log;
  RunOEMFuncForApkSigner(file->GetFd(), "/data/app/p-WxYzAbCdEfGhIjKlMnOpQr==/base.apk", 3);
  std::string libraries;
  for (int i = 0; i < 5; ++i) libraries += "I TarnSignOat: Apk case.\n";
  EXPECT_EQ(
      For(file->GetFd(),
          "I <TARN>: Enter to ApkSigner\n"
          "I <TARN>: Enter ApkSigner APK: @ p/base.apk\n" +
              Replaced(kVerified, "PATH", package) + "I TarnSignJni starts: @.\n" + libraries +
              "I TarnSignJni finished: 0.\n"
              "I TarnSign starts: zip_fd = @, fd = @.\n"
              "I TarnSignOat: Apk case.\n"
              "I TarnSign finished: 0.\n"
              "I <TARN>: Exit from ApkSigner\n"),
      Text(log));
  std::set<std::string> files;
  for (const Request& request : simulation.TakeJournal()) {
    if (request.call == Call::kSign) files.insert(request.file);
  }
  EXPECT_EQ(expected, files);
}

TEST_F(Workflows, APathWithoutAFolderIsTakenFromTheWorkingFolder) {
  const TempFolder folder;
  const std::string library = folder.Write("lib/arm/a.so", {1});
  const auto workingFolder = std::filesystem::current_path();
  std::filesystem::current_path(folder.Path());
  PackageBuilder package = PackageBuilder().Manifest(ManifestXml("com.google.android.webview"));
  Open(kApk, package.Entry("lib/armeabi/a.so", {1}).V3().Build());
  for (const char* path : {"base.apk", ""}) {
    Simulation simulation;
    const LogCapture log;
    Apk apk(kApk, path);
    EXPECT_EQ(0u, TarnSignJni(apk, kApk, nullptr));
    EXPECT_EQ(library, simulation.TakeJournal().back().file) << path;
  }
  std::filesystem::current_path(workingFolder);
}

TEST_F(Workflows, NoLibraryIsLabelledForAPackageOutsideTheFeatureOrRefused) {
  Simulation simulation;
  LogCapture log;
  Open(kApk, OutsideHalyx());
  RunOEMFuncForApkSigner(kApk, "p", 2);
  EXPECT_EQ("close 100, close 100", Requests(simulation));
  Open(kApk, ChangedPackage());
  Apk apk(kApk);
  log.Take();
  EXPECT_EQ(0x10000u, TarnSignJni(apk, kApk, nullptr));
  EXPECT_EQ("I TarnSignJni starts: 100.\nE TarnSignJni: malformed apk: PATH\n", Text(log));
}

}  // namespace
}  // namespace Quill
