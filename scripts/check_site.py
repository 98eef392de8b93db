#!/usr/bin/env python3
"""check_site.py DIRECTORY: whether the pages of a directory can be read without a network, and nothing in them leads
nowhere.

Every link must lead to a file and an anchor that are there, in the pages and in the scripts that draw the navigation and
the search. Nothing that a browser fetches by itself (scripts, styles, pictures, frames) may come from elsewhere. Links
that a reader follows may, by https. A page must say something.
"""

import html.parser
import pathlib
import re
import sys
import urllib.parse
import xml.etree.ElementTree

# What a browser fetches without being asked, by element: the attributes that name it.
LOADED = {
    "script": ["src"], "img": ["src", "srcset"], "iframe": ["src"], "embed": ["src"], "object": ["data"],
    "link": ["href"], "source": ["src", "srcset"], "audio": ["src"], "video": ["src", "poster"], "image": ["href", "xlink:href"],
    "use": ["href", "xlink:href"], "input": ["src"], "frame": ["src"],
}
STYLE_ADDRESS = re.compile(r"""url\(\s*["']?([^"')]+)|@import\s+["']([^"']+)""")
SCRIPT_ADDRESS = re.compile(r"""["']((?:\.\./)*[\w./-]+\.html(?:#[\w.:-]*)?)["']""")


class Page(html.parser.HTMLParser):
    """What one page loads and links to, the anchors that it has, and the amount of text in it."""

    def __init__(self, text):
        super().__init__(convert_charrefs=True)
        self.loaded, self.linked, self.anchors, self.words = [], [], set(), 0
        self.inside = None  # "script" or "style"
        self.feed(text)
        self.close()

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        self.inside = tag if tag in ("script", "style") else None
        for name in ("id", "name"):
            if values.get(name):
                self.anchors.add(values[name])
        for name in LOADED.get(tag, []):
            if values.get(name):
                self.loaded.append(values[name].split()[0])
        if tag in ("a", "area") and values.get("href"):
            self.linked.append(values["href"])
        self.loaded += style_addresses(values.get("style") or "")

    def handle_endtag(self, tag):
        self.inside = None

    def handle_data(self, data):
        if self.inside == "style":
            self.loaded += style_addresses(data)
        elif self.inside is None:
            self.words += len(data.split())


def style_addresses(text):
    return [first or second for first, second in STYLE_ADDRESS.findall(text)]


class Site:
    def __init__(self, root):
        self.root = root.resolve()
        self.pages = {path: Page(path.read_text(encoding="utf-8")) for path in sorted(self.root.rglob("*.html"))}
        self.complaints, self.outside, self.links = [], set(), 0

    def complain(self, path, what):
        self.complaints.append(f"{path.relative_to(self.root)}: {what}")

    def check_address(self, path, address, is_loaded):
        """One address in a file: of this site, or of another one where that is allowed."""
        parts = urllib.parse.urlsplit(address)
        if parts.scheme in ("data", "javascript"):
            return
        self.links += 1
        if parts.scheme or parts.netloc:
            self.check_outside(path, address, parts, is_loaded)
            return
        target = (path.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else path
        if not target.is_relative_to(self.root):
            self.complain(path, f"leads out of the site: {address}")
        elif not target.is_file():
            self.complain(path, f"leads to a file that is not there: {address}")
        elif parts.fragment and target in self.pages:
            if urllib.parse.unquote(parts.fragment) not in self.pages[target].anchors:
                self.complain(path, f"leads to an anchor that is not there: {address}")

    def check_outside(self, path, address, parts, is_loaded):
        if is_loaded:
            self.complain(path, f"would be loaded from elsewhere: {address}")
        elif parts.scheme != "https" or "." not in parts.netloc:
            self.complain(path, f"no address of a page: {address}")
        else:
            self.outside.add(address)

    def check_picture(self, path):
        try:
            elements = xml.etree.ElementTree.parse(path).iter()
        except xml.etree.ElementTree.ParseError as error:
            self.complain(path, f"no picture: {error}")
            return
        for element in elements:
            for name, address in element.attrib.items():
                if name.rpartition("}")[2] == "href":
                    self.check_address(path, address, is_loaded=True)

    def check(self):
        for path, page in self.pages.items():
            for address in page.loaded:
                self.check_address(path, address, is_loaded=True)
            for address in page.linked:
                self.check_address(path, address, is_loaded=False)
            if page.words < 10 and path.parent.name != "search":  # those are filled in by a script
                self.complain(path, "says nothing")
        for path in sorted(self.root.rglob("*.css")) + sorted(self.root.rglob("*.svg")):
            for address in style_addresses(path.read_text(encoding="utf-8")):
                self.check_address(path, address, is_loaded=True)
        for path in sorted(self.root.rglob("*.svg")):
            self.check_picture(path)
        for path in sorted(self.root.rglob("*.js")):
            for address in SCRIPT_ADDRESS.findall(path.read_text(encoding="utf-8")):
                self.check_address(path, address, is_loaded=False)


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    site = Site(pathlib.Path(arguments[1]))
    site.check()
    for complaint in site.complaints:
        print(f"check_site: {complaint}", file=sys.stderr)
    if not site.pages or not (site.root / "index.html").is_file():
        print(f"check_site: there is no site in {site.root}", file=sys.stderr)
        return 1
    print(f"{len(site.pages)} pages, {site.links} links; elsewhere: {', '.join(sorted(site.outside)) or 'nothing'}")
    return 1 if site.complaints else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
