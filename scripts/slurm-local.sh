#!/usr/bin/env bash
# A single-node Slurm cluster on 127.0.0.1 for trying the render farm out and for the tests.
#   scripts/slurm-local.sh start|stop|status
# Configuration, state and logs live in one temporary folder (TARVO_SLURM_DIR, default
# /tmp/tarvo-slurm-local); clients find the cluster with SLURM_CONF=$TARVO_SLURM_DIR/slurm.conf.
# The daemons are started here and stopped here by their pid files: nothing runs after stop.
set -euo pipefail
dir=${TARVO_SLURM_DIR:-/tmp/tarvo-slurm-local}
conf=$dir/slurm.conf

die() { echo "slurm-local: $*" >&2; exit 1; }

stop_pid() {  # stop_pid FILE: TERM, then KILL after 10 s
  local f=$1 pid
  [[ -s $f ]] || return 0
  pid=$(<"$f")
  if kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid" 2>/dev/null || true
    for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$pid" 2>/dev/null || true
  fi
  rm -f "$f"
}

stop() {
  [[ -d $dir ]] || return 0
  stop_pid "$dir/slurmd.pid"
  stop_pid "$dir/slurmctld.pid"
  stop_pid "$dir/munged.pid"
  rm -rf "$dir"
}

start() {
  [[ $(id -u) -eq 0 ]] || die "needs root (it starts munged, slurmctld and slurmd)"
  for p in munged slurmctld slurmd sinfo; do
    command -v "$p" >/dev/null || die "$p not found: run scripts/setup.sh (Debian packages slurm-wlm and munge)"
  done
  [[ -e $conf ]] && die "already started in $dir (stop it first)"
  mkdir -p "$dir"/{state,spool,log,munge}
  chown munge:munge "$dir/munge"
  chmod 0755 "$dir/munge"
  trap 'stop' ERR
  runuser -u munge -- munged --socket="$dir/munge/munge.socket" --pid-file="$dir/munge/munged.pid" \
    --log-file="$dir/munge/munged.log" --seed-file="$dir/munge/seed"
  cp "$dir/munge/munged.pid" "$dir/munged.pid"

  # The node as slurmd sees it: the machine's real cores and memory.
  local cpus mem
  cpus=$(slurmd -C | sed -n 's/.* CPUs=\([0-9]*\).*/\1/p;q')
  mem=$(slurmd -C | sed -n 's/.* RealMemory=\([0-9]*\).*/\1/p;q')
  cat >"$conf" <<CONF
ClusterName=tarvo
SlurmctldHost=localhost(127.0.0.1)
AuthType=auth/munge
AuthInfo=socket=$dir/munge/munge.socket
CredType=cred/munge
SlurmUser=root
SlurmdUser=root
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/log/slurmctld.log
SlurmdLogFile=$dir/log/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SchedulerType=sched/backfill
# Schedule freed cores at once rather than on the default one-minute pass, so array tasks follow each other closely.
SchedulerParameters=sched_interval=1,bf_interval=1
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
MpiDefault=none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SlurmctldPort=16817
SlurmdPort=16818
NodeName=localhost NodeAddr=127.0.0.1 CPUs=$cpus RealMemory=$mem State=UNKNOWN
PartitionName=main Nodes=localhost Default=YES MaxTime=INFINITE State=UP
CONF
  export SLURM_CONF=$conf
  slurmctld -f "$conf"
  slurmd -f "$conf" -N localhost
  for _ in $(seq 150); do
    if sinfo -h -o %t 2>/dev/null | grep -qx idle; then
      trap - ERR
      echo "slurm-local: up ($cpus CPUs, $mem MB); export SLURM_CONF=$conf"
      return 0
    fi
    sleep 0.2
  done
  echo "slurm-local: the node did not come up; logs:" >&2
  tail -n 5 "$dir"/log/*.log >&2 || true
  stop
  exit 1
}

case ${1:-} in
  start) start ;;
  stop) [[ $(id -u) -eq 0 ]] || die "needs root (it stops the daemons it started)"; stop ;;
  status)
    [[ -e $conf ]] || { echo "slurm-local: not running"; exit 3; }
    SLURM_CONF=$conf sinfo
    echo "export SLURM_CONF=$conf" ;;
  *) echo "usage: scripts/slurm-local.sh start|stop|status" >&2; exit 2 ;;
esac
