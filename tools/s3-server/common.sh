# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# What both servers need; sourced by s3-server.
#
# FOLDER/s3-server      kind, port, keys; shows that the folder is ours
# FOLDER/complete       once a start has succeeded
# FOLDER/run/N-NAME.pid in the order of starting
# FOLDER/log            what the servers wrote

REGION=us-east-1
PYTHON=/usr/bin/python3  # Debian's, which has its packages

fail() {
    printf 's3-server: %s\n' "$*" >&2
    exit 1
}

# --- the folder -----------------------------------------------------------------------------------------

read_folder() {
    [[ -e $FOLDER/s3-server ]] || fail "$FOLDER: no server was started there"
    read -r KIND PORT ACCESS_KEY SECRET_KEY <"$FOLDER/s3-server"
}

free_ports() { # COUNT: the first of so many in a row
    "$PYTHON" - "$1" <<'END'
import random, socket, sys

def is_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", port))
            return True
        except OSError:
            return False

count = int(sys.argv[1])
# Below the ports that the system gives to whoever asks for any.
for first in random.sample(range(10000, 32000, 100), 200):
    if all(is_free(port) for port in range(first, first + count)):
        print(first)
        break
else:
    sys.exit("no free ports found")
END
}

# Makes FOLDER this server's, or goes on with what an earlier start left. A first start that did not succeed is
# forgotten.
take_folder() {
    local kind=$KIND port=$PORT
    if [[ -e $FOLDER/complete ]]; then
        read_folder
        [[ $KIND == "$kind" ]] || fail "$FOLDER: belongs to a server of another kind, $KIND"
        [[ $port -eq 0 || $PORT -eq $port ]] || fail "$FOLDER: belongs to a server on another port, $PORT"
        return
    fi
    if [[ -e $FOLDER/s3-server ]]; then
        rm -rf -- "$FOLDER"
    fi
    [[ -z $(ls -A "$FOLDER" 2>/dev/null) ]] || fail "$FOLDER: not empty, and not of an earlier start"
    [[ $PORT -ne 0 ]] || PORT=$(free_ports 61) || fail "no free ports"
    ACCESS_KEY=testkey SECRET_KEY=testsecret
    if [[ $KIND == swift ]]; then
        ACCESS_KEY=test:tester # ACCOUNT:USER
    fi
    mkdir -p "$FOLDER"/{run,log}
    printf '%s\n' "$KIND $PORT $ACCESS_KEY $SECRET_KEY" >"$FOLDER/s3-server"
}

print_environment() { # [BUCKET...]
    cat <<END
S3_SERVER=$KIND
S3_ENDPOINT=http://127.0.0.1:$PORT
S3_ACCESS_KEY=$ACCESS_KEY
S3_SECRET_KEY=$SECRET_KEY
S3_REGION=$REGION
S3_BUCKET=${1:-}
S3_FOLDER=$FOLDER
END
    case $KIND in
        ceph) printf 'S3_LACKS=copy-conditions\n' ;; # copies parts of any version
        swift) printf 'S3_LACKS=put-conditions,tags\n' ;;
    esac
}

# --- processes ------------------------------------------------------------------------------------------

# The servers outlive this script, and must not hold a lock or a pipe of whoever called it. 255 is bash's own.
close_inherited_files() {
    local file number
    for file in "/proc/$$/fd"/*; do
        number=${file##*/}
        if [[ $number -gt 2 && $number -ne 255 ]]; then
            exec {number}>&-
        fi
    done
}

# The numbers of the processes started in FOLDER, the last one first.
started() {
    local file
    find "$FOLDER/run" -name '*.pid' -size +0 2>/dev/null | sort -r | while read -r file; do
        printf '%s\n' "$(<"$file")"
    done
}

is_alive() { # PID
    kill -0 "$1" 2>/dev/null
}

# A number may have gone to another process since: the command or an open file of ours names the folder.
is_ours() { # PID
    is_alive "$1" &&
        { grep -qF -- "$FOLDER/" "/proc/$1/cmdline" || find "/proc/$1/fd" -lname "$FOLDER/*" | grep -q .; } 2>/dev/null
}

refuse_running() {
    local pid
    for pid in $(started); do
        ! is_ours "$pid" || fail "$FOLDER: a server is running there"
    done
}

end_process() { # PID SIGNAL
    local tries=0
    kill -s "$2" "$1" 2>/dev/null || return 0
    while is_alive "$1"; do
        tries=$((tries + 1))
        if [[ $tries -eq 100 ]]; then
            kill -KILL "$1" 2>/dev/null || true
        fi
        sleep 0.1
    done
}

end_servers() { # SIGNAL
    local pid
    for pid in $(started); do
        if is_ours "$pid"; then
            end_process "$pid" "$1"
        fi
    done
    rm -f -- "$FOLDER"/run/*.pid
}

# A start that fails leaves nothing running, and its logs.
give_up() {
    local log
    printf 's3-server: %s did not start; the ends of its logs in %s:\n' "$KIND" "$FOLDER/log" >&2
    for log in "$FOLDER"/log/*; do
        [[ ! -s $log ]] || tail -v -n 5 "$log" >&2
    done
    end_servers TERM
}

# Fails at once when one of the servers has ended.
wait_until() { # WHAT SECONDS COMMAND...
    local what=$1 tries=$(($2 * 10)) pid
    shift 2
    until "$@"; do
        for pid in $(started); do
            is_alive "$pid" || fail "a server has ended"
        done
        tries=$((tries - 1))
        [[ $tries -gt 0 ]] || fail "waited in vain until $what"
        sleep 0.1
    done
}

# --- requests -------------------------------------------------------------------------------------------

# The status that a signed request is answered with. curl 7.88 signs without x-amz-content-sha256 unless it is given,
# which Ceph refuses. Only a URL can name a user with a colon, as Swift has them.
status_of() { # METHOD PATH
    curl -s -o /dev/null -w '%{http_code}' --max-time 30 --noproxy '*' -X "$1" \
        --aws-sigv4 "aws:amz:$REGION:s3" -H 'x-amz-content-sha256: UNSIGNED-PAYLOAD' \
        "http://${ACCESS_KEY/:/%3A}:$SECRET_KEY@127.0.0.1:$PORT$2" || true
}

answers_with() { # STATUS METHOD PATH
    [[ $(status_of "$2" "$3") == "$1" ]]
}

create_buckets() { # BUCKET...
    local bucket status
    for bucket in "$@"; do
        status=$(status_of PUT "/$bucket")
        # 409: there from an earlier start
        [[ $status == 200 || $status == 409 ]] || fail "creating bucket $bucket: status $status"
    done
}
