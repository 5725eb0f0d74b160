# SPDX-License-Identifier: Apache-2.0

# The sources of each product. Folders are in the order in which they may include each other.
# Android.bp lists the same files, and tests/run_all.sh android_bp compares them.

set(QUILLON_SOURCES
  util/base64.cc
  util/byte_cursor.cc
  util/digest.cc
  util/file.cc
  util/file_name.cc
  util/file_pages.cc
  util/strings.cc
  util/system.cc
  util/text.cc
  crypto/hash.cc
  crypto/number.cc
  crypto/verifier.cc
  crypto/x509_certificate.cc
  signing_block/apk_package.cc
  signing_block/page_window.cc
  signing_block/process_hashes.cc
  schemes/algorithms.cc
  schemes/apk_signature_block_base.cc
  schemes/apk_signing_block_v2.cc
  schemes/apk_signing_block_v3.cc
  schemes/proof_of_rotation.cc
  schemes/signer_fields.cc
  schemes/signer_items.cc
  schemes/verification_steps.cc
  jar/entry_digest.cc
  jar/manifest_mf.cc
  jar/pkcs7.cc
  jar/signature_file.cc
  apk/android_manifest.cc
  apk/apk.cc
  apk/apk_archive.cc
  apk/jar_signature.cc
  apk/signature_scheme.cc
  integrity/certificate.cc
  integrity/entry_points.cc
  integrity/file_signing.cc
  integrity/signing.cc
  integrity/tarn_device.cc
  integrity/tarn_file.cc
  integrity/tarn_label.cc
  integrity/tarn_task.cc
)

# What a package is made of. The tool and the tests link it; libquillon.so does not.
set(QUILLON_ANATOMY_SOURCES
  anatomy/blame.cc
  anatomy/certificate_facts.cc
  anatomy/coverage.cc
  anatomy/field.cc
  anatomy/field_reader.cc
  anatomy/jar_fields.cc
  anatomy/package.cc
  anatomy/signer_facts.cc
  anatomy/signer_tree.cc
  anatomy/signing_block_fields.cc
  anatomy/tiling.cc
  anatomy/value.cc
  anatomy/zip_fields.cc
)

# What libquillon.so does with its findings, and what the tool and the tests do instead.
set(QUILLON_LOG_ONLY_SOURCES
  findings/log_only.cc
  findings/steps_unrecorded.cc
)
set(QUILLON_RECORDER_SOURCES
  findings/recorder.cc
  findings/steps_recorder.cc
)

# Substitutes for what the platform supplies and a workstation lacks.
set(QUILLON_HOST_SOURCES
  host/system_properties.cc
)
set(QUILLON_MALLOC_SOURCES
  host/malloc.cc
)
set(QUILLON_HX_SOURCES
  host/libhx.cc
)

# The simulated kernel. It compiles some helpers of the library and the tool again.
set(TARNSIM_SOURCES
  simulator/call.cc
  simulator/diagnostic.cc
  simulator/environment.cc
  simulator/fault.cc
  simulator/interpose.cc
  simulator/journal.cc
  simulator/kernel_path.cc
  simulator/label.cc
  simulator/label_store.cc
  simulator/local_machine.cc
  simulator/process.cc
  simulator/simulator.cc
  simulator/tarn_kernel.cc
  util/errno_name.cc
  util/escape.cc
  util/file_name.cc
  util/strings.cc
  util/text.cc
)

set(QUILLON_CLI_SOURCES
  cli/archive_error.cc
  cli/arguments.cc
  cli/child.cc
  cli/child_queue.cc
  cli/cmd_diff.cc
  cli/cmd_inspect.cc
  cli/cmd_label.cc
  cli/cmd_provision.cc
  cli/cmd_task.cc
  cli/cmd_verify.cc
  cli/content_diff.cc
  cli/diff_text.cc
  simulator/call.cc
  simulator/fault.cc
  simulator/kernel_path.cc
  simulator/label_store.cc
  util/errno_name.cc
  util/escape.cc
  cli/expected_signer.cc
  cli/file_label.cc
  cli/file_list.cc
  cli/help.cc
  cli/html.cc
  cli/inspect_html.cc
  cli/inspect_json.cc
  cli/inspect_picture.cc
  cli/inspect_text.cc
  cli/journal_file.cc
  cli/kernel_command.cc
  cli/kernel_report.cc
  cli/log_recorder.cc
  cli/logged_run.cc
  cli/main.cc
  cli/new_file.cc
  cli/open_files.cc
  cli/output.cc
  cli/package_evidence.cc
  cli/package_report.cc
  cli/program.cc
  cli/progress.cc
  cli/reference.cc
  cli/regular_file.cc
  cli/rules.cc
  cli/sdk_level.cc
  cli/signer_report.cc
  cli/signing_state.cc
  cli/simulated_requests.cc
  cli/simulated_run.cc
  cli/step_report.cc
  cli/tarn_code.cc
  cli/usage.cc
  cli/verdict.cc
  cli/warnings.cc
  cli/zip_directory.cc
)

# Writes the tool's manual pages and completion scripts.
set(QUILLON_MANUAL_SOURCES
  manual/completion.cc
  manual/main.cc
  manual/manual_page.cc
)

# Builds signed packages for the tests, the fuzz targets and the benchmarks.
set(QUILLON_TEST_SUPPORT_SOURCES
  tests/support/jar_signature.cc
  tests/support/log_capture.cc
  tests/support/manifest_xml.cc
  tests/support/package_builder.cc
  tests/support/package_numbers.cc
  tests/support/signers.cc
  tests/support/signing_key.cc
  tests/support/temp_file.cc
)

set(QUILLON_TEST_SOURCES
  tests/anatomy_test.cc
  tests/apk_package_test.cc
  tests/apk_test.cc
  tests/bit_flip_test.cc
  tests/crypto_test.cc
  tests/jar_test.cc
  tests/process_hashes_test.cc
  tests/real_packages_test.cc
  tests/schemes_test.cc
  tests/signing_test.cc
  tests/tarn_test.cc
  tests/util_test.cc
  tests/vtable_test.cc
)

# Makes allocations fail, with a malloc of its own.
set(QUILLON_MEMORY_TEST_SOURCES
  tests/out_of_memory_test.cc
)

set(QUILLON_BENCHMARK_SOURCES
  benchmarks/big_package.cc
  benchmarks/digest_benchmark.cc
  benchmarks/jar_benchmark.cc
  benchmarks/label_benchmark.cc
  benchmarks/limit.cc
  benchmarks/verify_benchmark.cc
)
