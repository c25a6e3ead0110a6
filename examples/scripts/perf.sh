#!/bin/sh
# How busy the machine is, in percent, for the performance monitor, which runs this every 5 seconds:
#
#   cpu=12.50    processor use, all processors together, between two looks PAUSE seconds apart;
#                time that the host of a virtual machine took away counts as used
#   mem=40.25    memory that programs could not get: all but the kernel's MemAvailable
#   disk=81.03   the fullest file system of a kind named in COUNTED that can be written to, as df
#                counts it: used / (used + available to users)
#
# Always a point, always two decimals, cut and not rounded; never below 0.00 and never above 99.99,
# because the service ends on a longer values text. A threshold of 100 is thus never reached. A
# figure that cannot be had has no line, and the monitor keeps its last reading.
#
# Install as /usr/lib/orvan/ov-event-logger/perf.sh.
set -u
LC_ALL=C
export LC_ALL

PAUSE=0.5 # seconds

# What lies in tmpfs is memory and counted as such; add tmpfs where it holds what matters.
COUNTED='ext[234]|xfs|btrfs|f2fs|bcachefs|jfs|nilfs2|reiserfs|zfs|ubifs|jffs2|vfat|exfat|ntfs3|overlay'
# These never make a program wait that passes through them. Any other kind may (a network, a server
# in user space), so that neither it nor anything mounted in it is looked at.
PASSED='tmpfs|ramfs|rootfs|devtmpfs|autofs|squashfs|erofs|cramfs|romfs|iso9660|udf'

# Sets hundredths to those of part / whole in percent, between 0 and 9999. Fails without a whole.
set_hundredths() {
    [ "$2" -gt 0 ] || return 1
    hundredths=$(($1 * 10000 / $2))
    [ "$hundredths" -ge 0 ] || hundredths=0
    [ "$hundredths" -le 9999 ] || hundredths=9999
}

show() { printf '%s=%d.%02d\n' "$1" $((hundredths / 100)) $((hundredths % 100)); }

# Sets busy and idle to the kernel's counters since the start.
look_at_processors() {
    # user nice system idle iowait irq softirq steal; what guests use is in the first two
    read -r _ a b c d e f g h _ </proc/stat || return 1
    busy=$((a + b + c + f + g + h))
    idle=$((d + e))
}

cpu() {
    look_at_processors || return
    busy_before=$busy
    idle_before=$idle
    sleep "$PAUSE"
    look_at_processors || return
    # The kernel lets these counters go back now and then.
    used=$((busy > busy_before ? busy - busy_before : 0))
    unused=$((idle > idle_before ? idle - idle_before : 0))
    set_hundredths "$used" $((used + unused)) && show cpu
}

mem() {
    total=0
    while read -r key value _; do
        case $key in
            MemTotal:) total=$value ;;
            MemAvailable:) set_hundredths $((total - value)) "$total" && show mem; return ;;
        esac
    done </proc/meminfo
}

# The mount points to look at, one a line.
mount_points() {
    awk -v counted="^($COUNTED)\$" -v passed="^($PASSED)\$" '
        # ID PARENT DEVICE ROOT PATH OPTIONS [TAG]... - TYPE SOURCE OPTIONS
        {
            for (type = 8; type < NF && $(type - 1) != "-"; type++) ;
            if ($type !~ counted && $type !~ passed) avoid[$5]
            # Not the options of the mount: the unit makes every mount read-only for its service.
            # Of mounts on one another the last line is the one that is seen.
            looked_at[$5] = $type ~ counted && "," $NF "," !~ /,ro,/
        }
        END {
            for (path in looked_at) {
                for (other in avoid) if (index(path "/", other "/") == 1) looked_at[path] = 0
                if (!looked_at[path] || path ~ /\\012/) continue
                gsub(/\\040/, " ", path)
                gsub(/\\011/, "\t", path)
                gsub(/\\043/, "#", path)
                gsub(/\\134/, "\\", path)
                print path
            }
        }' /proc/self/mountinfo
}

disk() {
    set -f
    IFS='
'
    # shellcheck disable=SC2046 # one word a line
    set -- $(mount_points)
    [ $# -gt 0 ] || return
    IFS=' 
'
    # shellcheck disable=SC2046 # three words a file system
    set -- $(stat -f -c '%b %f %a' "$@" 2>/dev/null)
    fullest=-1
    while [ $# -ge 3 ]; do
        set_hundredths $(($1 - $2)) $(($1 - $2 + $3)) && [ "$hundredths" -gt "$fullest" ] &&
            fullest=$hundredths
        shift 3
    done
    hundredths=$fullest
    [ "$fullest" -lt 0 ] || show disk
}

# The disks last: should one of them not answer, the service still has what was printed before.
cpu
mem
disk
