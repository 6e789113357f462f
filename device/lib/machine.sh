# SPDX-FileCopyrightText: 2026 The osx maintainers
# SPDX-License-Identifier: MIT

# shellcheck shell=bash
# The emulated PC: one IDE disc with the system, one with what is to run, four UARTs, Ethernet and
# a real-time clock.

# shellcheck source-path=SCRIPTDIR source-path=SCRIPTDIR/lib source=image.sh
. "$(dirname "${BASH_SOURCE[0]}")/image.sh"

readonly board_memory=256
readonly board_port=7000

# run_machine DIR HOST_PORT LIMIT: runs the board until it powers off, for LIMIT seconds at most (0
# for no limit), with DIR/disc as second disc and the console on standard input and output.
# HOST_PORT of this machine leads to the board's port. ttyS1 and ttyS2 are joined; ttyS3 is the socket
# DIR/ttyS3. What the emulator has to say goes to DIR/machine.log.
# The kernel must not test the timer while it starts: on a host that is busy the emulated interrupts
# come too late for it, and it panics.
run_machine() {
    local dir=$1 host_port=$2 limit=$3 system image
    system=$(system_dir)
    image=$(image_dir)
    timeout --foreground "$limit" qemu-system-i386 -accel tcg -m "$board_memory" \
        -display none -no-reboot -pidfile "$dir/pid" \
        -kernel "$system/kernel" -initrd "$system/initrd" \
        -append "root=LABEL=system rw console=ttyS0 init=/sbin/board-init quiet loglevel=2 panic=-1 net.ifnames=0 no_timer_check" \
        -drive "file=$image/disc,format=raw,if=ide,snapshot=on" \
        -drive "file=$dir/disc,format=raw,if=ide" \
        -rtc base=utc \
        -serial mon:stdio \
        -chardev "socket,id=near,path=$dir/modem,server=on,wait=off" -serial chardev:near \
        -chardev "socket,id=far,path=$dir/modem" -serial chardev:far \
        -chardev "socket,id=host,path=$dir/ttyS3,server=on,wait=off" -serial chardev:host \
        -netdev "user,id=net,hostfwd=tcp:127.0.0.1:$host_port-:$board_port" \
        -device ne2k_pci,netdev=net,romfile= \
        2>"$dir/machine.log"
}
