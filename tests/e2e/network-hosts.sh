#!/usr/bin/env bash
# Separate network hosts on this machine, for MPI jobs launched through ssh.
#   network-hosts.sh start STATE   makes a switch (a bridge in a network namespace of its own),
#                                  a head namespace that runs the launcher and TOLM_NETWORK_HOSTS
#                                  (default 2) host namespaces, each on the switch through a veth
#                                  pair with its own address 10.77.0.<i>/24, and in each host an
#                                  sshd in a UTS namespace named tolm-host<i>, with a private host
#                                  key, authorized key and port; then checks a login to each;
#   network-hosts.sh stop STATE    stops the sshds and every process left in the namespaces,
#                                  removes the namespaces and the directory.
# Everything lives inside the new namespaces: the system's own network and configuration are
# left alone. STATE receives key=value lines: dir, head (the namespace to start the launcher
# in), switch (the bridge's namespace), iface (the head's interface), subnet, rsh (an ssh
# wrapper with the private options), hosts, names and ports (the addresses, host names and the
# hosts' ports on the bridge, blank-separated), pids (the sshds); "skip=<reason>" when
# this machine cannot make network namespaces, "error=<reason>" when the set-up failed. start
# never fails, so that the tests can say why; a failed start removes what it made.
# Namespaces are named tolmnet-<epoch seconds>-<random>-<role>; start also removes those of runs
# older than an hour, which a killed run may have left behind.
set -uo pipefail

readonly action=$1 state=$2
readonly subnet_prefix=10.77.0 port=2222 head_address=10.77.0.100

# shellcheck source=../support/ssh-fixture-functions.sh
source "$(dirname "$0")/../support/ssh-fixture-functions.sh"

# Ends every process inside namespace $1 (all of them were started by this script or through
# its sshds), then removes the namespace.
remove_namespace() {
    local pids
    mapfile -t pids < <(ip netns pids "$1" 2>/dev/null)
    ((${#pids[@]} > 0)) && kill -9 "${pids[@]}" 2>/dev/null
    ip netns delete "$1" 2>/dev/null
}

remove_run() {
    local ns
    for ns in $(ip netns list 2>/dev/null | awk '{print $1}' | grep "^$1-"); do
        remove_namespace "$ns"
    done
}

sweep_stale_runs() {
    local now run started
    now=$(date +%s)
    for run in $(ip netns list 2>/dev/null | awk '{print $1}' | sed -n 's/^\(tolmnet-[0-9]*-[a-z0-9]*\)-.*/\1/p' | sort -u); do
        started=${run#tolmnet-}
        started=${started%%-*}
        ((now - started > 3600)) && remove_run "$run"
    done
}

skip() {
    echo "skip=$*" >>"$state"
    echo "network hosts not made: $*"
    exit 0
}

fail() {
    echo "error=$*" >>"$state"
    echo "network hosts failed: $*" >&2
    stop
    exit 0
}

# Namespace $2 on the switch of run $1 through a veth pair: "eth0" with address $3 inside it.
attach() {
    local run=$1 ns=$2 address=$3 port_name=$4
    ip netns add "$ns" &&
        ip -n "$run-switch" link add "$port_name" type veth peer name eth0 netns "$ns" &&
        ip -n "$run-switch" link set "$port_name" master br0 up &&
        ip -n "$ns" address add "$address/24" dev eth0 &&
        ip -n "$ns" link set eth0 up &&
        ip -n "$ns" link set lo up
}

write_ssh_files() {
    local dir=$1
    make_ssh_keys "$dir" || return 1
    cp "$dir/user_key.pub" "$dir/authorized_keys"
    cat >"$dir/ssh_config" <<CONFIG
Port $port
IdentityFile $dir/user_key
IdentitiesOnly yes
StrictHostKeyChecking no
UserKnownHostsFile /dev/null
BatchMode yes
LogLevel ERROR
ConnectTimeout 5
CONFIG
    printf '#!/bin/sh\nexec ssh -F %s "$@"\n' "$dir/ssh_config" >"$dir/ssh"
    chmod +x "$dir/ssh"
}

# Starts host $2's sshd in namespace $1, in a UTS namespace named $3; true once it listens.
launch_sshd() {
    local ns=$1 address=$2 name=$3 dir=$4 config=$4/sshd-$3
    write_sshd_config "$config.conf" "$address" "$port" "$dir" "$config.pid"
    : >"$config.log"
    # shellcheck disable=SC2016 # the inner shell expands its own arguments
    ip netns exec "$ns" unshare --uts sh -c 'hostname "$0" && exec "$@"' "$name" \
        /usr/sbin/sshd -D -f "$config.conf" -E "$config.log" </dev/null >/dev/null 2>&1 &
    local pid=$!
    echo "$pid" >>"$dir/sshd-pids"
    await_sshd "$pid" "$config.log"
}

start() {
    rm -f "$state"
    [[ $(id -u) -eq 0 ]] || skip "needs root (CAP_NET_ADMIN) to make network namespaces"
    command -v ip >/dev/null || skip "ip is missing (Debian package iproute2)"
    [[ -x /usr/sbin/sshd ]] || skip "/usr/sbin/sshd is missing (Debian package openssh-server)"
    sweep_stale_runs
    local run dir count=${TOLM_NETWORK_HOSTS:-2}
    run=tolmnet-$(date +%s)-$(tr -dc a-z0-9 </dev/urandom | head -c 6)
    echo "run=$run" >"$state"
    ip netns add "$run-switch" 2>/dev/null ||
        skip "cannot make network namespaces here (no CAP_NET_ADMIN): $(ip netns add "$run-switch" 2>&1)"
    trap 'fail "interrupted"' INT TERM
    dir=$(mktemp -d "${TMPDIR:-/tmp}/tolm-network-XXXXXX") || fail "no temporary directory"
    echo "dir=$dir" >>"$state"
    { ip -n "$run-switch" link add br0 type bridge && ip -n "$run-switch" link set br0 up; } ||
        fail "cannot make the bridge"
    attach "$run" "$run-head" "$head_address" head || fail "cannot attach the head namespace"
    [[ -d /run/sshd ]] || mkdir -p /run/sshd || fail "/run/sshd is missing and cannot be made"
    write_ssh_files "$dir" || fail "ssh-keygen failed"
    local i address name hosts=() names=() ports=()
    for ((i = 1; i <= count; ++i)); do
        address=$subnet_prefix.$i name=tolm-host$i
        attach "$run" "$run-host$i" "$address" "host$i" || fail "cannot attach host $i"
        launch_sshd "$run-host$i" "$address" "$name" "$dir" ||
            fail "sshd of $name did not start: $(tail -n 1 "$dir/sshd-$name.log")"
        hosts+=("$address") names+=("$name") ports+=("host$i")
    done
    printf 'head=%s\nswitch=%s\niface=eth0\nsubnet=%s.0/24\nrsh=%s\nhosts=%s\nnames=%s\nports=%s\npids=%s\n' \
        "$run-head" "$run-switch" "$subnet_prefix" "$dir/ssh" "${hosts[*]}" "${names[*]}" \
        "${ports[*]}" "$(tr '\n' ' ' <"$dir/sshd-pids")" >>"$state"
    local reply
    for ((i = 0; i < count; ++i)); do
        reply=$(timeout 20 ip netns exec "$run-head" "$dir/ssh" "${hosts[i]}" hostname 2>&1)
        [[ $reply == "${names[i]}" ]] || fail "login to ${hosts[i]} answered '$reply'"
    done
    trap - INT TERM
    echo "hosts ${names[*]} at ${hosts[*]}, sshd on port $port, launcher namespace $run-head"
}

stop() {
    local pid run dir
    for pid in $(value pids) $(cat "$(value dir)/sshd-pids" 2>/dev/null); do
        kill "$pid" 2>/dev/null
    done
    run=$(value run)
    dir=$(value dir)
    [[ -n $run ]] && remove_run "$run"
    remove_fixture "$dir"
}

run_action "$action"
