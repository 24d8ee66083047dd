# Sourced by the melt tests. melt_frames ARGS... runs `melt ARGS...`, whose
# consumer writes out_%03d.png in the current directory, with stdout in
# melt.log and stderr in trace.txt. On a busy machine melt now and then ends
# at once without writing a frame, or never returns, whatever the filter (its
# own avfilter.gblur does it as well); such a run is tried again, three tries
# in all. A run that fails outright is not.
melt_frames() {
  local try rc
  for try in 1 2 3; do
    rm -f out_*.png
    rc=0
    timeout 30 melt "$@" </dev/null >melt.log 2>trace.txt || rc=$?
    [[ $rc == 0 || $rc == 124 ]] || return 1
    compgen -G 'out_*.png' >/dev/null && return 0
    echo "melt wrote no frame (exit $rc, try $try of 3)" >&2
  done
  return 1
}
