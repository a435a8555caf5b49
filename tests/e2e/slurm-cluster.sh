#!/usr/bin/env bash
# A private Slurm cluster of one node on this machine, for jobs launched through the scheduler.
#   slurm-cluster.sh start STATE   generates a munge key and a Slurm configuration in a new
#                                  temporary directory, starts munged, slurmctld and slurmd on
#                                  free ports, all their state, spool, logs and sockets in that
#                                  directory, and waits until the node is idle;
#   slurm-cluster.sh stop STATE    ends every job, stops the daemons and every process left with
#                                  the cluster's configuration, and removes the directory.
# One node, this machine, with the CPUs and memory slurmd finds here: several slurmds on one
# kernel would share the same CPUs and processes, so a second node would add nothing real.
# Nothing of the system's own Slurm or munge configuration is read or changed. STATE receives
# key=value lines: dir, conf (the configuration, for SLURM_CONF), partition, node, cpus and
# pids (the daemons); "skip=<reason>" when Slurm cannot run here (not root, not installed,
# munged refuses this system or slurmd finds no node in it), "error=<reason>" when the
# daemons with the generated configuration did not bring the node up. start never fails, so that the tests
# can say why; a failed start removes what it made.
set -uo pipefail

readonly action=$1 state=$2
readonly partition=tolm

# shellcheck source=../support/ssh-fixture-functions.sh
source "$(dirname "$0")/../support/ssh-fixture-functions.sh"

skip() {
    echo "skip=$*" >>"$state"
    echo "Slurm not started: $*"
    exit 0
}

fail() {
    echo "error=$*" >>"$state"
    echo "Slurm failed: $*" >&2
    stop
    exit 0
}

# A skip after start made things: removes them first.
refuse() {
    stop
    skip "$@"
}

# The last lines of log $1, for a failure's reason.
log_tail() { tail -n 3 "$1" 2>/dev/null | tr '\n' ' '; }

# Two consecutive TCP ports nobody listens on.
free_ports() {
    local port
    for _ in $(seq 20); do
        port=$((20000 + RANDOM % 40000))
        ss -Hltn "( sport = :$port or sport = :$((port + 1)) )" 2>/dev/null | grep -q . ||
            { echo "$port"; return 0; }
    done
    return 1
}

write_slurm_conf() {
    local dir=$1 port=$2 node_line=$3 controller
    controller=$(hostname -s)
    cat >"$dir/slurm.conf" <<CONFIG
ClusterName=tolm
SlurmctldHost=$controller(127.0.0.1)
SlurmctldPort=$port
SlurmdPort=$((port + 1))
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$dir/munge.socket
# Job numbers of their own: PMIx names its per-job files after them, and another private
# cluster may run beside this one.
FirstJobId=$((1000 + RANDOM * 30))
TmpFS=$dir/tmp
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/slurmd.log
PlugStackConfig=$dir/plugstack.conf
# Processes are tracked through their parents: containers seldom delegate cgroups.
ProctrackType=proctrack/linuxproc
TaskPlugin=task/affinity
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
MpiDefault=none
SchedulerType=sched/builtin
AccountingStorageType=accounting_storage/none
JobAcctGatherType=jobacct_gather/none
JobCompType=jobcomp/none
ReturnToService=2
KillWait=2
MinJobAge=600
$node_line NodeAddr=127.0.0.1 State=UNKNOWN
PartitionName=$partition Nodes=ALL Default=YES MaxTime=INFINITE State=UP
CONFIG
    : >"$dir/plugstack.conf"
}

start_munge() {
    local dir=$1
    dd if=/dev/urandom of="$dir/munge.key" bs=1024 count=1 status=none &&
        chmod 400 "$dir/munge.key" || return 1
    # -f: the key's directory lies under the world-writable temporary directory.
    munged -F -f --socket="$dir/munge.socket" --key-file="$dir/munge.key" \
        --pid-file="$dir/munged.pid" --log-file="$dir/munged.log" --seed-file="$dir/munged.seed" \
        </dev/null >/dev/null 2>&1 &
    echo "$!" >>"$dir/pids"
    for _ in $(seq 50); do
        munge -n -S "$dir/munge.socket" 2>/dev/null | unmunge -S "$dir/munge.socket" \
            >/dev/null 2>&1 && return 0
        sleep 0.1
    done
    return 1
}

# True once sinfo shows the node idle (within 30 s).
await_idle_node() {
    for _ in $(seq 150); do
        [[ $(sinfo -h -N -o '%T' 2>/dev/null) == idle ]] && return 0
        sleep 0.2
    done
    return 1
}

# Kills every process started with configuration $1: the daemons' environment passes it to
# the step daemons and to the tasks they start.
end_processes_of() {
    local environ pid
    for environ in /proc/[0-9]*/environ; do
        pid=${environ#/proc/}
        pid=${pid%/environ}
        tr '\0' '\n' 2>/dev/null <"$environ" | grep -qxF "SLURM_CONF=$1" && kill -9 "$pid" 2>/dev/null
    done
}

start() {
    stop  # a run whose stop never came, as when ctest repeats the start
    rm -f "$state"
    [[ $(id -u) -eq 0 ]] || skip "needs root to run slurmd, which starts jobs as their users"
    local program
    for program in munged slurmctld slurmd srun sbatch; do
        command -v "$program" >/dev/null ||
            skip "$program is missing (Debian packages munge, slurmctld, slurmd, slurm-client)"
    done
    local dir
    dir=$(mktemp -d "${TMPDIR:-/tmp}/tolm-slurm-XXXXXX") || skip "no temporary directory"
    echo "dir=$dir" >"$state"
    trap 'fail "interrupted"' INT TERM
    mkdir -p "$dir/state" "$dir/spool" "$dir/tmp" || fail "cannot make the state directories"
    start_munge "$dir" || refuse "munged did not start: $(log_tail "$dir/munged.log")"
    local port node_line
    port=$(free_ports) || fail "no free ports"
    # The node as slurmd finds this machine: its CPUs, cores and memory.
    node_line=$(slurmd -C 2>/dev/null | head -n 1)
    [[ $node_line == NodeName=* ]] || refuse "slurmd -C found no node: $node_line"
    write_slurm_conf "$dir" "$port" "$node_line"
    export SLURM_CONF=$dir/slurm.conf
    slurmctld -D -i </dev/null >/dev/null 2>&1 &
    echo "$!" >>"$dir/pids"
    slurmd -D </dev/null >/dev/null 2>&1 &
    echo "$!" >>"$dir/pids"
    await_idle_node || fail "the node is not idle: $(sinfo -h -N 2>&1) $(log_tail "$dir/slurmctld.log") $(log_tail "$dir/slurmd.log")"
    local node cpus
    node=$(sinfo -h -N -o '%N')
    cpus=$(sinfo -h -N -o '%c')
    printf 'conf=%s\npartition=%s\nnode=%s\ncpus=%s\npids=%s\n' "$SLURM_CONF" "$partition" \
        "$node" "$cpus" "$(tr '\n' ' ' <"$dir/pids")" >>"$state"
    trap - INT TERM
    echo "Slurm node $node ($cpus CPUs) idle in partition $partition, controller on port $port"
}

stop() {
    local dir pid
    unset SLURM_CONF  # the sweep below must not match this script's own children
    dir=$(value dir)
    if [[ -n $dir && -f $dir/slurm.conf ]]; then
        SLURM_CONF=$dir/slurm.conf scancel --full --partition="$partition" 2>/dev/null
    fi
    # The daemons in reverse order: slurmd first, so that it ends its jobs' steps.
    for pid in $(tac "$dir/pids" 2>/dev/null); do
        kill "$pid" 2>/dev/null
        for _ in $(seq 50); do alive "$pid" || break; sleep 0.1; done
        alive "$pid" && kill -9 "$pid" 2>/dev/null
    done
    [[ -n $dir ]] && end_processes_of "$dir/slurm.conf"
    remove_fixture "$dir"
}

run_action "$action"
