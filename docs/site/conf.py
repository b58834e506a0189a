"""Sphinx's settings for the documentation site; "./dev docs" runs it on build/docs/source."""
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

project = "kivsdu"
copyright = "the authors of kivsdu; MIT License"
version = release = re.search(r"project\(kivsdu\s+VERSION ([\d.]+)",
                              open(os.environ["KIVSDU_SOURCE"] + "/CMakeLists.txt",
                                   encoding="utf-8").read()).group(1)
extensions = ["myst_parser"]
source_suffix = {".rst": "restructuredtext", ".md": "markdown"}
root_doc = "index"
primary_domain = "c"
add_function_parentheses = False
highlight_language = "none"
nitpicky = True
# Types of the C language, and of the headers' own notation for parameters.
nitpick_ignore = [("c:identifier", name) for name in (
    "uint8_t", "uint16_t", "uint32_t", "uint64_t", "int32_t", "int64_t", "size_t")]
myst_heading_anchors = 3
suppress_warnings = ["myst.header"]

html_theme = "furo"
html_title = f"kivsdu {version}"
html_static_path = ["_static"]
html_css_files = ["site.css"]
html_show_sphinx = False
html_copy_source = False
