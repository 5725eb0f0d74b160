# SPDX-License-Identifier: Apache-2.0
"""Checks a page on standard input, and prints its text: well-formed, nothing that runs, nothing from elsewhere."""
import html.parser
import sys
import xml.etree.ElementTree

POLICY = "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'"
VOID = {"meta"}
ELEMENTS = VOID | set(
    "html head title style body h1 h2 h3 p div span strong em b i u a bdi code pre mark dl dt dd ol li article details "
    "summary svg defs pattern path circle rect text".split())
ATTRIBUTES = set(
    "lang charset http-equiv name content class id href open xmlns viewbox role aria-label width height x y cx cy r d "
    "fill patternunits text-anchor".split())


class Checker(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.open, self.policies, self.ids, self.links, self.text = [], [], [], [], []

    def handle_starttag(self, tag, attributes):
        assert tag in ELEMENTS, tag
        assert self.policies or tag in ("html", "head", "meta"), "something stands before the policy"
        for name, value in attributes:
            assert name in ATTRIBUTES, name
            assert "url(" not in (value or "") or value.startswith("url(#"), value
        values = dict(attributes)
        if "http-equiv" in values:
            self.policies.append(values["content"])
        self.ids += [values["id"]] if "id" in values else []
        self.links += [values["href"]] if "href" in values else []
        if tag not in VOID:
            self.open.append(tag)

    def handle_startendtag(self, tag, attributes):
        self.handle_starttag(tag, attributes)
        self.handle_endtag(tag)

    def handle_endtag(self, tag):
        assert self.open and self.open[-1] == tag, f"</{tag}> in {self.open}"
        self.open.pop()

    def handle_data(self, data):
        assert "style" not in self.open or not any(word in data for word in ("@import", "url(", "expression")), data
        if "style" not in self.open:
            self.text.append(data)


page = sys.stdin.read()
assert page.isascii() and page.startswith("<!DOCTYPE html>\n")
checker = Checker()
checker.feed(page)
checker.close()
assert not checker.open, checker.open
assert checker.policies == [POLICY], checker.policies
assert len(set(checker.ids)) == len(checker.ids), "an ID stands twice"
assert all(link[0] == "#" and link[1:] in checker.ids for link in checker.links), checker.links
xml.etree.ElementTree.fromstring(page[page.index("<svg"):page.rindex("</svg>") + 6])
print("".join(checker.text))
