#!/usr/bin/env bash
# The option grammar as a user meets it: spellings that must give the same
# file as another command line, the versions, the parameter listings, and
# the round trip with --list-params --json: whatever it lists is accepted
# and the values just outside are refused. (Refusals and their messages:
# errors.sh.)
#   grammar.sh TARVO_RIPPLE WORK_DIR
here=$(cd "$(dirname "$0")" && pwd)
source "$(dirname "$0")/../support/cli_lib.sh"

"$cli" --demo in.png --size 24x16 && "$cli" in.png default.png || exit 1
module=$("$cli" --version | sed -n 's/.*(plug-in module \(.*\))$/\1/p')
cp "$module" TarvoFXRipple.so || fail "--version names no module: $("$cli" --version)"

# OPTIONS | OPTIONS giving the same file (and not the defaults' file).
n=0
while IFS= read -r row; do
  eval "a=(${row%% | *}) b=(${row#* | })"
  n=$((n + 1))
  "$cli" in.png a$n.png "${a[@]}" && "$cli" in.png b$n.png "${b[@]}" || { fail "$row: did not render"; continue; }
  cmp -s a$n.png b$n.png || fail "$row: different files"
  ! cmp -s a$n.png default.png || fail "$row: the defaults' file"
done <<'EOF'
--waveform halfsine | --waveform 8
--waveform Spectrum14 | --waveform 22
--pin-mode pinleft | --pin-mode 5
--pin-mode NO_PIN | --pin-mode 1
--twirl 'super twirl' --antialias LOW | --twirl 3 --antialias 3
--quality LOW | --quality low
--radius 10 --radius 50 | --radius 50
--Wave-Height 5 --waveheight=6 | --wave-height 6
--radius 1e-400 | --radius 0
--module TarvoFXRipple.so --radius 30 | --radius 30
EOF

[[ $("$cli" --version) == "tarvo-ripple 3.0.0"$'\n'"Tarvo FX Ripple 3.0 (plug-in module $module)" ]] ||
  fail "--version: $("$cli" --version)"
[[ $("$cli" -V --module TarvoFXRipple.so) == *$'\n'"Tarvo FX Ripple 3.0 (plug-in module ./TarvoFXRipple.so)" ]] ||
  fail "-V --module: $("$cli" -V --module TarvoFXRipple.so)"

# The listings tools read, byte for byte; an intended change is made on
# purpose: tarvo-ripple --list-params [--json] >tests/cli/list_params.txt|.json
"$cli" --list-params | diff -u "$here/list_params.txt" - || fail "--list-params changed"
"$cli" --list-params --json >params.json && diff -u "$here/list_params.json" params.json || fail "--json changed"

# The round trip: EXIT OPTION VALUE... per line; the accepted values are
# batched, the nth of every option's list in the nth command.
while read -r code args; do
  "$cli" in.png o.png $args 2>/dev/null
  rc=$?
  [[ $rc -eq $code ]] || fail "$args exited $rc, not $code"
done < <(python3 - <<'PY'
import json
def text(fixed): return '%.16f' % (fixed / 65536)  # exact: 16.16 has at most 16 decimals
runs, refused = {}, []
for q in json.load(open('params.json'))['parameters']:
    o = q['option']
    if q['type'] == 'popup':
        ok = [e['option_value'] for e in q['entries']]
        refused += [(o, v) for v in q['separators'] + [0, q['num_choices'] + 1]]
    elif q['type'] in ('fixed_slider', 'angle'):
        lo, hi = q['fixed']['min'], q['fixed']['max']
        ok = [text(lo), text(hi)] + [json.dumps(e['value']) for e in q.get('also_accepted', [])]
        refused += [(o, text(lo - 1)), (o, text(hi + 1))]
    else:
        continue
    for k, v in enumerate(ok):
        runs.setdefault(k, []).append(f'{o} {v}')
for k in sorted(runs):
    print(0, ' '.join(runs[k]))
for o, v in refused:
    print(2, o, v)
PY
)
finish
