#!/usr/bin/env python3
"""Inspects the 32-bit Windows module without running it.

    inspect_module.py --module TarvoFXRipple.AEX --source-dir REPO
                      [--linux-module TarvoFXRipple.so]
                      [--objdump i686-w64-mingw32-objdump] [--wrestool wrestool]

Checks, each printed as "ok: ..." or "FAIL: ...":
  * a PE32 DLL for i386 named TarvoFXRipple.AEX;
  * the export table (objdump -p): "main" alone, ordinal 1, undecorated;
  * the imports: system DLLs only, LoadStringA among them;
  * the "PIPL" resource (wrestool -x --raw): id 16000, language 0x0409, 282
    bytes, the properties the host expects (listed here independently of
    pipl.txt), identical to the bytes generated from pipl.txt and to the
    table the Linux module exports (read from that module with ctypes);
  * the string table: exactly the entries of messages.txt;
  * the version resource: file and product version 3.0.0.0 and its texts.
Exits 1 when any check fails, 2 when a tool or file is missing.
"""

import argparse
import ctypes
import os
import re
import struct
import subprocess
import sys

# DLLs every Windows installation has; anything else would have to ship
# with the module (a compiler runtime that was not linked in, say).
SYSTEM_DLLS = {"kernel32.dll", "user32.dll", "msvcrt.dll", "ucrtbase.dll"}
SYSTEM_DLL_PATTERNS = [re.compile(r"api-ms-win-crt-[a-z0-9-]+\.dll")]

PIPL_TYPE = "PIPL"
PIPL_ID = 16000
US_ENGLISH = 0x0409
PIPL_SIZE = 282
VERSION = (3, 0, 0, 0)
VERSION_STRINGS = {
    "CompanyName": "Tarvo Effects",
    "ProductName": "Tarvo FX Ripple",
    "OriginalFilename": "TarvoFXRipple.AEX",
    "FileVersion": "3.0.0.0",
    "ProductVersion": "3.0.0.0",
}
OUT_OF_MEMORY_ENTRY = (42003, "Memory Allocation Failure!")

# What the host reads, property by property: key and data as stored.
HOST_PROPERTIES = [
    ("kind", b"TKFe"),                      # an effect ("eFKT")
    ("name", b"\x0fTarvo FX Ripple"),
    ("catg", b"\x07Distort"),
    ("wx86", b"main\0\0\0\0"),
    ("ePVR", struct.pack("<HH", 2, 0)),
    ("eSVR", struct.pack("<HH", 11, 0)),
    ("eVER", struct.pack("<I", 0x00180600)),  # 3.0.0, release, build 0
    ("eINF", struct.pack("<H", 0)),
    ("eGLO", struct.pack("<I", 5)),
    ("eMNA", b"\x0fTarvo FX Ripple"),
    ("aeFL", struct.pack("<I", 0)),
    ("aeRD", struct.pack("<I", 0)),
]


def host_property_list():
    """The property list the host expects, built independently of pipl.txt."""
    out = struct.pack("<HII", 1, 0, len(HOST_PROPERTIES))
    for key, data in HOST_PROPERTIES:
        out += b"MIB8" + key.encode("ascii")[::-1] + struct.pack("<II", 0, len(data))
        out += data + bytes(-len(data) % 4)
    return out


class Inspection:
    def __init__(self):
        self.failures = 0

    def check(self, ok, what):
        print(("ok: " if ok else "FAIL: ") + what)
        if not ok:
            self.failures += 1
        return ok


class ToolError(Exception):
    pass


def run(args, binary=False):
    try:
        done = subprocess.run(args, capture_output=True, check=False)
    except OSError as e:
        raise ToolError(f"cannot run {args[0]}: {e}") from None
    if done.returncode != 0:
        raise ToolError(f"{' '.join(args)} failed: {done.stderr.decode(errors='replace').strip()}")
    return done.stdout if binary else done.stdout.decode(errors="replace")


# --- PE header -------------------------------------------------------------

def check_header(ins, path):
    with open(path, "rb") as f:
        data = f.read(4096)
    ok = len(data) >= 64 and data[:2] == b"MZ"
    if ok:
        pe = struct.unpack_from("<I", data, 0x3C)[0]
        ok = pe + 26 <= len(data) and data[pe:pe + 4] == b"PE\0\0"
    if not ins.check(ok, "the module is a PE file"):
        return
    machine, = struct.unpack_from("<H", data, pe + 4)
    characteristics, = struct.unpack_from("<H", data, pe + 22)
    magic, = struct.unpack_from("<H", data, pe + 24)
    ins.check(machine == 0x14C, f"machine i386 (0x014c; found 0x{machine:04x})")
    ins.check(magic == 0x10B, f"PE32, not PE32+ (optional header magic 0x010b; found 0x{magic:04x})")
    ins.check(characteristics & 0x2000 != 0, "the file is a DLL")
    ins.check(os.path.basename(path) == "TarvoFXRipple.AEX", f"file name TarvoFXRipple.AEX ({os.path.basename(path)})")


# --- exports and imports ---------------------------------------------------

def parse_exports(text):
    """Returns (dll name, ordinal base, [address-table ordinals], [(index, name)], [RVAs])."""
    name = re.search(r"^Name\s+[0-9a-fA-F]+\s+(\S+)\s*$", text, re.M)
    base = re.search(r"^Ordinal Base\s+(\d+)\s*$", text, re.M)
    eat = re.search(r"^Export Address Table -- Ordinal Base \d+\n((?:\s+\[.*\n)*)", text, re.M)
    names = re.search(r"^\[Ordinal/Name Pointer\] Table\n((?:\s+\[.*\n)*)", text, re.M)
    ordinals = [int(m) for m in re.findall(r"\+base\[\s*(\d+)\]", eat.group(1))] if eat else []
    named = [(int(i), n) for i, n in re.findall(r"\[\s*(\d+)\]\s+(\S+)", names.group(1))] if names else []
    rvas = [int(r, 16) for r in re.findall(r"\+base\[\s*\d+\]\s+([0-9a-fA-F]+)", eat.group(1))] if eat else []
    return (name.group(1) if name else None, int(base.group(1)) if base else None, ordinals, named, rvas)


def first_return(objdump, path, address):
    """The first return instruction from address on, e.g. "ret" or "ret $0x18"."""
    listing = run([objdump, "-d", "--no-show-raw-insn", f"--start-address=0x{address:x}",
                   f"--stop-address=0x{address + 0x400:x}", path])
    for line in listing.splitlines():
        m = re.match(r"\s*[0-9a-f]+:\s+(ret[lw]?\b.*?)\s*$", line)
        if m:
            return re.sub(r"\s+", " ", m.group(1))
    return None


def parse_imports(text):
    """Returns {dll name: [function names]}."""
    imports = {}
    current = None
    for line in text.splitlines():
        m = re.match(r"\s*DLL Name:\s*(\S+)", line)
        if m:
            current = imports.setdefault(m.group(1), [])
            continue
        m = re.match(r"\s+[0-9a-fA-F]+\s+\d+\s+(\S+)", line)
        if m and current is not None:
            current.append(m.group(1))
        elif not line.strip():
            current = None
    return imports


def is_system_dll(name):
    lower = name.lower()
    return lower in SYSTEM_DLLS or any(p.fullmatch(lower) for p in SYSTEM_DLL_PATTERNS)


def check_exports_and_imports(ins, objdump, path):
    text = run([objdump, "-p", path])
    dll, base, ordinals, named, rvas = parse_exports(text)
    if not ins.check(base is not None, "the module has an export table"):
        return
    ins.check(dll == "TarvoFXRipple.AEX", f"export directory names TarvoFXRipple.AEX ({dll})")
    ins.check(len(ordinals) == 1, f"exactly one exported function (found {len(ordinals)}: ordinals {ordinals})")
    ins.check([n for _, n in named] == ["main"], f"the only exported name is \"main\" (found {[n for _, n in named]})")
    ins.check(ordinals[:1] == [1] and base == 1, f"\"main\" is ordinal 1 (ordinal base {base}, ordinals {ordinals})")

    image_base = re.search(r"^ImageBase\s+([0-9a-fA-F]+)", text, re.M)
    if len(rvas) == 1 and image_base:
        ret = first_return(objdump, path, int(image_base.group(1), 16) + rvas[0])
        ins.check(ret == "ret", f"\"main\" returns with a plain ret, leaving the arguments to the caller (cdecl; found {ret!r})")

    imports = parse_imports(text)
    ins.check(bool(imports), "the module has an import table")
    foreign = sorted(d for d in imports if not is_system_dll(d))
    ins.check(not foreign, f"imports only system DLLs ({', '.join(sorted(imports))})"
              + (f"; not allowed: {', '.join(foreign)}" if foreign else ""))
    user32 = next((fns for d, fns in imports.items() if d.lower() == "user32.dll"), [])
    ins.check("LoadStringA" in user32, "messages load from the string table (LoadStringA from USER32)")


# --- resources -------------------------------------------------------------

def list_resources(wrestool, path):
    """Returns [(type, name, language, size)] as wrestool -l lists them."""
    out = []
    for line in run([wrestool, "-l", path]).splitlines():
        t = re.search(r"--type='?([^' ]+)'?", line)
        n = re.search(r"--name='?([^' ]+)'?", line)
        lang = re.search(r"--language=(\d+)", line)
        size = re.search(r"size=(\d+)", line)
        if t and n:
            out.append((t.group(1), n.group(1), int(lang.group(1)) if lang else None,
                        int(size.group(1)) if size else None))
    return out


def extract(wrestool, path, rtype, name=None, language=None):
    args = [wrestool, "-x", "--raw", f"--type={rtype}"]
    if name is not None:
        args.append(f"--name={name}")
    if language is not None:
        args.append(f"--language={language}")
    return run(args + [path], binary=True)


def linux_property_list(path):
    """The property list the Linux module exports (TarvoPropertyList)."""
    lib = ctypes.CDLL(os.path.abspath(path), mode=os.RTLD_LOCAL)
    size = ctypes.c_uint32.in_dll(lib, "TarvoPropertyListSize").value
    if not 0 < size <= 1 << 20:
        raise ToolError(f"{path} declares a property list of {size} bytes")
    return bytes((ctypes.c_ubyte * size).in_dll(lib, "TarvoPropertyList"))


def check_property_list(ins, wrestool, path, generated, linux_module):
    entries = [r for r in list_resources(wrestool, path) if r[0].upper() == PIPL_TYPE]
    ins.check([(r[1], r[2]) for r in entries] == [(str(PIPL_ID), US_ENGLISH)],
              f"one \"{PIPL_TYPE}\" resource, id {PIPL_ID}, language 0x{US_ENGLISH:04x} (found {entries})")
    data = extract(wrestool, path, PIPL_TYPE, PIPL_ID, US_ENGLISH)
    ins.check(len(data) == PIPL_SIZE, f"the property list is {PIPL_SIZE} bytes (found {len(data)})")
    ins.check(data == host_property_list(), "the property list holds what the host expects"
              + first_difference(data, host_property_list()))
    ins.check(data == generated, "the property list equals the bytes generated from pipl.txt"
              + first_difference(data, generated))
    if linux_module:
        linux = linux_property_list(linux_module)
        ins.check(data == linux, f"the property list equals the Linux module's ({linux_module})"
                  + first_difference(data, linux))


def first_difference(a, b):
    if a == b:
        return ""
    for i in range(min(len(a), len(b))):
        if a[i] != b[i]:
            return f" (first difference at byte {i}: 0x{a[i]:02x} here, 0x{b[i]:02x} there)"
    return f" (lengths {len(a)} and {len(b)})"


def parse_string_blocks(wrestool, path):
    """Returns {entry: text} over every string-table block of the module."""
    entries = {}
    for rtype, name, lang, _ in list_resources(wrestool, path):
        if rtype != "6":
            continue
        block = extract(wrestool, path, 6, name, lang)
        pos = 0
        for i in range(16):
            if pos + 2 > len(block):
                raise ToolError(f"string block {name} is truncated")
            count, = struct.unpack_from("<H", block, pos)
            pos += 2
            text = block[pos:pos + 2 * count].decode("utf-16-le")
            pos += 2 * count
            if text:
                entries[(int(name) - 1) * 16 + i] = text
    return entries


def check_string_table(ins, wrestool, path, messages):
    got = parse_string_blocks(wrestool, path)
    ins.check(sorted(got) == sorted(messages), f"string-table entries {sorted(got)} are those of messages.txt")
    wrong = [e for e in messages if got.get(e) != messages[e]]
    ins.check(not wrong, "every string-table text equals messages.txt"
              + "".join(f"; {e}: {got.get(e)!r} instead of {messages[e]!r}" for e in wrong))
    entry, text = OUT_OF_MEMORY_ENTRY
    ins.check(got.get(entry) == text, f"entry {entry} is \"{text}\"")


def parse_version_node(data, pos):
    """One VS_VERSIONINFO-style node: (key, value bytes, value type, children, end)."""
    length, value_length, value_type = struct.unpack_from("<HHH", data, pos)
    end = pos + length
    key_end = pos + 6
    while data[key_end:key_end + 2] != b"\0\0":
        key_end += 2
    key = data[pos + 6:key_end].decode("utf-16-le")
    p = (key_end + 2 + 3) & ~3
    size = value_length * 2 if value_type == 1 else value_length
    value = data[p:p + size]
    p = (p + size + 3) & ~3
    children = []
    while p < end:
        child = parse_version_node(data, p)
        children.append(child)
        p = (child[4] + 3) & ~3
    return key, value, value_type, children, end


def check_version(ins, wrestool, path):
    data = extract(wrestool, path, 16)
    key, fixed, _, children, _ = parse_version_node(data, 0)
    ins.check(key == "VS_VERSION_INFO", f"version resource key VS_VERSION_INFO ({key})")
    if not ins.check(len(fixed) == 52, "the version resource has its fixed information"):
        return
    sig, _, fms, fls, pms, pls, _, _, _, ftype = struct.unpack_from("<IIIIIIIIII", fixed)
    ins.check(sig == 0xFEEF04BD, "fixed information signature")
    as_tuple = lambda ms, ls: (ms >> 16, ms & 0xFFFF, ls >> 16, ls & 0xFFFF)
    ins.check(as_tuple(fms, fls) == VERSION, f"file version {as_tuple(fms, fls)} is {VERSION}")
    ins.check(as_tuple(pms, pls) == VERSION, f"product version {as_tuple(pms, pls)} is {VERSION}")
    ins.check(ftype == 2, f"file type VFT_DLL ({ftype})")

    strings = {}
    for ckey, _, _, tables, _ in children:
        if ckey == "StringFileInfo":
            for tkey, _, _, values, _ in tables:
                for vkey, value, vtype, _, _ in values:
                    text = value.decode("utf-16-le") if vtype == 1 else value.decode("latin-1")
                    strings[(tkey.upper(), vkey)] = text.rstrip("\0")
    for name, want in VERSION_STRINGS.items():
        got = strings.get(("040904B0", name))
        ins.check(got == want, f"version string {name} is \"{want}\" (found {got!r})")
    for name in ("FileDescription", "LegalCopyright"):
        ins.check(bool(strings.get(("040904B0", name))), f"version string {name} is given")


# --- driver ----------------------------------------------------------------

def main(argv):
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--module", required=True)
    parser.add_argument("--source-dir", required=True)
    parser.add_argument("--linux-module")
    parser.add_argument("--objdump", default="i686-w64-mingw32-objdump")
    parser.add_argument("--wrestool", default="wrestool")
    args = parser.parse_args(argv)

    sys.path.insert(0, os.path.join(args.source_dir, "resources"))
    import gen_resources  # the same parser the build generates the resources with

    ins = Inspection()
    try:
        if not os.path.isfile(args.module):
            raise ToolError(f"no module at {args.module}")
        _, props = gen_resources.parse_pipl(os.path.join(args.source_dir, "resources", "pipl.txt"))
        messages = gen_resources.parse_messages(os.path.join(args.source_dir, "resources", "messages.txt"))
        check_header(ins, args.module)
        check_exports_and_imports(ins, args.objdump, args.module)
        check_property_list(ins, args.wrestool, args.module, gen_resources.pipl_bytes(props), args.linux_module)
        check_string_table(ins, args.wrestool, args.module, messages)
        check_version(ins, args.wrestool, args.module)
    except (ToolError, OSError, gen_resources.DescriptionError, struct.error, UnicodeDecodeError) as e:
        print(f"inspect_module: {e}", file=sys.stderr)
        return 2
    print(f"{ins.failures} inspection(s) failed" if ins.failures else "all inspections passed")
    return 1 if ins.failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
