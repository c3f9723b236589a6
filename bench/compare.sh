#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares two builds by the rows that the benchmarks of both have. See usage().
set -euo pipefail

usage() {
    cat <<'TEXT'
usage: compare.sh OLD_BUILD NEW_BUILD [--rounds=N] [--only=PROGRAM]... [OPTION...]

Runs every benchmark that both builds have in their folders bench, old and new in turns, for N rounds (5), and prints
for each row the medians, and the median and the range of new : old, taken in pairs. Figures are taken as the table
shows them: those of one or two digits are coarse. Beyond 3 %, rates ("/s") are better when they are higher, all else
when it is lower.

  --only=PROGRAM  that one, such as streaming for bench_streaming; may be given several times
  OPTION          goes to the benchmarks: --small, --cpu-time, which on a busy machine tells more than the clock, and
                  those of Google Benchmark, such as --benchmark_filter=write

Build both alike, say with the preset release; a worktree of the old commit will do.
TEXT
}

if (($# < 2)) || [[ ! -d $1/bench || ! -d $2/bench ]]; then
    usage >&2
    exit 2
fi
old=$(cd "$1" && pwd)
new=$(cd "$2" && pwd)
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rounds=5
reads=100000
only=()
options=()
for option in "${@:3}"; do
    case $option in
        --rounds=*) rounds=${option#*=} ;;
        --only=*) only+=("${option#*=}") ;;
        --small)
            reads=1000
            options+=("$option")
            ;;
        --*) options+=("$option") ;;
        *)
            usage >&2
            exit 2
            ;;
    esac
done

# traced_reads runs under callgrind, which counts the same instructions whatever else the machine does.
programs() {
    local path name
    for path in "$old"/bench/bench_*; do
        name=${path##*/bench_}
        [[ -f $path && -x $path && -x $new/bench/bench_$name ]] || continue
        [[ $name != traced_reads ]] || command -v valgrind >/dev/null || continue
        [[ ${#only[@]} -eq 0 || " ${only[*]} " == *" $name "* ]] || continue
        printf '%s\n' "$name"
    done
}

rows() { # BUILD PROGRAM
    if [[ $2 == traced_reads ]]; then
        "$here/trace_cost.sh" "$1" "$reads" | awk -F '  +' '{ print "1 KiB read from a cached part  " $3 " instr." }'
    else
        "$1/bench/bench_$2" --rows "${options[@]}"
    fi
}

# "round program old|new what value unit", with tabs in between.
measure() { # ROUND PROGRAM old|new
    local build=$old
    [[ $3 == old ]] || build=$new
    rows "$build" "$2" | awk -F '  +' -v OFS='\t' -v begin="$1"$'\t'"$2"$'\t'"$3" '
        { sub(/^ +/, "") }
        $2 ~ /^-?[0-9.]+ [^ ]+$/ { split($2, measured, " "); print begin, $1, measured[1], measured[2] }'
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mapfile -t chosen < <(programs)
for ((round = 1; round <= rounds; ++round)); do
    for program in "${chosen[@]}"; do
        order=(old new)
        ((round % 2)) || order=(new old)
        echo "round $round of $rounds: $program" >&2
        for side in "${order[@]}"; do
            measure "$round" "$program" "$side"
        done
    done
done >"$work/figures"
if [[ ! -s $work/figures ]]; then
    echo "$0: there was nothing to measure" >&2
    exit 1
fi

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
    function show(value, unit) {
        return sprintf("%.10g ", value) unit
    }
    function judge(ratio, unit) {
        if (ratio >= 0.97 && ratio <= 1.03) {
            return "within 3 %"
        }
        return (unit ~ /\/s$/) == (ratio > 1) ? "better" : "WORSE"
    }
    {
        row = $2 "\t" $4
        if (!(row in unit)) {
            unit[row] = $6
            order[++rows] = row
        }
        value[row, $1, $3] = $5
        lastRound = $1
    }
    END {
        format = "%-50s%18s%18s  %-22s%s\n"
        printf format, "what", "old", "new", "new : old", ""
        for (r = 1; r <= rows; ++r) {
            row = order[r]
            count = 0
            for (round = 1; round <= lastRound; ++round) {
                if ((row, round, "old") in value && (row, round, "new") in value) {
                    olds[++count] = value[row, round, "old"] + 0
                    news[count] = value[row, round, "new"] + 0
                    ratios[count] = olds[count] == news[count] ? 1 : olds[count] == 0 ? 999 : news[count] / olds[count]
                }
            }
            if (count == 0) {
                continue
            }
            ratio = median(ratios, count)
            split(row, name, "\t")
            printf format, name[2], show(median(olds, count), unit[row]), show(median(news, count), unit[row]),
                sprintf("%.3f (%.3f..%.3f)", ratio, ratios[1], ratios[count]), judge(ratio, unit[row])
        }
    }' "$work/figures"
