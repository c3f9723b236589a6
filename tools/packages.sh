# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# Installing Debian packages; sourced by ./dev and tools/s3-server.

as_root() {
    if [[ $(id -u) -ne 0 ]] && command -v sudo >/dev/null; then
        sudo "$@"
    else
        "$@"
    fi
}

missing_packages() { # PACKAGE...
    local package
    for package in "$@"; do
        if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            printf '%s\n' "$package"
        fi
    done
}

# Waits for another apt-get to end. Mirrors fail now and then, so a failure is shown and tried again.
apt_get() { # ARGS...
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300 "$@"
}

# Installs those that are missing.
install_packages() { # PACKAGE...
    local missing log try
    mapfile -t missing < <(missing_packages "$@")
    [[ ${#missing[@]} -gt 0 ]] || return 0
    printf 'installing: %s\n' "${missing[*]}" >&2
    log=$(mktemp)
    for try in 1 2 3; do
        if { apt_get update && apt_get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
            rm -f -- "$log"
            return 0
        fi
        tail -n 20 "$log" >&2
        printf 'apt-get failed, try %d of 3\n' "$try" >&2
        sleep $((try * 2))
    done
    rm -f -- "$log"
    return 1
}

# The same, without letting the packages start services of their own.
install_packages_without_services() { # PACKAGE...
    local policy=/usr/sbin/policy-rc.d result=0
    if [[ -e $policy || -z $(missing_packages "$@") ]]; then
        install_packages "$@"
        return
    fi
    printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
    as_root chmod 755 "$policy"
    install_packages "$@" || result=$?
    as_root rm -f "$policy"
    return "$result"
}
