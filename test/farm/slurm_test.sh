#!/usr/bin/env bash
# A bake of 8 parts through a Slurm of one node that lives in a temporary folder: a part is killed, the node drained
# and resumed, and the merged file is that of a plain bake. usage: slurm_test.sh VELTO GRAPH
set -euo pipefail
velto=$1
graph=$2
for program in munged slurmctld slurmd sbatch squeue scontrol; do
    command -v "$program" >/dev/null || PATH=$PATH:/usr/sbin
    command -v "$program" >/dev/null || { echo "skipped: there is no $program"; exit 77; }
done
[[ $(id -u) == 0 ]] || { echo "skipped: Slurm's daemons want to be root"; exit 77; }

folder=$(mktemp -d)
started=()
finish() {
    for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${started[@]}"; do wait "$pid" 2>/dev/null || true; done
    rm -rf "$folder"
}
trap finish EXIT
node=$(hostname -s)
port=$((20000 + RANDOM % 20000))
mkdir -p "$folder"/{munge,state,spool}
chmod 755 "$folder"
chmod 700 "$folder/munge"
head -c 1024 /dev/urandom >"$folder/munge/key"
chmod 400 "$folder/munge/key"
cat >"$folder/slurm.conf" <<CONF
ClusterName=velto
SlurmctldHost=$node(127.0.0.1)
SlurmUser=root
AuthInfo=socket=$folder/munge/socket
SlurmctldPort=$port
SlurmdPort=$((port + 1))
StateSaveLocation=$folder/state
SlurmdSpoolDir=$folder/spool
SlurmctldPidFile=$folder/slurmctld.pid
SlurmdPidFile=$folder/slurmd.pid
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
MpiDefault=none
SchedulerType=sched/builtin
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
ReturnToService=2
NodeName=$node NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=all Nodes=ALL Default=YES State=UP
CONF
export SLURM_CONF=$folder/slurm.conf
munged --foreground --force --key-file="$folder/munge/key" --socket="$folder/munge/socket" \
    --pid-file="$folder/munge/pid" --log-file="$folder/munge/log" --seed-file="$folder/munge/seed" \
    >"$folder/munged.out" 2>&1 &
started+=($!)
for _ in {1..100}; do [[ -S $folder/munge/socket ]] && break; sleep 0.1; done
slurmctld -D -f "$SLURM_CONF" >"$folder/slurmctld.out" 2>&1 &
started+=($!)
slurmd -D -f "$SLURM_CONF" -N "$node" >"$folder/slurmd.out" 2>&1 &
started+=($!)
for _ in {1..300}; do [[ $(sinfo -h -o %T 2>/dev/null) == idle ]] && break; sleep 0.1; done
[[ $(sinfo -h -o %T) == idle ]] || { tail "$folder"/*.out; exit 1; }

options=(--size 768 --supersample 3)
"$velto" bake "$graph" -o "$folder/plain.png" "${options[@]}"
"$velto" farm "$graph" -o "$folder/farmed.png" "${options[@]}" --shards 8 --wait -- --output="$folder/job.%a.log" \
    >"$folder/ids" 2>"$folder/farm.err" &
farm=$!
# The first process that bakes a part, halfway.
part=
for _ in {1..300}; do
    part=$(pgrep -f -- "farmed.png .*--shard '?3/8" | head -1 || true)
    [[ -n $part ]] && break
    sleep 0.05
done
[[ -n $part ]] && kill -KILL "$part"
scontrol update nodename="$node" state=drain reason=test
sleep 1
scontrol update nodename="$node" state=resume
wait "$farm" || { cat "$folder"/farm.err "$folder"/job.*; exit 1; }
cmp "$folder/plain.png" "$folder/farmed.png"
[[ -z $(find "$folder" -name '*.part.exr') ]]
[[ $(wc -l <"$folder/ids") == 2 ]]
echo "part 3 killed (pid ${part:-none}); merged file equals the plain one"
