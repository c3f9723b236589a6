# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
#
# What the scripts that measure beside other programs have in common. Sourced; they set WORK, a folder, and define fail.

say() {
    printf '%s\n' "$*"
}

progress() {
    printf '  ... %s\n' "$*" >&2
}

subtract() { # A B
    awk -v a="$1" -v b="$2" 'BEGIN { printf "%.6f", a - b }'
}

# TAKEN becomes the seconds that a command takes; of its standard output nothing is kept.
take_time() { # COMMAND...
    local start
    sync -f "$WORK"
    start=$EPOCHREALTIME
    "$@" >/dev/null 2>"$WORK/errors" || {
        cat "$WORK/errors" >&2
        fail "failed: $*"
    }
    TAKEN=$(subtract "$EPOCHREALTIME" "$start")
}

MOUNT_PID=

# Starts what mounts on WORK/mount and stays in the foreground; what it says goes to WORK/mount.log.
mount_by() { # COMMAND...
    local tries=0
    mkdir -p "$WORK/mount"
    "$@" >"$WORK/mount.log" 2>&1 &
    MOUNT_PID=$!
    until mountpoint -q "$WORK/mount"; do
        tries=$((tries + 1))
        if [[ $tries -eq 200 ]] || ! kill -0 "$MOUNT_PID" 2>/dev/null; then
            kill "$MOUNT_PID" 2>/dev/null || true
            wait "$MOUNT_PID" || true
            MOUNT_PID=
            return 1
        fi
        sleep 0.05
    done
}

unmount() {
    [[ -n $MOUNT_PID ]] || return 0
    if mountpoint -q "$WORK/mount"; then
        umount "$WORK/mount" 2>/dev/null || fusermount3 -u "$WORK/mount"
    else
        kill "$MOUNT_PID" 2>/dev/null || true
    fi
    wait "$MOUNT_PID" || true
    MOUNT_PID=
}

# Goals: "> 1 x" and the like for how many times better ours is, "<= 18" for the figure itself, or none.
note() { # WHAT UNIT GOAL VALUE [WHO OTHER]
    local IFS=$'\t'
    printf '%s\n' "$*" >>"$WORK/figures"
}

# The rows noted since the last time: medians; ratios are taken in pairs.
print_rows() {
    awk -F '\t' '
        function median(values, count,    i, j, value) {
            for (i = 2; i <= count; ++i) {
                value = values[i]
                for (j = i - 1; j >= 1 && values[j] > value; --j) {
                    values[j + 1] = values[j]
                }
                values[j + 1] = value
            }
            return count % 2 ? values[(count + 1) / 2] : (values[count / 2] + values[count / 2 + 1]) / 2
        }
        function show(value,    digits) {
            digits = value == int(value) || value >= 100 ? 0 : value >= 10 ? 1 : value >= 0.1 ? 2 : 4
            return sprintf("%." digits "f", value)
        }
        function judge(goal, value, ratio,    words, isMet) {
            split(goal, words, " ")
            if (words[3] == "x" && ratio == "") {
                return "not compared"
            }
            if (words[3] == "x") {
                value = ratio
            }
            isMet = words[1] == ">" ? (value > words[2] + 0) : words[1] == ">=" ? (value >= words[2] + 0) : \
                (value <= words[2] + 0)
            return isMet ? "met" : "MISSED"
        }
        {
            row = $1 "\t" $5
            if (!(row in count)) {
                order[++rows] = row
            }
            what[row] = $1
            unit[row] = $2
            goal[row] = $3
            who[row] = $5
            measured[row, ++count[row]] = $4
            other[row, count[row]] = $6
        }
        END {
            for (r = 1; r <= rows; ++r) {
                row = order[r]
                compared = 0
                for (i = 1; i <= count[row]; ++i) {
                    ours[i] = measured[row, i] + 0
                    if (other[row, i] + 0 > 0 && ours[i] > 0) {
                        theirs[++compared] = other[row, i] + 0
                        ratios[compared] = unit[row] ~ /\/s$/ ? ours[i] / theirs[compared] : theirs[compared] / ours[i]
                    }
                }
                value = median(ours, count[row])
                ratio = shown = ""
                beside = who[row] == "" ? "" : other[row, 1] " " who[row]
                if (compared > 0) {
                    ratio = median(ratios, compared)
                    beside = show(median(theirs, compared)) " " who[row]
                    shown = sprintf("%.2f x (%.2f..%.2f)", ratio, ratios[1], ratios[compared])
                }
                printf "%-44s%17s%20s  %-24s%-10s%s\n", what[row], show(value) " " unit[row], beside, shown, goal[row],
                    goal[row] == "" ? "" : judge(goal[row], value, ratio)
            }
        }' "$WORK/figures"
    rm -f -- "$WORK/figures"
}

# Calls a function for each of some names, in turns from the first and from the last.
in_turns() { # ROUND FUNCTION NAME...
    local function=$2 names=("${@:3}") i
    for ((i = 0; i < ${#names[@]}; ++i)); do
        if (($1 % 2)); then
            "$function" "${names[i]}"
        else
            "$function" "${names[-1 - i]}"
        fi
    done
}

print_machine() {
    say "machine    $(awk -F ': ' '/^model name/ { print $2; exit }' /proc/cpuinfo), $(nproc) processors," \
        "$(awk '/^MemTotal/ { print int($2 / 1024) }' /proc/meminfo) MiB, $(uname -sr)"
}

print_columns() {
    printf '%-44s%17s%20s  %-24s%-10s%s\n' "what" "measured" "beside" "better by" "goal" ""
}

show_size() {
    if ((SIZE >= 1024 * MIB)); then
        say "$((SIZE / 1024 / MIB)) GiB"
    else
        say "$((SIZE / MIB)) MiB"
    fi
}
