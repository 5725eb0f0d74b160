// SPDX-License-Identifier: Apache-2.0

#include "cli/html.h"

#include <fmt/format.h>

#include <cstdint>

#include "util/escape.h"

namespace Quill::Tool {
namespace {

constexpr char kHead[] = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<meta name="referrer" content="no-referrer">
)";

constexpr char kStyle[] = R"(<style>
:root { --ink: #1b1f24; --dim: #57606a; --back: #ffffff; --card: #f6f8fa; --line: #d0d7de;
  --good: #116329; --goodBack: #dafbe1; --bad: #a40e26; --badBack: #ffebe9; --odd: #7d4e00; --oddBack: #fff8c5; }
@media (prefers-color-scheme: dark) { :root { --ink: #e6edf3; --dim: #9198a1; --back: #0d1117; --card: #161b22;
  --line: #3d444d; --good: #56d364; --goodBack: #12261e; --bad: #ff8e86; --badBack: #2f1517; --odd: #e3b341; --oddBack: #2b2111; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1.5rem 1.5rem 4rem; max-width: 76rem; background: var(--back); color: var(--ink);
  font: 15px/1.5 system-ui, "DejaVu Sans", sans-serif; }
h1 { font-size: 1.35rem; margin: 0 0 .75rem; overflow-wrap: anywhere; }
h2 { font-size: 1.1rem; margin: 2.25rem 0 .6rem; }
h3 { font-size: 1rem; margin: 0; font-weight: 600; }
p { margin: .4rem 0; }
a { color: inherit; }
code, .hex, .tree { font-family: ui-monospace, "DejaVu Sans Mono", monospace; font-size: .82rem; }
code { overflow-wrap: anywhere; }
.dim { color: var(--dim); }
.verdict { padding: .8rem 1rem; border: 1px solid var(--line); border-left-width: 6px; border-radius: 6px; background: var(--oddBack); border-color: var(--odd); }
.verdict.verified { background: var(--goodBack); border-color: var(--good); }
.verdict.refused { background: var(--badBack); border-color: var(--bad); }
.verdict strong { font-size: 1.1rem; margin-right: .5rem; }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .1rem 1rem; margin: .6rem 0; }
dt { color: var(--dim); }
dd { margin: 0; overflow-wrap: anywhere; min-width: 0; }
.scroll { overflow-x: auto; }
.scroll svg { min-width: 46rem; }
.signer { border: 1px solid var(--line); border-radius: 6px; padding: .8rem 1rem; margin: .8rem 0; }
.chain { list-style: none; display: flex; flex-wrap: wrap; gap: .6rem 0; margin: .6rem 0 0; padding: 0; }
.chain li { display: flex; align-items: center; }
.chain li + li::before { content: "\2192"; font-size: 1.5rem; padding: 0 .5rem; }
.level { background: var(--card); border: 1px solid var(--line); border-radius: 6px; padding: .5rem .8rem; width: 21rem; max-width: 100%; align-self: stretch; }
.chain li:has(.wide) { flex: 1; }
.level.wide { width: auto; flex: 1; }
.level.now { border: 2px solid var(--ink); }
.level p { overflow-wrap: anywhere; margin: .15rem 0; }
.hex { margin: .5rem 0; padding: .7rem 1rem; background: var(--card); border: 1px solid var(--line); border-radius: 6px; overflow-x: auto; line-height: 1.45; }
mark { background: var(--badBack); color: var(--bad); font-weight: 700; text-decoration: underline; }
.tree { position: relative; padding-left: 12.5rem; line-height: 1.6; overflow-x: auto; }
.tree details > div { padding-left: 1.1rem; border-left: 1px solid var(--line); margin-left: .3rem; }
.tree summary { cursor: pointer; margin-left: -.1rem; }
.tree p { margin: 0; padding-left: 1rem; white-space: nowrap; }
.tree summary { white-space: nowrap; }
.tree i, .tree u { position: absolute; left: 0; width: 6rem; text-align: right; font-style: normal; text-decoration: none; color: var(--dim); }
.tree u { left: 6.2rem; width: 5.4rem; }
.tree b { font-weight: 600; }
.tree em { color: var(--odd); font-style: italic; }
.tree .bad { background: var(--badBack); outline: 2px solid var(--bad); color: var(--bad); }
.columns { padding-left: 0; }
</style>
)";

}  // namespace

std::string HtmlText(std::string_view text) {
  std::string html;
  uint32_t codePoint = 0;
  const auto put = [&] {
    if (codePoint != 0) html += fmt::format("&#x{:x};", codePoint);
    codePoint = 0;
  };
  // Well-formed UTF-8: a lead byte of N bytes starts with N set bits.
  for (const char c : EscapeForTerminal(text)) {
    const auto byte = static_cast<uint8_t>(c);
    if ((byte & 0xc0) == 0x80) {
      codePoint = codePoint << 6 | (byte & 0x3f);
      continue;
    }
    put();
    if (byte >= 0x80) {
      codePoint = byte & (byte >= 0xf0 ? 0x07U : byte >= 0xe0 ? 0x0fU : 0x1fU);
    } else if (c == '&' || c == '<' || c == '>' || c == '"' || c == '\'') {
      html += fmt::format("&#{};", byte);
    } else {
      html += c;
    }
  }
  put();
  return html;
}

std::string HtmlCut(std::string_view text, size_t most) {
  if (text.size() <= most) return HtmlText(text);
  // Not within a character.
  while (most != 0 && (static_cast<uint8_t>(text[most]) & 0xc0) == 0x80) --most;
  return HtmlText(text.substr(0, most)) + "&#x2026;";
}

std::string PageStart(std::string_view title) {
  return fmt::format("{}<title>{}</title>\n{}</head>\n<body>\n", kHead, HtmlCut(title, 200),
                     kStyle);
}

std::string PageEnd() { return "</body>\n</html>\n"; }

}  // namespace Quill::Tool
