#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# compile_times.sh BUILD_DIR [SOURCE_DIR [NAME...]]: what each public header costs a file that includes it and nothing
# else: the processor's time to compile it (without optimization, the least of three runs), and the lines that the
# compiler reads. BUILD_DIR has the generated headers, SOURCE_DIR the others, by default those of this file's tree.
# NAME: only headers of these names, such as IProvider.hpp. CXX: the compiler.
set -euo pipefail

build_dir=$(cd "$1" && pwd)
source_dir=$(cd "${2:-$(dirname "${BASH_SOURCE[0]}")/..}" && pwd)
names=("${@:3}")
compiler=${CXX:-c++}
runs=3
libraries=(host storage/cloudprovider clients/sqlite clients/s3)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

flags=(-std=c++20)
for library in "${libraries[@]}"; do
    flags+=("-I$source_dir/$library/include" "-I$build_dir/$library/include")
done

processor_time() {
    local TIMEFORMAT='%U %S'
    { time "$compiler" "${flags[@]}" -c -o "$work/user.o" "$work/user.cpp"; } 2>&1 | awk '{ print $1 + $2 }'
}

wanted() { # HEADER
    local name
    [[ ${#names[@]} -ne 0 ]] || return 0
    for name in "${names[@]}"; do
        [[ $(basename "$1") != "$name" ]] || return 0
    done
    return 1
}

row='%-58s%8s%10s\n'
# shellcheck disable=SC2059  # the row is a format
printf "$row" "header" "s" "lines"
for library in "${libraries[@]}"; do
    (cd "$source_dir/$library/include" && find . -name '*.hpp' -printf '%P\n') | sort
done | while read -r header; do
    wanted "$header" || continue
    printf '#include <%s>\n' "$header" >"$work/user.cpp"
    seconds=$(for ((run = 0; run < runs; ++run)); do processor_time; done | sort -n | head -n 1)
    lines=$("$compiler" "${flags[@]}" -E -P "$work/user.cpp" | wc -l)
    # shellcheck disable=SC2059  # as above
    printf "$row" "$header" "$seconds" "$lines"
done
