#!/usr/bin/env python3
"""Reads the version resource (VS_VERSIONINFO) of a Windows DLL and checks it against the
project version in CMakeLists.txt: the fixed file and product versions, and the FileVersion,
ProductVersion, ProductName and FileDescription strings.

    scripts/dll-version.py build/windows/bin/OrbPerixProvider.dll

Prints what it found; exits 1 on a missing or wrong entry."""
import os
import re
import struct
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FIXED_SIGNATURE = 0xFEEF04BD


def project_version():
    text = open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8").read()
    match = re.search(r"project\(\s*OrbPerix\s+VERSION\s+(\d+)\.(\d+)\.(\d+)", text)
    return tuple(int(part) for part in match.groups())


def align4(offset):
    return (offset + 3) & ~3


def parse_block(data, offset):
    """One version-resource block: (key, value bytes, value type, children, end offset)."""
    length, value_length, value_type = struct.unpack_from("<HHH", data, offset)
    end = offset + length
    key_start = offset + 6
    key_end = key_start
    while data[key_end:key_end + 2] != b"\0\0":
        key_end += 2
    key = data[key_start:key_end].decode("utf-16-le")
    value_start = align4(key_end + 2)
    size = value_length * 2 if value_type == 1 else value_length
    value = data[value_start:value_start + size]
    children = []
    child = align4(value_start + size)
    while child < end:
        block = parse_block(data, child)
        children.append(block)
        child = align4(block[4])
    return key, value, value_type, children, end


def main():
    dll = open(sys.argv[1], "rb").read()
    start = dll.find("VS_VERSION_INFO".encode("utf-16-le"))
    if start < 6:
        print("dll-version: no VS_VERSIONINFO in %s" % sys.argv[1])
        return 1
    _, fixed, _, children, _ = parse_block(dll, start - 6)
    signature, _, ms_file, ls_file, ms_product, ls_product = struct.unpack_from("<IIIIII", fixed)
    if signature != FIXED_SIGNATURE:
        print("dll-version: the fixed file information has no signature")
        return 1
    def four(ms, ls):
        return (ms >> 16, ms & 0xFFFF, ls >> 16, ls & 0xFFFF)
    strings = {}
    for key, _, _, tables, _ in children:
        if key == "StringFileInfo":
            for _, _, _, entries, _ in tables:
                for name, value, _, _, _ in entries:
                    strings[name] = value.decode("utf-16-le").rstrip("\0")
    major, minor, patch = project_version()
    version = "%d.%d.%d" % (major, minor, patch)
    expected_fixed = (major, minor, patch, 0)
    problems = []
    if four(ms_file, ls_file) != expected_fixed:
        problems.append("file version %s" % (four(ms_file, ls_file),))
    if four(ms_product, ls_product) != expected_fixed:
        problems.append("product version %s" % (four(ms_product, ls_product),))
    for name, expected in (("FileVersion", version), ("ProductVersion", version),
                           ("ProductName", "OrbPerixProvider")):
        if strings.get(name) != expected:
            problems.append("%s %r, expected %r" % (name, strings.get(name), expected))
    if not strings.get("FileDescription"):
        problems.append("no FileDescription")
    print("dll-version: %s" % ", ".join("%s=%s" % item for item in sorted(strings.items())))
    if problems:
        print("dll-version: FAILED: " + "; ".join(problems))
        return 1
    print("dll-version: ok (%s)" % version)
    return 0


if __name__ == "__main__":
    sys.exit(main())
