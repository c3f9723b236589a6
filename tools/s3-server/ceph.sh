# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# Ceph on one host: a monitor, one OSD with a sparse file of 20 GiB, and the gateway; sourced by s3-server.

CEPH_PACKAGES=(radosgw ceph-mon ceph-osd ceph-common)

# No manager: nothing here needs its statistics.
ceph_configuration() {
    cat <<END
[global]
fsid = $(</proc/sys/kernel/random/uuid)
mon_host = [v2:127.0.0.1:$((PORT + 1)),v1:127.0.0.1:$((PORT + 2))]
mon_initial_members = a
public_addr = 127.0.0.1
cluster_addr = 127.0.0.1
public_network = 127.0.0.0/8
cluster_network = 127.0.0.0/8
ms_bind_port_min = $((PORT + 10))
ms_bind_port_max = $((PORT + 60))
auth_cluster_required = none
auth_service_required = none
auth_client_required = none
log_file = $FOLDER/log/\$name.log
admin_socket =
run_dir = $FOLDER/run
crash_dir = $FOLDER/log
mon_data = $FOLDER/mon
osd_data = $FOLDER/osd
rgw_data = $FOLDER/rgw
keyring = /dev/null
mon_cluster_log_file = $FOLDER/log/cluster.log
debug_ms = 0
debug_osd = 0/0
debug_mon = 0/0
debug_rocksdb = 0/0
debug_bluestore = 0/0
osd_pool_default_size = 1
osd_pool_default_min_size = 1
osd_pool_default_pg_num = 8
osd_pool_default_pgp_num = 8
osd_pool_default_pg_autoscale_mode = off
osd_crush_chooseleaf_type = 0
mon_allow_pool_size_one = true
mon_max_pg_per_osd = 1000
paxos_propose_interval = 0.05
paxos_min_wait = 0.02

[mon]
pid_file = $FOLDER/run/1-mon.pid
mon_data_avail_crit = 1
mon_data_avail_warn = 2
auth_allow_insecure_global_id_reclaim = false

[osd]
pid_file = $FOLDER/run/2-osd.pid
osd_objectstore = bluestore
bluestore_block_size = $((20 * 1024 * 1024 * 1024))
osd_memory_target = $((1024 * 1024 * 1024))
osd_crush_initial_weight = 1.0

[client.rgw]
pid_file = $FOLDER/run/3-gateway.pid
ms_mon_client_mode = crc
rgw_frontends = beast endpoint=127.0.0.1:$PORT
rgw_thread_pool_size = 32
END
}

# Runs one of Ceph's programs on this store, and keeps what it says.
ceph_run() { # PROGRAM ARGS...
    CEPH_CONF=$FOLDER/ceph.conf timeout 120 "$@" >>"$FOLDER/log/commands.log" 2>&1 || fail "$1 ended with status $?"
}

ceph_prepare_monitor() {
    mkdir -p "$FOLDER"/{mon,osd,rgw}
    ceph_configuration >"$FOLDER/ceph.conf"
    ceph_run monmaptool --create --clobber --fsid "$(awk '/^fsid/ { print $3 }' "$FOLDER/ceph.conf")" \
        --addv a "[v2:127.0.0.1:$((PORT + 1)),v1:127.0.0.1:$((PORT + 2))]" "$FOLDER/monmap"
    ceph_run ceph-mon -c "$FOLDER/ceph.conf" -i a --mkfs --monmap "$FOLDER/monmap"
}

ceph_prepare_osd() {
    local uuid
    uuid=$(</proc/sys/kernel/random/uuid)
    ceph_run ceph osd new "$uuid"
    ceph_run ceph-osd -c "$FOLDER/ceph.conf" -i 0 --mkfs --osd-uuid "$uuid"
}

ceph_create_user() {
    ceph_run radosgw-admin -n client.rgw user create --uid=test --display-name=test \
        --access-key="$ACCESS_KEY" --secret-key="$SECRET_KEY"
}

# The servers go to the background by themselves; -c makes them known as ours, see is_ours().
start_ceph() {
    local is_first=
    [[ -e $FOLDER/complete ]] || is_first=1
    [[ -z $is_first ]] || ceph_prepare_monitor
    ceph_run ceph-mon -c "$FOLDER/ceph.conf" -i a
    [[ -z $is_first ]] || ceph_prepare_osd
    ceph_run ceph-osd -c "$FOLDER/ceph.conf" -i 0
    [[ -z $is_first ]] || ceph_create_user
    ceph_run radosgw -c "$FOLDER/ceph.conf" -n client.rgw
}

ceph_collect() {
    ceph_run radosgw-admin -n client.rgw gc process --include-all
}
