# Shell functions the test fixtures' scripts share (sourced, not run). The callers set $state,
# the fixture's key=value file.

value() { sed -n "s/^$1=//p" "$state" 2>/dev/null; }

# Runs the caller's start or stop function, as the script's action $1 asks.
run_action() {
    case $1 in
        start) start ;;
        stop) stop ;;
        *) echo "usage: $0 start|stop STATE" >&2; exit 2 ;;
    esac
}

# Removes the fixture's directory $1, and its state file unless a failed start left its reason
# there for the tests.
remove_fixture() {
    [[ -n $1 && -d $1 ]] && rm -rf "$1"
    grep -q '^\(skip\|error\)=' "$state" 2>/dev/null || rm -f "$state"
}

# True while process $1 runs; a zombie waiting for a lazy init to reap it counts as gone.
alive() {
    local status
    status=$(awk '{print $3}' "/proc/$1/stat" 2>/dev/null)
    [[ -n $status && $status != Z ]]
}

# A host key and a user key, without passphrase, in directory $1.
make_ssh_keys() {
    ssh-keygen -q -t ed25519 -N '' -C tolm-test-host -f "$1/host_key" &&
        ssh-keygen -q -t ed25519 -N '' -C tolm-test-user -f "$1/user_key"
}

# Writes to $1 the configuration of a private sshd: address $2, port $3, keys of directory $4,
# process id file $5; no password, no PAM, nothing of the system's configuration.
write_sshd_config() {
    cat >"$1" <<CONFIG
ListenAddress $2
Port $3
HostKey $4/host_key
AuthorizedKeysFile $4/authorized_keys
PermitRootLogin prohibit-password
PasswordAuthentication no
KbdInteractiveAuthentication no
StrictModes no
UsePAM no
PidFile $5
CONFIG
}

# True once the sshd of process $1 says in its log $2 that it listens (within 5 s); false when
# it ends or stays silent.
await_sshd() {
    for _ in $(seq 100); do
        grep -q "Server listening" "$2" && return 0
        alive "$1" || return 1
        sleep 0.05
    done
    return 1
}
