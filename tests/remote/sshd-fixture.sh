#!/usr/bin/env bash
# A private sshd on 127.0.0.1 for the remote shell tests.
#   sshd-fixture.sh start STATE   generates a host key and a user key in a new temporary
#                                 directory, starts sshd on a free port and checks a login;
#   sshd-fixture.sh stop STATE    stops that sshd and removes the directory.
# STATE receives key=value lines (dir, pid, port, key, user), or "skip=<reason>" when no sshd
# can run here: start never fails, so that the tests can skip and say why.
set -uo pipefail

readonly action=$1 state=$2

# shellcheck source=../support/ssh-fixture-functions.sh
source "$(dirname "$0")/../support/ssh-fixture-functions.sh"

skip() {
    echo "skip=$*" >>"$state"
    echo "sshd not started: $*"
    exit 0
}

# Starts sshd in the foreground of a background job on `port`, its process id in `pid`;
# true once it listens.
launch() {
    local dir=$1 port=$2
    write_sshd_config "$dir/sshd_config" 127.0.0.1 "$port" "$dir" "$dir/sshd.pid"
    : >"$dir/sshd.log"
    /usr/sbin/sshd -D -f "$dir/sshd_config" -E "$dir/sshd.log" </dev/null >/dev/null 2>&1 &
    pid=$!
    await_sshd "$pid" "$dir/sshd.log"
}

start() {
    rm -f "$state"
    [[ -x /usr/sbin/sshd ]] || skip "/usr/sbin/sshd is missing (Debian package openssh-server)"
    command -v ssh >/dev/null || skip "ssh is missing (Debian package openssh-client)"
    local dir
    dir=$(mktemp -d "${TMPDIR:-/tmp}/tolm-sshd-XXXXXX") || skip "no temporary directory"
    echo "dir=$dir" >"$state"
    make_ssh_keys "$dir" || skip "ssh-keygen failed"
    cp "$dir/user_key.pub" "$dir/authorized_keys"
    # sshd insists on its privilege separation directory; only root can make it.
    [[ -d /run/sshd ]] || mkdir -p /run/sshd 2>/dev/null ||
        skip "/run/sshd is missing and cannot be made (run the tests as root)"
    local port started=""
    for _ in $(seq 20); do
        port=$((20000 + RANDOM % 40000))
        if launch "$dir" "$port"; then started=yes; break; fi
        kill "$pid" 2>/dev/null
        # Another listener on that port: try another; any other failure is final.
        grep -q "Address already in use" "$dir/sshd.log" || break
    done
    [[ -n $started ]] || skip "sshd did not start: $(tail -n 1 "$dir/sshd.log")"
    printf 'pid=%s\nport=%s\nkey=%s\nuser=%s\n' "$pid" "$port" "$dir/user_key" "$(id -un)" >>"$state"
    local reply
    reply=$(timeout 20 ssh -i "$dir/user_key" -o StrictHostKeyChecking=no \
        -o UserKnownHostsFile=/dev/null -o BatchMode=yes -o LogLevel=ERROR -p "$port" \
        127.0.0.1 echo ready 2>&1) || skip "login to the test sshd failed: $reply"
    echo "sshd listening on 127.0.0.1:$port"
}

stop() {
    local pid dir
    pid=$(value pid)
    dir=$(value dir)
    if [[ -n $pid ]]; then
        kill "$pid" 2>/dev/null
        for _ in $(seq 50); do alive "$pid" || break; sleep 0.1; done
    fi
    [[ -n $dir && -d $dir ]] && rm -rf "$dir"
    rm -f "$state"
}

case $action in
    start) start ;;
    stop) stop ;;
    *) echo "usage: $0 start|stop STATE" >&2; exit 2 ;;
esac
