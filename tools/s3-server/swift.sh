# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# OpenStack Swift on one host with its S3 interface: the proxy, one server each of objects, containers and accounts,
# and memcached; sourced by s3-server.

SWIFT_PACKAGES=(python3-swift memcached ca-certificates)

swift_defaults() { # PORT
    cat <<END
[DEFAULT]
bind_ip = 127.0.0.1
bind_port = $1
workers = 0
user = $(id -un)
swift_dir = $FOLDER/etc
log_udp_host = 127.0.0.1
log_udp_port = 9
log_level = WARNING
END
}

swift_storage_configuration() { # KIND PORT
    swift_defaults "$2"
    cat <<END
devices = $FOLDER/dev
mount_check = false
fallocate_reserve = 0
disable_fallocate = true
recon_cache_path = $FOLDER/cache
container_update_timeout = 30
conn_timeout = 5
node_timeout = 60

[pipeline:main]
pipeline = $1-server

[app:$1-server]
use = egg:swift#$1
END
}

swift_proxy_configuration() {
    local name
    swift_defaults "$PORT"
    cat <<END

[pipeline:main]
pipeline = catch_errors gatekeeper healthcheck listing_formats cache s3api tempauth bulk slo dlo proxy-server

[app:proxy-server]
use = egg:swift#proxy
account_autocreate = true
node_timeout = 60
recoverable_node_timeout = 60
conn_timeout = 5

[filter:cache]
use = egg:swift#memcache
memcache_servers = 127.0.0.1:$((PORT + 4))

[filter:s3api]
use = egg:swift#s3api
location = $REGION
allow_multipart_uploads = true
min_segment_size = 5242880
max_upload_part_num = 10000
s3_acl = false

[filter:tempauth]
use = egg:swift#tempauth
user_${ACCESS_KEY%%:*}_${ACCESS_KEY#*:} = $SECRET_KEY .admin

[filter:slo]
use = egg:swift#slo
max_manifest_segments = 10000
max_manifest_size = 16777216
END
    for name in catch_errors gatekeeper healthcheck listing_formats bulk dlo; do
        printf '\n[filter:%s]\nuse = egg:swift#%s\n' "$name" "$name"
    done
}

swift_build_rings() {
    "$PYTHON" -B - "$FOLDER/etc" "$PORT" <<'END'
import os, sys
from swift.common.ring import RingBuilder

folder, port = sys.argv[1], int(sys.argv[2])
for index, kind in enumerate(("object", "container", "account"), 1):
    ring = RingBuilder(4, 1, 1)
    ring.add_dev(dict(id=0, region=1, zone=1, device="sda1", weight=1, meta="",
                      ip="127.0.0.1", port=port + index,
                      replication_ip="127.0.0.1", replication_port=port + index))
    ring.rebalance()
    ring.get_ring().save(os.path.join(folder, kind + ".ring.gz"))
END
}

swift_configure() {
    mkdir -p "$FOLDER"/{etc,cache,dev/sda1}
    cat >"$FOLDER/etc/swift.conf" <<END
[swift-hash]
swift_hash_path_suffix = test
swift_hash_path_prefix = test

[storage-policy:0]
name = gold
default = yes
END
    swift_storage_configuration object $((PORT + 1)) >"$FOLDER/etc/object-server.conf"
    swift_storage_configuration container $((PORT + 2)) >"$FOLDER/etc/container-server.conf"
    swift_storage_configuration account $((PORT + 3)) >"$FOLDER/etc/account-server.conf"
    swift_proxy_configuration >"$FOLDER/etc/proxy-server.conf"
    swift_build_rings >"$FOLDER/log/rings.log" 2>&1 || fail "building the rings failed"
}

# The open log makes each process known as ours, see is_ours().
swift_spawn() { # NAME COMMAND...
    setsid "${@:2}" >"$FOLDER/log/$1.log" 2>&1 </dev/null &
    printf '%d\n' $! >"$FOLDER/run/$1.pid"
}

# Swift's own launcher reads /etc/swift/swift.conf; another folder must be named before anything else is imported.
swift_spawn_server() { # NAME KIND
    swift_spawn "$1" "$PYTHON" -B -c 'import os, sys
import swift.common.utils as utils
folder, kind = sys.argv[1:]
utils.SWIFT_CONF_FILE = os.path.join(folder, "swift.conf")
utils.set_swift_dir(folder)
from swift.common.wsgi import run_wsgi
configuration = os.path.join(folder, kind + "-server.conf")
sys.argv[1:] = [configuration]
sys.exit(run_wsgi(configuration, kind + "-server"))' "$FOLDER/etc" "$2"
}

swift_listens() {
    local each
    for ((each = PORT; each < PORT + 5; each++)); do
        (: <"/dev/tcp/127.0.0.1/$each") 2>/dev/null || return 1
    done
}

start_swift() {
    swift_configure
    swift_spawn 1-memcached memcached -l 127.0.0.1 -p $((PORT + 4)) -U 0 -m 64 -u "$(id -un)"
    swift_spawn_server 2-account account
    swift_spawn_server 3-container container
    swift_spawn_server 4-object object
    swift_spawn_server 5-proxy proxy
    wait_until "all servers listen" 60 swift_listens
}
