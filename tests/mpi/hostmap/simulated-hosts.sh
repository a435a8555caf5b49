#!/bin/sh
# Several hosts on one machine: every rank of a job runs in a UTS namespace of its own whose
# host name depends on the rank, so that MPI reports that name as the rank's processor name.
#
#   simulated-hosts.sh LAUNCHER [ARGS...]   checks that UTS namespaces can be made here, then
#                                           runs the launcher; exits 77 (a skip) when they cannot
#   simulated-hosts.sh --as-rank PROGRAM [ARGS...]
#                                           used per rank, inside the launcher's command line:
#                                           rank r runs PROGRAM on host word (r mod n) + 1 of
#                                           TOLM_SIMULATED_HOSTS (default "hostA hostB")
#
# Example: simulated-hosts.sh mpiexec -n 4 simulated-hosts.sh --as-rank ./program
# runs ranks 0 and 2 on hostA, ranks 1 and 3 on hostB.
set -eu

if [ "${1:-}" != "--as-rank" ]; then
    if ! unshare --uts true 2>/dev/null; then
        echo "simulated-hosts.sh: unshare --uts is not permitted here; skipped" >&2
        exit 77
    fi
    exec "$@"
fi
shift

# Open MPI and MPICH's Hydra tell each process its rank through these variables.
rank=${OMPI_COMM_WORLD_RANK:-${PMI_RANK:-}}
if [ -z "$rank" ]; then
    echo "simulated-hosts.sh: no rank in OMPI_COMM_WORLD_RANK or PMI_RANK" >&2
    exit 2
fi
hosts=${TOLM_SIMULATED_HOSTS:-hostA hostB}
count=$(echo $hosts | wc -w)
index=$((rank % count + 1))
host=$(echo $hosts | cut -d' ' -f$index)
exec unshare --uts sh -c 'hostname "$0" && exec "$@"' "$host" "$@"
