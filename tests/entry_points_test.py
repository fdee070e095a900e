"""Every prototype in the entry-point list against the published facts about the C API:
the return type and each parameter's type, in order. The list drives the library's
pointer table and the simulated runtime's exports, so a wrong type there would be wrong
everywhere at once and no compiler would notice."""
import os
import re
import sys
import unittest

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ENTRY_LIST = os.path.join(SOURCE_DIR, "HYLNTools", "HYLNTool_Interface", "HYLNTool_EntryPoints.def")
FACTS = os.environ.get("HYLN_CAPI_FACTS", os.path.join(SOURCE_DIR, "..", "shared", "notes-capi-facts.md"))
SKIPPED = 77  # CTest's skip code: the facts are not beside this checkout

def normalize(text):
    return re.sub(r"\s+", " ", text.strip())


# A declaration as the facts write one: "const char *Name", "DWORD Flags" or a bare type.
DECLARATION = re.compile(r"^(const )?[A-Za-z_]\w*( [A-Za-z_]\w*)*[ *]*(\*|\s)\s*[A-Za-z_]\w*$|^[A-Z][A-Z0-9_]*$")


def param_type(declaration):
    """The type of "const char* Name" or of a bare type such as "NOTEHANDLE"."""
    tokens = declaration.replace("*", " * ").split()
    if len([t for t in tokens if t != "*"]) > 1 and tokens[-1] != "*":
        tokens = tokens[:-1]
    words = [t for t in tokens if t != "*"]
    return " ".join(words) + "*" * tokens.count("*")


def declared_entries():
    entries = {}
    pattern = re.compile(r"^HY_ENTRY\(([^,]+), (\w+), \((.*?)\), \(")
    with open(ENTRY_LIST) as entry_list:
        for line in entry_list:
            match = pattern.match(line)
            if match:
                returned, name, params = match.groups()
                types = [param_type(p) for p in params.split(",")] if params.strip() else []
                entries[name] = (param_type(returned), types)
    return entries


def published_entries():
    """Rows "| Name | return type (notes) | `declaration` (notes), ... | ..." of the facts."""
    published = {}
    previous = None
    row = re.compile(r"^\| *(\w+) *\| *([^|]+?) *\| *([^|]*?) *\|")
    with open(FACTS) as facts:
        for line in facts:
            match = row.match(line.replace("\\|", "/"))
            if not match or match.group(1) in published:
                continue
            name, returned, params = match.groups()
            # "WORD (text length)", "**long** (64-bit on Linux)", "void *"
            returned = param_type(returned.replace("**", "").split("(")[0])
            if params.startswith("same") and previous is not None:
                types = previous
            else:
                declarations = [normalize(code) for code in re.findall(r"`([^`]+)`", params)]
                types = [param_type(code) for code in declarations if DECLARATION.match(code)]
            published[name] = (returned, types)
            previous = types
    return published


class EntryPointPrototypes(unittest.TestCase):
    def test_each_listed_entry_point_has_the_published_prototype(self):
        declared = declared_entries()
        self.assertEqual(len(declared), 123)
        published = published_entries()
        checked = 0
        for name, (returned, types) in declared.items():
            if name not in published:
                continue
            with self.subTest(entry=name):
                facts_returned, facts_types = published[name]
                self.assertEqual(returned, facts_returned)
                self.assertEqual(types, facts_types)
            checked += 1
        # The facts describe nearly every entry point; a parsing slip must not pass quietly.
        self.assertGreaterEqual(checked, 120)


if __name__ == "__main__":
    if not os.path.exists(FACTS):
        print("skipped: no C API facts at " + FACTS)
        sys.exit(SKIPPED)
    unittest.main()
