#!/usr/bin/env bash
# Builds the Windows module and proves it is what the host loads:
#
#  1. cross-builds TarvoFXRipple.AEX for 32-bit Windows (the product: only
#     "main" exported) and inspects it without running it: PE32/i386, the
#     export and import tables, the property list (byte for byte against the
#     description and the Linux module), the string table, the version
#     resource (tests/windows/inspect_module.py);
#  2. compiles the host-interface layout assertions for i686 (tests/abi);
#  3. builds the module with its test interface and the loader test host for
#     64-bit Windows and runs the host under wine: LoadLibrary, GetProcAddress,
#     FindResource, LoadString, the commands, a forced
#     allocation failure and a render whose pixels must equal the Linux
#     build's.
#
# Build directories (relative to the repository unless absolute):
#   WIN32_BUILD_DIR (build-win32), WIN64_BUILD_DIR (build-win64),
#   BUILD_DIR (build: the Linux build, reused when configured) or else
#   NATIVE_BUILD_DIR (build-windows-native).
# Exits non-zero with a message naming the first check that failed.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
started=$SECONDS

fail() {
  echo "windows: FAILED: $*" >&2
  exit 1
}
step() { echo "== windows: [$((SECONDS - started)) s] $*"; }

scripts/setup.sh windows

for tool in i686-w64-mingw32-g++ i686-w64-mingw32-windres i686-w64-mingw32-objdump \
            x86_64-w64-mingw32-g++ wrestool wine wineboot wineserver python3 cmake ninja; do
  command -v "$tool" >/dev/null || fail "$tool is not installed (scripts/setup.sh installs it)"
done

absolute() { [[ $1 = /* ]] && echo "$1" || echo "$root/$1"; }
win32=$(absolute "${WIN32_BUILD_DIR:-build-win32}")
win64=$(absolute "${WIN64_BUILD_DIR:-build-win64}")

# --- 1. the 32-bit module ----------------------------------------------------
step "building TarvoFXRipple.AEX for 32-bit Windows in $win32"
cmake -S . -B "$win32" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-i686-w64-mingw32.cmake" \
  -DTARVO_TEST_INTERFACE=OFF -DTARVO_BUILD_TESTS=OFF -DTARVO_BUILD_APPS=OFF >/dev/null
cmake --build "$win32" --target TarvoFXRipple >/dev/null || fail "the 32-bit module does not build"
aex="$win32/ripple/TarvoFXRipple.AEX"
[[ -f $aex ]] || fail "no module at $aex"

# The Linux module and loader test host, to compare property lists and pixels.
native=$(absolute "${BUILD_DIR:-build}")
if [[ ! -f $native/build.ninja ]] || grep -q '^TARVO_SANITIZE:STRING=.\|^TARVO_BUILD_TESTS:BOOL=OFF' "$native/CMakeCache.txt"; then
  native=$(absolute "${NATIVE_BUILD_DIR:-build-windows-native}")
  [[ -f $native/build.ninja ]] ||
    cmake -S . -B "$native" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
step "building the Linux module and loader test host in $native"
cmake --build "$native" --target TarvoFXRipple tarvo_windows_host >/dev/null ||
  fail "the Linux module or test host does not build"
so="$native/ripple/TarvoFXRipple.so"

step "inspecting $aex"
python3 tests/windows/inspect_module.py --module "$aex" --source-dir "$root" --linux-module "$so" \
  --objdump i686-w64-mingw32-objdump --wrestool wrestool ||
  fail "the 32-bit module is not what the host expects (see the FAIL lines above)"

# --- 2. host-interface layout for i686 ---------------------------------------
step "compiling the host-interface layout assertions for i686"
mkdir -p "$win32/abi"
cmake -DCXX="$(command -v i686-w64-mingw32-g++)" \
  -DHEADER="$root/host/api/host_api.h" -DINCLUDES="$root/host/api|$root/host/ops" \
  -DLAYOUT="$root/tests/abi/layout.txt" -DCONSTANTS="$root/tests/abi/constants.txt" -DWORK="$win32/abi" \
  -P tests/abi/check_abi.cmake ||
  fail "host_api.h does not have the host's 32-bit layout"

# --- 3. the Windows code paths, run under wine -------------------------------
step "building the module and loader test host for 64-bit Windows in $win64"
cmake -S . -B "$win64" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-x86_64-w64-mingw32.cmake" \
  -DTARVO_TEST_INTERFACE=ON -DTARVO_BUILD_TESTS=ON -DTARVO_BUILD_APPS=OFF >/dev/null
cmake --build "$win64" --target tarvo_windows_host >/dev/null || fail "the 64-bit test build does not build"

export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEPREFIX
WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/tarvo-wine.XXXXXX")
unset DISPLAY WAYLAND_DISPLAY
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  rm -rf "$WINEPREFIX"
}
trap cleanup EXIT

step "starting the Windows runtime (a fresh prefix takes a while)"
timeout 600 wineboot -i >/dev/null 2>&1 || fail "wineboot could not set up a Windows prefix"

# wine maps drive Z: to the file system root.
winpath() { local p=$1; echo "Z:${p//\//\\}"; }
step "running the loader test host under wine"
set +e
wine_out=$(timeout 300 wine "$win64/tests/windows/tarvo_windows_host.exe" \
  "$(winpath "$win64/ripple/TarvoFXRipple.AEX")" \
  "$(winpath "$win64/tests/windows/expected_property_list.bin")" 2>&1 | tr -d '\r')
wine_status=$?
set -e
echo "$wine_out" | sed 's/^/  wine: /'
# A program the runtime cannot run may exit 0 without a word: the summary
# line is the proof that the checks ran.
summary=$(echo "$wine_out" | tail -n 1)
[[ $summary =~ ^([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]] ||
  fail "the test host under wine printed no \"N passed, M failed\" line (exit status $wine_status)"
(( BASH_REMATCH[1] > 0 && BASH_REMATCH[2] == 0 && wine_status == 0 )) ||
  fail "the test host under wine: $summary (exit status $wine_status)"

step "running the loader test host on Linux"
native_out=$("$native/tests/windows/tarvo_windows_host" "$so" "$native/tests/windows/expected_property_list.bin") ||
  fail "the Linux loader test host: $(echo "$native_out" | tail -n 1)"
wine_sum=$(echo "$wine_out" | sed -n 's/^render checksum //p')
native_sum=$(echo "$native_out" | sed -n 's/^render checksum //p')
[[ -n $wine_sum && $wine_sum == "$native_sum" ]] ||
  fail "64-bit Windows and Linux render different pixels (checksums ${wine_sum:-none} and ${native_sum:-none})"

echo "windows: all checks passed ($summary under wine; render checksum $wine_sum on both; $((SECONDS - started)) s)"
