#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# trace_cost.sh BUILD_DIR [READS]: measures, with tracing off, what share of the instructions of 1 KiB reads from a
# cached part is trace code, and prints it as a row of the benchmarks' table.
#
# callgrind counts each instruction executed from ByteStream::read on, calls included, the setup excluded. An
# instruction is trace code if its line, or any line that it was inlined into, lies in Trace.hpp, Trace.cpp or
# DiagnosticLogger.*, or holds one of the macros CLOUDPROVIDER_TRACE*. An optimized build is what makes sense.
#
# With SHOW_LINES=1 in the environment, the trace code's instructions a read follow, by line.
set -euo pipefail

build_dir=$(cd "$1" && pwd)
reads=${2:-100000}
program=$build_dir/bench/bench_traced_reads
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
what="trace code of 1 KiB reads from a cached part"
row='%-50s%19s%13s  %-22s%-16s%s\n'

if ! command -v valgrind >/dev/null || ! command -v addr2line >/dev/null; then
    printf "$row" "$what" "skipped" "" "needs valgrind, addr2line" "<= 5 %" ""
    exit 0
fi

if [[ -n $(find "$source_dir/storage/cloudprovider/src" -newer "$program" -print -quit) ]]; then
    echo "warning: sources are newer than $program, so lines with trace macros may be mistaken" >&2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

valgrind --tool=callgrind --dump-instr=yes --dump-line=yes --compress-strings=no --compress-pos=no \
    --collect-atstart=no '--toggle-collect=foundation::storage::provider::ByteStream::read(char*, long)' \
    '--zero-before=*readFromCachedPart*' --callgrind-out-file="$work/counts" \
    "$program" "$reads" >"$work/log" 2>&1 || { cat "$work/log" >&2; exit 1; }

# "object address count" of every instruction; the line behind calls= tells what the call cost, which is
# counted where it was spent.
awk '/^ob=/ { object = substr($0, 4) }
     /^calls=/ { getline; next }
     /^0x/ { counts[object " " $1] += $3 }
     END { for (at in counts) print at, counts[at] }' "$work/counts" | sort >"$work/instructions"
total=$(awk '{ sum += $3 } END { printf "%.0f", sum }' "$work/instructions")
if ((total < reads)); then
    echo "failed: callgrind counted $total instructions in $reads reads" >&2
    exit 1
fi

# "address file:line" of every frame, the innermost first, for the objects built here.
for object in $(cut -d' ' -f1 "$work/instructions" | sort -u); do
    case $object in
        "$build_dir"/*) ;;
        *) continue ;;
    esac
    awk -v object="$object" '$1 == object { print $2 }' "$work/instructions" |
        addr2line --exe="$object" --inlines --addresses |
        awk -v object="$object" '/^0x/ { sub(/^0x0*/, "0x"); address = $1; next }
                                 { sub(/ \(discriminator.*/, ""); print object, address, $0 }'
done >"$work/frames"

grep -rn --include='*.cpp' --include='*.hpp' -E '^[^#]*CLOUDPROVIDER_TRACE' "$source_dir/storage/cloudprovider/src" |
    awk -F: -v root="$source_dir/" '{ sub(root, "", $1); print $1 ":" $2 }' >"$work/macros"

awk -v root="$source_dir/" -v reads="$reads" -v show="${SHOW_LINES:-0}" -v lines_file="$work/lines" '
    FILENAME ~ /macros$/ { macros[$1] = 1; next }
    FILENAME ~ /frames$/ {
        place = $3
        sub(".*" root, "", place)
        while (sub(/[^\/]+\/\.\.\//, "", place)) {}
        if (place ~ /\/(Trace|DiagnosticLogger)\.[ch]pp:/ || place in macros) {
            trace[$1 " " $2] = place
        }
        next
    }
    { total += $3 }
    ($1 " " $2) in trace { cost += $3; perLine[trace[$1 " " $2]] += $3 }
    END {
        for (line in perLine) printf "%8.1f  %s\n", perLine[line] / reads, line > lines_file
        printf "%.2f %.1f %.1f\n", 100 * cost / total, cost / reads, total / reads
    }' "$work/macros" "$work/frames" "$work/instructions" >"$work/result"
read -r share cost_per_read total_per_read <"$work/result"

verdict=$(awk -v share="$share" 'BEGIN { print share <= 5 ? "met" : "MISSED" }')
printf "$row" "$what" "$cost_per_read instr." "$total_per_read" "$share % of a read's" "<= 5 %" "$verdict"
if [[ ${SHOW_LINES:-0} == 1 ]]; then
    sort -rn "$work/lines"
fi
