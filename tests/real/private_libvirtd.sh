#!/usr/bin/env bash
# The first process of mount, network and process namespaces of its own: a libvirtd with nothing of
# the machine's in reach, and a bridge for its guests. With this process, all of it goes.
# usage: private_libvirtd.sh DIRECTORY BRIDGE; the sockets appear in the directory
set -euo pipefail
directory=$1
bridge=$2

mount --make-rprivate /
for place in /etc/libvirt /var/lib/libvirt /var/cache/libvirt /var/log/libvirt /run; do
    mount -t tmpfs none "$place"
done
mkdir -p /etc/libvirt/qemu /var/lib/libvirt/qemu /run/libvirt

cat >/etc/libvirt/libvirtd.conf <<END
unix_sock_dir = "$directory"
auth_unix_rw = "none"
auth_unix_ro = "none"
log_outputs = "3:file:$directory/libvirtd.log"
END
cat >/etc/libvirt/qemu.conf <<END
stdio_handler = "file"
user = "root"
group = "root"
dynamic_ownership = 0
remember_owner = 0
security_driver = "none"
namespaces = []
cgroup_controllers = []
END

ip link set lo up
ip link add "$bridge" type bridge
ip link set "$bridge" up

# Not exec: the shell takes in the guests that libvirtd detaches.
libvirtd &
wait $!
