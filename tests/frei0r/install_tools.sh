#!/usr/bin/env bash
# Test set-up for the frei0r end-to-end tests: installs ffmpeg and melt
# (Debian packages) when they are missing and this runs as root. Never
# fails: a test whose tool is still missing reports itself skipped.
set -uo pipefail

need=()
command -v ffmpeg >/dev/null || need+=(ffmpeg)
command -v melt >/dev/null || need+=(melt)
# MLT's frei0r support lives in libmlt7's frei0r module.
[[ -e /usr/include/frei0r.h ]] || need+=(frei0r-plugins-dev)
if ((${#need[@]} == 0)); then
  echo "ffmpeg and melt are installed"
  exit 0
fi
if [[ $(id -u) -ne 0 ]] || ! command -v apt-get >/dev/null; then
  echo "missing ${need[*]}; not root or no apt-get, so the end-to-end tests will be skipped"
  exit 0
fi
echo "installing ${need[*]}"
export DEBIAN_FRONTEND=noninteractive
if ! { apt-get update -qq && apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null; }; then
  echo "could not install ${need[*]}; the end-to-end tests will be skipped"
fi
exit 0
