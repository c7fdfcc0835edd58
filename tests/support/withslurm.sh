#!/usr/bin/env bash
# Runs a command beside a Slurm cluster of its own: one node, two slots, all its files in FOLDER.
#   withslurm.sh FOLDER COMMAND...
# Ends with 77, and says why, where there is no Slurm or it does not start.
set -uo pipefail

folder=$(realpath "$1")
shift
started=()

finish() {
    for pid in "${started[@]}"; do
        kill "$pid" 2>/dev/null
    done
    wait
}
trap finish EXIT

skip() {
    echo "no Slurm: $*"
    exit 77
}

PATH=$PATH:/usr/sbin:/sbin
for program in munged slurmctld slurmd sbatch; do
    command -v "$program" >/dev/null || skip "$program is not installed"
done

# The authenticator wants folders that nobody else writes to.
chmod 755 "$folder"
head -c 1024 /dev/urandom >"$folder/key"
chmod 600 "$folder/key"
munged --force --foreground --key-file "$folder/key" --socket "$folder/munge" --pid-file "$folder/munged.pid" \
    --log-file "$folder/munged.log" --seed-file "$folder/seed" >"$folder/munged.out" 2>&1 &
started+=($!)

port=$((20000 + RANDOM % 20000))
name=$(hostname -s)
memory=$(($(awk '/^MemTotal/ {print $2}' /proc/meminfo) / 1024 / 2))
mkdir -p "$folder/state" "$folder/spool"
cat >"$folder/slurm.conf" <<CONF
ClusterName=test
SlurmctldHost=$name(127.0.0.1)
SlurmctldPort=$port
SlurmdPort=$((port + 1))
SlurmUser=$(id -un)
SlurmdUser=$(id -un)
AuthType=auth/munge
AuthInfo=socket=$folder/munge
CredType=cred/munge
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU_Memory
SchedulerParameters=batch_sched_delay=0,sched_interval=1
StateSaveLocation=$folder/state
SlurmdSpoolDir=$folder/spool
SlurmctldPidFile=$folder/slurmctld.pid
SlurmdPidFile=$folder/slurmd.pid
SlurmdParameters=config_overrides
ReturnToService=2
NodeName=$name NodeAddr=127.0.0.1 CPUs=2 RealMemory=$memory State=UNKNOWN
PartitionName=all Nodes=$name Default=YES MaxTime=INFINITE State=UP
CONF
export SLURM_CONF=$folder/slurm.conf
for _ in $(seq 50); do
    [[ -S $folder/munge ]] && break
    sleep 0.1
done
[[ -S $folder/munge ]] || skip "munged does not start: $(tail -n 1 "$folder/munged.out")"
slurmctld -D >"$folder/slurmctld.log" 2>&1 &
started+=($!)
slurmd -D -N "$name" >"$folder/slurmd.log" 2>&1 &
started+=($!)
for _ in $(seq 150); do
    [[ $(sinfo -h -o %T 2>/dev/null) == idle ]] && break
    sleep 0.2
done
[[ $(sinfo -h -o %T 2>/dev/null) == idle ]] ||
    skip "the node does not come up: $(tail -n 1 "$folder/slurmctld.log") $(tail -n 1 "$folder/slurmd.log")"
"$@"
