// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "anatomy/coverage.h"
#include "anatomy/package.h"
#include "anatomy/signer_facts.h"
#include "cli/package_report.h"

namespace Quill::Tool {

// All that `quillon inspect` shows of a file.
struct Inspection {
  PackageReport report;
  Anatomy::Package package;
  std::vector<Anatomy::SignerFacts> signers;
  std::vector<Anatomy::Coverage> coverage;
  std::string blamed;  // the path of the field that the reason is about; empty: none
  std::string field;   // the path of the branch that is asked for; empty: the whole file
};

// Takes pieces of the output, in order.
using Sink = std::function<void(std::string_view)>;

// Writes one JSON object in one line of ASCII, as docs/schema/inspect.json describes it.
void WriteJson(const Inspection& inspection, const Sink& sink);

// Writes lines for people. Texts from the package are escaped in them. The field that is asked for
// must exist.
void WriteText(const Inspection& inspection, const Sink& sink);

// Writes the body of a page, for between PageStart and PageEnd. Its size is bounded: of a large
// package it lacks fields, and says so. There must be a package.
void WriteHtml(const Inspection& inspection, const Sink& sink);

}  // namespace Quill::Tool
